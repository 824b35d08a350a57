"""The protocol as a second, independent peer speaks it: plain pyzmq and struct, no code of ours on that side."""
import itertools
import struct
import subprocess
import sys

import pytest
import zmq

from conftest import free_endpoints

ALL_ONES = 2**64 - 1
CALL, RESPONSE, REPORT, CONTENT_UPDATE, STORE_CLOSED, GET = 2, 3, 6, 9, 10, 8


def text(s):
    return struct.pack("<Q", len(s)) + s.encode()


def uuid(n):
    return text("00000000-0000-0000-%04x-%012x" % (n >> 48, n & (2**48 - 1)))


def call_frame(store, obj, command, function, caller, number):
    buffer = struct.pack("<Q", caller) + uuid(number)
    return struct.pack("<iQQQIQQ", 2, store, store, obj, command, function, len(buffer)) + buffer


def response_frame(destination, command, buffer):
    return struct.pack("<iQIQ", 4, destination, command, len(buffer)) + buffer


def element(store, obj, type_name, name, change):
    return struct.pack("<QQ", store, obj) + text(type_name) + text(name) + struct.pack("<I", change)


def answer(destination, number, *elements):
    return response_frame(destination, RESPONSE, uuid(number) + struct.pack("<Q", len(elements)) + b"".join(elements))


def update(destination, *elements):
    return response_frame(destination, CONTENT_UPDATE, text("") + struct.pack("<Q", len(elements)) + b"".join(elements))


CLOSED = response_frame(4, STORE_CLOSED, text("") + struct.pack("<Q", 1))


class Peer:
    """One side of the star, by hand."""

    def __init__(self, out_type, in_type, bind, out_endpoint, in_endpoint, topic=b""):
        self.context = zmq.Context()
        self.out, self.incoming = self.context.socket(out_type), self.context.socket(in_type)
        for socket, endpoint in ((self.out, out_endpoint), (self.incoming, in_endpoint)):
            socket.linger = 0
            (socket.bind if bind else socket.connect)(endpoint)
        if in_type == zmq.SUB:
            self.incoming.setsockopt(zmq.SUBSCRIBE, topic)
        self.incoming.rcvtimeo = 20000

    def send(self, topic, body):
        self.out.send_multipart([b"%d" % topic, body])

    def receive(self):
        return self.incoming.recv_multipart()


# ---- a server of ours, the peer as its client


@pytest.fixture
def client(server):
    """A client of the server node, with id 2."""
    to_server, from_server = server.client_endpoints
    peer = Peer(zmq.PUSH, zmq.SUB, False, to_server, from_server, b"2")
    numbers = itertools.count()

    def ask(obj=0, command=CALL, function=0):
        number = next(numbers)
        peer.send(server.id, call_frame(server.id, obj, command, function, 2, number))
        return number

    peer.ask = ask
    while True:  # the subscription must have arrived before an answer is published: ask until one comes back
        number = peer.ask(ALL_ONES, REPORT)
        if peer.incoming.poll(100):
            break
    while peer.receive() != [b"2", answer(2, number, element(server.id, 0, "device::DeviceController", "DeviceController", 2))]:
        pass
    yield peer
    peer.context.destroy()


def test_calls_are_answered_byte_for_byte(server, client):
    server.node.expose_root_node()
    assert client.receive() == [b"2", update(2, element(server.id, 1, "VornaNode", "VornaNode", 0))]
    number = client.ask(1)
    assert client.receive() == [b"2", response_frame(2, RESPONSE, uuid(number) + struct.pack("<HH", 0x151F, 0x012B))]
    # what names nothing gets no answer, and does no harm to the one after it
    client.ask(function=6)  # one past the last function of the controller
    client.ask(obj=99)
    client.ask(command=GET)  # a store's class has no members
    client.ask(command=77)
    client.out.send(b"alone")  # one frame instead of two
    number = client.ask(function=1)  # the controller's get_opened_devices
    assert client.receive() == [b"2", answer(2, number)]
    foreign = response_frame(2, RESPONSE, b"an answer for another node is passed on")
    client.send(server.id, foreign)
    assert client.receive() == [b"2", foreign]


# ---- a client of ours in a process of its own, the peer as its server

