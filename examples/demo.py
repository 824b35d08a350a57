"""Shows vorna at work: a camera, a graph that filters its events, and a second process that watches and drives both.

This process holds a server node with a virtual camera in its store, a local node that reaches the store through
proxies, and a graph. A second process (parts/watcher.py) joins as a client. At the end a picture shows what came
through the graph beside what went in. No hardware is needed.
"""
import argparse
import collections
import signal
import struct
import subprocess
import sys
import threading
import time
from pathlib import Path

from parts.network import free_endpoints, wait_for

try:
    from parts import picture
except ImportError:  # no matplotlib: all but the picture works
    picture = None

# No id may begin with another: messages are addressed by the digits of an id.
SERVER_ID, LOCAL_ID, WATCHER_ID = 10, 20, 30
KEPT_ONE_IN = 2


class Screen:
    """Lines of text, and below them a line that changes in place. Without a terminal it is a line a second instead.

    Thread-safe: the lock is held while something is printed."""

    def __init__(self):
        self.lock = threading.Lock()
        self.in_place = sys.stdout.isatty()
        self.current = ""

    def line(self, text=""):
        with self.lock:
            self._print(text)
            if self.current:
                print(self.current, end="", flush=True)

    def progress(self, text):
        with self.lock:
            if self.in_place:
                self.current = ""
                self._print(text, end="")
                self.current = text
            else:
                self._print(text)

    def end_progress(self):
        with self.lock:
            if self.current:
                print(flush=True)
            self.current = ""

    def _print(self, text, end="\n"):
        print(("\r\x1b[K" if self.in_place else "") + text, end=end, flush=True)


class SecondProcess:
    """parts/watcher.py as a process of its own, whose lines appear on the screen. Leaving the block ends it.

    A thread reads its output until that ends; leaving the block joins it."""

    def __init__(self, screen, endpoints, run, pause):
        self.screen = screen
        self.ready, self.done = threading.Event(), threading.Event()
        script = Path(__file__).resolve().parent / "parts" / "watcher.py"
        self.process = subprocess.Popen(
            [sys.executable, str(script), *endpoints, str(SERVER_ID), str(WATCHER_ID), "--run", str(run), "--pause", str(pause)],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, universal_newlines=True,
            start_new_session=True)  # Ctrl-C is for this process, which then ends the other one
        self.reader = threading.Thread(target=self._read)
        self.reader.start()

    def _read(self):
        marks = {"ready": self.ready, "done": self.done}
        for line in self.process.stdout:
            line = line.rstrip("\n")
            if line in marks:
                marks[line].set()
            elif line != "finished bindings":
                self.screen.line("    second process: " + line)
        for mark in marks.values():  # it has ended, so nothing more will come
            mark.set()

    def __enter__(self):
        return self

    def __exit__(self, error, *details):
        try:
            self.process.wait(timeout=0.5)  # it ends by itself when it sees that the store has closed
        except subprocess.TimeoutExpired:
            self.process.stdin.close()
            try:
                self.process.wait(timeout=1 if error else 15)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
        self.reader.join()
        self.process.stdin.close()
        self.process.stdout.close()


class Recent:
    """The last events of a buffer sink: enough for a picture, however long the demo runs."""

    def __init__(self, sink, keep):
        self.sink, self.keep = sink, keep
        self.batches, self.count = collections.deque(), 0

    def collect(self):
        events = self.sink.get_buf()
        if events:
            self.batches.append(events)
            self.count += len(events)
        while self.batches and self.count - len(self.batches[0]) >= self.keep:
            self.count -= len(self.batches.popleft())
        return len(events)

    def events(self):
        return [event for batch in self.batches for event in batch]


