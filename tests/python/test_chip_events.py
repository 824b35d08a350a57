"""Events of both chip families: their classes, their words, and graphs over them."""
import copy
import inspect
import pickle

import pytest
import vorna
from conftest import wait_for

FAMILIES = ["tessel", "ravik"]
nodes = vorna.graph.nodes

INPUTS = {
    "Spike": {"layer": 8, "feature": 1023, "y": 127, "x": 1, "timestamp": 0xFFFFFFFF},
    "RouterEvent": {"layer": 13, "feature": 1, "y": 5, "x": 6},
    "KillSensorPixel": {"y": 3, "x": 4},
    "ResetSensorPixel": {},
    "WriteNeuronValue": {"layer": 1, "address": 0xFFFFFFFF, "kill": True, "neuron_state": -32768},
    "ReadNeuronValue": {"layer": 1, "address": 2, "monitor_tag": 255},
    "WriteWeightValue": {"layer": 1, "address": 2, "kill": True, "weight": -128},
    "ReadWeightValue": {"layer": 1, "address": 2, "monitor_tag": 3},
    "WriteBiasValue": {"layer": 1, "address": 2, "kill": False, "bias": -2},
    "ReadBiasValue": {"layer": 1, "address": 2, "monitor_tag": 3},
    "WriteRegisterValue": {"layer": 13, "index": 2, "data": 0xAB},
    "ReadRegisterValue": {"layer": 1, "index": 2},
    "WriteMemoryValue": {"layer": 1, "address": 0xFFFF, "data": 0xFFFF},
    "ReadMemoryValue": {"layer": 1, "address": 2},
    "ReadProbe": {"core": 3},
}
OUTPUTS = {
    "DvsEvent": {"p": True, "y": 127, "x": 5, "layer": 9},
    "InputInterfaceEvent": {"value": 0x1FFFFF, "msp": True},
    "NeuronValue": {"monitor_tag": 31, "kill": True, "neuron_state": -5},
    "BiasValue": {"monitor_tag": 31, "kill": True, "bias": -5},
    "WeightValue": {"monitor_tag": 255, "kill": True, "weight": -5},
    "RegisterValue": {"layer": 13, "index": 2, "data": 511, "timestamp": 4},
    "MemoryValue": {"layer": 13, "address": 8191, "data": 511, "timestamp": 4},
    "BistValue": {"layer": 1, "address": 2, "block": 3, "word_part": 1, "type": 2, "data": 5, "expected": 6, "error_code": 3},
    "ProbeValue": {"core": 3, "value": 4},
    "ReadoutValue": {"value": 0xFFFFFFFF},
}
ROWS = [(family, *row) for family in FAMILIES for row in {**INPUTS, **OUTPUTS}.items()]


def events(family):
    return getattr(vorna, family).event


def sink_of(family, event="OutputEvent", kind="BufferSinkNode"):
    snake = "".join("_" + c.lower() if c.isupper() else c for c in event)
    return getattr(nodes, f"{kind}_{family}_event{snake}")()


def gather(sink, count):
    """What the sink has after `count` events came."""
    came = []
    wait_for(lambda: came.extend(sink.get_buf()) or len(came) >= count, limit=20, what="events")
    return came


@pytest.mark.parametrize("family,name,members", ROWS, ids=lambda value: value if isinstance(value, str) else "")
def test_event_class(family, name, members, tmp_path):
    cls = getattr(events(family), name)
    assert all(getattr(cls(), member) == 0 for member in members), "all zero by default"
    event = cls(**members)
    assert {member: getattr(event, member) for member in members} == members
    assert event == cls(**members) and (not members or event != cls())
    assert copy.copy(event) == event == pickle.loads(pickle.dumps(event))
    assert name in repr(event) and all(member in repr(event) for member in members)
    path = tmp_path / "event.json"
    event.to_json(str(path))
    back = cls()
    back.from_json(str(path))
    assert back == event
    with pytest.raises(TypeError):
        cls(no_such_member=1)
    for member, value in members.items():
        if not isinstance(value, bool):
            with pytest.raises(TypeError, match="expected int in"):
                setattr(event, member, 1 << 40)
            assert getattr(event, member) == value, "kept"


