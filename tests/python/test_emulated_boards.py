"""Emulated boards as a script sees them: plugged in, looked into, made to go wrong and unplugged."""
import ctypes
import threading

import pytest

from conftest import run_script

# A host that knows nothing of vorna: libusb itself, through ctypes, in the process where the board is plugged in.
HOST = '''
import ctypes

class Host:
    """One board, opened by its address."""
    def __init__(self, board):
        self.usb = ctypes.CDLL("libusb-1.0.so.0")
        self.usb.libusb_get_device_list.restype = ctypes.c_ssize_t
        self.context = ctypes.c_void_p()
        assert self.usb.libusb_init(ctypes.byref(self.context)) == 0
        devices = ctypes.POINTER(ctypes.c_void_p)()
        count = self.usb.libusb_get_device_list(self.context, ctypes.byref(devices))
        self.handle = ctypes.c_void_p()
        self.opened = None
        for i in range(count):
            device = ctypes.c_void_p(devices[i])
            if self.usb.libusb_get_bus_number(device) == board.bus_number() and \\
                    self.usb.libusb_get_device_address(device) == board.device_address():
                self.opened = self.usb.libusb_open(device, ctypes.byref(self.handle))
        self.usb.libusb_free_device_list(devices, 1)
        if self.opened == 0:
            assert self.usb.libusb_claim_interface(self.handle, 0) == 0

    def control(self, kind, request, value=0, index=0, data=b"", size=0):
        """Bytes read, or the result of a write."""
        buffer = ctypes.create_string_buffer(bytes(data) if data else b"", max(len(data), size, 1))
        result = self.usb.libusb_control_transfer(self.handle, kind, request, value, index, buffer,
                                                  len(data) or size, 2000)
        return buffer.raw[:result] if kind & 0x80 and result >= 0 else result

    def bulk(self, endpoint, data=b"", size=0):
        buffer = ctypes.create_string_buffer(bytes(data), max(len(data), size, 1))
        moved = ctypes.c_int()
        result = self.usb.libusb_bulk_transfer(self.handle, ctypes.c_ubyte(endpoint), buffer, len(data) or size,
                                               ctypes.byref(moved), 2000)
        if result < 0:
            return result
        return buffer.raw[:moved.value] if endpoint & 0x80 else moved.value

    def close(self):
        self.usb.libusb_close(self.handle)
        self.usb.libusb_exit(self.context)
'''
exec(HOST)

STALL, NO_DEVICE, ACCESS = -9, -4, -3  # libusb's codes


@pytest.fixture(autouse=True)
def nothing_stays(vorna):
    yield
    vorna.emulation.unplug_all_virtual_boards()


def words(*values):
    return b"".join(value.to_bytes(4, "little") for value in values)


def block(*values):
    return words(*values).ljust(1024, b"\0")


def flash(host, address, data):
    assert host.control(0x40, 0xB1, 1, 0, words(len(data), address)) == 8
    for at in range(0, len(data), 2048):
        assert host.control(0x40, 0xB1, 0, 0, data[at:at + 2048]) == len(data[at:at + 2048])


def test_a_board_is_there_in_its_block_only(vorna):
    with vorna.emulation.plug_virtual_dev_kit(serial_number="K7") as kit:
        assert kit.is_plugged() and kit.is_running() and kit.serial_number() == "K7"
        assert vorna.emulation.virtual_boards() == [kit]
        host = Host(kit)
        assert host.opened == 0
    assert not kit.is_plugged()
    assert vorna.emulation.virtual_boards() == []
    assert host.bulk(0x81, size=1024) == NO_DEVICE
    host.close()


def test_boards_have_their_kinds_and_options(vorna):
    kinds = vorna.emulation
    kit = kinds.plug_virtual_dev_kit(kinds.DevKitOptions(chip=kinds.ChipKind.loopback, configured=False))
    board = kinds.plug_virtual_opal_kelly(configured=True)
    assert isinstance(kit, kinds.VirtualDevKit) and isinstance(kit, kinds.VirtualBoard)
    assert [type(b) for b in kinds.virtual_boards()] == [kinds.VirtualDevKit, kinds.VirtualOpalKelly]
    assert not kit.is_configured() and board.is_configured() and board.wire_in(0) == 1
    assert board.analog_codes() == [0] * 8 and not board.is_adc_running()
    assert kinds.plug_virtual_dev_kit(firmware=False).wait_until_running(0) is False
    for address in (-1, 32):
        with pytest.raises(IndexError, match="0 to 31"):
            board.wire_in(address)
    with pytest.raises(ValueError, match="credit limit"):
        kit.set_credit_limit(-2)
    with pytest.raises(RuntimeError, match="no memory chip"):
        kit.chip()
    with pytest.raises((TypeError, AttributeError, ValueError), match="firmwar"):
        kinds.plug_virtual_dev_kit(firmwar=False)
    with pytest.raises(ValueError, match="descriptor|characters|126"):
        kinds.plug_virtual_dev_kit(serial_number="x" * 127)
    with pytest.raises(ValueError, match="ASCII"):
        kinds.plug_virtual_dev_kit(serial_number="Zürich")
    for errnos in ((-1, 0, 0), (0, -13, 0), (0, 0, 4096)):
        with pytest.raises(ValueError, match="errno is 0"):
            kit.set_kernel_faults(*errnos, "")


