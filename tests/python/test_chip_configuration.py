"""Configurations of the two chip families from Python: their members, validation, events and registers by name."""
import copy
import inspect
import json
import pickle

import pytest
import vorna

from chips import family, other  # noqa: F401

RAGGED = "Input vector dimensions are not consistent."


def network(family):
    """Two layers: camera -> 0 -> 1, all of it small."""
    config = family.Configuration()
    config.dvs_layer = {"cut": {"x": 7, "y": 7}, "merge": True}
    config.dvs_layer.destinations[0].enable = True
    layer = config.cnn_layers[0]
    layer.dimensions = {"kernel_size": 2, "stride": {"x": 2, "y": 2},
                        "input_shape": {"size": {"x": 8, "y": 8}},
                        "output_shape": {"feature_count": 3, "size": {"x": 4, "y": 4}}}
    layer.weights = [[[[1, -2], [3, 4]]], [[[0, 0], [0, 5]]], [[[-128, 127], [0, 0]]]]
    layer.weights_kill_bit = [[[[False] * 2] * 2]] * 3
    route = family.configuration.CNNLayerDestination
    layer.destinations = [route(layer=1, enable=True), route()]
    return config


def test_nested_access_writes_through(family):
    config = family.Configuration()
    config.cnn_layers[2].destinations[0].enable = True
    config.cnn_layers[2].dimensions.input_shape.size.x = 40
    config.factory_settings.readout[15].clock_delay = 2
    config.debug_config.cnn_layers_config[8].probe_points.leak = family.configuration.LeakProbePoint.LeakRW1
    config.dvs_layer.mirror.y = True
    assert [d.enable for d in config.cnn_layers[2].destinations] == [True, False]
    assert not config.cnn_layers[3].destinations[0].enable
    assert config.cnn_layers[2].dimensions.input_shape.size.x == 40
    assert config.factory_settings.readout[15].clock_delay == 2
    assert config.debug_config.cnn_layers_config[8].probe_points.leak == family.configuration.LeakProbePoint.LeakRW1
    assert config.dvs_layer.mirror.y and not config.dvs_layer.mirror.x


def test_shapes_that_dimensions_ask_for(family):
    dimensions = family.configuration.CNNLayerDimensions()
    assert dimensions.get_biases_array_dimensions() == [1]
    dimensions.kernel_size = 3
    dimensions.input_shape = {"feature_count": 2}
    dimensions.output_shape = {"feature_count": 4, "size": {"x": 5, "y": 6}}
    assert dimensions.get_weights_array_dimensions() == [4, 2, 3, 3]
    assert dimensions.get_biases_array_dimensions() == [4]
    assert dimensions.get_neuron_states_array_dimensions() == [4, 5, 6]


def test_arrays_are_nested_lists(family):
    layer = family.configuration.CNNLayerConfig()
    assert layer.weights == [[[[0]]]] and layer.neurons_value_kill_bit == [[[False]]] and layer.biases == [0]
    layer.weights = [[[[1, 2], [3, -4]]], [[[5, 6], [7, 8]]]]
    layer.biases = (1, -2, 3)
    layer.neurons_initial_value = memoryview(bytes(range(12))).cast("B").cast("h", [3, 1, 2])
    layer.neurons_value_kill_bit = [[[True], [False]]]
    assert layer.weights == [[[[1, 2], [3, -4]]], [[[5, 6], [7, 8]]]]
    assert layer.biases == [1, -2, 3]
    assert layer.neurons_initial_value == [[[0x0100, 0x0302]], [[0x0504, 0x0706]], [[0x0908, 0x0B0A]]]
    assert layer.neurons_value_kill_bit == [[[True], [False]]]
    assert layer.dimensions.kernel_size == 1, "setting an array leaves the dimensions alone"


@pytest.mark.parametrize("member, ragged", [
    ("weights", [[[[1, 2], [3]]]]),
    ("weights_kill_bit", [[[[True]]], []]),
    ("neurons_initial_value", [[[1], [2]], [[3]]]),
    ("neurons_value_kill_bit", [[[True], []]]),
])
def test_a_ragged_list_is_refused_and_changes_nothing(family, member, ragged):
    layer = network(family).cnn_layers[0]
    before = getattr(layer, member)
    with pytest.raises(ValueError) as error:
        setattr(layer, member, ragged)
    assert RAGGED in str(error.value)
    assert getattr(layer, member) == before


def test_files_copies_and_pickles_hold_all(family, tmp_path):
    config = network(family)
    config.readout.threshold = 300
    config.to_json(tmp_path / "chip.json")
    loaded = family.Configuration()
    loaded.from_json(tmp_path / "chip.json")
    read = json.loads((tmp_path / "chip.json").read_text())["value0"]
    assert list(read) == ["cnn_layers", "dvs_layer", "readout", "factory_settings", "debug_config"]
    assert read["cnn_layers"][0]["weights"] == {"dimensions": [3, 1, 2, 2], "offsets": [4, 4, 2, 1],
                                                "values": [1, -2, 3, 4, 0, 0, 0, 5, -128, 127, 0, 0]}
    for same in (loaded, copy.deepcopy(config), pickle.loads(pickle.dumps(config))):
        assert same == config and same.readout.threshold == 300
        assert same.cnn_layers[0].weights == config.cnn_layers[0].weights


