"""Drives a chip in memory through its model, and filters the events from it in a graph."""
import vorna
from parts.network import free_endpoints, wait_for

event = vorna.tessel.event
chip = vorna.emulation.TesselMemoryChip()
chip.set_recording(True)

# 1. A model in this process: from the script to the chip, and from the chip to a graph.
with vorna.emulation.TesselMemoryModel(chip) as model, vorna.graph.EventFilterGraph() as graph:
    configuration = vorna.tessel.configuration.TesselConfiguration()
    configuration.cnn_layers[3].threshold_high = 20
    model.apply_configuration(configuration)
    print("the configuration went to the chip as %d events" % len(chip.take_written()))

    configuration.readout.input_address_interpretation = 9
    try:
        model.apply_configuration(configuration)
    except RuntimeError as error:
        print("refused: %s" % str(error).splitlines()[0])
    print("written of that: %d events" % len(chip.take_written()))

    select = graph.add_filter_node("TesselLayerSelect")
    graph.get_node(select).set_layers([3])
    sink = vorna.BufferSinkNode_tessel_event_output_event()
    graph.add_destination(select, sink.get_input_channel())
    model.add_destination(graph.get_node_input(select))
    graph.start()

    chip.queue_output([event.Spike(layer=layer, feature=1, x=layer, y=2, timestamp=100) for layer in range(5)])
    came = wait_for(sink.get_buf, "a spike of layer 3")
    print("through the graph:", [(spike.layer, spike.x, spike.y) for spike in came])

# 2. A model in a node's store, used by proxy like the model of a board.
sender, receiver = free_endpoints()
with vorna.VornaNode(sender, receiver, 10) as node:
    vorna.setup_local_node(receiver, sender, 20)
    vorna.open_remote_node(10, "devices")
    chip.open_model(node, "Chip")
    remote = wait_for(lambda: getattr(vorna.devices, "Chip", None), "the model's proxy")

    answers = vorna.BufferSinkNode_tessel_event_output_event()
    remote.get_source_node().add_destination(answers.get_input_channel())
    remote.write([event.WriteRegisterValue(layer=13, index=2, data=77), event.ReadRegisterValue(layer=13, index=2)])
    came = wait_for(answers.get_buf, "the answer")
    print("register 2 of block 13 holds %d" % came[0].data)
