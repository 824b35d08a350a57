"""The module's entry: import, version check, the functions that are always there."""
import pytest

from conftest import run_script


def test_import_prints_one_line_and_leaves_numpy_alone():
    ended = run_script("import sys, vorna; sys.exit(3 if 'numpy' in sys.modules else 0)")
    assert (ended.returncode, ended.stdout) == (0, "finished bindings\n"), ended.stderr


def test_functions_say_what_they_take(vorna):
    signatures = {
        "setup_local_node": "(sender_endpoint: str, requests_endpoint: str, nodeID: int) -> None",
        "open_remote_node": "(nodeID: int, name: str) -> None",
        "close_remote_node": "(name: str) -> None",
    }
    texts = {
        "setup_local_node": [" Creates the trovi node associated to the python interpreter.",
                             'TCP endpoint where requests are SENT. Example "tcp://0.0.0.0:12345"',
                             'TCP endpoint where requests are RECEIVED. Example "tcp://0.0.0.0:12345"',
                             "ID associated to the interpreter node.", "Nothing."],
        "open_remote_node": [" Retrieves the content of a remote store by its ID.",
                             "Creates a submodule 'name' with instances that will allow the interaction with objects in the "
                             "remote store.",
                             "ID associated to the remote node.",
                             "Name that should be given to the submodule holding remote content proxies.",
                             "If the nodeID is not reacheable (tip: check the ZMQ endpoints and their order).",
                             "If the chosen name is already in use."],
        "close_remote_node": [" Removes the content of an already bound remote store by its name.",
                              "Name with which the remote store was registered.", "If the chosen name doesen't exist.",
                              "If the chosen name refers to a module that doesen't hold a remote store content."],
    }
    for name, signature in signatures.items():
        doc = getattr(vorna, name).__doc__
        assert doc.startswith(name + signature)
        for text in texts[name]:
            assert text in doc


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
