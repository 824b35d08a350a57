"""Shared pieces of the Python tests. Nothing here imports numpy: these tests run on every supported interpreter."""
import difflib
import itertools
import os
import pathlib
import socket
import subprocess
import sys
import textwrap
import time

import pytest

_ids = itertools.count(100)


def free_endpoints():
    """Two TCP endpoints on the loopback that nobody uses right now."""
    sockets = [socket.socket() for _ in range(2)]
    for s in sockets:
        s.bind(("127.0.0.1", 0))
    endpoints = ["tcp://127.0.0.1:%d" % s.getsockname()[1] for s in sockets]
    for s in sockets:
        s.close()
    return endpoints


def wait_for(condition, limit=5.0, what="the condition"):
    """Waits for something that another thread or process brings about, and that has no event to wait for."""
    end = time.monotonic() + limit
    while not condition():
        if time.monotonic() > end:
            pytest.fail("waited %g s in vain for %s" % (limit, what))
        time.sleep(0.005)


def run_script(text, *arguments, limit=30):
    """Runs a script in a process of its own and returns it, ended. A hang ends the test at the hard limit."""
    return subprocess.run([sys.executable, "-c", textwrap.dedent(text), *map(str, arguments)],
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, universal_newlines=True, timeout=limit)


class Script:
    """A script that runs beside the test and takes commands on standard input: each line is executed, and answered by a
    line "done"."""

    def __init__(self, text, *arguments):
        loop = "\nimport sys\nprint('ready', flush=True)\nfor line in sys.stdin:\n    exec(line)\n    print('done', flush=True)\n"
        self.process = subprocess.Popen([sys.executable, "-c", textwrap.dedent(text) + loop, *map(str, arguments)],
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE, universal_newlines=True)
        self.read_until("ready")

    def read_until(self, word):
        lines = []
        for line in self.process.stdout:
            if line.strip() == word:
                return lines
            lines.append(line.rstrip("\n"))
        pytest.fail("the script ended early: %s" % lines)

    def do(self, line):
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()
        return self.read_until("done")

    def kill(self):
        self.process.kill()
        self.process.wait()

    def close(self):
        self.process.stdin.close()
        return self.process.wait(timeout=10)


@pytest.fixture
def script():
    made = []

    def start(text, *arguments):
        made.append(Script(text, *arguments))
        return made[-1]

    yield start
    for s in made:
        if s.process.poll() is None:
            s.kill()
        s.process.stdout.close()
        if not s.process.stdin.closed:
            s.process.stdin.close()


@pytest.fixture
def golden():
    """golden("name.txt", text): the text is what tests/golden/name.txt holds. `make golden` accepts a change."""
    def compare(name, text):
        file = pathlib.Path(__file__).parent.parent / "golden" / name
        if os.environ.get("VORNA_GOLDEN") == "accept":
            file.write_text(text)
        expected = file.read_text() if file.exists() else ""
        if text != expected:
            difference = difflib.unified_diff(expected.splitlines(), text.splitlines(), "tests/golden/" + name, "now", lineterm="", n=1)
            pytest.fail("\n".join(itertools.islice(difference, 60)) + "\nIf that is meant: make golden", pytrace=False)

    return compare


@pytest.fixture
def vorna():
    import vorna
    return vorna


@pytest.fixture(scope="session")
def probe():
    """The module of probe/Probe.cpp."""
    import vorna
    sys.path.append(os.path.join(os.path.dirname(vorna.__file__), "..", "tests", "python"))
    import binder_probe
    return binder_probe


@pytest.fixture
def node_id():
    """Ids that are new in this run, of three digits, so that none is a prefix of another."""
    return lambda: next(_ids)


@pytest.fixture
def server(vorna, node_id):
    """A server node in this process: the node, its id, and the endpoints as a client gives them."""
    sender, receiver = free_endpoints()

    class Server:
        id = node_id()
        client_endpoints = (receiver, sender)
        node = vorna.VornaNode(sender, receiver, id)

    yield Server
    Server.node.close()


@pytest.fixture
def remote(vorna, server, node_id):
    """The server's store as a submodule of proxies, through this interpreter's own node."""
    name = "remote_%d" % server.id
    vorna.setup_local_node(*server.client_endpoints, node_id())
    vorna.open_remote_node(server.id, name)
    yield getattr(vorna, name)
    if hasattr(vorna, name):
        delattr(vorna, name)  # close_remote_node would refuse it when the test made another local node