class Pipeline:
    """Crop and decimate with a buffer behind them, and beside them a counter and a buffer of what goes in."""

    def __init__(self, vorna, graph, width, height):
        nodes = vorna.graph.nodes
        self.counter = nodes.EventCounterSink_davis_event_dvs_event()
        enough = max(1000, width * height // 10)  # events to fill a picture without flooding it
        self.seen = Recent(nodes.BufferSinkNode_davis_event_dvs_event(), enough)
        self.kept = Recent(nodes.BufferSinkNode_davis_event_dvs_event(), enough)
        self.total_in = self.total_out = 0

        across, down = max(2, 5 * width // 8), max(2, 5 * height // 8)  # a region has two rows and columns at least
        left, top = (width - across) // 2, (height - down) // 2
        self.region = left, top, across, down
        crop, decimate = graph.add_filter_node("DvsEventCrop"), graph.add_filter_node("DvsEventDecimate")
        graph.get_node(crop).set_roi(left, top, left + across - 1, top + down - 1)
        graph.get_node(decimate).set_decimation_fraction(KEPT_ONE_IN, 1)
        graph.connect(crop, decimate)
        graph.add_destination(decimate, self.kept.sink.get_input_channel())
        self.inputs = [graph.get_node_input(crop), self.counter.get_input_channel(), self.seen.sink.get_input_channel()]

    def collect(self):
        """Takes what has come since the last call; returns the numbers of events before and behind the filters."""
        left = self.kept.collect()
        self.seen.collect()
        came = self.counter.get_count()
        self.total_in += came
        self.total_out += left
        return came, left


def show_progress(screen, pipeline, seconds):
    """Collects and reports until the time is over."""
    interval = 0.1 if screen.in_place else 1.0
    begin = last = now = time.monotonic()
    came = left = 0
    while now - begin < seconds:
        # A running graph sends batches all the time, empty ones too, so collecting seldom takes long each time.
        time.sleep(0.02)
        new_in, new_out = pipeline.collect()
        came, left, now = came + new_in, left + new_out, time.monotonic()
        if now - last >= interval or now - begin >= seconds:
            bar = "#" * min(20, round(20 * (now - begin) / seconds))
            screen.progress("[%-20s] %4.1f s   camera %9s events/s   through the graph %9s events/s" %
                            (bar, now - begin, per_second(came, now - last), per_second(left, now - last)))
            came, left, last = 0, 0, now
    screen.end_progress()


def grouped(count):
    return "{:,.0f}".format(count)


def per_second(count, seconds):
    return grouped(count / seconds)


def wait_for_rest(pipeline):
    """Returns when nothing has come through the graph for a while, though its camera is off."""
    quiet = 0
    while quiet < 5:
        time.sleep(0.02)
        quiet = quiet + 1 if pipeline.collect() == (0, 0) else 0


def draw(path, pipeline, width, height):
    """Both sides over the same span of time, the region of interest marked on the left."""
    kept, seen = pipeline.kept.events(), pipeline.seen.events()[-pipeline.seen.keep:]
    begin, end = (seen[0].timestamp, seen[-1].timestamp) if seen else (0, 0)
    kept = [event for event in kept if begin <= event.timestamp <= end]
    left, top, across, down = pipeline.region
    picture.save(path, [
        picture.Panel("What went in", picture.of_events(seen, width, height),
                      "%d x %d pixels, %s events in %.0f ms" % (width, height, grouped(len(seen)), (end - begin) / 1000), pipeline.region),
        picture.Panel("What came through", picture.of_events(kept, across, down),
                      "cropped to %d x %d, then 1 event of %d: %s events" % (across, down, KEPT_ONE_IN, grouped(len(kept))))])


def polarity_size(path):
    """Columns and rows that the events of a *.polarity file need: the format itself doesn't say."""
    with open(path, "rb") as file:
        content = file.read()
    words = [word for word, _ in struct.iter_unpack("<II", content[:len(content) // 8 * 8])]
    return max((w >> 17 & 0x7fff for w in words), default=0) + 1, max((w >> 2 & 0x7fff for w in words), default=0) + 1


def plug_cameras(vorna, recording):
    if recording:
        size = {}
        if recording.endswith(".polarity"):
            width, height = polarity_size(recording)
            size = {"width": max(width, 346), "height": max(height, 260)}  # at least a DAVIS
        camera = vorna.emulation.plug_virtual_davis_recording(recording, loop=True, **size)
    else:
        camera = vorna.emulation.plug_virtual_davis(seed=4)
    vorna.emulation.plug_virtual_dvxplorer(seed=5)  # for the second process to open
    return camera


def run(vorna, arguments, screen):
    sender, receiver = free_endpoints()
    crossed = receiver, sender  # what the server sends on, a client receives on
    camera = plug_cameras(vorna, arguments.recording)
    width, height = camera.width(), camera.height()
    screen.line("A virtual DAVIS of %d x %d pixels is plugged in; it plays %s." %
                (width, height, arguments.recording or "a synthetic scene"))

    # The node leaves its block before the second process does, so that the latter sees the store close.
    with SecondProcess(screen, crossed, run=0.4 * arguments.seconds, pause=0.15 * arguments.seconds) as second, \
            vorna.graph.EventFilterGraph() as graph, \
            vorna.VornaNode(sender, receiver, SERVER_ID) as node:
        screen.line("Server node %d listens on %s. A second process joins as a client." % (SERVER_ID, receiver))
        vorna.setup_local_node(*crossed, LOCAL_ID)
        vorna.open_remote_node(SERVER_ID, "devices")
        wait_for(second.ready.is_set, "the second process", limit=60)

        screen.line("The node puts itself in its store: now it can be asked by proxy to open cameras.")
        node.expose_root_node()
        wait_for(lambda: hasattr(vorna.devices, "DvXplorer") or second.done.is_set(), "the second process's camera", limit=60)
        vorna.devices.VornaNode.open_davis()
        davis = wait_for(lambda: getattr(vorna.devices, "Davis240", None), "the camera's proxy")

        pipeline = Pipeline(vorna, graph, width, height)
        source = davis.get_source_node()
        for channel in pipeline.inputs:
            source.add_destination(channel)
        screen.line("By proxy its source node is connected to a counter, and to crop -> decimate -> buffer. It starts:")
        graph.start()
        davis.start()
        show_progress(screen, pipeline, arguments.seconds)
        # A camera may be stopped once only, and the second process may have it stopped right now.
        wait_for(second.done.is_set, "the second process", limit=60)
        node.close()  # stops the camera; all that it has sent is in the graph now
        shown = camera.event_count()
        wait_for_rest(pipeline)

    lost = shown - pipeline.total_in
    screen.line("{:,} events came from the camera{}; {:,} came through the graph.".format(
        shown, "" if lost == 0 else " ({:,} of them did not arrive!)".format(lost), pipeline.total_out))
    if camera.damage():
        screen.line("The recording ends early: " + camera.damage())
    if picture:
        draw(arguments.png, pipeline, width, height)
        screen.line("%s shows what came through beside what went in." % arguments.png)
    else:
        screen.line("No picture: it needs matplotlib for this interpreter. On Debian: apt install python3-matplotlib")
    return 0 if lost == 0 else 1


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--recording", metavar="FILE", help="play this instead of a synthetic scene, over and over: "
                        "a .polarity, .evt3.raw, .aedat (AEDAT 3.1) or 5-byte .bin file")
    parser.add_argument("--seconds", type=float, default=6.0, help="how long the camera runs (default: %(default)g)")
    parser.add_argument("--png", default="demo.png", help="where the picture is put (default: %(default)s)")
    arguments = parser.parse_args()
    if not 0.5 <= arguments.seconds <= 3600:
        parser.error("--seconds must be 0.5 to 3600")

    try:
        import vorna  # only now: the help needs no module
    except ImportError as error:
        sys.exit("demo: %s\nWith `make demo` the module is built and found." % error)
    screen = Screen()
    try:
        return run(vorna, arguments, screen)
    except KeyboardInterrupt:
        screen.end_progress()
        screen.line("Interrupted; all is closed.")
        return 128 + signal.SIGINT
    except (RuntimeError, ValueError, OSError) as error:  # no such recording, no place for the picture
        screen.end_progress()
        print("demo: %s" % error, file=sys.stderr)
        return 1


if __name__ == "__main__":
    sys.exit(main())
