"""The protocol as a second, independent peer speaks it: plain pyzmq and struct, no code of ours on that side."""
import struct
import subprocess
import sys

import pytest
import zmq

from conftest import free_endpoints, wait_for

ALL_ONES = 2**64 - 1
CALL, RESPONSE, REPORT, CONTENT_UPDATE, STORE_CLOSED, GET = 2, 3, 6, 9, 10, 8


def text(s):
    return struct.pack("<Q", len(s)) + s.encode()


def uuid(n):
    return "00000000-0000-0000-%04x-%012x" % (n >> 48, n & (2**48 - 1))


def call_frame(store, obj, command, function, arguments, caller, number, destination=None):
    buffer = arguments + struct.pack("<Q", caller) + text(uuid(number))
    return struct.pack("<iQQQIQQ", 2, store if destination is None else destination, store, obj, command, function,
                       len(buffer)) + buffer


def response_frame(destination, command, buffer):
    return struct.pack("<iQIQ", 4, destination, command, len(buffer)) + buffer


def element(store, obj, type_name, name, change):
    return struct.pack("<QQ", store, obj) + text(type_name) + text(name) + struct.pack("<I", change)


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
        self.incoming.rcvtimeo = 3000

    def send(self, topic, body):
        self.out.send_multipart([b"%d" % topic, body])

    def close(self):
        self.context.destroy()


@pytest.fixture
def client(server):
    """A client of the server node, with id 2."""
    to_server, from_server = server.client_endpoints
    peer = Peer(zmq.PUSH, zmq.SUB, False, to_server, from_server, b"2")
    peer.number = 0

    def ask(*, obj=0, command=CALL, function=0, arguments=b""):
        peer.send(server.id, call_frame(server.id, obj, command, function, arguments, 2, peer.number))
        peer.number += 1
        return peer.number - 1

    peer.ask = ask
    # the subscription must have arrived before an answer is published: ask until one comes back
    peer.incoming.rcvtimeo = 100
    for _ in range(50):
        peer.ask(obj=ALL_ONES, command=REPORT)
        try:
            peer.incoming.recv_multipart()
            break
        except zmq.Again:
            pass
    else:
        pytest.fail("the server doesn't answer")
    try:  # answers to earlier tries
        while True:
            peer.incoming.recv_multipart()
    except zmq.Again:
        pass
    peer.incoming.rcvtimeo = 3000
    yield peer
    peer.close()


def test_a_report_is_answered_byte_for_byte(server, client):
    number = client.ask(obj=ALL_ONES, command=REPORT)
    buffer = text(uuid(number)) + struct.pack("<Q", 1) + element(server.id, 0, "device::DeviceController", "DeviceController", 2)
    assert client.incoming.recv_multipart() == [b"2", response_frame(2, RESPONSE, buffer)]


def test_a_call_is_answered_byte_for_byte(server, client):
    server.node.expose_root_node()
    update = struct.pack("<QQ", 0, 1) + element(server.id, 1, "VornaNode", "VornaNode", 0)
    assert client.incoming.recv_multipart() == [b"2", response_frame(2, CONTENT_UPDATE, update)]
    number = client.ask(obj=1)
    assert client.incoming.recv_multipart() == \
        [b"2", response_frame(2, RESPONSE, text(uuid(number)) + struct.pack("<HH", 0x151F, 0x012B))]


@pytest.mark.parametrize("dropped", [
    dict(function=6),              # one past the last function of the controller
    dict(obj=99),                  # no such object
    dict(command=GET),             # a store's class has no members
    dict(command=77),              # no command
], ids=str)
def test_what_names_nothing_gets_no_answer_and_does_no_harm(server, client, dropped):
    client.ask(**dropped)
    number = client.ask(function=1)  # the controller's get_opened_devices
    assert client.incoming.recv_multipart() == [b"2", response_frame(2, RESPONSE, text(uuid(number)) + bytes(8))]


def test_a_single_frame_is_ignored(server, client):
    client.out.send(b"alone")
    number = client.ask(function=1)
    assert client.incoming.recv_multipart()[1] == response_frame(2, RESPONSE, text(uuid(number)) + bytes(8))


def test_an_answer_for_another_node_is_passed_on(server, client):
    foreign = response_frame(2, RESPONSE, b"anything")
    client.send(server.id, foreign)
    assert client.incoming.recv_multipart() == [b"2", foreign]


CLIENT = """
import sys, vorna
print("ready", flush=True)
vorna.setup_local_node(sys.argv[1], sys.argv[2], 4)
vorna.open_remote_node(1, "far")
print("open", sorted(n for n in dir(vorna.far) if not n.startswith("_")), flush=True)
sys.stdin.read()
"""


