"""Local classes: properties, dicts, errors, equality, references into owners, JSON."""
import copy
import json

import pytest


@pytest.fixture
def event(vorna):
    return vorna.davis.event.DvsEvent(x=3, y=4, polarity=True, timestamp=-5)


@pytest.fixture
def opened(vorna):
    return vorna.device.OpenedDevice(device_info=vorna.device.DeviceInfo("serial", 1, 2, 3, "usb"))


@pytest.mark.parametrize("member, value, expected, given", [
    ("x", 70000, "int in [0, 65535]", "70000 (int)"),
    ("x", -1, "int in [0, 65535]", "-1 (int)"),
    ("y", 1.5, "int in [0, 65535]", "1.5 (float)"),
    ("y", "far", "int in [0, 65535]", "'far' (str)"),
    ("y", None, "int in [0, 65535]", "None (NoneType)"),
    ("y", "\u00e9" * 100, "int in [0, 65535]", "'" + "\u00e9" * 59 + "... (str)"),
    ("timestamp", 2**63, "int in [-9223372036854775808, 9223372036854775807]", "9223372036854775808 (int)"),
])
def test_a_wrong_value_names_class_property_expectation_and_value(event, member, value, expected, given):
    before = copy.copy(event)
    with pytest.raises(TypeError) as caught:
        setattr(event, member, value)
    assert str(caught.value) == "davis.event.DvsEvent.%s: expected %s, got %s" % (member, expected, given)
    assert event == before


def test_members_of_class_type_refer_into_their_owner(opened):
    info = opened.device_info
    info.logic_version = 9
    assert opened.device_info.logic_version == 9
    other = copy.deepcopy(info)
    other.logic_version = 10
    assert opened.device_info.logic_version == 9, "a copy is a copy"
    opened.device_info = other
    other.logic_version = 11
    assert opened.device_info.logic_version == 10, "assignment copies"
    del opened
    assert info.serial_number == "serial", "a reference keeps its owner alive"


def test_a_dict_sets_the_members_that_it_names(opened):
    opened.device_info = {"usb_bus_number": 7, "no_such_member": 1}
    assert opened.device_info.usb_bus_number == 7
    assert opened.device_info.serial_number == "serial"
    opened.store_ref = {"storeId": 5, "store_id": 6}  # reflected names count, not those of Python
    assert opened.store_ref.store_id == 5
    opened.store_ref = [("storeId", 6)]  # what dict() takes is a dict
    assert opened.store_ref.store_id == 6
    for other in [1], "ab", 3, iter([("storeId", 7)]):
        with pytest.raises(TypeError):
            opened.store_ref = other


@pytest.mark.parametrize("wrong", [{"serial_number": "new", "usb_bus_number": "x"}, {"serial_number": "new", "logic_version": {}}])
def test_a_dict_with_one_wrong_value_changes_nothing_and_says_which(opened, capsys, wrong):
    before = copy.deepcopy(opened.device_info)
    with pytest.raises(TypeError):
        opened.device_info = wrong
    assert opened.device_info == before
    bad = list(wrong)[1]
    assert capsys.readouterr().out == (
        "Failed reading dictionary member ' %s ' Value could not be casted to the expected type ( int )  nor to a sub-dictionary.\n" % bad)


def test_equality_and_text(vorna, event):
    assert event == copy.copy(event)
    assert event != vorna.davis.event.DvsEvent()
    assert event != 3
    assert repr(event) == "vorna.davis.event.DvsEvent(x=3, y=4, polarity=True, timestamp=-5)"
    assert str(vorna.trovi.StoreRef(store_id=1, obj_id=2)) == "trovi::StoreRef{ storeId = 1, objId = 2}"
    with pytest.raises(TypeError, match="has no member 'z'; it has: x, y, polarity, timestamp"):
        vorna.davis.event.DvsEvent(z=1)