def test_flash_is_seen_from_both_sides(vorna):
    with vorna.emulation.plug_virtual_dev_kit() as kit:
        host = Host(kit)
        data = bytes(range(256)) * 20
        flash(host, 0x30000, data)
        assert bytes(kit.flash_bytes(0x30000, len(data))) == data
        flash(host, 0x30000, b"\xff\x00")
        assert kit.spoiled_bytes() == 1 and "isn't erased" in kit.problems()[-1]
        assert host.control(0x40, 0xB0, 1, 3) == 0
        assert kit.erased_sectors() == 1 and kit.flash_bytes(0x30000, 4) == [255] * 4
        for content in ([1, 2, 3], b"\1\2\3"):
            kit.set_flash_bytes(0x30000, [255] * 3)
            kit.set_flash_bytes(0x30000, content)
            assert kit.flash_bytes(0x30000, 4) == [1, 2, 3, 255]
        with pytest.raises(IndexError, match="16 MiB"):
            kit.set_flash_bytes((16 << 20) - 1, b"ab")
        assert host.control(0x40, 0xB2, 1, 0, words(3, 0x30000)) == 8
        assert host.control(0xC0, 0xB2, 0, 0, size=3) == b"\1\2\3"
        with pytest.raises(IndexError, match="16 MiB"):
            kit.flash_bytes(16 << 20, 1)
        host.close()


def test_a_chip_stores_what_is_written_and_answers_reads(vorna):
    with vorna.emulation.plug_virtual_dev_kit() as kit:
        host = Host(kit)
        credit = int.from_bytes(host.bulk(0x81, size=1024)[:4], "little")
        assert credit > 1000
        write = [0x03034203, 13 << 22 | 2 << 16 | 0xAB]  # module 2, extension 3: one register
        read = [0x04014201, 13 << 6 | 2]                 # module 2, extension 4: the same one
        assert host.bulk(0x01, block(*write, *read)) == 1024
        answer = host.bulk(0x81, size=1024)
        assert answer[4:12] == words(0x08034203, 13 << 22 | 2 << 16 | 0xAB)
        assert kit.chip().register_value(13, 2) == 0xAB
        counters = kit.counters()
        assert (counters.packets_from_host, counters.packets_to_host, counters.problems) == (2, 1, 0)
        host.close()


def test_faults_come_as_they_are_injected(vorna):
    Fault, kinds = vorna.emulation.WireFault, vorna.emulation.FaultKind
    with vorna.emulation.plug_virtual_dev_kit() as kit:
        host = Host(kit)
        kit.inject_fault(Fault(kind=kinds.stall, endpoint=0x81, after=1, times=2))
        kit.inject_fault(Fault(kind=kinds.shortTransfer, endpoint=0x81, amount=12))
        results = [host.bulk(0x81, size=1024) for _ in range(5)]
        assert [r if isinstance(r, int) else len(r) for r in results] == [1024, STALL, STALL, 12, 1024]
        assert kit.fault_count() == 3
        kit.inject_fault(kind=kinds.stall, endpoint=0)
        kit.clear_faults()
        assert host.control(0x40, 0xC3, 1) == 0
        with pytest.raises(ValueError, match="endpoint"):
            kit.inject_fault(Fault(kind=kinds.stall, endpoint=0x82))
        kit.inject_fault(Fault(kind=kinds.unplug, endpoint=0x01))
        assert host.bulk(0x01, bytes(1024)) == NO_DEVICE
        host.close()
        kit.replug()
        host = Host(kit)
        assert host.control(0x40, 0xC3, 1) == 0 and kit.fpga_resets() == 2
        host.close()
        kit.set_kernel_faults(13, 0, 0, "")
        assert Host(kit).opened == ACCESS


def test_an_unplug_ends_a_read_that_waits(vorna):
    kit = vorna.emulation.plug_virtual_dev_kit()
    kit.inject_fault(kind=vorna.emulation.FaultKind.drop, endpoint=0x81, times=4_000_000_000)
    host = Host(kit)
    results = []
    reader = threading.Thread(target=lambda: results.append(host.usb.libusb_bulk_transfer(
        host.handle, ctypes.c_ubyte(0x81), ctypes.create_string_buffer(1024), 1024, None, 0)))
    reader.start()
    kit.unplug()
    reader.join(20)
    assert results == [NO_DEVICE]
    host.close()


def test_every_member_and_function_has_a_text(vorna):
    for cls in (vorna.emulation.VirtualBoard, vorna.emulation.VirtualDevKit, vorna.emulation.VirtualOpalKelly,
                vorna.emulation.MemoryChip, vorna.emulation.BoardCounters, vorna.emulation.WireFault, vorna.emulation.DevKitOptions,
                vorna.emulation.OpalKellyOptions):
        assert cls.__doc__
        for name, member in vars(cls).items():
            if not name.startswith("_"):
                assert member.__doc__, (cls, name)


def test_a_process_may_end_with_boards_plugged_in(vorna):
    ended = run_script(HOST + '''
import vorna
kit = vorna.emulation.plug_virtual_dev_kit()
vorna.emulation.plug_virtual_opal_kelly()
host = Host(kit)
print(len(host.bulk(0x81, size=1024)))
''')
    assert (ended.returncode, ended.stdout.splitlines()[-1], ended.stderr) == (0, "1024", "")
