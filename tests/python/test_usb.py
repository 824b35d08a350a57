"""Listing boards on USB from a script, and what is real about them."""
import pytest


def test_a_listing_is_a_list_of_device_infos(vorna):
    boards = vorna.usb.get_devices_with_vid_pid(0x1209, 0x0001)  # ids that are free for tests
    assert boards == []
    with pytest.raises(TypeError):
        vorna.usb.get_devices_with_vid_pid(0x10000, 1)


def test_the_bus_tells_an_emulated_board_from_a_real_one(vorna):
    for bus, emulated in [(0, False), (1, False), (249, False), (250, True), (251, False)]:
        info = vorna.device.DeviceInfo("A1", bus, 7, 0, "usb")
        assert vorna.emulation.is_emulated(info) is emulated
