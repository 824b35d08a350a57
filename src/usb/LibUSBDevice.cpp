#include "usb/LibUSBDevice.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <future>
#include <list>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <libusb-1.0/libusb.h>

#include "usb/DeviceList.h"
#include "usb/Ids.h"
#include "util/LittleEndian.h"
#include "util/Mutex.h"

namespace usb {
namespace {

constexpr int interfaceNumber = 0;
constexpr int failed = -1;
constexpr std::size_t setupSize = LIBUSB_CONTROL_SETUP_SIZE;

struct FreeTransfer {
    void operator()(libusb_transfer* transfer) const
    {
        transfer->dev_handle = nullptr; // libusb_free_transfer reads it, and it may be closed by now
        libusb_free_transfer(transfer);
    }
};

// One blocking call under way: what libusb and the waiting thread share.
struct Call {
    LibUSBDevice::Calls& owner;
    std::promise<int> result;
    std::vector<std::uint8_t> buffer; // setup and data of a control transfer, a bulk write's copy; else empty
    std::unique_ptr<libusb_transfer, FreeTransfer> transfer;
    std::list<Call>::iterator position;

    Call(LibUSBDevice::Calls& calls, std::vector<std::uint8_t> bytes)
        : owner(calls), buffer(std::move(bytes)), transfer(libusb_alloc_transfer(0))
    {}
};

// A call that isn't submitted yet, in the list node that it keeps for life.
std::list<Call> prepare(LibUSBDevice::Calls& owner, std::vector<std::uint8_t> buffer)
{
    std::list<Call> single;
    single.emplace_back(owner, std::move(buffer));
    single.front().position = single.begin();
    return single;
}

} // namespace

/// The transfers of one device. Each is in `underWay` from its submission until it is cleaned up, by the
/// callback or, for a control read, the waiting thread. libusb's part of it is freed with the mutex held: a submitted
/// transfer refers to libusb's context, which the closing thread releases as soon as the list is empty.
class LibUSBDevice::Calls {
public:
    /// Hands the call to libusb. On failure it stays in `single`, without its transfer.
    int submit(std::list<Call>& single)
    {
        const util::Lock lock(mutex);
        if (closing)
            return failed;
        // in the list before libusb has it: the callback may run before the submission returns
        libusb_transfer* const transfer = single.front().transfer.get();
        underWay.splice(underWay.end(), single);
        const int code = libusb_submit_transfer(transfer);
        if (code != 0) {
            single.splice(single.end(), underWay, std::prev(underWay.end()));
            single.front().transfer.reset();
        }
        return code;
    }

    /// Submits a timed-out transfer once more.
    bool renew(Call& call)
    {
        const util::Lock lock(mutex);
        return !closing && libusb_submit_transfer(call.transfer.get()) == 0;
    }

    /// Frees a call that has ended.
    void remove(Call& call)
    {
        const util::Lock lock(mutex);
        underWay.erase(call.position);
        if (closing && underWay.empty())
            idle.notifyAll(); // with the lock held, since the closing thread destroys all this next
    }

