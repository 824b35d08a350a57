"""A virtual camera all the way: plugged in, opened in a store, driven by proxy, and read through a graph."""
import struct

import pytest

from conftest import wait_for


@pytest.fixture
def rig(vorna, server, remote):
    """A server and its proxies, and a counter and a buffer for a camera's events."""
    class Rig:
        node, store = server.node, remote
        counter = vorna.EventCounterSink_davis_event_dvs_event()
        buffer = vorna.BufferSinkNode_davis_event_dvs_event()

        @staticmethod
        def open_davis():
            server.node.open_davis()
            wait_for(lambda: hasattr(remote, "Davis240"), what="the camera's proxy")
            return remote.Davis240

    yield Rig
    vorna.emulation.unplug_all_virtual_cameras()


def test_without_a_camera_opening_fails_and_says_what_to_do(vorna, server):
    for open_camera, plug in (server.node.open_davis, "davis"), (server.node.open_dvxplorer, "dvxplorer"):
        with pytest.raises(RuntimeError, match=rf"^Failed to open .*vorna\.emulation\.plug_virtual_{plug}\(\)"):
            open_camera()


def test_events_of_a_scene_arrive_whole(vorna, rig, capfd):
    with vorna.emulation.plug_virtual_davis(events_per_second=1e6, duration_us=500_000, realtime=False) as camera:
        davis = rig.open_davis()
        assert "DVS X: 346, DVS Y: 260" in capfd.readouterr().out
        source = davis.get_source_node()
        assert source.add_destination(rig.counter.get_input_channel()) is True
        assert source.add_destination(rig.buffer.get_input_channel()) is True
        assert source.add_destination(vorna.trovi.BoxedPtr()) is False
        davis.start()
        events = []
        total = 0

        def all_there():
            nonlocal total
            total += rig.counter.get_count()
            events.extend(rig.buffer.get_buf())
            return camera.is_finished()

        wait_for(all_there, limit=20, what="the scene's end")
        all_there()
        davis.stop()
        assert total == camera.event_count() == len(events) == 500_000
        assert all(e.x < 346 and e.y < 260 for e in events)
        assert all(a.timestamp <= b.timestamp for a, b in zip(events, events[1:]))


def test_a_second_camera_of_a_kind_is_refused_by_name(vorna, rig):
    with vorna.emulation.plug_virtual_davis(), vorna.emulation.plug_virtual_davis():
        rig.open_davis()
        with pytest.raises(RuntimeError, match="Name: Davis240 is already used by other element in the store!"):
            rig.node.open_davis()


@pytest.mark.parametrize("failure", [None, "unplug", "fail_transfers"])
def test_a_running_camera_ends_with_its_node_or_by_itself(vorna, rig, failure):
    with vorna.emulation.plug_virtual_dvxplorer() as camera:
        rig.node.open_dvxplorer()
        wait_for(lambda: hasattr(rig.store, "DvXplorer"), what="the camera's proxy")
        explorer = rig.store.DvXplorer
        explorer.start()
        wait_for(camera.is_delivering, what="the first read")
        if failure:
            getattr(camera, failure)()
            wait_for(lambda: not explorer.is_running(), what="the reader's end")
        if failure == "fail_transfers":  # not for good
            assert camera.is_plugged()
            explorer.start()
            wait_for(camera.is_delivering, what="the first read after the failure")
            camera.fail_transfers()
        rig.node.close()
        assert not camera.is_delivering()


def test_a_graph_filters_a_recording(vorna, rig, tmp_path):
    path = tmp_path / "two.polarity"
    words = [((x << 17) | (y << 2) | 3, x * 100) for x, y in ((5, 5), (4, 5), (10, 10), (11, 10))]
    path.write_bytes(b"".join(struct.pack("<II", *w) for w in words))
    with vorna.emulation.plug_virtual_davis_recording(str(path), realtime=False) as camera, \
            vorna.graph.EventFilterGraph() as graph:
        crop = graph.add_filter_node("DvsEventCrop")
        graph.get_node(crop).set_roi(5, 5, 10, 10)
        graph.add_destination(crop, rig.buffer.get_input_channel())
        davis = rig.open_davis()
        assert davis.get_source_node().add_destination(graph.get_node_input(crop))
        graph.start()
        davis.start()
        kept = []
        wait_for(lambda: kept.extend(rig.buffer.get_buf()) or len(kept) >= 2, what="both events")
        assert [(e.x, e.y, e.polarity, e.timestamp) for e in kept] == [(0, 0, True, 500), (5, 5, True, 1000)]
        assert camera.damage() == ""
        davis.stop()


@pytest.mark.parametrize("make, kind, text", [
    (lambda e: e.plug_virtual_davis(events_per_second=0), ValueError, "events_per_second must be 1 to 1e8"),
    (lambda e: e.plug_virtual_davis(speed=-1.0), ValueError, "speed must be above 0"),
    (lambda e: e.plug_virtual_davis(colour=1), TypeError, "has no member 'colour'"),
    (lambda e: e.plug_virtual_davis_recording("/no/such/file.polarity"), RuntimeError, "/no/such/file.polarity"),
])
def test_options_out_of_range_are_named(vorna, make, kind, text):
    with pytest.raises(kind, match=text):
        make(vorna.emulation)
    assert vorna.emulation.virtual_cameras() == []
