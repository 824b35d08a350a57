"""Watches a camera in the terminal: events a second, and how many of them are ON events.

Plugs a virtual DAVIS in; with --real it takes the camera on USB.
"""
import argparse
import time

import vorna
from parts.network import free_endpoints, wait_for

parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
parser.add_argument("--real", action="store_true", help="use the DAVIS camera on USB")
parser.add_argument("--seconds", type=float, default=2.0)
arguments = parser.parse_args()

if not arguments.real:
    vorna.emulation.plug_virtual_davis(events_per_second=150_000, seed=2)
sender, receiver = free_endpoints()
with vorna.VornaNode(sender, receiver, 10) as node:
    vorna.setup_local_node(receiver, sender, 20)
    vorna.open_remote_node(10, "devices")
    node.open_davis()
    davis = wait_for(lambda: getattr(vorna.devices, "Davis240", None), "the camera")

    sink = vorna.graph.nodes.BufferSinkNode_davis_event_dvs_event()  # a sink can take from a camera without a graph
    davis.get_source_node().add_destination(sink.get_input_channel())
    davis.start()
    begin = last = time.monotonic()
    while last - begin < arguments.seconds:
        time.sleep(0.25)
        events, now = sink.get_buf(), time.monotonic()
        rate = len(events) / (now - last)
        on = sum(event.polarity for event in events) / max(1, len(events))
        print("%9.0f events/s  %3.0f%% ON  %s" % (rate, 100 * on, "#" * int(rate / 10_000)), flush=True)
        last = now
    davis.stop()  # once only: a camera that isn't running can't be stopped, see the guide
