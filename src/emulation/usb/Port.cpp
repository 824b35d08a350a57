#include "emulation/usb/Port.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/usbdevice_fs.h>
#include <optional>
#include <set>
#include <span>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

#include "emulation/usb/Descriptors.h"
#include "util/LittleEndian.h"
#include "util/SignalBlock.h"

namespace emulation {
namespace {

constexpr std::size_t setupSize = 8;
constexpr int onePage = 4096; // the smallest pipe: one slot, full with one byte in it
constexpr int highSpeed = 3;  // USB_SPEED_HIGH

bool isControl(const usbdevfs_urb& urb) { return urb.type == USBDEVFS_URB_TYPE_CONTROL; }

// Control requests queue on endpoint 0, whatever the direction.
std::uint8_t queueOf(const usbdevfs_urb& urb) { return isControl(urb) ? std::uint8_t{0} : urb.endpoint; }

Setup readSetup(std::span<const std::uint8_t> bytes)
{
    const auto number = [&](std::size_t at) { return util::readLittleEndian<std::uint16_t>(bytes, at); };
    return {bytes[0], bytes[1], number(2), number(4), number(6)};
}

// A pipe that is read or written for its effect on poll(); one byte always fits, or is there to be taken.
void moveOneByte(int readEnd, int writeEnd, bool out)
{
    char byte = 0;
    [[maybe_unused]] const ssize_t moved = out ? ::read(readEnd, &byte, 1) : ::write(writeEnd, &byte, 1);
}

} // namespace

Port::Port(std::shared_ptr<Device> pluggedDevice, int deviceAddress)
    : address(deviceAddress), descriptorBytes(descriptors(*pluggedDevice)), device(std::move(pluggedDevice)),
      endpoints(device->endpoints())
{
    device->setWaker([this] { wakeWorker(); });
    const util::SignalBlock signals; // signals are for the program's own threads
    worker = std::thread([this] { work(); });
}

Port::~Port()
{
    if (plugged) // else it may be in another port by now
        device->setWaker({});
    {
        const util::Lock lock(workerMutex);
        stopping = true;
    }
    workerWoken.notifyOne();
    worker.join();
    for (const auto& [descriptor, file] : files) {
        if (file.readEnd >= 0)
            ::close(file.readEnd);
        ::close(descriptor);
    }
}

void Port::setFaults(Faults newFaults)
{
    const util::Lock lock(mutex);
    faults = std::move(newFaults);
}

int Port::open()
{
    const util::Lock lock(mutex);
    if (!plugged)
        return -ENOENT;
    if (faults.open != 0)
        return -faults.open;
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0)
        return -errno;
    ::fcntl(ends[1], F_SETPIPE_SZ, onePage);
    moveOneByte(ends[0], ends[1], false);
    files.emplace(ends[1], File{ends[0], false, {}});
    return ends[1];
}

void Port::close(int descriptor)
{
    const util::Lock lock(mutex);
    const auto found = files.find(descriptor);
    if (found == files.end())
        return;
    takeOut([&](const Request& request) { return request.file == descriptor; });
    std::erase_if(claims, [&](const auto& entry) { return entry.second == descriptor; });
    if (found->second.readEnd >= 0)
        ::close(found->second.readEnd);
    files.erase(found);
    ::close(descriptor);
}

void Port::unplug()
{
    const util::Lock lock(mutex);
    if (!std::exchange(plugged, false))
        return;
    for (const Request& request : takeOut([](const Request&) { return true; }))
        finish(request, -ESHUTDOWN);
    for (auto& [descriptor, file] : files) {
        ::close(file.readEnd);
        file.readEnd = -1;
    }
    device->setWaker({});
}

bool Port::carries(const Device& other) const { return device.get() == &other; }

