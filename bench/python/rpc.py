"""Round trip of a remote call over TCP on the loopback, Python to Python, next to its floors in the same run.

    rpc.py FOLDER_OF_VORNA RPC_FLOOR [ROUNDS]

floor: the same PUSH/PULL and PUB/SUB sockets and frames with bare libzmq in C++, two processes. pyzmq: the same in
Python. Rounds alternate. The median and the 99th percentile are of all round trips. Aim: vorna's median at most 1.8
times the floor's.
"""
import socket
import statistics
import subprocess
import sys
import time

CALLS = 2000

SERVE = """
import sys
sys.path.insert(0, {folder!r})
import vorna
with vorna.VornaNode({pub!r}, {pull!r}, 1) as node:
    node.expose_root_node()
    print("up", flush=True)
    sys.stdin.read()
"""

SERVE_PYZMQ = """
import sys, zmq
context = zmq.Context()
pull, pub = context.socket(zmq.PULL), context.socket(zmq.PUB)
pull.bind({pull!r}); pub.bind({pub!r})
print("up", flush=True)
while True:
    topic, body = pull.recv_multipart()
    if not body:
        break
    pub.send_multipart([b"2", b"x" * 72])
"""


def endpoints():
    sockets = [socket.socket() for _ in range(2)]
    for s in sockets:
        s.bind(("127.0.0.1", 0))
    names = ["tcp://127.0.0.1:%d" % s.getsockname()[1] for s in sockets]
    for s in sockets:
        s.close()
    return names


def server(script):
    process = subprocess.Popen([sys.executable, "-c", script], stdin=subprocess.PIPE, stdout=subprocess.PIPE, universal_newlines=True)
    while process.stdout.readline() != "up\n":
        pass
    return process


def timed(call):
    times = []
    for _ in range(CALLS):
        begin = time.perf_counter()
        call()
        times.append((time.perf_counter() - begin) * 1e6)
    return times


def floor(program):
    pull, pub = endpoints()
    serving = subprocess.Popen([program, "serve", pull, pub])
    out = subprocess.run([program, "call", pull, pub, str(CALLS)], stdout=subprocess.PIPE, universal_newlines=True, check=True).stdout
    serving.wait(10)
    return [float(line) for line in out.split()]


def pyzmq():
    import zmq
    pull, pub = endpoints()
    serving = server(SERVE_PYZMQ.format(pull=pull, pub=pub))
    context = zmq.Context()
    push, sub = context.socket(zmq.PUSH), context.socket(zmq.SUB)
    push.connect(pull)
    sub.connect(pub)
    sub.setsockopt(zmq.SUBSCRIBE, b"2")

    def call():
        push.send_multipart([b"1", b"x" * 100])
        sub.recv_multipart()

    while not sub.poll(50):
        push.send_multipart([b"1", b"x" * 100])
    while sub.poll(50):
        sub.recv_multipart()
    times = timed(call)
    push.send_multipart([b"1", b""])
    serving.wait(10)
    context.destroy(linger=0)
    return times


def ours(folder, state={}):
    vorna = state.get("vorna")
    if vorna is None:
        sys.path.insert(0, folder)
        vorna = state["vorna"] = __import__("vorna")
    pull, pub = endpoints()
    serving = server(SERVE.format(folder=folder, pull=pull, pub=pub))
    vorna.setup_local_node(pull, pub, 2)
    name = "far_%d" % len(state)
    state[name] = True
    vorna.open_remote_node(1, name)
    call = getattr(vorna, name).VornaNode.get_ombrel_vid_and_pid
    for _ in range(200):
        call()
    times = timed(call)
    serving.stdin.close()
    serving.wait(10)
    return times


def main():
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    folder, program = sys.argv[1:3]
    rounds = int(sys.argv[3]) if len(sys.argv) > 3 else 5
    cases = {"floor": lambda: floor(program), "pyzmq": pyzmq, "vorna": lambda: ours(folder)}
    times = {name: [] for name in cases}
    for _ in range(rounds):
        for name, run in cases.items():
            times[name] += run()
    base = statistics.median(times["floor"])
    for name, list_ in times.items():
        list_.sort()
        print("%-6s p50 %7.1f us   p99 %7.1f us   %.2f times the floor" %
              (name, statistics.median(list_), list_[len(list_) * 99 // 100], statistics.median(list_) / base))


if __name__ == "__main__":
    main()
