"""The end of a process: whatever still lives when the interpreter exits, the process ends in time with its own code."""
import os
import signal
import subprocess
import sys
import textwrap
import time

import pytest

from conftest import free_endpoints

REPEATS = 3     # bench/python/exit_matrix.py runs each row hundreds of times
LIMIT = 2.0     # seconds from the last line of the script to the end of the process
HARD_LIMIT = 60

PRELUDE = """
import atexit, os, signal, sys, threading, time
def late():  # runs after vorna's own exit function, since it was registered before
    if hasattr(vorna, 'at_exit'):
        vorna.at_exit()
atexit.register(late)
import vorna
a, b = sys.argv[1:3]
def server():
    return vorna.VornaNode(a, b, 1)
def client(id=2, name='far'):
    vorna.setup_local_node(b, a, id)
    vorna.open_remote_node(1, name)
    return getattr(vorna, name)
def camera(node):
    plugged = vorna.emulation.plug_virtual_davis(events_per_second=1e6)
    node.open_davis()
    while not hasattr(vorna.far, 'Davis240'):
        time.sleep(0.002)
    vorna.far.Davis240.start()
    while not plugged.is_delivering():
        time.sleep(0.002)
    return plugged
def say_end():
    print('END', flush=True)
def daemons(call):  # three of them, and each is inside a call or on its way to the next one when the interpreter ends
    entered = threading.Semaphore(0)
    def run():
        while True:
            entered.release()
            try: call()
            except RuntimeError: pass
    for _ in range(3):
        threading.Thread(target=run, daemon=True).start()
        entered.acquire()
"""

