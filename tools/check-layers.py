#!/usr/bin/python3
"""Keeps the arrows between the modules one-way.

    tools/check-layers.py             checks; exit code 1 and one line for each fault
    tools/check-layers.py --update    rewrites the table of modules in docs/modules.md

All folders share one include root, so a header of a layer above would be found without being linked. This reads the
vorna_module(...) declarations below src/ and every #include there, and refuses: an include of a module that isn't among
the includer's DEPS, directly or through them; a cycle; a DEPS entry that doesn't exist; a file that no module owns; a
library included outside its one place; and a table in docs/modules.md that no longer shows the DEPS.

Who owns a file: the module that lists it in HEADERS or SOURCES; else the modules with files in the closest folder above
it. Where those are several (trovi), one of them must be allowed all that the file includes. A file that modules of
several FAMILYs compile is checked for each of them.
"""
import argparse
import pathlib
import posixpath
import re
import sys
from dataclasses import dataclass, field

KEYWORDS = {"NAME", "FAMILY", "HEADERS", "SOURCES", "DEPS", "EXTERNAL"}
TOP = "vorna"  # the extension module, src/python: it may include everything

# library: the only place that may include it, and why
ONE_PLACE = [
    (r"pybind11/|Python\.h", r"(src/)?(python|trovi/python)/.*", "so that all else builds and tests without an interpreter"),
    (r"rapidjson/", r"(?!)", "only through cereal: without cereal's settings its assertions end the process"),
    (r"cereal/archives/json\.hpp", r"trovi/(detail/)?[^/]*Json[^/]*", "it must be the first user of its JSON library in a file"),
]


@dataclass
class Module:
    name: str
    folder: str  # relative to src/
    files: set = field(default_factory=set)
    deps: list = field(default_factory=list)
    family: str = ""  # for which its SOURCES are compiled


def read_modules(source):
    """The modules below source/ by name, and the faults of their declarations."""
    modules, wanted, faults = {}, {}, []
    for listing in sorted(source.rglob("CMakeLists.txt")):
        folder = listing.parent.relative_to(source).as_posix()
        text = re.sub(r"#.*", "", listing.read_text())
        values = {}  # of a variable: everything that any branch sets it to
        for name, value in re.findall(r"\bset\s*\(\s*(\w+)([^)]*)\)", text):
            values[name] = values.get(name, "") + " " + value
        text = re.sub(r"\$\{(\w+)\}", lambda use: values.get(use[1], ""), text)
        for body in re.findall(r"\bvorna_module\s*\(([^)]*)\)", text):
            parts, keyword = {key: [] for key in KEYWORDS}, None
            for word in body.replace('"', " ").split():
                if word in KEYWORDS:
                    keyword = word
                elif keyword:
                    parts[keyword].append(word)
            name = parts["NAME"][0]
            if name in modules:
                faults.append(f"{name} is declared twice")
            files = set(parts["HEADERS"]) | {posixpath.normpath(f"{folder}/{file}") for file in parts["SOURCES"]}
            modules[name] = Module(name, folder, files, parts["DEPS"] + parts["EXTERNAL"], "".join(parts["FAMILY"]))
            wanted[name] = parts["DEPS"]
    for module in modules.values():
        faults += [f"{module.name}: DEPS names {dep}, which no vorna_module declares"
                   for dep in wanted[module.name] if dep not in modules]
        module.deps = [dep for dep in module.deps if dep in modules]  # of EXTERNAL, what is ours after all
    return modules, faults


def reachable(modules):
    """For each module the set of modules it may include, itself with them; and the faults: cycles."""
    closure, faults = {}, []

    def visit(name, path):
        if name in path:
            faults.append("cycle: " + " -> ".join([*path[path.index(name):], name]))
            return {name}
        if name not in closure:
            found = {name}
            for dep in modules[name].deps:
                found |= visit(dep, [*path, name])
            closure[name] = found
        return closure[name]

    for name in modules:
        visit(name, [])
    return closure, faults