@pytest.mark.parametrize("family", FAMILIES)
def test_words(family):
    e = events(family)
    assert e.decode_output_event(0) == e.Spike()
    assert e.decode_output_event(0x08000000) == e.Spike(layer=8)
    assert e.decode_output_event(0x09003FFF) == e.DvsEvent(x=127, y=127, layer=9)
    encode = getattr(vorna, f"{family}_encode_input_interface_event")
    assert encode(e.ResetSensorPixel()) == 0x1C000004000 == e.encode_input_interface_event(e.ResetSensorPixel())
    assert encode(e.WriteRegisterValue(layer=13, index=2, data=0xAB)) == 0x10000000034200AB
    assert encode(e.ReadProbe(core=1)) == 0
    assert e.decode_input_event(0x1C000004000, False) == e.ResetSensorPixel()
    word = encode(e.RouterEvent(layer=3, feature=2, y=1, x=9))
    assert e.decode_input_event(word, False) == e.RouterEvent(layer=3, feature=2, y=1, x=9)
    assert e.decode_input_event(word, True) == e.Spike(layer=3, feature=2, y=1, x=9)
    for name, members in INPUTS.items():
        assert isinstance(encode(getattr(e, name)(**members)), int), "any alternative"


@pytest.mark.parametrize("family,other", [FAMILIES, FAMILIES[::-1]])
def test_no_other_value_passes_for_an_event(family, other):
    encode = getattr(vorna, f"{family}_encode_input_interface_event")
    e = events(family)
    for wrong in (events(other).Spike(), e.DvsEvent(), {"layer": 1}, {}, 1, None, (1, 2)):
        with pytest.raises(TypeError):
            encode(wrong)
    for function in (e.decode_output_event, lambda word: e.decode_input_event(word, False)):
        for wrong in (-1, 1 << 64, "1", None):
            with pytest.raises(TypeError):
                function(wrong)
    with pytest.raises(TypeError):
        getattr(nodes, f"EventSource_{family}_event_output_event")().write([e.Spike(), events(other).Spike()])
    assert events(family).Spike() != events(other).Spike()


def test_docstrings_tell_the_words():
    doc = inspect.getdoc(vorna.ravik.event.decode_output_event)
    assert "DvsEvent: x bits 0-6, y bits 7-13, p bit 14, bits 24-27 = 9, layer is 9, timestamp bits 32-63" in doc
    assert "with_timestamp: bool" in inspect.getdoc(vorna.tessel.event.decode_input_event)
    assert "bit 60 = 1" in inspect.getdoc(vorna.tessel_encode_input_interface_event)


@pytest.mark.parametrize("family", FAMILIES)
def test_type_filter_feeds_a_sink_of_the_type(family):
    e = events(family)
    with vorna.graph.EventFilterGraph() as graph:
        source = getattr(nodes, f"EventSource_{family}_event_output_event")()
        chosen = graph.add_filter_node(f"{family.title()}EventTypeFilter_OutputEvents")
        node = graph.get_node(chosen)
        assert type(node).__name__ == f"EventTypeFilter_{family}_event_output_event"
        assert node.get_desired_type() == "" and len(node.get_available_types()) == 12
        with pytest.raises(RuntimeError, match='The desired type: "Spike" is unknown!'):
            node.set_desired_type("Spike")
        spikes, everything, sensor = sink_of(family, "Spike"), sink_of(family), sink_of(family, "DvsEvent")
        for sink in (spikes, everything, sensor):
            assert graph.add_destination(chosen, sink.get_input_channel())
        assert source.add_destination(graph.get_node_input(chosen))
        node.set_desired_type(f"{family}::event::Spike")
        graph.start()
        source.write([e.Spike(layer=1), e.DvsEvent(x=3), e.ReadoutValue(value=7), e.Spike(layer=2)])
        assert gather(spikes, 2) == [e.Spike(layer=1), e.Spike(layer=2)]
        assert gather(everything, 2) == [e.Spike(layer=1), e.Spike(layer=2)], "as the variant too"
        assert sensor.get_buf() == []
        node.set_desired_type(f"{family}::event::OutputEvent")
        assert node.get_desired_type() == ""
        source.write([e.DvsEvent(x=3), e.ReadoutValue(value=7)])
        assert gather(everything, 2) == [e.DvsEvent(x=3), e.ReadoutValue(value=7)]


