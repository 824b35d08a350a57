"""Two processes: a server with a store of devices, and a client that calls them through proxies.

The same works from one machine to another, with the server's address instead of 127.0.0.1. Nothing is encrypted and
nobody is asked for a password: only bind to a network that you trust.
"""
import subprocess
import sys

import vorna
from parts.network import free_endpoints, wait_for

SERVER_ID, CLIENT_ID = 10, 20  # no id may begin with another, as 2 and 20 do


def serve():
    sender, receiver = free_endpoints()  # a server of your own: "tcp://127.0.0.1:7001" and the like
    with vorna.VornaNode(sender, receiver, SERVER_ID) as node:
        node.expose_root_node()  # the node itself is in the store now: clients can ask it to open devices
        print("server: sending on %s, receiving on %s" % (sender, receiver), flush=True)
        client = subprocess.run([sys.executable, __file__, sender, receiver], timeout=60)
        print("server: the client has ended with", client.returncode)
        return client.returncode


def call(server_sender, server_receiver):
    vorna.setup_local_node(server_receiver, server_sender, CLIENT_ID)  # crossed: it receives where we send
    vorna.open_remote_node(SERVER_ID, "far")  # now there is a submodule vorna.far
    root = wait_for(lambda: getattr(vorna.far, "VornaNode", None), "the root node's proxy")
    print("client: the store holds", [name for name in dir(vorna.far) if hasattr(getattr(vorna.far, name), "get_store_reference")
                                      and not name.startswith("_")])
    print("client: asked the server, got %#x, %#x" % root.get_ombrel_vid_and_pid())
    print("client:", root.get_store_reference())
    try:
        root.no_such_function()
    except AttributeError as error:
        print("client: proxies have the functions of their class and no others:", error)
    vorna.close_remote_node("far")


if __name__ == "__main__":
    sys.exit(call(*sys.argv[1:]) if len(sys.argv) == 3 else serve())