CLIENT = """
import sys, threading, vorna
print("ready", flush=True)
vorna.setup_local_node(sys.argv[1], sys.argv[2], 4)
vorna.open_remote_node(1, "far")
print("open", sorted(n for n in dir(vorna.far) if not n.startswith("_")), flush=True)
"""


class Store(Peer):
    """A store with id 1 and the given elements, and a client that opens it, runs a script and ends with its input."""

    def __init__(self, script, *elements):
        requests, answers = free_endpoints()
        super().__init__(zmq.PUB, zmq.PULL, True, answers, requests)
        self.process = subprocess.Popen([sys.executable, "-c", CLIENT + script, requests, answers], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, stderr=subprocess.PIPE, universal_newlines=True)
        self.read_until("ready")
        said = self.process.stdout.fileno()
        for number in itertools.count():  # until it hears an answer: its subscription takes a moment
            assert self.receive() == [b"1", call_frame(1, ALL_ONES, REPORT, 0, 4, number)]
            self.send(4, answer(4, number, *elements))
            if self.incoming not in zmq.select([said, self.incoming], [], [said], 20)[0]:
                break  # it says something, or has ended, and doesn't ask again

    def read_until(self, word):
        while self.process.stdout.readline() != word + "\n":
            pass

    def ended(self):
        """Exit code, output and errors of the client, which ends by itself or with its input."""
        output, errors = self.process.communicate(timeout=20)
        return self.process.returncode, output, errors


@pytest.fixture
def store():
    made = []

    def start(*arguments):
        made.append(Store(*arguments))
        return made[-1]

    yield start
    for peer in made:
        if peer.process.poll() is None:
            peer.process.kill()
            peer.process.communicate()
        peer.context.destroy()


def test_our_client_asks_and_reads_byte_for_byte(store):
    peer = store("sys.stdin.read()", element(1, 5, "device::DeviceController", "Controller", 2))
    peer.send(4, update(4, element(1, 6, "device::DeviceController", "New", 0), element(1, 6, "x", "Listed", 2)))
    peer.send(4, CLOSED)
    assert peer.ended()[:2] == (0, "open ['Controller', 'is_open']\n")
    code, _, errors = store("", element(1, 5, "no::Such", "Thing", 2)).ended()
    assert code == 1
    assert "RuntimeError: No remote binding rule has been provided for element type: no::Such" in errors


@pytest.mark.parametrize("message, words", [
    (update(4, element(1, 6, "no::Such", "Thing", 0)), "No remote binding rule has been provided for element type: no::Such"),
    (update(4, element(1, 6, "VornaNode", "", 0)), "Trying to bind element with empty name!"),
    (struct.pack("<i", 5), "Invalid 'index' selector when deserializing std::variant"),
    (response_frame(4, STORE_CLOSED, text("") + b"123"), "Failed to read 8 bytes from input stream! Read 3"),
], ids=["no rule", "no name", "no message", "cut short"])
def test_what_a_client_cannot_take_ends_it_with_the_text(store, message, words):
    peer = store("sys.stdin.read()")
    peer.send(4, message)
    peer.process.wait(20)  # of itself: its input stays open
    code, _, errors = peer.ended()
    assert code == -6 and words in errors


def test_an_update_of_a_store_that_is_not_bound_takes_its_id(store):
    peer = store("""
closed = threading.Event()
while vorna.far.is_open():  # what came before has been taken by then
    closed.wait(0.005)
vorna.open_remote_node(9, "other")
""")
    peer.send(4, update(4, element(9, 0, "no::Such", "Thing", 0)))
    peer.send(4, CLOSED)
    code, _, errors = peer.ended()
    assert code == 1 and "RuntimeError: Remote store id = 9 already bound!" in errors


def test_a_finalizer_that_an_update_runs_may_replace_the_node(store):
    """It runs while the old node acts on the update, so that node can't be joined there."""
    peer = store("""
replaced = threading.Event()
class Finalizer:
    def __del__(self):
        vorna.setup_local_node(sys.argv[1], sys.argv[2], 5)
        replaced.set()
vorna.far.Thing = Finalizer()
print("set", flush=True)
assert replaced.wait(10)
""")
    peer.read_until("set")
    peer.send(4, update(4, element(1, 6, "x", "Thing", 1)))
    code, _, errors = peer.ended()
    assert code == 0, errors
