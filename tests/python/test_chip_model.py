"""Chip models in Python: over a chip in memory in this process, and by proxy."""
import pytest

from conftest import free_endpoints, run_script, wait_for


@pytest.fixture(params=["tessel", "ravik"])
def family(request, vorna):
    """What both families have, under one name."""
    class Family:
        name = request.param
        title = name.title()
        event = getattr(vorna, name).event
        Configuration = getattr(getattr(vorna, name).configuration, title + "Configuration")
        MemoryChip = getattr(vorna.emulation, title + "MemoryChip")
        MemoryModel = getattr(vorna.emulation, title + "MemoryModel")
        OutputSink = getattr(vorna, "BufferSinkNode_%s_event_output_event" % name)
        validate = staticmethod(getattr(vorna, name).validate_configuration)
    return Family


def test_a_chip_in_memory_answers(family):
    chip, event = family.MemoryChip(), family.event
    chip.set_recording(True)
    written = [event.WriteRegisterValue(layer=13, index=2, data=171), event.ReadRegisterValue(layer=13, index=2)]
    chip.write(written)
    assert chip.read() == [event.RegisterValue(layer=13, index=2, data=171)]
    assert chip.take_written() == written and chip.get_written_count() == 2
    chip.set_loop_back(True)
    chip.write([event.RouterEvent(layer=1, feature=2, y=3, x=4)])
    assert chip.read() == [event.Spike(layer=1, feature=2, y=3, x=4)]


def test_a_model_in_this_process(vorna, family):
    chip, event = family.MemoryChip(), family.event
    with family.MemoryModel(chip) as model, vorna.graph.EventFilterGraph() as graph:
        select = graph.add_filter_node(family.title + "LayerSelect")
        graph.get_node(select).set_layers([5])
        sink = family.OutputSink()
        graph.add_destination(select, sink.get_input_channel())
        assert model.add_destination(graph.get_node_input(select)) is True
        assert model.add_destination(model.get_input_channel()) is False, "it takes other events"
        graph.start()
        chip.queue_output([event.Spike(layer=layer, x=layer) for layer in range(9)])
        came = []
        wait_for(lambda: came.extend(sink.get_buf()) or came, what="the spike of layer 5")
        assert came == [event.Spike(layer=5, x=5)]
        assert model.remove_destination(graph.get_node_input(select)) is True
    model.close()  # a second time


def test_a_configuration_is_applied_or_refused_as_a_whole(family):
    chip = family.MemoryChip()
    configuration = family.Configuration()
    with family.MemoryModel(chip) as model:
        model.apply_configuration(configuration)
        count = chip.get_written_count()
        assert count == 337
        configuration.cnn_layers[0].dimensions.kernel_size = 99
        configuration.readout.input_address_interpretation = 9
        with pytest.raises(RuntimeError) as error:
            model.apply_configuration(configuration)
        assert (False, str(error.value)) == tuple(family.validate(configuration))
        assert chip.get_written_count() == count


def test_the_other_familys_values_are_refused(vorna, family):
    other = vorna.ravik if family.name == "tessel" else vorna.tessel
    with family.MemoryModel(family.MemoryChip()) as model:
        with pytest.raises(TypeError):
            model.write([other.event.ReadProbe()])
        with pytest.raises(TypeError):
            model.apply_configuration(getattr(other.configuration, "RavikConfiguration" if family.name == "tessel"
                                              else "TesselConfiguration")())


def test_a_model_is_driven_by_proxy(vorna, family, server, remote):
    chip, event = family.MemoryChip(), family.event
    chip.open_model(server.node, "Chip")
    wait_for(lambda: hasattr(remote, "Chip"), what="the model's proxy")
    model = remote.Chip
    assert type(model).__name__ == "__Remote__%sModel__" % family.title
    configuration = family.Configuration()
    configuration.cnn_layers[2].threshold_high = 300
    chip.set_recording(True)
    model.apply_configuration(configuration)
    assert chip.take_written() == getattr(family.event, family.name + "_config_to_event")(configuration)

    answers = family.OutputSink()
    assert model.get_source_node().add_destination(answers.get_input_channel()) is True
    model.write([event.WriteBiasValue(layer=1, address=2, bias=-7), event.ReadBiasValue(layer=1, address=2, monitor_tag=3)])
    came = []
    wait_for(lambda: came.extend(answers.get_buf()) or came, what="the answer")
    assert came == [event.BiasValue(monitor_tag=3, bias=-7)]
    model.get_source_node().write([event.Spike(layer=1)])
    assert answers.get_buf() == [event.Spike(layer=1)]

    chip.set_loop_back(True)
    feeder = getattr(vorna.graph.nodes, "EventSource_%s_event_input_event" % family.name)()
    assert feeder.add_destination(model.get_sink_node().getinput_node()) is True
    feeder.write([event.Spike(layer=2, timestamp=5)])
    came.clear()
    wait_for(lambda: came.extend(answers.get_buf()) or came, what="the spike that the sink was given")
    assert came == [event.Spike(layer=2, timestamp=5)]
    if family.name == "tessel":
        assert model.get_sink_node().get_event_buf() == []
    assert isinstance(model.read(), list)
    with pytest.raises(RuntimeError, match="Name: Chip is already used"):
        chip.open_model(server.node, "Chip")
    server.node.close()
    with pytest.raises(RuntimeError, match="closed"):
        chip.open_model(server.node, "Another")


def test_models_still_running_when_the_process_ends():
    ended = run_script("""
        import vorna, sys
        chip = vorna.emulation.TesselMemoryChip()
        model = vorna.emulation.TesselMemoryModel(chip)
        node = vorna.VornaNode(sys.argv[1], sys.argv[2], 10)
        chip.open_model(node, "Chip")
        forgotten = [model, node]
        forgotten.append(forgotten)
        print("end")
    """, *free_endpoints())
    assert (ended.returncode, ended.stdout[-4:], ended.stderr) == (0, "end\n", "")
