"""Sends events made in Python through a graph, to see what its nodes do: no camera is started."""
import vorna
from parts.network import free_endpoints, wait_for

DvsEvent = vorna.davis.event.DvsEvent
vorna.emulation.plug_virtual_davis()  # its source node takes events from a script as well
sender, receiver = free_endpoints()
with vorna.graph.EventFilterGraph() as graph, vorna.VornaNode(sender, receiver, 10) as node:
    vorna.setup_local_node(receiver, sender, 20)
    vorna.open_remote_node(10, "devices")
    node.open_davis()
    source = wait_for(lambda: getattr(vorna.devices, "Davis240", None), "the camera").get_source_node()

    crop, rescale = graph.add_filter_node("DvsEventCrop"), graph.add_filter_node("DvsEventRescale")
    graph.get_node(crop).set_roi(10, 10, 20, 20)  # and moves the origin to (10, 10)
    graph.get_node(rescale).set_rescaling_coefficients(2.0, 5.0)  # y is divided by the first, x by the second
    graph.connect(crop, rescale)
    sink = vorna.graph.nodes.BufferSinkNode_davis_event_dvs_event()
    graph.add_destination(rescale, sink.get_input_channel())
    source.add_destination(graph.get_node_input(crop))
    graph.start()

    sent = [DvsEvent(x=x, y=y, polarity=True, timestamp=x) for x, y in [(9, 10), (10, 10), (20, 20), (21, 20)]]
    source.write(sent)
    came = []
    wait_for(lambda: came.extend(sink.get_buf()) or len(came) == 2, "two events")
    print("sent:", [(e.x, e.y) for e in sent])
    print("came:", [(e.x, e.y) for e in came])
