"""Events of both chip families: their classes, their words, and graphs over them."""
import copy
import inspect
import pickle
import re

import pytest
import vorna

from chips import RAVIK, TESSEL, family, gather, other  # noqa: F401

nodes = vorna.graph.nodes


def classes(module):
    return [cls for _, cls in inspect.getmembers(module, inspect.isclass)]


def members(cls):
    return [name for name, attribute in vars(cls).items() if isinstance(attribute, property)]


def extreme(cls, name):
    """The largest value that the member takes, of a signed one the smallest: refusing a larger one names it."""
    event = cls()
    if isinstance(getattr(event, name), bool):
        return True
    with pytest.raises(TypeError, match="expected int in") as error:
        setattr(event, name, 1 << 40)
    assert getattr(event, name) == 0, "kept"
    low, high = re.search(r"in \[(-?\d+), (\d+)\]", str(error.value)).groups()
    return int(low) or int(high)


@pytest.mark.parametrize("cls", classes(TESSEL.event) + classes(RAVIK.event), ids=lambda cls: cls.__module__ + cls.__name__)
def test_event_class(cls, tmp_path):
    assert all(getattr(cls(), name) == 0 for name in members(cls)), "all zero by default"
    values = {name: extreme(cls, name) for name in members(cls)}
    event = cls(**values)
    assert {name: getattr(event, name) for name in values} == values
    assert event == cls(**values) and (not values or event != cls())
    assert copy.copy(event) == event == pickle.loads(pickle.dumps(event))
    assert cls.__name__ in repr(event) and all(name in repr(event) for name in values)
    event.to_json(str(tmp_path / "event.json"))
    back = cls()
    back.from_json(str(tmp_path / "event.json"))
    assert back == event
    with pytest.raises(TypeError):
        cls(no_such_member=1)


def test_a_pickle_keeps_the_time_that_no_member_shows(family):
    kinds = set()
    for code in range(16):
        early, late = (family.event.decode_output_event(time << 32 | code << 24 | 5) for time in (7, 0xFFFFFFFF))
        kinds.add(type(late).__name__)
        assert early != late, "they differ in their time alone"
        for protocol in range(pickle.HIGHEST_PROTOCOL + 1):
            assert pickle.loads(pickle.dumps(late, protocol)) == late == copy.deepcopy(late)
    assert kinds == {"Spike", "DvsEvent", "InputInterfaceEvent", "NeuronValue", "BiasValue", "WeightValue"}
    state = family.event.DvsEvent(x=3).__getstate__()
    short = family.event.DvsEvent.__new__(family.event.DvsEvent)
    short.__setstate__(state[:4])
    assert short == family.event.DvsEvent(x=3), "a pickle of before has no time"


def test_words(family):
    e = family.event
    assert e.decode_output_event(0x09003FFF) == e.DvsEvent(x=127, y=127, layer=9)
    assert family.encode(e.ResetSensorPixel()) == 0x1C000004000 == e.encode_input_interface_event(e.ResetSensorPixel())
    assert family.encode(e.WriteRegisterValue(layer=13, index=2, data=0xAB)) == 0x10000000034200AB
    word = family.encode(e.RouterEvent(layer=3, feature=2, y=1, x=9))
    assert e.decode_input_event(word, False) == e.RouterEvent(layer=3, feature=2, y=1, x=9)
    assert e.decode_input_event(word, True) == e.Spike(layer=3, feature=2, y=1, x=9)


def test_no_other_value_passes_for_an_event(family, other):
    e = family.event
    for wrong in (other.event.Spike(), e.DvsEvent(), {"layer": 1}, {}, 1, None, (1, 2)):
        with pytest.raises(TypeError):
            family.encode(wrong)
    for function in (e.decode_output_event, lambda word: e.decode_input_event(word, False)):
        for wrong in (-1, 1 << 64, "1", None):
            with pytest.raises(TypeError):
                function(wrong)
    with pytest.raises(TypeError):
        family.node("EventSource").write([e.Spike(), other.event.Spike()])
    assert e.Spike() != other.event.Spike()


def test_docstrings_show_the_words():
    doc = inspect.getdoc(vorna.ravik.event.decode_output_event)
    assert "DvsEvent: x bits 0-6, y bits 7-13, p bit 14, bits 24-27 = 9, layer is 9, timestamp bits 32-63" in doc
    assert "with_timestamp: bool" in inspect.getdoc(vorna.tessel.event.decode_input_event)
    assert "bit 60 = 1" in inspect.getdoc(vorna.tessel_encode_input_interface_event)


