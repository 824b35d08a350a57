"""Moves the region of interest across the sensor while the graph runs.

While a graph runs its shape is frozen, but each node's own settings stay open.
"""
import time

import vorna
from parts.network import free_endpoints, wait_for

sender, receiver = free_endpoints()
with vorna.emulation.plug_virtual_davis(moving_bars=0, noise=0, rotating_dot=1, seed=3) as camera, \
        vorna.graph.EventFilterGraph() as graph, vorna.VornaNode(sender, receiver, 10) as node:
    vorna.setup_local_node(receiver, sender, 20)
    vorna.open_remote_node(10, "devices")
    node.open_davis()
    davis = wait_for(lambda: getattr(vorna.devices, "Davis240", None), "the camera")

    crop = graph.add_filter_node("DvsEventCrop")
    counter = vorna.graph.nodes.EventCounterSink_davis_event_dvs_event()
    graph.add_destination(crop, counter.get_input_channel())
    davis.get_source_node().add_destination(graph.get_node_input(crop))
    graph.start()
    davis.start()

    try:
        graph.add_filter_node("DvsEventDecimate")
    except ValueError as error:
        print("the shape is frozen:", error)

    width = camera.width() // 8
    for left in range(0, camera.width() - width, width):
        graph.get_node(crop).set_roi(left, 0, left + width - 1, camera.height() - 1)
        counter.get_count()  # forget what came by the former region
        time.sleep(0.25)  # half a turn of the dot
        count = counter.get_count()  # since the last call
        print("columns %3d to %3d: %6d events %s" % (left, left + width - 1, count, "#" * (count // 500)), flush=True)
    davis.stop()
