"""Eight client processes call one server for a minute. Every answer must come and be right, and the server's memory
must stay flat.

    soak.py FOLDER_OF_VORNA [SECONDS] [CLIENTS]
"""
import subprocess
import sys
import time

from rpc import endpoints

SERVER = """
import sys
sys.path.insert(0, sys.argv[1])
import vorna
with vorna.VornaNode(sys.argv[2], sys.argv[3], 1) as node:
    node.expose_root_node()
    print("up", flush=True)
    sys.stdin.read()
"""

CLIENT = """
import sys, time
sys.path.insert(0, sys.argv[1])
import vorna
vorna.setup_local_node(sys.argv[3], sys.argv[2], int(sys.argv[4]))
vorna.open_remote_node(1, "far")
end = time.monotonic() + float(sys.argv[5])
calls = 0
while time.monotonic() < end:
    assert vorna.far.VornaNode.get_ombrel_vid_and_pid() == (5407, 299)
    assert vorna.far.DeviceController.get_opened_devices() == []
    calls += 2
print("calls", calls)
"""


def resident_kib(pid):
    with open("/proc/%d/status" % pid) as status:
        return int(next(line for line in status if line.startswith("VmRSS")).split()[1])


def main():
    if len(sys.argv) < 2 or sys.argv[1] in ("-h", "--help"):
        sys.exit(__doc__)
    folder = sys.argv[1]
    seconds = float(sys.argv[2]) if len(sys.argv) > 2 else 60
    count = int(sys.argv[3]) if len(sys.argv) > 3 else 8
    ends = endpoints()
    server = subprocess.Popen([sys.executable, "-c", SERVER, folder, *ends], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                              universal_newlines=True)
    while server.stdout.readline() != "up\n":
        pass
    clients = [subprocess.Popen([sys.executable, "-c", CLIENT, folder, *ends, str(20 + i), str(seconds)], stdout=subprocess.PIPE,
                                universal_newlines=True) for i in range(count)]
    begin = time.monotonic()
    samples = []
    while any(c.poll() is None for c in clients):
        samples.append(resident_kib(server.pid))
        print("\r%3.0f s, server %d KiB" % (time.monotonic() - begin, samples[-1]), end="", flush=True)
        time.sleep(1)  # between two samples of the server's memory
    calls = 0
    for client in clients:
        out = client.communicate()[0]
        if client.returncode != 0:
            sys.exit("\na client failed")
        calls += int(out.split("calls ")[1])
    server.stdin.close()
    server.wait(10)
    settled = samples[len(samples) // 3:]
    print("\n%d clients, %d calls, none lost, %.0f calls/s; server %d KiB after a third of the time, %d KiB at the end"
          % (count, calls, calls / seconds, settled[0], settled[-1]))


if __name__ == "__main__":
    main()
