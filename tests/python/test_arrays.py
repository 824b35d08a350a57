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
