"""Two nodes in one process and in two: stores as submodules, proxies, their failures."""
import sys
import threading
import time

import pytest

from conftest import free_endpoints, wait_for

SERVER = """
import sys, vorna
node = vorna.VornaNode(sys.argv[1], sys.argv[2], int(sys.argv[3]))
"""


def runtime_text(call):
    with pytest.raises(RuntimeError) as caught:
        call()
    return str(caught.value)


def test_a_store_shows_as_a_submodule_of_proxies(vorna, server, remote):
    assert remote.__name__ == "vorna.remote_%d" % server.id
    assert remote.__doc__ == "Automatically generated submodule."
    assert remote.is_open() is True
    controller = remote.DeviceController
    assert type(controller).__name__ == "__Remote__DeviceController__"
    assert controller.__trovi_proxy_object__ is True
    reference = controller.get_store_reference()
    assert (reference.store_id, reference.obj_id) == (server.id, 0)
    assert controller.get_unopened_devices() == []
    assert controller.get_opened_devices() == []
    with pytest.raises(TypeError):
        type(controller)()  # proxies are made by opening a store
    with pytest.raises(TypeError):
        controller.close_device(3)


def test_objects_come_and_go(vorna, server, remote):
    assert not hasattr(remote, "VornaNode")
    server.node.expose_root_node()
    wait_for(lambda: hasattr(remote, "VornaNode"), what="the new object")
    assert remote.VornaNode.get_ombrel_vid_and_pid() == (5407, 299)
    assert remote.VornaNode.get_store_reference().obj_id == 1
    with pytest.raises(RuntimeError, match="Name: VornaNode is already used by other element in the store!"):
        server.node.expose_root_node()


def test_opening_dev_kits_without_one(vorna, server, capfd):
    server.node.open_dev_kit()
    server.node.open_ravik_dev_kit()
    assert capfd.readouterr().out == "Reopening failed to find device\n" * 2
    assert runtime_text(lambda: server.node.open_ombrel_dev_board(1, 2)) in ("Device not found", "No devices")


def test_what_a_node_cannot_bind_it_names(vorna, server, node_id):
    sender = server.client_endpoints[1]
    for call, text in (
            (lambda: vorna.VornaNode(sender, "tcp://127.0.0.1:*", node_id()),
             "Address already in use (endpoints %s and tcp://127.0.0.1:*)" % sender),
            (lambda: vorna.VornaNode("tcp://127.0.0.1:*", "tcp://127.0.0.1:*\0", node_id()),
             "Invalid argument (endpoints tcp://127.0.0.1:* and tcp://127.0.0.1:*)"),
            (lambda: vorna.setup_local_node("nonsense", "x", node_id()), "Invalid argument (endpoints nonsense and x)")):
        assert runtime_text(call) == text


def test_a_closed_node_frees_its_endpoints_and_devices_and_refuses_the_rest(vorna, node_id):
    endpoints, this_id = free_endpoints(), node_id()
    with vorna.emulation.plug_virtual_davis():
        for _ in range(3):
            with vorna.VornaNode(*endpoints, this_id) as node:
                node.open_davis()  # refused while another node holds the one camera
                vorna.setup_local_node(*reversed(endpoints), node_id())
                vorna.open_remote_node(this_id, "held")
                vorna.held.Davis240.start()
                vorna.close_remote_node("held")
            node.close()
            for call in (node.open_davis, node.open_dev_kit, lambda: node.open_ombrel_dev_board(1, 2), node.expose_root_node,
                         node.get_ombrel_vid_and_pid, node.__enter__):
                assert runtime_text(call) == "This VornaNode is closed; make a new one."


def test_failures_of_opening_and_closing(vorna, server, remote, node_id):
    open_remote_node, close_remote_node = vorna.open_remote_node, vorna.close_remote_node
    assert runtime_text(lambda: open_remote_node(server.id, "other")) == "Remote store id = %d already bound!" % server.id
    assert runtime_text(lambda: open_remote_node(server.id, remote.__name__.split(".")[1])) == \
        "Trying to use an already taken remote store name!"
    assert runtime_text(lambda: open_remote_node(9, "VornaNode")) == "Trying to use an already taken remote store name!"
    nodes = vorna.graph.nodes
    for name in ("", "graph.nodes", "a\0b", remote.__name__.split(".")[1] + "\0"):
        assert runtime_text(lambda: open_remote_node(9, name)) == \
            "The name of a remote store must not be empty, nor hold a dot or a zero byte."
        assert runtime_text(lambda: close_remote_node(name)) == "Specified name doesen't exists!"
    assert vorna.graph.nodes is sys.modules["vorna.graph.nodes"] is nodes
    with pytest.raises(ValueError, match="zero byte"):
        vorna.trovi.StoreRef().to_json("a\0b")
    assert runtime_text(lambda: close_remote_node("nothing")) == "Specified name doesen't exists!"
    assert runtime_text(lambda: close_remote_node("davis")) == "Specified submodule is not a remote store proxy!"
    assert hasattr(vorna, "davis")


