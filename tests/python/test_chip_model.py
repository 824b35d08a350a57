"""Chip models in Python: over a chip in memory in this process, and by proxy."""
import pytest
import vorna

from chips import family, gather, other  # noqa: F401
from conftest import free_endpoints, run_script, wait_for


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


def test_a_model_in_this_process(family):
    chip, event = family.MemoryChip(), family.event
    with family.MemoryModel(chip) as model, vorna.graph.EventFilterGraph() as graph:
        select = graph.add_filter_node(family.title + "LayerSelect")
        graph.get_node(select).set_layers([5])
        sink = family.sink()
        graph.add_destination(select, sink.get_input_channel())
        assert model.add_destination(graph.get_node_input(select)) is True
        assert model.add_destination(model.get_input_channel()) is False, "it takes other events"
        graph.start()
        chip.queue_output([event.Spike(layer=layer, x=layer) for layer in range(9)])
        assert gather(sink) == [event.Spike(layer=5, x=5)]
        assert model.remove_destination(graph.get_node_input(select)) is True
    model.close()  # a second time
    model.write([event.ReadProbe(core=3)])
    assert model.read() == [event.ProbeValue(core=3)], "nobody carries the answer on any more"


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


def test_the_other_familys_values_are_refused(family, other):
    with family.MemoryModel(family.MemoryChip()) as model:
        with pytest.raises(TypeError):
            model.write([other.event.ReadProbe()])
        with pytest.raises(TypeError):
            model.apply_configuration(other.Configuration())


def test_a_model_is_driven_by_proxy(family, server, remote):
    chip, event = family.MemoryChip(), family.event
    chip.open_model(server.node, "Chip")
    wait_for(lambda: hasattr(remote, "Chip"), what="the model's proxy")
    model = remote.Chip
    assert type(model).__name__ == "__Remote__%sModel__" % family.title
    configuration = family.Configuration()
    configuration.cnn_layers[2].threshold_high = 300
    chip.set_recording(True)
    model.apply_configuration(configuration)
    assert chip.take_written() == family.to_events(configuration)

    answers = family.sink()
    assert model.get_source_node().add_destination(answers.get_input_channel()) is True
    model.write([event.WriteBiasValue(layer=1, address=2, bias=-7), event.ReadBiasValue(layer=1, address=2, monitor_tag=3)])
    assert gather(answers) == [event.BiasValue(monitor_tag=3, bias=-7)]
    model.get_source_node().write([event.Spike(layer=1)])
    assert answers.get_buf() == [event.Spike(layer=1)]

    chip.set_loop_back(True)
    feeder = family.node("EventSource", "InputEvent")
    assert feeder.add_destination(model.get_sink_node().getinput_node()) is True
    feeder.write([event.Spike(layer=2, timestamp=5)])
    assert gather(answers) == [event.Spike(layer=2, timestamp=5)]
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
