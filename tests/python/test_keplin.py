"""Modules on boards: their values as local classes, and what their proxies send to a server, played by hand."""
import struct

import pytest

import test_member_proxies as wire

ADC, DAC = 11, 12
MODULES = [wire.element(ADC, "keplin::modules::adc::Adc", "Adc"), wire.element(DAC, "keplin::modules::dac::Dac", "Dac"),
           wire.element(13, "keplin::KeplinReaderWriter", "Loop"), wire.element(14, "keplin::KeplinEndpoint", "Endpoint")]
CALL = 2


@pytest.fixture
def far(vorna, node_id, monkeypatch):
    monkeypatch.setattr(wire, "CONTENT", MODULES)
    server = wire.Server()
    vorna.setup_local_node(*server.endpoints, node_id())
    vorna.open_remote_node(wire.STORE, "modules")
    vorna.modules.server = server
    yield vorna.modules
    vorna.close_remote_node("modules")
    server.close()


def test_proxies_have_the_functions_of_the_modules(far, golden):
    classes = [type(proxy) for proxy in (far.Adc, far.Dac, far.Loop, far.Endpoint)]
    golden("keplin_proxies.txt", "".join("%s: %s\n" % (cls.__name__, " ".join(name for name in vars(cls) if name[0] != "_"))
                                         for cls in classes))


def f32(*values):
    return struct.pack("<Q%df" % len(values), len(values), *values)


@pytest.mark.parametrize("call, obj, number, arguments, answer, result", [
    (lambda far: far.Adc.set_sample_rate(20000), ADC, 0, struct.pack("<I", 20000), struct.pack("<H", 20000), 20000),
    (lambda far: far.Adc.get_samples(), ADC, 7, b"", struct.pack("<Q", 1) + struct.pack("<9I", 5, *range(8)), [(5, list(range(8)))]),
    (lambda far: far.Dac.set_channel_value(3, 1.5), DAC, 0, struct.pack("<Qf", 3, 1.5), b"", None),
    (lambda far: far.Dac.set_channel_values([0.5, 2.5]), DAC, 1, f32(0.5, 2.5), b"", None),
    (lambda far: far.Dac.get_channel_values(), DAC, 2, b"", f32(1.0, 0.25), [1.0, 0.25]),
], ids=["rate", "samples", "one value", "values", "read values"])
def test_calls_send_the_functions_number_and_arguments(far, call, obj, number, arguments, answer, result):
    far.server.answer = answer
    value = call(far)
    if isinstance(value, list) and value and hasattr(value[0], "sample_number"):
        value = [(sample.sample_number, list(sample.channel_values)) for sample in value]
    assert value == result
    assert wire.without_return_address(far.server.next_message(), 40) == \
        struct.pack("<i", wire.CALL_INDEX) + wire.header(obj, CALL, number) + wire.with_length(arguments)


def test_local_values(vorna, tmp_path):
    sample = vorna.keplin.modules.adc.AdcSample()
    assert (sample.sample_number, list(sample.channel_values)) == (0, [0] * 8)
    sample.channel_values = range(8)
    with pytest.raises(TypeError):
        sample.channel_values = [1] * 7
    with pytest.raises(TypeError):
        sample.sample_number = -1
    sample.to_json(str(tmp_path / "sample.json"))
    copy = vorna.keplin.modules.adc.AdcSample()
    copy.from_json(str(tmp_path / "sample.json"))
    assert copy == sample and copy.channel_values[7] == 7

    spec = vorna.keplin.modules.dac.DacLinearChannelSpec()
    assert (spec.minimum_value, spec.maximum_value) == (0, 0)
    spec.maximum_value = 2.5
    assert spec.maximum_value == 2.5
    assert not hasattr(vorna.keplin.modules.adc, "Adc") and not hasattr(vorna.keplin.modules.dac, "Dac"), "by proxy alone"