def test_families_do_not_mix(family, other):
    with pytest.raises(TypeError):
        family.to_events(other.Configuration())
    config = family.Configuration()
    for member in ("dvs_layer", "readout", "debug_config"):
        with pytest.raises(TypeError):
            setattr(config, member, getattr(other.Configuration(), member))
    with pytest.raises(TypeError):
        config.debug_config.router1 = other.configuration.ProbePointRouter1.C3ToC0


def test_every_member_is_explained(family):
    described = [c for _, c in inspect.getmembers(family.configuration, inspect.isclass) if hasattr(c, "to_json")]
    assert len(described) == 16
    for cls in described:
        assert cls.__doc__.strip()
        for name, attribute in vars(cls).items():
            if isinstance(attribute, property):
                assert len(attribute.__doc__.split(": ", 1)[1]) > 3, (cls, name)


def test_a_configuration_becomes_events(family):
    event = family.event
    events = family.to_events(family.Configuration())
    assert len(events) == 337
    assert events[0] == event.WriteRegisterValue(layer=0, index=0, data=0)
    assert events[325] == event.WriteRegisterValue(layer=14, index=0, data=4)

    events = family.to_events(network(family))
    weights = [e for e in events if isinstance(e, event.WriteWeightValue) and e.layer == 0]
    assert [e.weight for e in weights] == [1, -2, 3, 4, 0, 0, 0, 5, -128, 127, 0, 0]
    # [3][1][2][2]: two bits of output feature below a + 2 * b
    assert [e.address for e in weights] == [0, 8, 4, 12, 1, 9, 5, 13, 2, 10, 6, 14]

    broken = network(family)
    broken.cnn_layers[0].weights_kill_bit = [[[[False]]]]
    with pytest.raises(IndexError, match=r"Layer\[0\] weights"):
        family.to_events(broken)


def test_register_writes_by_name(family):
    event = family.event
    writes = [e for e in family.to_events(network(family)) if isinstance(e, event.WriteRegisterValue)]
    written = {}
    for write in writes:
        register = event.describe_register(write)
        assert (register.core, register.number, register.data) == (write.layer, write.index, write.data)
        for field in register.fields:
            key = (register.block, field.name)
            written[key] = written.get(key, 0) | field.value << field.from_bit
    assert written["Layer[0]", "outputHeightLess1"] == 3
    assert written["Layer[0]", "layer0"] == 1
    assert written["Layer[1]", "ownLayer"] == 1
    assert written["DVS", "cutX"] == 7
    assert written["DVS", "mergeDisable"] == 0
    assert written["Readout", "resetDelay[15]"] == 7
    registers = vorna.tessel.registers
    assert registers.describe_register(3, 4, 0x5F).fields[0].value == 31
    assert [len(registers.registers_of_core(core)) for core in (0, 8, 12, 13, 14)] == [31, 31, 16, 3, 12]
    with pytest.raises(IndexError, match="no register 10"):
        registers.describe_register(0, 10, 0)
    with pytest.raises(IndexError, match="no block number 11"):
        registers.registers_of_core(11)


def test_validation_gives_verdict_and_text(family, other):
    assert "(valid, text)" in family.validate.__doc__
    verdict = family.validate(family.Configuration())
    assert verdict == (True, "") and type(verdict) is tuple
    config = family.Configuration()
    layer = config.cnn_layers[0]
    layer.dimensions = {"kernel_size": 3, "padding": {"x": 1, "y": 1}, "input_shape": {"feature_count": 3},
                        "output_shape": {"feature_count": 5}}
    config.readout.input_address_interpretation = 200
    before = repr(config)
    valid, text = family.validate(config)
    lines = text.splitlines()
    assert not valid and len(lines) == 8 and lines[0] == "Weights array must have dimensions [5][3][3][3]"
    assert lines[-1] == "Input address interpretation must be in [0,3]. Actual: 200"
    assert repr(config) == before
    config.readout.input_address_interpretation = 0
    layer.weights = [[[[7] * 3] * 3] * 3] * 5
    layer.weights_kill_bit = [[[[True] * 3] * 3] * 3] * 5
    layer.biases, layer.biases_kill_bit = [1] * 5, [False] * 5
    layer.neurons_initial_value, layer.neurons_value_kill_bit = [[[0]]] * 5, [[[False]]] * 5
    assert family.validate(config) == (True, "")
    with pytest.raises(TypeError, match="validate_configuration"):
        family.validate(other.Configuration())
