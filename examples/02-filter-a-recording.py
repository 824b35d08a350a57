"""Plays a recording through a graph, as fast as the graph takes it. Without a file it writes a small one first.

A *.polarity file holds 8 bytes per event: x in bits 17 to 31, y in bits 2 to 16, polarity in bit 1, and bit 0 set; then
the time in microseconds.
"""
import argparse
import struct
import tempfile
import time
from pathlib import Path

import vorna
from parts.network import free_endpoints, wait_for


def write_diagonal(path, count=20_000):
    """Events that run along the diagonal of a 200 x 200 sensor, one every 50 microseconds."""
    with open(path, "wb") as file:
        for i in range(count):
            file.write(struct.pack("<II", (i % 200) << 17 | (i % 200) << 2 | (i & 1) << 1 | 1, 50 * i))


def filtered(path):
    sender, receiver = free_endpoints()
    with vorna.emulation.plug_virtual_davis_recording(path, realtime=False) as camera, \
            vorna.graph.EventFilterGraph() as graph, vorna.VornaNode(sender, receiver, 10) as node:
        vorna.setup_local_node(receiver, sender, 20)
        vorna.open_remote_node(10, "devices")
        node.open_davis()
        davis = wait_for(lambda: getattr(vorna.devices, "Davis240", None), "the camera")

        crop, decimate = graph.add_filter_node("DvsEventCrop"), graph.add_filter_node("DvsEventDecimate")
        graph.get_node(crop).set_roi(50, 50, 149, 149)  # both corners belong to the region
        graph.get_node(decimate).set_decimation_fraction(4, 1)  # 1 event of 4
        graph.connect(crop, decimate)
        sink = vorna.graph.nodes.BufferSinkNode_davis_event_dvs_event()
        graph.add_destination(decimate, sink.get_input_channel())
        davis.get_source_node().add_destination(graph.get_node_input(crop))

        graph.start()
        davis.start()
        events, quiet = [], 0
        while quiet < 5:  # to the recording's end, and then until nothing comes any more
            time.sleep(0.02)
            finished, new = camera.is_finished(), sink.get_buf()
            quiet = quiet + 1 if finished and not new else 0
            events += new
        return camera.event_count(), events, camera.damage()


parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
parser.add_argument("file", nargs="?", help=".polarity, .evt3.raw, .aedat (AEDAT 3.1) or 5-byte .bin")
path = parser.parse_args().file
with tempfile.TemporaryDirectory() as folder:
    if not path:
        path = str(Path(folder) / "diagonal.polarity")
        write_diagonal(path)
    shown, kept, damage = filtered(path)
print("%d events in, %d through; the first: %s" % (shown, len(kept), kept[0] if kept else None))
if damage:
    print("the recording ends early:", damage)
