#pragma once
// Access to a USB device for everything but cameras: four blocking calls over libusb's asynchronous transfers.
//
//   usb::LibUSBDevice device(bus, address);
//   std::vector<std::uint8_t> block(1024);
//   const int moved = device.bulkRead(0x81, block.begin(), block.end(), 2000);
//
// A call waits on a promise that the object's event thread fulfils. A time-out never reaches the caller: the timeout is
// the time after which the transfer is submitted anew, so a call returns only when data have moved or the transfer has
// failed. What moved before a time-out, a part of a longer transfer, is lost with it.
//
// What a call returns:
//   >= 0   bytes moved
//   -1     the transfer failed (stall, bus error, device unplugged), or the object is being destroyed
//   other  libusb's code of a transfer that couldn't be submitted: -4 (LIBUSB_ERROR_NO_DEVICE) after an unplug, -2
//          (LIBUSB_ERROR_INVALID_PARAM) for a range that is too long
// So test for a negative value, not for -1 alone.

#include <atomic>
#include <cstdint>
#include <iterator>
#include <memory>
#include <span>
#include <thread>

#include "usb/SetupPacket.h"

struct libusb_context;
struct libusb_device_handle;
struct libusb_transfer;

namespace usb {

/// Threads: thread-safe, each call with a transfer of its own; calls of one direction and endpoint reach the device in
/// the order of their submission. One thread destroys the object; calls that then wait in other threads return -1
/// first, but none may begin any more.
///
/// The event thread is started by the constructor and joined by the destructor; it runs libusb's event loop of this
/// object's own context and so the callbacks. The mutex (in Calls) guards the list of transfers, the submission and the
/// freeing of each and the mark that the object closes. It is never held while a thread waits for a transfer. The event
/// thread takes it inside libusb's event lock; holding it we submit, cancel and free, which don't take that lock.
class LibUSBDevice {
public:
    /// Opens the device, takes interface 0 from a kernel driver if one has it, and claims it.
    /// @throws std::runtime_error "Failed to initialize LibUSB context", "No devices", "Device not found",
    ///         "libusb_open returned error -12 opening device" (with libusb's code; behind that of a -3, no permission,
    ///         follow the device's ids and the udev rule that helps), "Error claiming interface"
    LibUSBDevice(std::uint16_t busNumber, std::uint16_t deviceAddress);
    LibUSBDevice(const LibUSBDevice&) = delete;
    LibUSBDevice& operator=(const LibUSBDevice&) = delete;
    virtual ~LibUSBDevice();

    /// Sends `setup` and reads what the device answers; at most 4096 bytes.
    /// @param timeoutMs  milliseconds after which the transfer is renewed; 0 or less: never
    int controlRead(USBSetupPacket setup, std::span<std::uint8_t> data, int timeoutMs);

    /// Sends `setup` and the data, at most 4096 bytes.
    int controlWrite(USBSetupPacket setup, std::span<const std::uint8_t> data, int timeoutMs);

    /// Reads into `data` itself, without a copy. Nothing writes there any more once the call has returned.
    int bulkRead(std::uint8_t endpoint, std::span<std::uint8_t> data, int timeoutMs);

    int bulkWrite(std::uint8_t endpoint, std::span<const std::uint8_t> data, int timeoutMs);

    // The same four over iterators into bytes.
    template <std::contiguous_iterator Iterator>
    int controlRead(USBSetupPacket setup, Iterator first, Iterator last, int timeoutMs)
    {
        return controlRead(setup, std::span<std::uint8_t>(first, last), timeoutMs);
    }
    template <std::contiguous_iterator Iterator>
    int controlWrite(USBSetupPacket setup, Iterator first, Iterator last, int timeoutMs)
    {
        return controlWrite(setup, std::span<const std::uint8_t>(first, last), timeoutMs);
    }
    template <std::contiguous_iterator Iterator>
    int bulkRead(std::uint8_t endpoint, Iterator first, Iterator last, int timeoutMs)
    {
        return bulkRead(endpoint, std::span<std::uint8_t>(first, last), timeoutMs);
    }
    template <std::contiguous_iterator Iterator>
    int bulkWrite(std::uint8_t endpoint, Iterator first, Iterator last, int timeoutMs)
    {
        return bulkWrite(endpoint, std::span<const std::uint8_t>(first, last), timeoutMs);
    }

    class Calls; // defined in the source file

private:
    void initializeUSB(std::uint16_t busNumber, std::uint16_t deviceAddress);

    std::thread eventThread;
    std::atomic<bool> running = false;
    libusb_context* context = nullptr;
    libusb_device_handle* handle = nullptr;
    std::atomic<bool> claimed = false;
    std::unique_ptr<Calls> calls;
};

/// The event thread's body: handles the context's events while `running` is true.
void eventThreadFunc(libusb_context* context, const std::atomic<bool>& running);

// What libusb calls, on the event thread, at the end of a transfer. The transfer's user data is the call it belongs to.
extern "C" {
void blockingControlReadCallback(libusb_transfer* transfer);
void blockingBulkReadCallback(libusb_transfer* transfer);
void blockingWriteCallback(libusb_transfer* transfer);
}

} // namespace usb
