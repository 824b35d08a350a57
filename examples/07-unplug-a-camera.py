"""What a script sees when a camera is pulled out, when the store closes, and when nobody answers any more."""
import vorna
from parts.network import free_endpoints, wait_for

sender, receiver = free_endpoints()
node = vorna.VornaNode(sender, receiver, 10)
vorna.setup_local_node(receiver, sender, 20)
vorna.open_remote_node(10, "devices")

# Without a camera, opening says so. An error in the server's own process is an exception like any other.
try:
    node.open_davis()
except RuntimeError as error:
    print("no camera:", error)

camera = vorna.emulation.plug_virtual_davis()
node.open_davis()
davis = wait_for(lambda: getattr(vorna.devices, "Davis240", None), "the camera")
counter = vorna.graph.nodes.EventCounterSink_davis_event_dvs_event()
davis.get_source_node().add_destination(counter.get_input_channel())
davis.start()
wait_for(counter.get_count, "events")

# Pulling the cable stops the camera by itself. Its proxy stays; don't stop it again.
camera.unplug()
wait_for(lambda: not camera.is_delivering(), "the reader's end")
counter.get_count()
print("unplugged; events since then:", counter.get_count())

# A node that closes notifies its clients. The message may get lost: then calls end in a timeout of 10 seconds.
node.close()
print("the store is open:", vorna.devices.is_open())

# A store that isn't there is noticed after a second.
vorna.setup_local_node(*free_endpoints(), 20)
try:
    vorna.open_remote_node(10, "nobody")
except RuntimeError as error:
    print("nobody there:", error)
