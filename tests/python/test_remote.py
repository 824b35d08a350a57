"""Two nodes in one process and in two: stores as submodules, proxies, their failures."""
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


def test_a_device_type_without_a_driver_is_told_locally(vorna, server):
    assert server.node.get_ombrel_vid_and_pid() == (0x151F, 0x012B)


def test_opening_dev_kits_without_one(vorna, server, capfd):
    server.node.open_dev_kit()
    server.node.open_ravik_dev_kit()
    assert capfd.readouterr().out == "Reopening failed to find device\n" * 2
    assert runtime_text(lambda: server.node.open_ombrel_dev_board(1, 2)) in ("Device not found", "No devices")


def test_a_closed_node_and_a_taken_endpoint_say_so(vorna, server, node_id):
    sender = server.client_endpoints[1]
    assert runtime_text(lambda: vorna.VornaNode(sender, "tcp://127.0.0.1:*", node_id())) == \
        "Address already in use (endpoints %s and tcp://127.0.0.1:*)" % sender
    assert runtime_text(lambda: vorna.setup_local_node("nonsense", "tcp://127.0.0.1:1", node_id())).startswith("Invalid argument")
    server.node.close()
    for call in (server.node.open_davis, server.node.open_dev_kit, server.node.expose_root_node):
        assert runtime_text(call) == "This VornaNode is closed; make a new one."


def test_failures_of_opening_and_closing(vorna, server, remote, node_id):
    open_remote_node, close_remote_node = vorna.open_remote_node, vorna.close_remote_node
    assert runtime_text(lambda: open_remote_node(server.id, "other")) == "Remote store id = %d already bound!" % server.id
    assert runtime_text(lambda: open_remote_node(server.id, remote.__name__.split(".")[1])) == \
        "Trying to use an already taken remote store name!"
    assert runtime_text(lambda: open_remote_node(9, "VornaNode")) == "Trying to use an already taken remote store name!"
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
    assert remote.is_open() is True, "the far side isn't told"
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
    assert vorna.mortal.is_open() is True, "nobody told"
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


def test_opening_does_not_wait_for_an_update_of_another_store(vorna, node_id):
    """An update that came first is served only when the interpreter lock is free: the answer behind it must get through."""
    sender, receiver = free_endpoints()
    nodes = vorna.VornaNode(sender, receiver, 320)
    vorna.setup_local_node(receiver, sender, node_id())
    for i in range(20):
        vorna.open_remote_node(320, "busy")
        vorna.close_remote_node("busy")
    nodes.close()
