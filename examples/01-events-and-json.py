"""Events: their members, what a wrong value says, and their JSON form."""
import json
import tempfile
from pathlib import Path

import vorna

DvsEvent = vorna.davis.event.DvsEvent

# One event says: this pixel became brighter (or darker) at this time. Members start at zero, or as named.
event = DvsEvent(x=12, y=34, polarity=True, timestamp=1_000_000)
event.timestamp += 250  # microseconds
print(event)

# A value that doesn't fit is refused, and nothing is changed.
try:
    event.x = 70_000
except TypeError as error:
    print("refused:", error)
print("x is still", event.x)

# Every described class can be written to a file and read back. The file holds the members under "value0".
with tempfile.TemporaryDirectory() as folder:
    path = Path(folder) / "event.json"
    event.to_json(str(path))
    print("in the file:", json.loads(path.read_text()))

    copy = DvsEvent()
    copy.from_json(str(path))
    print("read back equal:", copy == event)