    /// Ends every call with -1 and returns when no thread waits in one. The event thread must still run.
    void endAll()
    {
        const util::Lock lock(mutex);
        closing = true;
        for (Call& call : underWay)
            libusb_cancel_transfer(call.transfer.get()); // not found: its callback is about to run, and won't renew it
        while (!underWay.empty())
            idle.wait(mutex);
    }

private:
    util::Mutex mutex; // libusb's event lock is outer to it: the event thread holds that in a callback
    util::ConditionVariable idle;
    std::list<Call> underWay VORNA_GUARDED_BY(mutex);
    bool closing VORNA_GUARDED_BY(mutex) = false;
};

namespace {

enum class CleanUp { byCallback, byWaitingThread };

// By the time a callback runs, libusb has reaped every part of the transfer, also after a cancel or an unplug, and
// writes to its buffer no more: so a failed bulkRead may give the range back to its caller, and a board that stalls for
// hours costs no memory.
void finish(libusb_transfer* transfer, CleanUp cleanUp)
{
    Call& call = *static_cast<Call*>(transfer->user_data);
    if (transfer->status == LIBUSB_TRANSFER_TIMED_OUT && call.owner.renew(call))
        return;

    const int value = transfer->status == LIBUSB_TRANSFER_COMPLETED ? transfer->actual_length : failed;
    // The waiting thread may free the call as soon as it has the value, so the promise is held here.
    std::promise<int> result = std::move(call.result);
    if (cleanUp == CleanUp::byCallback)
        call.owner.remove(call);
    result.set_value(value);
}

unsigned toTimeout(int timeoutMs) { return static_cast<unsigned>(std::max(timeoutMs, 0)); }

std::vector<std::uint8_t> controlBuffer(const USBSetupPacket& setup, std::size_t length)
{
    std::vector<std::uint8_t> buffer(setupSize + length);
    buffer[0] = setup.bmRequestType;
    buffer[1] = setup.bRequest;
    util::writeLittleEndian(buffer, 2, setup.wValue);
    util::writeLittleEndian(buffer, 4, setup.wIndex);
    util::writeLittleEndian(buffer, 6, static_cast<std::uint16_t>(length));
    return buffer;
}

// What a transfer is made of, apart from its buffer.
struct Request {
    libusb_device_handle* handle;
    std::uint8_t endpoint;
    libusb_transfer_type type;
    int timeoutMs;
    libusb_transfer_cb_fn callback;
};

void fill(Call& call, const Request& request, std::span<std::uint8_t> bytes)
{
    libusb_transfer& transfer = *call.transfer;
    transfer.dev_handle = request.handle;
    transfer.endpoint = request.endpoint;
    transfer.type = static_cast<unsigned char>(request.type);
    transfer.timeout = toTimeout(request.timeoutMs);
    transfer.length = static_cast<int>(bytes.size());
    transfer.buffer = bytes.data();
    transfer.callback = request.callback;
    transfer.user_data = &call;
}

// Submits the one call in `single` and waits for its end. A call whose submission failed stays in `single`.
int submitAndWait(LibUSBDevice::Calls& calls, std::list<Call>& single, const Request& request,
                  std::span<std::uint8_t> bytes)
{
    Call& call = single.front();
    if (!call.transfer)
        return LIBUSB_ERROR_NO_MEM;
    if (bytes.size() > INT_MAX)
        return LIBUSB_ERROR_INVALID_PARAM;
    fill(call, request, bytes);
    std::future<int> result = call.result.get_future();
    const int code = calls.submit(single);
    return code != 0 ? code : result.get();
}

// Most often met on a new machine: USB devices belong to root until a rule says otherwise.
std::string explainAccess(libusb_device* device)
{
    libusb_device_descriptor descriptor{};
    libusb_get_device_descriptor(device, &descriptor);
    char text[640];
    std::snprintf(
        text, sizeof text,
        R"(: no permission for the USB device %04x:%04x at bus %d, address %d. Install the udev rules %s, by )"
        R"("sudo make install-udev" in vorna's folder or by writing the line SUBSYSTEM=="usb", )"
        R"(ATTR{idVendor}=="%04x", ATTR{idProduct}=="%04x", MODE="0660", TAG+="uaccess" to )"
        R"(/etc/udev/rules.d/%s; then plug the device in again)",
        unsigned{descriptor.idVendor}, unsigned{descriptor.idProduct}, int{libusb_get_bus_number(device)},
        int{libusb_get_device_address(device)}, udevRulesFile, unsigned{descriptor.idVendor},
        unsigned{descriptor.idProduct}, udevRulesFile);
    return text;
}

} // namespace

extern "C" {

void blockingControlReadCallback(libusb_transfer* transfer) { finish(transfer, CleanUp::byWaitingThread); }
void blockingBulkReadCallback(libusb_transfer* transfer) { finish(transfer, CleanUp::byCallback); }
void blockingWriteCallback(libusb_transfer* transfer) { finish(transfer, CleanUp::byCallback); }

} // extern "C"

void eventThreadFunc(libusb_context* context, const std::atomic<bool>& running)
{
    while (running.load())
        libusb_handle_events(context);
}

LibUSBDevice::LibUSBDevice(std::uint16_t busNumber, std::uint16_t deviceAddress) : calls(std::make_unique<Calls>())
{
    initializeUSB(busNumber, deviceAddress);
    running = true;
    try {
        eventThread = std::thread(eventThreadFunc, context, std::cref(running));
    } catch (...) { // no thread to be had
        libusb_close(handle);
        libusb_exit(context);
        throw;
    }
}

LibUSBDevice::~LibUSBDevice()
{
    calls->endAll();
    running = false;
    libusb_close(handle);
    // If the event thread has read the flag but isn't in libusb yet, the close has used up its own wake-up, and the
    // thread would sleep for libusb's 60 seconds. This one stays pending until it is seen.
    libusb_interrupt_event_handler(context);
    eventThread.join();
    libusb_exit(context);
}

void LibUSBDevice::initializeUSB(std::uint16_t busNumber, std::uint16_t deviceAddress)
{
    if (libusb_init(&context) != 0)
        throw std::runtime_error("Failed to initialize LibUSB context");

    libusb_device** list = nullptr;
    const ssize_t count = libusb_get_device_list(context, &list);
    if (count < 0) {
        libusb_exit(context);
        throw std::runtime_error("No devices");
    }
    libusb_device* const device = findDeviceInList(busNumber, deviceAddress, list, count);
    if (device == nullptr) {
        libusb_free_device_list(list, 1);
        libusb_exit(context);
        throw std::runtime_error("Device not found");
    }
    const int code = libusb_open(device, &handle);
    const std::string remedy = code == LIBUSB_ERROR_ACCESS ? explainAccess(device) : std::string();
    libusb_free_device_list(list, 1);
    if (code != 0) {
        libusb_exit(context);
        throw std::runtime_error("libusb_open returned error " + std::to_string(code) + " opening device" + remedy);
    }
    if (libusb_kernel_driver_active(handle, interfaceNumber) == 1)
        libusb_detach_kernel_driver(handle, interfaceNumber);
    if (libusb_claim_interface(handle, interfaceNumber) < 0) {
        libusb_close(handle);
        libusb_exit(context);
        throw std::runtime_error("Error claiming interface");
    }
    claimed = true;
}

int LibUSBDevice::controlRead(USBSetupPacket setup, std::span<std::uint8_t> data, int timeoutMs)
{
    if (data.size() > UINT16_MAX)
        return LIBUSB_ERROR_INVALID_PARAM;
    std::list<Call> single = prepare(*calls, controlBuffer(setup, data.size()));
    Call& call = single.front();
    const int result = submitAndWait(
        *calls, single, {handle, 0, LIBUSB_TRANSFER_TYPE_CONTROL, timeoutMs, blockingControlReadCallback}, call.buffer);
    if (!single.empty()) // never submitted
        return result;
    if (result > 0)
        std::copy_n(call.buffer.begin() + setupSize, std::min(static_cast<std::size_t>(result), data.size()),
                    data.begin());
    calls->remove(call);
    return result;
}

int LibUSBDevice::controlWrite(USBSetupPacket setup, std::span<const std::uint8_t> data, int timeoutMs)
{
    if (data.size() > UINT16_MAX)
        return LIBUSB_ERROR_INVALID_PARAM;
    std::list<Call> single = prepare(*calls, controlBuffer(setup, data.size()));
    std::vector<std::uint8_t>& buffer = single.front().buffer;
    std::copy(data.begin(), data.end(), buffer.begin() + setupSize);
    return submitAndWait(*calls, single, {handle, 0, LIBUSB_TRANSFER_TYPE_CONTROL, timeoutMs, blockingWriteCallback},
                         buffer);
}

int LibUSBDevice::bulkRead(std::uint8_t endpoint, std::span<std::uint8_t> data, int timeoutMs)
{
    std::list<Call> single = prepare(*calls, {});
    return submitAndWait(*calls, single,
                         {handle, endpoint, LIBUSB_TRANSFER_TYPE_BULK, timeoutMs, blockingBulkReadCallback}, data);
}

int LibUSBDevice::bulkWrite(std::uint8_t endpoint, std::span<const std::uint8_t> data, int timeoutMs)
{
    std::list<Call> single = prepare(*calls, {data.begin(), data.end()});
    return submitAndWait(*calls, single,
                         {handle, endpoint, LIBUSB_TRANSFER_TYPE_BULK, timeoutMs, blockingWriteCallback},
                         single.front().buffer);
}

} // namespace usb