@pytest.mark.parametrize("family", FAMILIES)
def test_layers_are_selected(family):
    e = events(family)
    with vorna.graph.EventFilterGraph() as graph:
        source = getattr(nodes, f"EventSource_{family}_event_output_event")()
        select = graph.add_filter_node(f"{family.title()}LayerSelect")
        forward = graph.add_filter_node(f"{family.title()}Forward")
        graph.connect(select, forward)
        sink, counter = sink_of(family), sink_of(family, kind="EventCounterSink")
        graph.add_destination(forward, sink.get_input_channel())
        graph.add_destination(forward, counter.get_input_channel())
        source.add_destination(graph.get_node_input(select))
        graph.get_node(select).set_layers([2])
        graph.start()
        source.write([e.Spike(layer=1), e.MemoryValue(layer=2), e.ProbeValue(), e.Spike(layer=2)])
        assert gather(sink, 2) == [e.MemoryValue(layer=2), e.Spike(layer=2)]
        assert counter.get_count() == 2


@pytest.mark.parametrize("family,other", [FAMILIES, FAMILIES[::-1]])
def test_families_are_not_joined(family, other):
    graph = vorna.graph.EventFilterGraph()
    mine = graph.add_filter_node(f"{family.title()}LayerSelect")
    foreign = graph.add_filter_node(f"{other.title()}LayerSelect")
    camera = graph.add_filter_node("DvsEventCrop")
    with pytest.raises(ValueError, match=f"Cannot create connection {mine} -> {foreign}"):
        graph.connect(mine, foreign)
    with pytest.raises(ValueError, match=f"Cannot create connection {camera} -> {mine}"):
        graph.connect(camera, mine)
    with pytest.raises(ValueError, match="Cannot add destination!"):
        graph.add_destination(mine, sink_of(other).get_input_channel())


@pytest.mark.parametrize("family", FAMILIES)
def test_camera_to_chip_input(family):
    e = events(family)
    with vorna.graph.EventFilterGraph() as graph:
        source = nodes.EventSource_davis_event_dvs_event()
        middle = graph.add_filter_node(f"Davis346Center128To{family.title()}Input")
        sink = sink_of(family, "InputEvent")
        graph.add_destination(middle, sink.get_input_channel())
        source.add_destination(graph.get_node_input(middle))
        graph.start()
        dvs = vorna.davis.event.DvsEvent
        source.write([dvs(x=109, y=66), dvs(x=110, y=66, polarity=True), dvs(x=237, y=193), dvs(x=238, y=193)])
        assert gather(sink, 2) == [e.RouterEvent(layer=13, feature=1, y=0, x=0), e.RouterEvent(layer=13, y=127, x=127)]


@pytest.mark.parametrize("family", FAMILIES)
@pytest.mark.parametrize("event", ["OutputEvent", "InputEvent", "Spike", *OUTPUTS])
def test_each_kind_has_its_sinks(family, event):
    source = sink_of(family, "OutputEvent", "EventSource")
    chosen = f"{family.title()}EventTypeFilter_OutputEvents"
    with vorna.graph.EventFilterGraph() as graph:
        node = graph.add_filter_node(chosen)
        source.add_destination(graph.get_node_input(node))
        counter, buffer, splitter = (sink_of(family, event, kind)
                                     for kind in ("EventCounterSink", "BufferSinkNode", "SplittingNode"))
        assert getattr(vorna, type(counter).__name__) is type(counter), "in the root module and beside the other nodes"
        assert splitter.add_destination("all", buffer.get_input_channel()) is False, "it has no functions"
        if event == "InputEvent":
            return
        for sink in (counter, buffer, splitter):
            graph.add_destination(node, sink.get_input_channel())
        graph.get_node(node).set_desired_type(f"{family}::event::{event}")
        graph.start()
        one = events(family).Spike() if event == "OutputEvent" else getattr(events(family), event)()
        source.write([one, one])
        assert gather(buffer, 2) == [one, one]
        assert counter.get_count() == 2
