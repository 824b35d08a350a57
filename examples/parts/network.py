"""Where an example's node listens, and how it waits for what another thread or process does."""
import socket
import time


def free_endpoints():
    """Two TCP endpoints of this machine that nobody uses right now. A server of your own would have fixed ones."""
    sockets = [socket.socket() for _ in range(2)]
    for s in sockets:
        s.bind(("127.0.0.1", 0))
    endpoints = ["tcp://127.0.0.1:%d" % s.getsockname()[1] for s in sockets]
    for s in sockets:
        s.close()
    return endpoints


def wait_for(condition, what, limit=20.0):
    """Returns what the condition gives, as soon as that counts as true; after `limit` seconds it's a TimeoutError."""
    end = time.monotonic() + limit
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() > end:
            raise TimeoutError("waited %g s in vain for %s" % (limit, what))
        time.sleep(0.005)
