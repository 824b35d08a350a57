"""The event graph as a script uses it, fed by a source in the same process through its store."""
import os
import time

import pytest


@pytest.fixture
def graph(vorna):
    with vorna.graph.EventFilterGraph() as graph:
        yield graph


def test_identifiers_count_on(graph):
    assert [graph.add_filter_node("DvsEventCrop"), graph.add_filter_node("DvsEventDecimate")] == [0, 1]
    assert graph.remove(1) is True
    assert graph.add_filter_node("DvsEventRescale") == 2
    assert (graph.has_node(1), graph.has_node(2)) == (False, True)


def test_refusals_are_errors_with_reasons(vorna, graph):
    """The texts are in tests/golden/graph_refusals.txt and filter_refusals.txt."""
    box = vorna.trovi.BoxedPtr()
    graph.add_filter_node("DvsEventCrop")
    graph.add_filter_node("DvsEventDecimate")
    for reason in ("Unknown type", "Cannot create connection", "Cannot disconnect", "Cannot remove node", "Cannot add destination",
                   "Cannot remove destination"), ("while graph is running",) * 6:
        for text, call in zip(reason, (lambda: graph.add_filter_node("NoSuchNode"), lambda: graph.connect(0, 7),
                                       lambda: graph.disconnect(0, 7), lambda: graph.remove(7),
                                       lambda: graph.add_destination(0, box), lambda: graph.remove_destination(0, box))):
            with pytest.raises(ValueError, match=text):
                call()
        with pytest.raises(ValueError, match="Node 7 doesn't exist!"):
            graph.get_node_input(7)
        with pytest.raises(IndexError, match="_Map_base::at"):
            graph.get_node(7)
        with pytest.raises(RuntimeError, match="Left column"):
            graph.get_node(0).set_roi(10, 0, 10, 10)
        with pytest.raises(RuntimeError, match="can be zero"):
            graph.get_node(1).set_decimation_fraction(0, 1)
        graph.get_node(0).set_roi(0, 0, 10, 10)  # a node's own settings stay open
        graph.start()
    assert graph.start() is False
    assert (graph.stop(), graph.stop()) == (True, False)
    assert graph.add_filter_node("DvsEventCrop") == 2


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
