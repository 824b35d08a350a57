"""The demo's second process: a client that lists a store, watches objects come and go, and drives a camera by proxy.

It runs until the store closes, or until its standard input ends. Each line that it prints is one thing it saw or did.
"""
import argparse
import select
import sys
import time

import vorna

ROOT_NODE, CAMERA, SECOND_CAMERA = "VornaNode", "Davis240", "DvXplorer"


def say(text):
    print(text, flush=True)


class Watcher:
    def __init__(self, store):
        self.store = store
        self.known = {}

    def report(self):
        """Says which proxies are new in the submodule and which are gone."""
        present = {name: value for name, value in list(vars(self.store).items())
                   if getattr(value, "__trovi_proxy_object__", False) and not isinstance(value, type)}
        for name in present.keys() - self.known.keys():
            reference = present[name].get_store_reference()
            say("+ %s (object %d of store %d)" % (name, reference.obj_id, reference.store_id))
        for name in self.known.keys() - present.keys():
            say("- %s" % name)
        self.known = present

    def wait_for_object(self, name):
        """Returns the proxy of this name, or None when the store closes first."""
        while self.watch(0.01):
            if name in self.known:
                return self.known[name]
        return None

    def watch(self, seconds):
        """Watches for so long; False when the store has closed or the demo's process has ended."""
        end = time.monotonic() + seconds
        while True:
            self.report()
            if not self.store.is_open():
                return False
            left = end - time.monotonic()
            if left <= 0:
                return True
            if select.select([sys.stdin], [], [], min(left, 0.02))[0]:  # its end can be read
                return False


def drive(watcher, run_for, pause_for):
    """Opens a second camera, then lets the first one run, stops it and starts it again: all in the other process."""
    root = watcher.wait_for_object(ROOT_NODE)
    if not root:
        return
    root.open_dvxplorer()
    say("asked the server to open another camera")
    camera = watcher.wait_for_object(SECOND_CAMERA) and watcher.wait_for_object(CAMERA)
    if not camera or not watcher.watch(run_for):
        return
    camera.stop()
    say("stopped the camera by proxy")
    watcher.watch(pause_for)
    camera.start()
    say("started it again")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("sender", help="endpoint where the server receives")
    parser.add_argument("receiver", help="endpoint where the server sends")
    parser.add_argument("server_id", type=int)
    parser.add_argument("own_id", type=int)
    parser.add_argument("--run", type=float, default=2.0, help="seconds until it stops the camera")
    parser.add_argument("--pause", type=float, default=1.0, help="seconds until it starts the camera again")
    arguments = parser.parse_args()

    vorna.setup_local_node(arguments.sender, arguments.receiver, arguments.own_id)
    vorna.open_remote_node(arguments.server_id, "far")
    watcher = Watcher(vorna.far)
    watcher.report()
    say("ready")
    drive(watcher, arguments.run, arguments.pause)
    say("done")
    while watcher.watch(1.0):
        pass
    say("the store has closed" if not vorna.far.is_open() else "leaves; it did not hear the store close")


if __name__ == "__main__":
    try:
        main()
    except KeyboardInterrupt:
        pass
