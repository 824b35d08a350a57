#!/usr/bin/env python3
"""Writes type stubs for the extension module, so that editors and type checkers know its names, types and texts.

usage: make-stubs.py FOLDER OUT

FOLDER holds the built module; it is imported by the interpreter that runs this script. The stubs are written as
OUT/vorna-stubs/**/__init__.pyi, the form that PEP 561 gives a package of stubs. A folder OUT/vorna would not do: an
interpreter that can't load the module would take the folder for an empty package.

All is read from what the binding layer writes into docstrings: the first line of a function is its signature, the
getter of a property names its type, and what takes members by keyword says of which class.
"""
import contextlib
import io
import re
import sys
import types
from pathlib import Path

ROOT = "vorna"
MEMBERS_BY_KEYWORD = "Every member at its default, or as named: name=value."
MEMBERS_OF_A_CLASS = re.compile(r"Keyword arguments are the members of ([\w.]+)\.")
SIGNATURE = re.compile(r"^(\w+)\((.*)\) -> (.+)$")
# what Python itself gives every class, or what no user calls
SKIPPED = {"__module__", "__doc__", "__dict__", "__weakref__", "__qualname__", "__new__", "__getstate__", "__setstate__",
           "__members__", "_pybind11_conduit_v1_", "__entries"}


class Module:
    """One .pyi file: text, and which modules it refers to."""

    def __init__(self, name):
        self.name = name
        self.imports = {}
        self.uses_numpy = False
        self.body = io.StringIO()

    def line(self, depth=0, text=""):
        self.body.write("    " * depth + text + "\n" if text else "\n")

    def use(self, module):
        """The name by which the body refers to another module. Plain imports of submodules would all bind `vorna`."""
        alias = "_" + module.replace(".", "_")
        self.imports[module] = alias
        return alias

    def type_text(self, text):
        """A type as a signature spells it, in terms of this file's imports."""
        text = re.sub(r"\b(List|Tuple|Dict|Set)\[", lambda match: match.group(1).lower() + "[", text)  # older pybind11
        text = re.sub(r"\b(typing\.)?Annotated\[|, FixedSize\(\d+\)\]", "", text)  # type checkers know no size of a list
        text = re.sub(r"(?<![\w.])(Optional|Union|Callable|Iterable|Iterator|Any)\b", r"_t.\1", text)
        self.uses_numpy |= "numpy." in text
        text = re.sub(r"\btyping\.", "_t.", re.sub(r"\bcollections\.abc\.", "_abc.", text))

        def replaced(match):
            module, name = match.group(1), match.group(2)
            return name if module == self.name else self.use(module) + "." + name

        return re.sub(r"\b(%s(?:\.[a-z_]\w*)*)\.([A-Z_]\w*)" % ROOT, replaced, text)

    def text(self, doc):
        out = ['"""%s"""' % doc_text(doc)] if doc else []
        out += ["import collections.abc as _abc", "import typing as _t"]
        out += ["import numpy"] if self.uses_numpy else []
        for module, alias in sorted(self.imports.items()):
            parent, _, last = module.rpartition(".")
            out.append("from %s import %s as %s" % (parent, last, alias) if parent else "import %s as %s" % (module, alias))
        return "\n".join(out) + "\n\n" + self.body.getvalue()


def doc_text(doc):
    return doc.strip().replace("\\", "\\\\").replace('"""', '\\"\\"\\"')


def write_doc(module, depth, doc):
    lines = [line.strip() for line in doc_text(doc).split("\n")]
    if len(lines) == 1:
        lines[0] += " " if lines[0].endswith('"') else ""
        module.line(depth, '"""%s"""' % lines[0])
        return
    module.line(depth, '"""' + lines[0])
    for line in lines[1:]:
        module.line(depth, line)
    module.line(depth, '"""')


def signatures(function):
    """(arguments, result, doc) of each overload."""
    doc = (function.__doc__ or "").strip("\n")
    first, _, rest = doc.partition("\n")
    if "Overloaded function." in rest:
        for part in re.split(r"^\d+\. ", rest, flags=re.M)[1:]:
            head, _, text = part.partition("\n")
            match = SIGNATURE.match(head.strip())
            if match:
                yield match.group(2), match.group(3), text.strip()
        return
    match = SIGNATURE.match(first.strip())
    if match:
        yield match.group(2), match.group(3), rest.strip()


def split_arguments(text):
    """Splits at the commas outside all brackets."""
    parts, depth, current = [], 0, ""
    for letter in text:
        depth += (letter in "[(") - (letter in "])")
        if letter == "," and depth == 0:
            parts.append(current.strip())
            current = ""
        else:
            current += letter
    return parts + [current.strip()] if current.strip() else parts


def keywords_of(cls, module):
    """Arguments for the members that can be set; a member of class type takes a dict too."""
    writable = [(name, p) for name, p in vars(cls).items() if isinstance(p, property) and p.fset is not None]
    return ["%s: %s = ..." % (name, setter_type(p, module)) for name, p in writable]


