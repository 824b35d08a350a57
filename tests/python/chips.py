"""Both chip families as tests see them: what differs in their names is here."""
import pytest
import vorna

from conftest import wait_for


class Family:
    def __init__(self, name):
        self.name, self.title = name, name.title()
        self.module = getattr(vorna, name)
        self.event, self.configuration = self.module.event, self.module.configuration
        self.Configuration = getattr(self.configuration, self.title + "Configuration")
        self.to_events = getattr(self.event, name + "_config_to_event")
        self.validate = self.module.validate_configuration
        self.encode = getattr(vorna, name + "_encode_input_interface_event")
        self.MemoryChip = getattr(vorna.emulation, self.title + "MemoryChip")
        self.MemoryModel = getattr(vorna.emulation, self.title + "MemoryModel")

    def __str__(self):
        return self.name

    def node(self, kind, event="OutputEvent"):
        """A node over one kind of events: node("EventSource", "InputEvent")."""
        snake = "".join("_" + c.lower() if c.isupper() else c for c in event)
        return getattr(vorna.graph.nodes, f"{kind}_{self.name}_event{snake}")()

    def sink(self, event="OutputEvent"):
        return self.node("BufferSinkNode", event)


TESSEL, RAVIK = Family("tessel"), Family("ravik")


@pytest.fixture(params=[TESSEL, RAVIK], ids=str)
def family(request):
    return request.param


@pytest.fixture
def other(family):
    return RAVIK if family is TESSEL else TESSEL


def gather(sink, count=1):
    """What the sink has after `count` events came."""
    came = []
    wait_for(lambda: came.extend(sink.get_buf()) or len(came) >= count, limit=20, what="events")
    return came