def test_device_infos_are_equal_by_all_fields(vorna):
    fields = ["s", 1, 2, 3, "usb"]
    info = vorna.device.DeviceInfo(*fields)
    assert info == vorna.device.DeviceInfo(info)
    for i, other in enumerate(["t", 9, 9, 9, "ombrel"]):
        assert info != vorna.device.DeviceInfo(*(fields[:i] + [other] + fields[i + 1:]))


def test_a_box_is_read_only_and_opens_at_home_alone(vorna):
    empty = vorna.trovi.BoxedPtr()
    assert (empty.address, empty.is_valid()) == (0, False)
    boxed = vorna.EventCounterSink_davis_event_dvs_event().get_input_channel()
    assert boxed.is_valid() and boxed.type == "const std::any*"
    with pytest.raises(AttributeError):
        boxed.address = 1
    assert str(boxed.pid) in str(boxed)


def test_json_files(tmp_path, vorna, opened):
    path = str(tmp_path / "state.json")
    opened.to_json(path)
    with open(path) as file:
        assert json.load(file) == {"value0": {
            "device_info": {"serial_number": "serial", "usb_bus_number": 1, "usb_device_address": 2, "logic_version": 3,
                            "device_type_name": "usb"},
            "reference_type": 0, "store_ref": {"storeId": 0, "objId": 0}}}
    other = vorna.device.OpenedDevice()
    other.from_json(path)
    assert other == opened
    with pytest.raises(RuntimeError, match="rapidjson internal assertion failure: IsObject"):
        opened.from_json(str(tmp_path / "missing"))


def test_values_are_pickled_and_paths_may_be_objects(tmp_path, event, opened):
    import pickle
    for value in (event, opened):
        assert all(pickle.loads(pickle.dumps(value, protocol)) == value for protocol in range(pickle.HIGHEST_PROTOCOL + 1))
    event.to_json(tmp_path / "event.json")
    other = type(event)()
    other.from_json(path=tmp_path / "event.json")
    assert other == event
    with pytest.raises(TypeError):
        event.to_json(3)


def test_writing_replaces_a_file_whole_or_not_at_all(tmp_path, event):
    import os
    path = tmp_path / "state.json"
    path.write_text("good")
    os.chmod(str(path), 0o640)
    event.to_json(str(path))
    assert "timestamp" in path.read_text()
    assert [p.name for p in tmp_path.iterdir()] == ["state.json"], "nothing is left beside it"
    event.to_json(str(tmp_path / "no" / "such" / "folder.json"))  # a path that can't be opened is no error


def test_names_that_stand_in_two_places_are_one_class(vorna):
    assert vorna.Vec2_int is vorna.util.Vec2_int and vorna.Vec2_int(x=-1, y=2).to_string() == "(-1,2)"


def test_lists_of_a_chip_write_to_its_configuration(vorna):
    config = vorna.tessel.configuration.TesselConfiguration()
    layers, changed = config.cnn_layers, vorna.tessel.configuration.CNNLayerConfig(threshold_high=7)
    layers[1] = changed
    changed.threshold_high = 8
    layers[1].destinations[1] = {"enable": True, "layer": 3}
    layers[1].biases.append(5)
    layers[1].biases_kill_bit.append(False)
    config.dvs_layer.destinations[0].layer = 4
    assert (config.cnn_layers[1].threshold_high, config.cnn_layers[1].destinations[1].layer) == (7, 3)
    assert config.cnn_layers[1].biases == [0, 5] and config.dvs_layer.destinations[0].layer == 4
    layers[0].weights[0][0][0][0] = 9
    assert any(getattr(w, "weight", 0) == 9 for w in vorna.tessel.event.tessel_config_to_event(config))
    with pytest.raises(TypeError, match="TesselConfiguration.cnn_layers: it always has 9 elements"):
        config.cnn_layers.append(changed)
    with pytest.raises(TypeError, match=r"write\(\): .*\[1\]: expected .*Spike.*, got None"):
        vorna.graph.nodes.EventSource_tessel_event_output_event().write([vorna.tessel.event.Spike(), None])
