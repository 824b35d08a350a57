"""Proxies of objects that have data members: the messages that they send to a server, which the test plays by hand."""
import gc
import struct
import threading

import pytest
import zmq

from conftest import free_endpoints

SET, CALL_INDEX, INTERNAL_INDEX, RESPONSE_INDEX = 1, 2, 3, 4
GET, RESPONSE, REPORT, INTERNAL = 8, 3, 6, 7
MEMBER_STEP = 1
STORE = 610


def text(s):
    return struct.pack("<Q", len(s)) + s.encode()


def header(obj, command, number, destination=STORE):
    return struct.pack("<QQQIQ", destination, STORE, obj, command, number)


def with_length(buffer):
    return struct.pack("<Q", len(buffer)) + buffer


def element(obj, type_name, name):
    return struct.pack("<QQ", STORE, obj) + text(type_name) + text(name) + struct.pack("<I", 2)


CONTENT = [element(5, "device::OpenedDevice", "Opened"), element(6, "device::DriverReferenceType", "Role"),
           element(7, "trovi::StoreRef", "Ref"), element(8, "tessel::configuration::DVSLayerConfig", "Tessel"),
           element(9, "ravik::configuration::DVSLayerConfig", "Ravik")]
RETURN_ADDRESS = 8 + 8 + 36


class Server:
    """Answers reports; every other message is kept, and answered when there is an answer for it."""

    def __init__(self):
        self.endpoints = free_endpoints()
        self.context = zmq.Context()
        self.incoming, self.out = self.context.socket(zmq.PULL), self.context.socket(zmq.PUB)
        self.quit = self.context.socket(zmq.PULL)
        self.incoming.bind(self.endpoints[0])
        self.out.bind(self.endpoints[1])
        self.quit.bind("inproc://quit")
        self.received = []
        self.arrived = threading.Semaphore(0)
        self.answer = b""
        self.thread = threading.Thread(target=self.serve)
        self.thread.start()

    def serve(self):
        while self.quit not in zmq.select([self.incoming, self.quit], [], [])[0]:
            body = self.incoming.recv_multipart()[1]
            command = struct.unpack_from("<I", body, 28)[0]
            if command == REPORT:
                self.respond(body, struct.pack("<Q", len(CONTENT)) + b"".join(CONTENT))
                continue
            self.received.append(body)
            if struct.unpack_from("<i", body)[0] == CALL_INDEX or self.answer:
                self.respond(body, self.answer)
            self.arrived.release()

    def respond(self, body, answer):
        caller, = struct.unpack_from("<Q", body[-RETURN_ADDRESS:])
        buffer = body[-RETURN_ADDRESS + 8:] + answer
        self.out.send_multipart([b"%d" % caller, struct.pack("<iQI", RESPONSE_INDEX, caller, RESPONSE) + with_length(buffer)])

    def next_message(self):
        assert self.arrived.acquire(timeout=5)
        return self.received.pop(0)

    def close(self):
        stop = self.context.socket(zmq.PUSH)
        stop.connect("inproc://quit")
        stop.send(b"")
        self.thread.join()
        self.context.destroy(linger=0)


@pytest.fixture
def by_hand(vorna, node_id):
    made = Server()
    vorna.setup_local_node(*made.endpoints, node_id())
    yield made
    made.close()


@pytest.fixture
def far(vorna, by_hand):
    vorna.open_remote_node(STORE, "members")
    vorna.members.server = by_hand
    yield vorna.members
    vorna.close_remote_node("members")


def without_return_address(body, frame):
    """The body of a call without the return address in its buffer. `frame` bytes come before that address."""
    length, = struct.unpack_from("<Q", body, frame)
    return body[:frame] + struct.pack("<Q", length - RETURN_ADDRESS) + body[frame + 8:-RETURN_ADDRESS]


def test_classes_and_their_attributes(vorna, far):
    assert [type(p).__name__ for p in (far.Opened, far.Role, far.Ref, far.Opened.device_info, far.Opened.reference_type)] == \
        ["__Remote__OpenedDevice__", "__Remote__Property__DriverReferenceType__", "__Remote__StoreRef__",
         "__Remote__DeviceInfo__", "__Remote__Property__DriverReferenceType__"]
    for proxy, number in ((far.Opened, 5), (far.Role, 6), (far.Ref, 7), (far.Opened.device_info, 5), (far.Opened.reference_type, 5)):
        assert proxy.__trovi_proxy_object__ is True
        assert proxy.get_store_reference() == vorna.trovi.StoreRef(store_id=STORE, obj_id=number)
    assert [n for n in vars(type(far.Opened)) if not n.startswith("_")] == \
        ["device_info", "reference_type", "store_ref", "get_store_reference"]
    assert not far.server.received, "nothing moves until a leaf is read"