def test_the_own_store_is_no_remote_one(vorna):
    own = 77
    vorna.setup_local_node(*free_endpoints(), own)
    assert runtime_text(lambda: vorna.open_remote_node(own, "self")) == "Trying to load local store as remote!"


def test_a_store_that_does_not_answer(vorna, node_id):
    vorna.setup_local_node(*free_endpoints(), node_id())
    begin = time.monotonic()
    for _ in range(2):  # the name and the id are free again
        assert runtime_text(lambda: vorna.open_remote_node(55, "nobody")) == "Store with ID: 55 timed out on content request"
        assert not hasattr(vorna, "nobody")
    assert 1.9 < time.monotonic() - begin < 6


def test_closing_and_opening_anew(vorna, server, remote, node_id):
    name = remote.__name__.split(".")[1]
    vorna.close_remote_node(name)
    assert not hasattr(vorna, name)
    assert remote.is_open() is True, "the far side isn't notified"
    assert remote.DeviceController.get_opened_devices() == []
    vorna.open_remote_node(server.id, name)
    assert getattr(vorna, name) is not remote
    vorna.close_remote_node(name)


def test_a_second_local_node_replaces_the_first(vorna, server, remote, node_id):
    old = remote.DeviceController
    vorna.setup_local_node(*server.client_endpoints, node_id())
    name = "second_%d" % server.id
    vorna.open_remote_node(server.id, name)
    assert getattr(vorna, name).DeviceController.get_opened_devices() == []
    vorna.close_remote_node(name)
    assert runtime_text(lambda: vorna.close_remote_node(remote.__name__.split(".")[1])) == \
        "Specified submodule is not a remote store proxy!"
    assert old.get_store_reference().store_id == server.id, "an old proxy is still an object"
    assert runtime_text(old.get_opened_devices).startswith("No answer: the local node of this call was replaced")


def test_a_second_local_node_ends_what_waits_for_the_first(vorna, server, remote, node_id):
    server.node.close()  # nobody answers
    interval = sys.getswitchinterval()
    sys.setswitchinterval(10)  # the lock changes hands no sooner than the call waits
    for wait in (remote.DeviceController.get_opened_devices, lambda: vorna.open_remote_node(55, "nobody")):
        texts, called = [], threading.Event()
        waiting = threading.Thread(target=lambda: (called.set(), texts.append(runtime_text(wait))))
        waiting.start()
        called.wait()
        vorna.setup_local_node(*server.client_endpoints, node_id())
        waiting.join(5)
        assert texts and texts[0].startswith("No answer: the local node of this call was replaced")
    sys.setswitchinterval(interval)


def test_a_call_to_a_server_that_dies_times_out_and_the_client_lives(vorna, script, node_id):
    sender, receiver = free_endpoints()
    server = script(SERVER, sender, receiver, 301)
    vorna.setup_local_node(receiver, sender, node_id())
    vorna.open_remote_node(301, "mortal")
    controller = vorna.mortal.DeviceController
    assert controller.get_opened_devices() == []
    server.kill()
    begin = time.monotonic()
    assert runtime_text(controller.get_opened_devices) == "RPC timeout!"
    assert 9 < time.monotonic() - begin < 15
    assert vorna.mortal.is_open() is True, "nothing announced it"
    # a new server on the same endpoints is reached through the old proxies
    script(SERVER, sender, receiver, 301)
    wait_for(lambda: answers(controller), limit=20, what="the new server")
    vorna.close_remote_node("mortal")


def answers(proxy):
    try:
        return proxy.get_opened_devices() == []
    except RuntimeError:
        return False


def test_a_closing_store_says_so(vorna, script, node_id):
    """The announcement may be lost; of several servers some get it out."""
    heard = 0
    for i in range(10):
        sender, receiver = free_endpoints()
        node = vorna.VornaNode(sender, receiver, 310 + i)
        vorna.setup_local_node(receiver, sender, node_id())
        vorna.open_remote_node(310 + i, "closing_%d" % i)
        submodule = getattr(vorna, "closing_%d" % i)
        node.close()
        node.close()
        end = time.monotonic() + 0.3
        while submodule.is_open() and time.monotonic() < end:
            time.sleep(0.005)
        heard += not submodule.is_open()
        assert hasattr(submodule, "DeviceController"), "the proxies stay"
    assert heard > 0


def test_many_threads_call_at_once(vorna, server, remote):
    """Updates and calls overlap: nothing is lost and nothing hangs."""
    server.node.expose_root_node()
    wait_for(lambda: hasattr(remote, "VornaNode"), what="the root node")
    faults = []

    def call():
        for _ in range(200):
            if remote.VornaNode.get_ombrel_vid_and_pid() != (5407, 299):
                faults.append("wrong answer")

    threads = [threading.Thread(target=call) for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join(30)
        assert not thread.is_alive()
    assert faults == []