int Port::ioctl(int descriptor, unsigned long request, void* argument)
{
    const util::Lock lock(mutex);
    const auto found = files.find(descriptor);
    if (found == files.end())
        return -EBADF;
    if (request == USBDEVFS_REAPURBNDELAY)
        return reap(descriptor, found->second, argument);
    if (!plugged)
        return -ENODEV;
    switch (request) {
    case USBDEVFS_GET_CAPABILITIES:
        // of any length in one request, and reaping goes on after an unplug
        *static_cast<std::uint32_t*>(argument) = USBDEVFS_CAP_ZERO_PACKET | USBDEVFS_CAP_BULK_SCATTER_GATHER |
                                                 USBDEVFS_CAP_NO_PACKET_SIZE_LIM | USBDEVFS_CAP_REAP_AFTER_DISCONNECT;
        return 0;
    case USBDEVFS_SUBMITURB:
        return submit(descriptor, static_cast<usbdevfs_urb*>(argument));
    case USBDEVFS_DISCARDURB:
        return discard(argument);
    case USBDEVFS_CLAIMINTERFACE:
        return claim(descriptor, *static_cast<unsigned*>(argument));
    case USBDEVFS_RELEASEINTERFACE:
        claims.erase(*static_cast<unsigned*>(argument));
        return 0;
    case USBDEVFS_GETDRIVER:
        return driverName(argument);
    case USBDEVFS_IOCTL:
        return detachDriver(argument);
    case USBDEVFS_GET_SPEED:
        return highSpeed;
    case USBDEVFS_SETCONFIGURATION:
    case USBDEVFS_SETINTERFACE:
    case USBDEVFS_CLEAR_HALT:
    case USBDEVFS_RESETEP:
    case USBDEVFS_RESET:
        return 0;
    default:
        return -ENOTTY;
    }
}

int Port::reap(int descriptor, File& file, void* argument)
{
    if (file.finished.empty())
        return plugged ? -EAGAIN : -ENODEV;
    *static_cast<usbdevfs_urb**>(argument) = file.finished.front();
    file.finished.pop_front();
    showWhetherWritable(descriptor, file);
    return 0;
}

int Port::claim(int descriptor, unsigned interfaceNumber)
{
    if (interfaceNumber != 0)
        return -ENOENT;
    if (faults.claim != 0)
        return -faults.claim;
    if (!faults.kernelDriver.empty())
        return -EBUSY;
    return claims.try_emplace(interfaceNumber, descriptor).first->second == descriptor ? 0 : -EBUSY;
}

int Port::driverName(void* argument) const
{
    auto& answer = *static_cast<usbdevfs_getdriver*>(argument);
    std::string name = faults.kernelDriver;
    if (name.empty() && claims.contains(answer.interface))
        name = "usbfs";
    if (name.empty())
        return -ENODATA;
    name.resize(sizeof answer.driver - 1);
    std::memcpy(answer.driver, name.c_str(), sizeof answer.driver);
    return 0;
}

int Port::detachDriver(const void* argument)
{
    if (static_cast<const usbdevfs_ioctl*>(argument)->ioctl_code != USBDEVFS_DISCONNECT || faults.kernelDriver.empty())
        return -ENODATA;
    faults.kernelDriver.clear();
    return 0;
}

int Port::checkSubmission(int descriptor, const usbdevfs_urb& urb) const
{
    if (faults.submit)
        if (const int code = faults.submit(queueOf(urb)); code != 0)
            return -code;
    if (urb.buffer_length < (isControl(urb) ? static_cast<int>(setupSize) : 0))
        return -EINVAL;
    if (isControl(urb))
        return 0;
    if (urb.type != USBDEVFS_URB_TYPE_BULK && urb.type != USBDEVFS_URB_TYPE_INTERRUPT)
        return -EINVAL; // isochronous transfers aren't emulated
    if (std::find(endpoints.begin(), endpoints.end(), urb.endpoint) == endpoints.end())
        return -ENOENT;
    const auto owner = claims.find(0);
    return owner != claims.end() && owner->second != descriptor ? -EBUSY : 0;
}

int Port::submit(int descriptor, usbdevfs_urb* urb)
{
    if (const int code = checkSubmission(descriptor, *urb); code != 0)
        return code;
    requests.push_back({descriptor, urb});
    tryPending();
    if (!requests.empty() && device->pollAfter())
        wakeWorker(); // which may be asleep for longer, or for good
    return 0;
}

