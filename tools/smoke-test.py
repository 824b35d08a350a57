"""smoke-test.py FOLDER: imports the module from that folder and drives a little of it; needs no other package.

Ends in one line that says what was seen. Run by every interpreter from 3.9 to 3.13, so nothing newer than 3.9 here.
"""
import os
import platform
import sys
import tempfile

import vorna

assert os.path.dirname(os.path.realpath(vorna.__file__)) == os.path.realpath(sys.argv[1]), vorna.__file__

DvsEvent = vorna.davis.event.DvsEvent
event = DvsEvent()
event.x, event.y, event.polarity, event.timestamp = 3, 4, True, 2 ** 40
copy = DvsEvent()
with tempfile.TemporaryDirectory() as folder:
    event.to_json(os.path.join(folder, "event.json"))
    copy.from_json(os.path.join(folder, "event.json"))
assert copy == event and copy.timestamp == 2 ** 40
try:
    event.x = 70000
except (TypeError, ValueError):
    assert event.x == 3
else:
    raise AssertionError("an unsigned 16-bit member took 70000")

graph = vorna.graph.EventFilterGraph()
crop, decimate = graph.add_filter_node("DvsEventCrop"), graph.add_filter_node("DvsEventDecimate")
assert graph.connect(crop, decimate) and graph.start() and graph.stop()

try:
    vorna.open_remote_node(1, "absent")
except RuntimeError as error:
    assert "setup_local_node" in str(error), error
else:
    raise AssertionError("a remote node opened without a local one")

print("imported by %s; values, JSON, a graph and its errors work" % platform.python_version())
