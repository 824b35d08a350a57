"""The module's entry: import, version check, the functions that are always there."""
import pytest

from conftest import run_script


def test_import_prints_one_line_and_leaves_numpy_alone():
    ended = run_script("import sys, vorna; sys.exit(3 if 'numpy' in sys.modules else 0)")
    assert (ended.returncode, ended.stdout) == (0, "finished bindings\n"), ended.stderr


def test_functions_say_what_they_take(vorna, golden):
    functions = (vorna.setup_local_node, vorna.open_remote_node, vorna.close_remote_node)
    golden("module_functions.txt", "\n".join(function.__doc__ for function in functions))


def test_everything_bound_has_a_docstring_and_a_typed_signature(vorna):
    import inspect
    import types
    seen = set()
    faults = []

    def walk(module):
        for name, value in vars(module).items():
            if isinstance(value, types.ModuleType) and value.__name__.startswith("vorna.") and value not in seen:
                seen.add(value)
                walk(value)
            elif inspect.isclass(value) and not name.startswith("__Remote__") and value not in seen:
                seen.add(value)
                if not value.__doc__:
                    faults.append(value.__qualname__ + " has no docstring")
                for method, function in vars(value).items():
                    if method.startswith("_") or hasattr(value, "__members__"):
                        continue
                    if isinstance(function, property):
                        if not function.__doc__ or ":" not in function.__doc__:
                            faults.append("%s.%s has no meaning" % (value.__qualname__, method))
                    elif "->" not in (getattr(function, "__doc__", "") or ""):
                        faults.append("%s.%s has no typed signature" % (value.__qualname__, method))
                    elif "::" in function.__doc__.split("\n")[0]:
                        faults.append("%s.%s shows a C++ name: %s" % (value.__qualname__, method, function.__doc__.split("\n")[0]))

    walk(vorna)
    assert len(seen) > 10
    assert faults == []


@pytest.mark.parametrize("call, text", [
    ("open_remote_node(1, 'x')", "Local node not initialized! Please setup_local_node(...) first!"),
    ("close_remote_node('x')", "Local node not initialized! Please setup_local_node(...) first!"),
])
def test_without_a_local_node(call, text):
    ended = run_script("""
        import sys, vorna
        try:
            eval('vorna.' + sys.argv[1])
        except RuntimeError as error:
            print(error)
        """, call)
    assert ended.stdout.splitlines()[-1] == text, ended.stderr