int Port::discard(const void* urb)
{
    const auto taken = takeOut([&](const Request& request) { return request.urb == urb; });
    if (taken.empty())
        return -EINVAL;
    finish(taken.front(), -ENOENT);
    return 0;
}

// Removes requests that end unanswered. The device is notified of those that it was asked for, the first of each queue;
// the worker then asks for the next.
std::vector<Port::Request> Port::takeOut(const std::function<bool(const Request&)>& which)
{
    std::vector<Request> taken;
    std::set<std::uint8_t> queues; // whose first request has been passed
    for (auto i = requests.begin(); i != requests.end();) {
        const std::uint8_t queue = queueOf(*i->urb);
        const bool asked = queues.insert(queue).second;
        if (!which(*i)) {
            ++i;
            continue;
        }
        if (asked)
            device->cancelled(queue);
        taken.push_back(*i);
        i = requests.erase(i);
    }
    if (!taken.empty() && !requests.empty())
        wakeWorker();
    return taken;
}

void Port::tryPending()
{
    {
        const util::Lock lock(workerMutex);
        trying = true;
        woken = false;
    }
    do
        tryPendingOnce();
    while (wokenMeanwhile());
}

void Port::tryPendingOnce()
{
    std::set<std::uint8_t> blocked; // a pending request holds back the later ones of its endpoint, and no others
    for (auto i = requests.begin(); i != requests.end();) {
        const std::uint8_t queue = queueOf(*i->urb);
        const int result = blocked.contains(queue) ? pending : attempt(*i->urb);
        if (result == pending) {
            blocked.insert(queue);
            ++i;
        } else {
            finish(*i, result);
            i = requests.erase(i);
        }
    }
}

int Port::attempt(const usbdevfs_urb& urb)
{
    const std::span bytes(static_cast<std::uint8_t*>(urb.buffer), static_cast<std::size_t>(urb.buffer_length));
    try {
        const int result = ask(urb, bytes);
        return result > urb.buffer_length ? -EOVERFLOW : result;
    } catch (...) { // libusb's C code is above us, or nothing is
        return -EPROTO;
    }
}

int Port::ask(const usbdevfs_urb& urb, std::span<std::uint8_t> bytes)
{
    if (!isControl(urb))
        return (urb.endpoint & 0x80) != 0 ? device->bulkIn(urb.endpoint, bytes) : device->bulkOut(urb.endpoint, bytes);
    const Setup setup = readSetup(bytes);
    const auto data = bytes.subspan(setupSize);
    const bool standard = (setup.bmRequestType & 0x60) == 0;
    return standard ? standardRequest(*device, setup, data) : device->controlTransfer(setup, data);
}

void Port::finish(const Request& request, int result)
{
    request.urb->status = std::min(result, 0);
    request.urb->actual_length = std::max(result, 0);
    File& file = files.at(request.file);
    file.finished.push_back(request.urb);
    showWhetherWritable(request.file, file);
}

void Port::showWhetherWritable(int descriptor, File& file)
{
    const bool writable = !file.finished.empty();
    if (file.readEnd < 0 || file.writable == writable)
        return;
    file.writable = writable;
    moveOneByte(file.readEnd, descriptor, writable);
}

void Port::work()
{
    for (;;) {
        std::optional<std::chrono::steady_clock::time_point> deadline;
        {
            const util::Lock lock(mutex);
            tryPending();
            if (!requests.empty())
                deadline = device->pollAfter();
        }
        const util::Lock lock(workerMutex);
        while (!woken && !stopping) {
            if (!deadline)
                workerWoken.wait(workerMutex);
            else if (workerWoken.waitUntil(workerMutex, *deadline) == std::cv_status::timeout)
                break;
        }
        if (stopping)
            return;
        woken = false;
    }
}

void Port::wakeWorker()
{
    const util::Lock lock(workerMutex);
    woken = true;
    if (!trying)
        workerWoken.notifyOne();
}

bool Port::wokenMeanwhile()
{
    const util::Lock lock(workerMutex);
    trying = std::exchange(woken, false);
    return trying;
}

} // namespace emulation