def owners(file, modules):
    """Names of the modules to which a file (relative to src/) may belong."""
    listed = [module.name for module in modules.values() if file in module.files]
    if listed:
        return listed
    if file.startswith("python/"):
        return [TOP]
    for folder in pathlib.PurePosixPath(file).parents:
        near = [module.name for module in modules.values()
                if module.folder == folder.as_posix()
                or any(pathlib.PurePosixPath(other).parent == folder for other in module.files)]
        if near:
            return near
    return []


def includes(text, family):
    """[("<" or quote, name)]; those that name the family that the file is compiled for are of `family`."""
    text = re.sub(r"VORNA_FAMILY_HEADER\((\w+)\)", rf'"{family}/\1.h"', text)
    text = re.sub(r"VORNA_FAMILY_HEADER_IN\((\w+), (\w+)\)", rf'"{family}/\1/\2.h"', text)
    return re.findall(r'^[ \t]*#[ \t]*include[ \t]*([<"])([^>"]+)[>"]', text, re.MULTILINE)


def check_file(source, path, mine, family, modules, closure):
    """The faults of one file that belongs to one of the modules `mine`."""
    file, faults, candidates = path.relative_to(source).as_posix(), [], set(mine)
    for mark, name in includes(path.read_text(errors="replace"), family):
        for library, place, why in ONE_PLACE:
            if re.match(library, name) and not re.fullmatch(place, file):
                faults.append(f"{file}: may not include <{name}>: {why}")
        beside = path.parent / name
        if mark == "<" or not mine or TOP in mine:
            continue
        if (source / name).is_file():
            theirs = set(owners(name, modules))
        elif beside.is_file():
            theirs = set(owners(beside.resolve().relative_to(source.resolve()).as_posix(), modules))
        else:
            continue
        allowed = {module for module in candidates if closure[module] & theirs}
        if not allowed:
            faults.append(f"{file} ({' or '.join(mine)}): may not include {name} ({' or '.join(sorted(theirs))}); "
                          f"DEPS allow {', '.join(sorted(set().union(*(closure[m] for m in mine)) - set(mine))) or 'nothing'}")
        candidates = allowed or candidates
    return faults


def check(source):
    """All faults of the tree below source/ (the folder src), one text each."""
    modules, faults = read_modules(source)
    closure, cycles = reachable(modules)
    faults += cycles
    for path in sorted(file for file in source.rglob("*") if file.suffix in {".h", ".cpp", ".inc"}):
        file = path.relative_to(source).as_posix()
        mine = owners(file, modules)
        if not mine:
            faults.append(f"{file}: no module owns it; list it in a vorna_module(...)")
        families = {modules[name].family for name in mine if name != TOP and file in modules[name].files}
        for family in sorted(families) if len(families) > 1 else [""]:  # a file compiled for each is checked for each
            compiled = [name for name in mine if not family or modules[name].family == family]
            faults += check_file(source, path, compiled, family, modules, closure)
    return faults


def table(modules):
    """The modules as a table in Markdown, lowest layer first."""
    closure, _ = reachable(modules)
    rows = ["| Module | Folder | Depends on |", "|---|---|---|"]
    for module in sorted(modules.values(), key=lambda module: (len(closure[module.name]), module.name)):
        deps = ", ".join(f"`{dep}`" for dep in module.deps) or "nothing of ours"
        rows.append(f"| `{module.name}` | `src/{module.folder}` | {deps} |")
    return "\n".join(rows) + "\n"


BEGIN, END = "<!-- modules: written by tools/check-layers.py --update -->\n", "<!-- end of modules -->\n"


def with_table(page, modules):
    """The page with the text between the two marks replaced by the table."""
    before, rest = page.split(BEGIN)
    return before + BEGIN + table(modules) + END + rest.split(END)[1]


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--update", action="store_true")
    options = parser.parse_args()
    root = pathlib.Path(__file__).resolve().parent.parent
    modules, _ = read_modules(root / "src")
    page = root / "docs" / "modules.md"
    written = page.read_text()
    if options.update:
        page.write_text(with_table(written, modules))
    faults = check(root / "src")
    if not options.update and with_table(written, modules) != written:
        faults.append("docs/modules.md: the table is out of date; run tools/check-layers.py --update")
    print(*faults, f"{len(modules)} modules, {len(faults)} faults", sep="\n")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