@pytest.fixture
def store():
    """A store with id 1 and one object, and a process of ours that has it open."""
    requests, answers = free_endpoints()
    peer = Peer(zmq.PUB, zmq.PULL, True, answers, requests)
    peer.endpoints = requests, answers
    peer.process = subprocess.Popen([sys.executable, "-c", CLIENT, requests, answers], stdin=subprocess.PIPE,
                                    stdout=subprocess.PIPE, stderr=subprocess.PIPE, universal_newlines=True)
    while peer.process.stdout.readline() != "ready\n":
        pass
    peer.requests = []
    peer.incoming.rcvtimeo = 20000

    def answer(elements):
        """Answers reports until the client has heard one."""
        while True:
            topic, body = peer.incoming.recv_multipart()
            number = len(peer.requests)
            peer.requests.append(body)
            assert (topic, body) == (b"1", call_frame(1, ALL_ONES, REPORT, 0, b"", 4, number))
            peer.send(4, response_frame(4, RESPONSE, text(uuid(number)) + struct.pack("<Q", len(elements)) + b"".join(elements)))
            if zmq.select([peer.process.stdout.fileno()], [], [], 0.3)[0]:
                return

    peer.answer = answer
    yield peer
    if peer.process.poll() is None:
        peer.process.kill()
    peer.process.communicate()
    peer.close()


def ended(peer):
    output, errors = peer.process.communicate(timeout=20)
    return peer.process.returncode, output, errors


def test_our_client_asks_and_reads_byte_for_byte(store):
    store.answer([element(1, 5, "device::DeviceController", "Controller", 2)])
    code, output, errors = ended(store)
    assert (code, output) == (0, "open ['Controller', 'is_open']\n"), errors


def test_an_element_without_a_rule_fails_the_opening(store):
    topic, body = store.incoming.recv_multipart()
    for number in range(4):  # each of the client's questions, so that one is heard
        store.send(4, response_frame(4, RESPONSE, text(uuid(number)) + struct.pack("<Q", 1) + element(1, 5, "no::Such", "Thing", 2)))
        if store.incoming.poll(200):
            store.incoming.recv_multipart()
    code, _, errors = ended(store)
    assert code == 1
    assert "RuntimeError: No remote binding rule has been provided for element type: no::Such" in errors


@pytest.mark.parametrize("message, words", [
    (response_frame(4, CONTENT_UPDATE, text("") + struct.pack("<Q", 1) + element(1, 6, "no::Such", "Thing", 0)),
     "No remote binding rule has been provided for element type: no::Such"),
    (response_frame(4, CONTENT_UPDATE, text("") + struct.pack("<Q", 1) + element(1, 6, "VornaNode", "", 0)),
     "Trying to bind element with empty name!"),
    (struct.pack("<i", 5), "Invalid 'index' selector when deserializing std::variant"),
    (response_frame(4, STORE_CLOSED, text("") + b"123"), "Failed to read 8 bytes from input stream! Read 3"),
], ids=["no rule", "no name", "no message", "cut short"])
def test_what_a_client_cannot_take_ends_it_with_the_text(store, message, words):
    store.answer([])
    store.send(4, message)
    store.process.wait(20)  # of itself: its input stays open
    code, _, errors = ended(store)
    assert code == -6 and words in errors


def test_updates_and_closing_reach_our_client(store):
    store.answer([])
    store.send(4, response_frame(4, CONTENT_UPDATE, text("") + struct.pack("<Q", 2) +
                                 element(1, 6, "device::DeviceController", "New", 0) + element(1, 6, "x", "Listed", 2)))
    store.send(4, response_frame(4, STORE_CLOSED, text("") + struct.pack("<Q", 1)))
    code, _, errors = ended(store)
    assert code == 0, errors


def test_an_update_of_a_store_that_is_not_bound_takes_its_id(store):
    store.process.kill()
    store.process.communicate()
    store.process = subprocess.Popen([sys.executable, "-c", CLIENT.replace("sys.stdin.read()", """
while vorna.far.is_open():  # what came before has been taken by then
    time.sleep(0.005)
vorna.open_remote_node(9, "other")
""").replace("import sys", "import sys, time"), *store.endpoints], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                     stderr=subprocess.PIPE, universal_newlines=True)
    while store.process.stdout.readline() != "ready\n":
        pass
    store.requests.clear()
    store.answer([])
    store.send(4, response_frame(4, CONTENT_UPDATE, text("") + struct.pack("<Q", 1) + element(9, 0, "no::Such", "Thing", 0)))
    store.send(4, response_frame(4, STORE_CLOSED, text("") + struct.pack("<Q", 1)))
    code, _, errors = ended(store)
    assert code == 1 and "RuntimeError: Remote store id = 9 already bound!" in errors


def test_a_finalizer_that_an_update_runs_may_replace_the_node(store):
    """It runs while the old node acts on the update, so that node can't be joined there."""
    store.process.kill()
    store.process.communicate()
    store.process = subprocess.Popen([sys.executable, "-c", CLIENT.replace("sys.stdin.read()", """
replaced = threading.Event()
class Finalizer:
    def __del__(self):
        vorna.setup_local_node(sys.argv[1], sys.argv[2], 5)
        replaced.set()
vorna.far.Thing = Finalizer()
print("set", flush=True)
assert replaced.wait(10)
""").replace("import sys", "import sys, threading"), *store.endpoints], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                     stderr=subprocess.PIPE, universal_newlines=True)
    while store.process.stdout.readline() != "ready\n":
        pass
    store.requests.clear()
    store.answer([])
    while store.process.stdout.readline() != "set\n":
        pass
    store.send(4, response_frame(4, CONTENT_UPDATE, text("") + struct.pack("<Q", 1) + element(1, 6, "x", "Thing", 1)))
    store.process.wait(20)
    code, _, errors = ended(store)
    assert code == 0, errors
