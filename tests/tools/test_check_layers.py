"""The layer check on small trees with one known fault each."""
import importlib.util
import os
import pathlib

import pytest

TOOL = pathlib.Path(os.environ["VORNA_SOURCE_DIR"]) / "tools" / "check-layers.py"
spec = importlib.util.spec_from_file_location("check_layers", TOOL)
layers = importlib.util.module_from_spec(spec)
spec.loader.exec_module(layers)

# low <- middle <- high; the folder low holds two modules, and one header that neither lists
LOW = """
    vorna_module(NAME low_base HEADERS low/Base.h)
    vorna_module(NAME low   # a comment with ) in it
      HEADERS low/Low.h
      SOURCES Low.cpp
      DEPS low_base EXTERNAL PkgConfig::ZMQ)"""
TREE = {
    "low/CMakeLists.txt": LOW,
    "low/Base.h": "#include <string>\n",
    "low/Low.h": '#include "low/Base.h"\n',
    "low/Low.cpp": '#include "low/Low.h"\n#include "low/detail/Part.h"\n',
    "low/detail/Part.h": '#include "low/Low.h"\n',
    "middle/CMakeLists.txt": "vorna_module(NAME middle HEADERS middle/Middle.h DEPS low)",
    "middle/Middle.h": '#include "low/Low.h"\n',
    "high/CMakeLists.txt": "vorna_module(NAME high SOURCES High.cpp DEPS middle)",
    "high/High.cpp": '#include "middle/Middle.h"\n#include "low/Base.h"\n',
    "python/Module.cpp": '#include <pybind11/pybind11.h>\n#include "high/High.h"\n#include "low/Base.h"\n',
}

# one source that two modules compile, each for its own family
PAIR = {
    "low/CMakeLists.txt": LOW + """
    vorna_module(NAME first FAMILY middle SOURCES pair/Own.cpp DEPS middle)
    vorna_module(NAME second FAMILY high SOURCES pair/../pair/Own.cpp DEPS low)""",
    "high/Middle.h": "",
    "low/pair/Own.cpp": "#include VORNA_FAMILY_HEADER(Middle)\n",
}

FAULTS = [
    # what is wrong, changed files, a part of the one text expected
    ("nothing", {}, None),
    ("nothing: a variable names the module in one branch",
     {"high/CMakeLists.txt": """
        set(driver "")
        if(X)
          set(driver PkgConfig::USB)
        else()
          set(driver middle)
        endif()
        vorna_module(NAME high SOURCES High.cpp EXTERNAL ${driver})"""},
     None),
    ("an arrow upwards", {"low/Low.h": '#include "middle/Middle.h"\n'},
     "low/Low.h (low): may not include middle/Middle.h (middle)"),
    ("an arrow upwards within one folder", {"low/Base.h": '#include "low/Low.h"\n'},
     "low/Base.h (low_base): may not include low/Low.h (low)"),
    ("an arrow upwards from a header that no module lists", {"low/detail/Part.h": ' # include "middle/Middle.h"\n'},
     "low/detail/Part.h"),
    ("an include beside the file",
     {"middle/X.cpp": '#include "Own.h"\n', "middle/Own.h": '#include "high/H.h"\n', "high/H.h": ""},
     "middle/Own.h (middle): may not include high/H.h (high)"),
    ("a cycle",
     {"low/CMakeLists.txt": "vorna_module(NAME low_base HEADERS low/Base.h)\n"
                            "vorna_module(NAME low HEADERS low/Low.h DEPS low_base high)"},
     "cycle: high -> middle -> low -> high"),
    ("an unknown module", {"high/CMakeLists.txt": "vorna_module(NAME high SOURCES High.cpp DEPS middle lost)"},
     "high: DEPS names lost"),
    ("a file that nobody owns, beside a module with an empty entry",
     {"stray/Stray.h": "", "low/CMakeLists.txt": 'set(more "")\n' + LOW.replace("Low.cpp", "Low.cpp ${more}")},
     "stray/Stray.h: no module owns it"),
    ("a file compiled for two families, of which one goes upwards", PAIR,
     "low/pair/Own.cpp (second): may not include high/Middle.h (high)"),
    ("pybind11 below the Python layer", {"low/Low.h": "#include <pybind11/pybind11.h>\n"},
     "low/Low.h: may not include <pybind11/pybind11.h>"),
    ("the JSON library itself", {"high/High.cpp": '#include "rapidjson/document.h"\n'},
     "may not include <rapidjson/document.h>"),
]


@pytest.mark.parametrize("change, text", [row[1:] for row in FAULTS], ids=[row[0] for row in FAULTS])
def test_faults_are_named(tmp_path, change, text):
    for name, content in {**TREE, **change}.items():
        (tmp_path / name).parent.mkdir(parents=True, exist_ok=True)
        (tmp_path / name).write_text(content)
    faults = layers.check(tmp_path)
    if text is None:
        assert faults == []
    else:
        assert len(faults) == 1 and text in faults[0], faults


def test_table_is_replaced_between_its_marks_alone():
    page = "before\n" + layers.BEGIN + "former\n" + layers.END + "after\n"
    modules = {"low": layers.Module("low", "low"), "high": layers.Module("high", "high", deps=["low"])}
    new = layers.with_table(page, modules)
    assert new.startswith("before\n") and new.endswith("after\n") and "former" not in new
    assert new.index("| `low` | `src/low` | nothing of ours |") < new.index("| `high` | `src/high` | `low` |")
    assert layers.with_table(new, modules) == new
