"""The type stubs have every name of the module, in Python that parses."""
import ast
import builtins
import os
import re
import subprocess
import sys
import types
from pathlib import Path

import pytest

SOURCE = Path(os.environ.get("VORNA_SOURCE_DIR", Path(__file__).resolve().parents[2]))


@pytest.fixture(scope="module")
def stubs(tmp_path_factory):
    """Syntax trees by module name, and the folder of the stubs."""
    import vorna
    out = tmp_path_factory.mktemp("stubs")
    made = subprocess.run([sys.executable, str(SOURCE / "tools" / "make-stubs.py"), str(Path(vorna.__file__).parent), str(out)],
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, universal_newlines=True, timeout=60)
    assert (made.returncode, made.stdout) == (0, "")
    return {".".join(("vorna", *path.parent.relative_to(out / "vorna-stubs").parts)): ast.parse(path.read_text(encoding="utf-8"))
            for path in out.rglob("*.pyi")}


def test_no_folder_can_be_taken_for_the_module(vorna):
    """Another interpreter imports by name too, and finds the module, which says what it was built for."""
    file = Path(vorna.__file__)
    assert file.name == "vorna.so" and not (file.parent / "vorna").exists()


def names_of(body):
    names = {}
    for node in body:
        if isinstance(node, (ast.ClassDef, ast.FunctionDef)):
            names.setdefault(node.name, node)
        elif isinstance(node, ast.AnnAssign):
            names[node.target.id] = node
        elif isinstance(node, ast.ImportFrom):
            names.update((alias.asname, node) for alias in node.names)
    return names


def class_named(stubs, module, name):
    return names_of(names_of(stubs[module].body)[name].body)


def public(names):
    return {name for name in names if not name.startswith("_")}


def test_every_public_name_has_a_stub(vorna, stubs):
    """Walks what import gives; names that only a stub has are faults too."""
    compared = []

    def walk(module):
        there = {name: value for name, value in vars(module).items()
                 if not name.startswith("_") and getattr(value, "__doc__", None) != "Automatically generated submodule."}
        stubbed = names_of(stubs[module.__name__].body)
        assert public(stubbed) == set(there), module.__name__
        compared.append(module.__name__)
        for name, value in there.items():
            if isinstance(value, types.ModuleType):
                walk(value)
            elif isinstance(value, type) and value.__module__ == module.__name__:
                assert isinstance(stubbed[name], ast.ClassDef), name
                assert public(names_of(stubbed[name].body)) == public(vars(value)), name

    walk(vorna)
    assert set(compared) == set(stubs)


def surface(module):
    """Every public name below a module, a line or two a class: members with their types, functions with signatures."""
    def signatures(function):
        doc = (function.__doc__ or "").strip()
        lines = re.findall(r"^\d+\. (.*)$", doc, re.M) if "Overloaded function." in doc else doc.split("\n")[:1]
        return [re.sub(r"\(self: [\w.]+(, )?", "(", line).replace(" -> None", "") for line in lines]

    def members(cls):
        if hasattr(cls, "__members__"):
            return [", ".join("%s = %d" % (name, value.value) for name, value in cls.__members__.items())]
        values = {name: value for name, value in vars(cls).items() if not name.startswith("_") and name not in ("to_json", "from_json")}
        data = ["%s: %s%s" % (name, value.fget.__doc__.strip().partition("-> ")[2], "" if value.fset else " (read-only)")
                for name, value in values.items() if isinstance(value, property)]
        calls = [text for value in values.values() if not isinstance(value, property) for text in signatures(value)]
        return [line for line in (", ".join(data), "; ".join(calls)) if line]

    for name, value in vars(module).items():
        full = "%s.%s" % (module.__name__, name)
        if isinstance(value, types.ModuleType) and value.__name__ == full:
            yield from surface(value)
        elif isinstance(value, type):
            same = value.__module__ == module.__name__
            yield "\n    ".join(["class " + full, *members(value)]) if same else "%s is %s.%s" % (full, value.__module__, value.__name__)
        elif callable(value) and not name.startswith("_"):
            yield from ("%s.%s" % (module.__name__, text) for text in signatures(value))


def test_the_python_surface_is_as_accepted(vorna, golden):
    """In a process of its own, where nothing has opened a remote node."""
    golden("python_surface.txt", "\n".join(sorted(surface(vorna))) + "\n")


def test_types_are_those_of_the_module(stubs):
    event = class_named(stubs, "vorna.davis.event", "DvsEvent")
    assert ast.unparse(event["x"].returns) == "int"
    assert ast.unparse(event["polarity"].returns) == "bool"
    assert [a.arg for a in event["__init__"].args.kwonlyargs] == ["x", "y", "polarity", "timestamp"]
    graph = class_named(stubs, "vorna.graph", "EventFilterGraph")
    assert ast.unparse(graph["connect"].args) == "self, source: int, destination: int"
    assert ast.unparse(graph["get_node_input"].returns) == "_vorna_trovi.BoxedPtr"
    assert ast.unparse(graph["__enter__"].returns) == "EventFilterGraph"
    sink = class_named(stubs, "vorna", "BufferSinkNode_davis_event_dvs_event")
    assert ast.unparse(sink["get_buf"].returns) == "list[_vorna_davis_event.DvsEvent]"


def test_every_name_in_an_annotation_is_known(stubs):
    for module, tree in stubs.items():
        known = set(dir(builtins)) | set(names_of(tree.body))
        known |= {alias.asname or alias.name for node in tree.body if isinstance(node, ast.Import) for alias in node.names}
        for node in ast.walk(tree):
            for annotation in (getattr(node, "annotation", None), getattr(node, "returns", None)):
                for part in ast.walk(annotation) if annotation else ():
                    if isinstance(part, ast.Name):
                        assert part.id in known, "%s: %s" % (module, ast.unparse(annotation))


def test_overloads_enumerators_and_texts(stubs):
    plugs = [node for node in stubs["vorna.emulation"].body if getattr(node, "name", "") == "plug_virtual_davis"]
    assert [ast.unparse(node.decorator_list[0]) for node in plugs] == ["_t.overload"] * 2
    assert "moving_bars" in [a.arg for node in plugs for a in node.args.kwonlyargs]
    role = class_named(stubs, "vorna.device", "DriverReferenceType")
    assert ast.unparse(role["Board"].annotation) == "_t.ClassVar[DriverReferenceType]"
    opened = class_named(stubs, "vorna.device", "OpenedDevice")
    assert ast.get_docstring(opened["device_info"]).startswith("device.DeviceInfo, or a dict of its members: ")
    setup = names_of(stubs["vorna"].body)["setup_local_node"]
    assert 'Example "tcp://0.0.0.0:12345"' in ast.get_docstring(setup)