def test_type_filter_feeds_sinks_of_each_type(family):
    """Each kind that the filter offers has its sinks, which get that kind alone."""
    e = family.event
    with vorna.graph.EventFilterGraph() as graph:
        chosen = graph.add_filter_node(f"{family.title}EventTypeFilter_OutputEvents")
        node = graph.get_node(chosen)
        assert node.get_desired_type() == ""
        with pytest.raises(RuntimeError, match='The desired type: "Spike" is unknown!'):
            node.set_desired_type("Spike")
        source, everything = family.node("EventSource"), family.sink()
        assert source.add_destination(graph.get_node_input(chosen))
        assert graph.add_destination(chosen, everything.get_input_channel())
        kinds = [kind.split("::")[-1] for kind in node.get_available_types()]
        assert len(kinds) == 12 and kinds[0] == "OutputEvent"
        sinks = {kind: [family.node(n, kind) for n in ("EventCounterSink", "BufferSinkNode", "SplittingNode")]
                 for kind in kinds[1:]}
        for counter, buffer, splitter in sinks.values():
            assert getattr(vorna, type(counter).__name__) is type(counter), "in the root module and beside the nodes"
            assert splitter.add_destination("all", buffer.get_input_channel()) is False, "it has no functions"
            for sink in (counter, buffer, splitter):
                graph.add_destination(chosen, sink.get_input_channel())
        node.set_desired_type(f"{family}::event::OutputEvent")
        graph.start()
        source.write([e.DvsEvent(x=3), e.ReadoutValue(value=7)])
        assert gather(everything, 2) == [e.DvsEvent(x=3), e.ReadoutValue(value=7)]
        for kind, (counter, buffer, _) in sinks.items():
            node.set_desired_type(f"{family}::event::{kind}")
            events = [e.Spike(layer=1), getattr(e, kind)(), e.DvsEvent(x=1)]
            source.write(events)
            expected = [event for event in events if type(event).__name__ == kind]
            assert gather(buffer, len(expected)) == expected
            assert gather(everything, len(expected)) == expected, "as the variant too"
            assert counter.get_count() == len(expected)
        for kind in ("InputEvent", "OutputEvent"):
            assert [family.node(n, kind) for n in ("EventSource", "EventCounterSink", "SplittingNode")]


def test_layers_are_selected(family):
    e = family.event
    with vorna.graph.EventFilterGraph() as graph:
        source, sink, counter = family.node("EventSource"), family.sink(), family.node("EventCounterSink")
        select = graph.add_filter_node(f"{family.title}LayerSelect")
        forward = graph.add_filter_node(f"{family.title}Forward")
        graph.connect(select, forward)
        graph.add_destination(forward, sink.get_input_channel())
        graph.add_destination(forward, counter.get_input_channel())
        source.add_destination(graph.get_node_input(select))
        graph.get_node(select).set_layers([2])
        graph.start()
        source.write([e.Spike(layer=1), e.MemoryValue(layer=2), e.ProbeValue(), e.Spike(layer=2)])
        assert gather(sink, 2) == [e.MemoryValue(layer=2), e.Spike(layer=2)]
        assert counter.get_count() == 2


def test_families_are_not_joined(family, other):
    graph = vorna.graph.EventFilterGraph()
    mine = graph.add_filter_node(f"{family.title}LayerSelect")
    foreign = graph.add_filter_node(f"{other.title}LayerSelect")
    camera = graph.add_filter_node("DvsEventCrop")
    with pytest.raises(ValueError, match=f"Cannot create connection {mine} -> {foreign}"):
        graph.connect(mine, foreign)
    with pytest.raises(ValueError, match=f"Cannot create connection {camera} -> {mine}"):
        graph.connect(camera, mine)
    with pytest.raises(ValueError, match="Cannot add destination!"):
        graph.add_destination(mine, other.sink().get_input_channel())


def test_camera_to_chip_input(family):
    e = family.event
    with vorna.graph.EventFilterGraph() as graph:
        source, sink = nodes.EventSource_davis_event_dvs_event(), family.sink("InputEvent")
        middle = graph.add_filter_node(f"Davis346Center128To{family.title}Input")
        graph.add_destination(middle, sink.get_input_channel())
        source.add_destination(graph.get_node_input(middle))
        graph.start()
        dvs = vorna.davis.event.DvsEvent
        source.write([dvs(x=109, y=66), dvs(x=110, y=66, polarity=True), dvs(x=237, y=193), dvs(x=238, y=193)])
        assert gather(sink, 2) == [e.RouterEvent(layer=13, feature=1, y=0, x=0), e.RouterEvent(layer=13, y=127, x=127)]