def test_classes_of_one_name_stay_apart(vorna, far):
    """Both chip families have classes of these names, and one store may hold objects of both."""
    assert type(far.Tessel).__name__ == type(far.Ravik).__name__ == "__Remote__DVSLayerConfig__"
    assert type(far.Tessel) is not type(far.Ravik)
    destinations = [vorna.ravik.configuration.DVSLayerDestination(layer=3)] * 2
    far.Ravik.destinations = destinations
    assert far.server.next_message() == struct.pack("<i", 0) + header(9, SET, 0) + with_length(b"\3\0\3\0")
    with pytest.raises(TypeError):
        far.Tessel.destinations = destinations


def test_a_proxy_that_is_kept_beyond_its_store(vorna, by_hand):
    vorna.open_remote_node(STORE, "first")
    kept = vorna.first.Opened
    vorna.close_remote_node("first")
    gc.collect()
    vorna.open_remote_node(STORE, "again")
    by_hand.answer = text("serial")
    for opened in (kept, vorna.again.Opened):
        assert opened.device_info.serial_number == "serial"
        assert type(opened.device_info).__name__ == "__Remote__DeviceInfo__"
    vorna.close_remote_node("again")


@pytest.mark.parametrize("read, obj, number, answer, value", [
    (lambda far: far.Ref.store_id, 7, 0, struct.pack("<Q", 2**64 - 1), 2**64 - 1),
    (lambda far: far.Ref.obj_id, 7, 1, struct.pack("<Q", 3), 3),
    (lambda far: int(far.Role.get()), 6, 0, struct.pack("<i", 2), 2),
    (lambda far: int(far.Opened.reference_type.get()), 5, 1, struct.pack("<i", 1), 1),
])
def test_reading_asks_for_the_member_by_number(far, read, obj, number, answer, value):
    far.server.answer = answer
    assert read(far) == value
    assert without_return_address(far.server.next_message(), 40) == \
        struct.pack("<i", CALL_INDEX) + header(obj, GET, number) + with_length(b"")


def assign(path, value):
    def run(vorna, far):
        *owners, last = path.split(".")
        target = far
        for name in owners:
            target = getattr(target, name)
        setattr(target, last, value(vorna))
    return run


def role(vorna):
    return vorna.device.DriverReferenceType.Board


@pytest.mark.parametrize("write, obj, number, buffer", [
    (assign("Ref.obj_id", lambda vorna: 9), 7, 1, struct.pack("<Q", 9)),
    (assign("Opened.reference_type", role), 5, 1, struct.pack("<i", 2)),
    (lambda vorna, far: far.Opened.reference_type.set(role(vorna)), 5, 1, struct.pack("<i", 2)),
    (lambda vorna, far: far.Role.set(role(vorna)), 6, 0, struct.pack("<i", 2)),
    (assign("Opened.store_ref", lambda vorna: vorna.trovi.StoreRef(store_id=1, obj_id=2)), 5, 2, struct.pack("<QQ", 1, 2)),
])
def test_writing_sends_the_member_and_awaits_nothing(vorna, far, write, obj, number, buffer):
    write(vorna, far)
    assert far.server.next_message() == struct.pack("<i", 0) + header(obj, SET, number) + with_length(buffer)


def test_members_of_members_go_by_a_chain(far):
    step = struct.pack("<I", MEMBER_STEP)  # through data member 0 of the stored object; nobody answers a set
    far.Opened.device_info.logic_version = 7
    inner = header(5, SET, 3, destination=0) + with_length(struct.pack("<i", 7))
    assert far.server.next_message() == \
        struct.pack("<i", INTERNAL_INDEX) + header(5, INTERNAL, 0) + with_length(step + inner)
    far.server.answer = text("serial")
    assert far.Opened.device_info.serial_number == "serial"
    inner = header(5, GET, 0, destination=0) + with_length(b"")
    assert without_return_address(far.server.next_message(), 40) == \
        struct.pack("<i", INTERNAL_INDEX) + header(5, INTERNAL, 0) + with_length(step + inner)


@pytest.mark.parametrize("wrong", [
    assign("Ref.obj_id", lambda vorna: "nine"),
    assign("Ref.obj_id", lambda vorna: -1),
    assign("Opened.reference_type", lambda vorna: 2),
    assign("Opened.store_ref", lambda vorna: None),
    lambda vorna, far: far.Role.set("Board"),
])
def test_a_value_of_the_wrong_type_fails_before_anything_is_sent(vorna, far, wrong):
    with pytest.raises(TypeError):
        wrong(vorna, far)
    far.Ref.obj_id = 1  # what comes next is the first that is sent
    assert far.server.next_message() == struct.pack("<i", 0) + header(7, SET, 1) + with_length(struct.pack("<Q", 1))
    assert not far.server.received
