"""Boards without hardware: plugged in by one line each, then listed, brought up, made to fail and pulled out."""
import vorna

boards = {"FX3 without firmware": (0x04B4, 0x00F3), "dev kit": (0x04B4, 0x5BC1), "Opal Kelly board": (0x151F, 0x012B)}


def show(what):
    print(what)
    for name, ids in boards.items():
        for info in vorna.usb.get_devices_with_vid_pid(*ids):
            kind = "emulated" if vorna.emulation.is_emulated(info) else "real"
            print("   %s %s, serial number %s, at %d:%d" % (kind, name, info.serial_number or "unknown",
                                                            info.usb_bus_number, info.usb_device_address))


# A kit that runs its firmware, with a chip behind it that sends back what it gets.
kit = vorna.emulation.plug_virtual_dev_kit(serial_number="KIT1", chip=vorna.emulation.ChipKind.loopback)

# A board whose FPGA waits for its configuration, with a chip behind it that keeps what is written to it. The end of the
# with block unplugs it.
with vorna.emulation.plug_virtual_opal_kelly(serial_number="OK1") as board:
    show("plugged in:")
    print("the board's FPGA is configured:", board.is_configured())
    print("register 5 of the chip's layer 0:", board.chip().register_value(0, 5))
show("after the block:")

# Memories can be read and set from this side; flash reads 255 where it is erased.
kit.set_flash_bytes(0x300000, [1, 0, 2, 0, 3, 0, 4, 0])
print("flash:", kit.flash_bytes(0x300000, 10))

# The system refuses to open the board: error 13 is a missing permission. Without it the serial number can't be read.
kit.set_kernel_faults(13, 0, 0, "")
show("without permission:")

# Pulled out and put in again it is a board at another address, with its flash as it was.
kit.replug()
show("put in again:")
print("flash:", kit.flash_bytes(0x300000, 4), "problems:", kit.problems())
kit.unplug()
