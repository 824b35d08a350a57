"""Events as numpy arrays, out of a sink and into a source."""
import numpy
import pytest

from conftest import wait_for


def test_events_cross_both_ways_as_arrays(vorna, server, remote):
    sink = vorna.BufferSinkNode_davis_event_dvs_event()
    empty = sink.get_buf_array()
    assert empty.shape == (0,) and empty.dtype.names == ("x", "y", "polarity", "timestamp") and empty.dtype.itemsize == 16
    with vorna.emulation.plug_virtual_davis():
        server.node.open_davis()
        wait_for(lambda: hasattr(remote, "Davis240"), what="the camera's proxy")
        source = remote.Davis240.get_source_node()
        source.add_destination(sink.get_input_channel())
        events = numpy.zeros(1000, empty.dtype)
        events["x"] = numpy.arange(1000)
        events["polarity"] = events["x"] % 2
        events["timestamp"] = -events["x"].astype("i8")
        source.write(events)
        back = sink.get_buf_array()
        assert back.base is not None, "the array refers to the sink's own vector"
        for field in events.dtype.names:
            numpy.testing.assert_array_equal(back[field], events[field])
        source.write([vorna.davis.event.DvsEvent(x=7)])
        assert [e.x for e in sink.get_buf()] == [7]
        for wrong in (events["x"], events[::2], numpy.zeros((2, 2), empty.dtype), numpy.zeros(3, "f8"), b"123"):
            with pytest.raises(TypeError):
                source.write(wrong)


def test_events_of_one_kind_as_an_array(vorna):
    e, nodes = vorna.tessel.event, vorna.graph.nodes
    sink, source = nodes.BufferSinkNode_tessel_event_spike(), nodes.EventSource_tessel_event_output_event()
    assert sink.get_buf_array().dtype.names == ("layer", "feature", "y", "x", "timestamp")
    parts = []
    with vorna.graph.EventFilterGraph() as graph:
        chosen = graph.add_filter_node("TesselEventTypeFilter_OutputEvents")
        graph.get_node(chosen).set_desired_type("tessel::event::Spike")
        graph.add_destination(chosen, sink.get_input_channel())
        source.add_destination(graph.get_node_input(chosen))
        graph.start()
        source.write([e.Spike(layer=i % 9, feature=i, timestamp=1 << 31) for i in range(1000)])
        wait_for(lambda: parts.append(sink.get_buf_array()) or sum(map(len, parts)) == 1000, what="the spikes")
    spikes = numpy.concatenate(parts)
    assert (spikes["feature"] == numpy.arange(1000)).all() and (spikes["timestamp"] == 1 << 31).all()
    assert (spikes["layer"] == numpy.arange(1000) % 9).all()