# name: (the script, the return code)
SCRIPTS = {
    "nothing": ("say_end()", 0),
    "client without a server": ("vorna.setup_local_node(b, a, 2); say_end()", 0),
    "closed by a with block": ("""
        with server() as node:
            far = client()
        say_end()""", 0),
    "graph running, referenced by a cycle": ("""
        class Holder: pass
        holder = Holder(); holder.me = holder; holder.graph = vorna.graph.EventFilterGraph()
        holder.graph.add_filter_node('DvsEventCrop'); holder.graph.start()
        say_end()""", 0),
    "camera on": ("""
        node = server(); client(); plugged = camera(node)
        say_end()""", 0),
    "camera on and a graph behind it": ("""
        node = server(); client(); graph = vorna.graph.EventFilterGraph()
        crop = graph.add_filter_node('DvsEventCrop'); sink = vorna.BufferSinkNode_davis_event_dvs_event()
        graph.add_destination(crop, sink.get_input_channel())
        plugged = camera(node)
        vorna.far.Davis240.get_source_node().add_destination(graph.get_node_input(crop))
        graph.start()
        say_end(); sys.exit(5)""", 5),
    "camera unplugged at the end": ("""
        node = server(); client(); plugged = camera(node)
        say_end(); plugged.unplug()""", 0),
    "updates in flight while the lock is held": ("""
        node = server(); client()
        threading.Thread(target=node.expose_root_node).start()
        say_end()
        sum(range(3_000_000))""", 0),
    "daemon threads in calls": ("""
        node = server(); far = client(); daemons(far.DeviceController.get_opened_devices)
        say_end()""", 0),
    "daemon threads in calls without an answer": ("""
        node = server(); far = client(); node.close(); daemons(far.DeviceController.get_opened_devices)
        say_end()""", 0),
    "call without an answer that has not begun to wait": ("""
        node = server(); far = client(); node.close()
        calling = threading.Event()
        def call():
            calling.set()  # the lock changes hands no sooner than the call waits
            far.DeviceController.get_opened_devices()
        sys.setswitchinterval(10)
        threading.Thread(target=call, daemon=True).start()
        calling.wait()
        say_end()""", 0),
    "daemon threads in open_remote_node": ("""
        node = server(); far = client()
        daemons(lambda: (vorna.close_remote_node('far'), vorna.open_remote_node(1, 'far')))
        daemons(lambda: vorna.open_remote_node(55, 'nobody'))
        say_end()""", 0),
    "daemon threads in setup_local_node": ("""
        daemons(lambda: vorna.setup_local_node(b, a, 2))
        say_end()""", 0),
    "daemon threads in get_buf": ("""
        graph = vorna.graph.EventFilterGraph(); graph.start()
        sink = vorna.BufferSinkNode_davis_event_dvs_event()
        daemons(sink.get_buf); daemons(sink.get_buf_array)
        say_end()""", 0),
    "daemon threads in Python code that members call": ("""
        class Index:
            def __index__(self): return sum(range(50)) % 3
        layer = vorna.tessel.configuration.CNNLayerConfig(biases=range(30))
        daemons(lambda: setattr(layer, 'dimensions', {'stride': {'x': Index()}}))
        daemons(lambda: layer.biases.sort(key=lambda bias: sum(range(20))))
        say_end()""", 0),
    "daemon threads in close()": ("""
        daemons(lambda: vorna.VornaNode('tcp://127.0.0.1:*', 'tcp://127.0.0.1:*', 9).close())
        say_end()""", 0),
    "exception": ("node = server(); far = client(); say_end(); raise ValueError('on purpose')", 1),
    "sys.exit in a thread": ("""
        node = server(); far = client()
        thread = threading.Thread(target=sys.exit, args=(9,)); thread.start(); thread.join()
        say_end()""", 0),
    "Ctrl-C": ("node = server(); far = client(); say_end(); signal.raise_signal(signal.SIGINT)", -signal.SIGINT),
    "Ctrl-C while a call waits": ("""
        node = server(); far = client(); node.close()
        threading.Timer(0.3, lambda: os.kill(os.getpid(), signal.SIGINT)).start()
        say_end(); far.DeviceController.get_opened_devices()""", -signal.SIGINT),
    "Ctrl-C while a store is asked": ("""
        vorna.setup_local_node(b, a, 2)
        threading.Timer(0.3, lambda: os.kill(os.getpid(), signal.SIGINT)).start()
        say_end(); vorna.open_remote_node(1, 'far')""", -signal.SIGINT),
    "second local node, the first one's proxies kept": ("""
        node = server(); proxy = client().DeviceController; vorna.setup_local_node(b, a, 3)
        say_end()""", 0),
    "second local node, in a thread, while the first opens": ("""
        thread = threading.Thread(target=lambda: vorna.setup_local_node(b, a, 3))
        vorna.setup_local_node(b, a, 2); thread.start()
        try: vorna.open_remote_node(1, 'far')
        except RuntimeError: pass
        thread.join(); say_end()""", 0),
    "an exit function of the script's own uses the node": ("""
        import atexit
        node = server(); far = client()
        atexit.register(lambda: far.DeviceController.get_opened_devices())
        say_end()""", 0),
    "a local node is set up by an exit function": ("""
        def at_exit():
            try: vorna.setup_local_node(b, a, 2)
            except RuntimeError as error: os._exit(6 if 'The interpreter is exiting' in str(error) else 7)
        vorna.at_exit = at_exit
        node = server(); client(); say_end()""", 6),
    "a forked child uses what it must not": ("""
        graph = vorna.graph.EventFilterGraph(); graph.add_filter_node('DvsEventCrop'); graph.start()
        with server() as node:
            proxy = client().DeviceController
            child = os.fork()
            if child == 0:
                refused = 0
                for use in (proxy.get_opened_devices, node.expose_root_node, lambda: graph.has_node(0)):
                    try: use()
                    except RuntimeError as error: refused += 'forked off' in str(error)
                sys.exit(refused)
            _, status = os.waitpid(child, 0)
        say_end(); sys.exit(os.WEXITSTATUS(status))""", 3),
    "a forked child exits first": ("""
        node = server(); far = client(); graph = vorna.graph.EventFilterGraph(); graph.start()
        child = os.fork()
        if child == 0:
            try: vorna.open_remote_node(1, 'again')
            except RuntimeError as error: sys.exit(3 if 'Local node not initialized' in str(error) else 4)
        _, status = os.waitpid(child, 0)
        say_end(); sys.exit(os.WEXITSTATUS(status))""", 3),
}


if "san" in os.environ.get("LD_PRELOAD", ""):
    # The runtimes of g++'s sanitizers hang in the child when another thread allocates during the fork.
    SCRIPTS = {name: row for name, row in SCRIPTS.items() if "fork" not in name}


def end_of(name):
    """Runs a row: the return code, the seconds from its last line to the end of the process, and its standard error."""
    script = PRELUDE + textwrap.dedent(SCRIPTS[name][0])
    process = subprocess.Popen([sys.executable, "-c", script, *free_endpoints()], stdout=subprocess.PIPE,
                               stderr=subprocess.PIPE, universal_newlines=True)
    for line in process.stdout:
        if line == "END\n":
            break
    ended = time.monotonic()
    try:
        _, errors = process.communicate(timeout=HARD_LIMIT)
    except subprocess.TimeoutExpired:
        process.kill()
        errors = "the process hangs at its end: %s" % process.communicate()[1]
    return process.returncode, time.monotonic() - ended, errors


@pytest.mark.parametrize("name", SCRIPTS)
def test_exit(name):
    for _ in range(REPEATS):
        code, took, errors = end_of(name)
        assert code == SCRIPTS[name][1], errors
        assert took < LIMIT, "the end took %.1f s" % took