def arguments_text(arguments, doc, module, cls):
    result = []
    for argument in split_arguments(arguments):
        name, colon, kind = argument.partition(": ")
        if name == "self" and cls is not None:
            result.append("self")
        elif argument == "**kwargs":
            found = MEMBERS_OF_A_CLASS.search(doc)
            owner = cls if doc.startswith(MEMBERS_BY_KEYWORD) else resolve(found.group(1)) if found else None
            named = keywords_of(owner, module) if owner is not None else []
            result += ["*"] + named if named else ([] if owner is not None else ["**kwargs: _t.Any"])
        elif colon:
            kind, equals, default = kind.partition(" = ")
            result.append("%s: %s%s" % (name, module.type_text(kind), " = ..." if equals else ""))
        else:
            result.append(argument)
    return ", ".join(result)


def resolve(dotted):
    value = sys.modules[ROOT]
    for piece in dotted.split(".")[1:]:
        value = getattr(value, piece)
    return value


def write_function(module, depth, name, function, cls=None):
    overloads = list(signatures(function))
    if not overloads:  # Python's own: object.__init__ of a class that scripts don't make
        return
    for arguments, result, doc in overloads:
        if len(overloads) > 1:
            module.line(depth, "@_t.overload")
        text = "%s(%s) -> %s" % (name, arguments_text(arguments, doc, module, cls), module.type_text(result))
        if name == "__enter__":
            text = "__enter__(self) -> %s" % cls.__name__
        module.line(depth, "def %s:%s" % (text, "" if doc else " ..."))
        if doc:
            write_doc(module, depth + 1, doc)
            module.line(depth + 1, "...")


def getter_type(prop, module):
    match = SIGNATURE.match((prop.fget.__doc__ or "").strip())
    return module.type_text(match.group(3)) if match else "_t.Any"


def setter_type(prop, module):
    kind = getter_type(prop, module)
    if ", or a dict of its members" in (prop.__doc__ or ""):
        return "_t.Union[%s, dict[str, _t.Any]]" % kind
    return kind


def write_property(module, depth, name, prop):
    module.line(depth, "@property")
    module.line(depth, "def %s(self) -> %s:" % (name, getter_type(prop, module)))
    if prop.__doc__:
        write_doc(module, depth + 1, prop.__doc__)
    module.line(depth + 1, "...")
    if prop.fset is not None:
        module.line(depth, "@%s.setter" % name)
        module.line(depth, "def %s(self, value: %s) -> None: ..." % (name, setter_type(prop, module)))


def write_class(module, cls):
    bases = [module.type_text("%s.%s" % (b.__module__, b.__name__)) for b in cls.__bases__ if b.__module__.split(".")[0] == ROOT]
    module.line(0, "class %s%s:" % (cls.__name__, "(%s)" % ", ".join(bases) if bases else ""))
    enumerators = getattr(cls, "__members__", {}) if "__entries" in vars(cls) else {}
    begin = module.body.tell()
    if cls.__doc__ and not enumerators:
        write_doc(module, 1, cls.__doc__)
    for name in enumerators:
        module.line(1, "%s: _t.ClassVar[%s]" % (name, cls.__name__))
    if enumerators:
        module.line(1, "__members__: _t.ClassVar[dict[str, %s]]" % cls.__name__)
    for name, value in vars(cls).items():
        if name in SKIPPED or name in enumerators:
            continue
        if isinstance(value, property):
            if enumerators:
                module.line(1, "@property")
                module.line(1, "def %s(self) -> %s: ..." % (name, "int" if name == "value" else "str"))
            else:
                write_property(module, 1, name, value)
        elif value is None and name == "__hash__":
            module.line(1, "__hash__: _t.ClassVar[None]  # type: ignore[assignment]")
        elif callable(value):
            write_function(module, 1, name, getattr(cls, name), cls)
        else:
            module.line(1, "%s: %s" % (name, type(value).__name__))
    if module.body.tell() == begin:
        module.line(1, "...")
    module.line()


def is_proxy_module(value):
    return (getattr(value, "__doc__", None) or "") == "Automatically generated submodule."


def write_module(python_module, out):
    module = Module(python_module.__name__)
    children = []
    for name, value in vars(python_module).items():
        if name.startswith("__") and name != "__version__":
            continue
        if isinstance(value, types.ModuleType):
            if value.__name__ == python_module.__name__ + "." + name and not is_proxy_module(value):
                children.append(value)
        elif isinstance(value, type):
            if value.__module__ == python_module.__name__ and value.__name__ == name:
                write_class(module, value)
            else:  # the same class under a second name
                module.line(0, "from %s import %s as %s" % (value.__module__, value.__name__, name))
                module.line()
        elif callable(value):
            write_function(module, 0, name, value)
            module.line()
        else:
            module.line(0, "%s: %s" % (name, type(value).__name__))
    for child in children:
        name = child.__name__.rpartition(".")[2]
        module.line(0, "from %s import %s as %s" % (module.name, name, name))
    if module.name == ROOT:
        module.line()
        module.line(0, "def __getattr__(name: str) -> _t.Any:")
        write_doc(module, 1, "open_remote_node() adds submodules, which no stub can know.")
        module.line(1, "...")
    path = out.joinpath(ROOT + "-stubs", *module.name.split(".")[1:], "__init__.pyi")
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(module.text(python_module.__doc__), encoding="utf-8")
    for child in children:
        write_module(child, out)


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    folder, out = (Path(a).resolve() for a in sys.argv[1:])
    sys.path.insert(0, str(folder))
    sys.dont_write_bytecode = True
    with contextlib.redirect_stdout(io.StringIO()):  # importing the module prints a line
        module = __import__(ROOT)
    write_module(module, out)


if __name__ == "__main__":
    main()
