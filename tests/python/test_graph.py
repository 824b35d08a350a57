"""The event graph as a script uses it, fed by a source in the same process through its store."""
import os
import time

import pytest


@pytest.fixture
def graph(vorna):
    with vorna.graph.EventFilterGraph() as graph:
        yield graph


def text_of(call):
    with pytest.raises(ValueError) as caught:
        call()
    return str(caught.value)


def test_identifiers_count_on(graph):
    assert [graph.add_filter_node("DvsEventCrop"), graph.add_filter_node("DvsEventDecimate")] == [0, 1]
    assert graph.remove(1) is True
    assert graph.add_filter_node("DvsEventRescale") == 2
    assert (graph.has_node(1), graph.has_node(2)) == (False, True)


def test_failures_while_stopped(vorna, graph):
    box = vorna.trovi.BoxedPtr()
    graph.add_filter_node("DvsEventCrop")
    assert text_of(lambda: graph.add_filter_node("NoSuchNode")) == "Unknown type: NoSuchNode"
    assert text_of(lambda: graph.get_node_input(7)) == "Node 7 doesn't exist!"
    assert text_of(lambda: graph.connect(0, 7)) == "Cannot create connection 0 -> 7"
    assert text_of(lambda: graph.connect(0, 0)) == "Cannot create connection 0 -> 0"
    assert text_of(lambda: graph.disconnect(0, 7)) == "Cannot disconnect 0 -> 7"
    assert text_of(lambda: graph.remove(7)) == "Cannot remove node 7"
    assert text_of(lambda: graph.add_destination(0, box)) == "Cannot add destination!"
    assert text_of(lambda: graph.remove_destination(0, box)) == "Cannot remove destination!"
    with pytest.raises(IndexError, match="_Map_base::at"):
        graph.get_node(7)


def test_a_running_graph_keeps_its_shape(vorna, graph):
    box = vorna.trovi.BoxedPtr()
    graph.add_filter_node("DvsEventCrop")
    assert (graph.start(), graph.start()) == (True, False)
    assert text_of(lambda: graph.add_filter_node("NoSuchNode")) == "Cannot add node while graph is running!"
    assert text_of(lambda: graph.connect(0, 1)) == "Cannot connect nodes while graph is running!"
    assert text_of(lambda: graph.remove(0)) == "Cannot remove node while graph is running!"
    assert text_of(lambda: graph.disconnect(0, 1)) == "Cannot disconnect nodes while graph is running!"
    assert text_of(lambda: graph.add_destination(0, box)) == "Cannot add destination to node while graph is running!"
    assert text_of(lambda: graph.remove_destination(0, box)) == "Cannot remove destination to node while graph is running!"
    assert text_of(lambda: graph.get_node_input(7)) == "Node 7 doesn't exist!"
    graph.get_node(0).set_roi(0, 0, 10, 10)  # a node's own settings stay open
    assert (graph.stop(), graph.stop()) == (True, False)
    assert graph.add_filter_node("DvsEventCrop") == 1


def test_node_settings_are_checked(graph):
    def runtime_text(call):
        with pytest.raises(RuntimeError) as caught:
            call()
        return str(caught.value)

    graph.add_filter_node("DvsEventCrop")
    graph.add_filter_node("DvsEventDecimate")
    crop, decimate = graph.get_node(0), graph.get_node(1)
    assert runtime_text(lambda: crop.set_roi(10, 0, 10, 10)) == \
        "Left column (xtl = 10) is smaller (or equal) than right column (xbr = 10)\n"
    assert runtime_text(lambda: crop.set_roi(0, 10, 10, 10)) == \
        "First row (ytl = 10) is greater (or equal) than last row (ybr = 10)\n"
    assert runtime_text(lambda: decimate.set_decimation_fraction(0, 1)) == \
        "Neither values in setDecimationFunction can be zero!"
    assert runtime_text(lambda: decimate.set_decimation_fraction(1, 2)) == \
        "The number of points where the decimation is performed (M = 1) is smaller than the number of points that are " \
        "being selected!(L = 2).\n"


def test_a_node_handed_out_outlives_the_graph(vorna):
    graph = vorna.graph.EventFilterGraph()
    node = graph.get_node(graph.add_filter_node("DvsEventCrop"))
    assert type(node) is vorna.graph.nodes.DvsEventCrop and isinstance(node, vorna.ondra.NodeInterface)
    assert graph.get_node(0) is node
    graph.remove(0)
    del graph
    node.set_roi(0, 0, 10, 10)
    assert node.get_input_channel().is_valid()


def test_a_sink_that_nobody_reads_costs_nothing_while_no_event_comes(vorna, graph):
    """A filter sends an empty batch each pass, some hundred thousand a second."""
    def resident_kib():
        with open("/proc/self/status") as status:
            return int(next(line for line in status if line.startswith("VmRSS")).split()[1])

    sink, counter = vorna.BufferSinkNode_davis_event_dvs_event(), vorna.EventCounterSink_davis_event_dvs_event()
    assert (sink.get_buf(), counter.get_count()) == ([], 0)
    crop, decimate = graph.add_filter_node("DvsEventCrop"), graph.add_filter_node("DvsEventDecimate")
    assert graph.connect(crop, decimate)
    assert graph.add_destination(decimate, sink.get_input_channel())
    assert graph.add_destination(decimate, counter.get_input_channel())
    before = resident_kib()
    graph.start()
    time.sleep(0.5)  # long enough for some 100 MiB of empty batches
    graph.stop()
    quarantine = 300_000 if "asan" in os.environ.get("LD_PRELOAD", "") else 0  # which keeps freed memory for a while
    assert resident_kib() - before < 20_000 + quarantine
    assert (sink.get_buf(), counter.get_count()) == ([], 0)


def test_rescaling_coefficient(vorna):
    assert vorna.graph.nodes.detail.rescaling_coefficient(346, 260, 128, 128) == (346 / 128, 260 / 128)
