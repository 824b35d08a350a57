#pragma once
// What the tests of the USB door share: an emulated device that is plugged in, and the submissions that reach it.

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <numeric>
#include <string>
#include <vector>

#include "emulation/attach/Attach.h"
#include "emulation/boards/LoopbackDevice.h"
#include "usb/LibUSBDevice.h"

namespace usb_tests {

using Bytes = std::vector<std::uint8_t>;
using emulation::LoopbackDevice;

inline constexpr std::uint8_t in = LoopbackDevice::readEndpoint;
inline constexpr std::uint8_t out = LoopbackDevice::writeEndpoint;
inline constexpr std::uint8_t control = 0;

inline Bytes pattern(std::size_t size, int seed = 1)
{
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<std::uint8_t>(i * 7 + i / 251 + static_cast<std::size_t>(seed));
    return bytes;
}

inline usb::USBSetupPacket memoryWrite(std::uint16_t at) { return {0x40, LoopbackDevice::memoryRequest, at, 0, 0}; }
inline usb::USBSetupPacket memoryRead(std::uint16_t at) { return {0xC0, LoopbackDevice::memoryRequest, at, 0, 0}; }

/// Counts submissions of each endpoint and lets tests wait for them; may also refuse them.
class Submissions {
public:
    /// As the port's fault: the errno that the submission is to fail with, by the count of those before it.
    std::function<int(std::uint8_t endpoint)> asFault(std::function<int(int before)> refuse = {})
    {
        return [this, refuse = std::move(refuse)](std::uint8_t endpoint) {
            const std::lock_guard lock(mutex);
            const int before = counts[endpoint]++;
            changed.notify_all();
            return refuse ? refuse(before) : 0;
        };
    }
    void waitFor(std::uint8_t endpoint, int count)
    {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return counts[endpoint] >= count; });
    }
    int count(std::uint8_t endpoint)
    {
        const std::lock_guard lock(mutex);
        return counts[endpoint];
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    std::map<std::uint8_t, int> counts;
};

struct Plugged {
    explicit Plugged(const std::string& serial = "A1")
        : device(std::make_shared<LoopbackDevice>(serial)), handle(emulation::plug(device))
    {
        handle.setFaults({.submit = submissions.asFault()});
    }
    std::unique_ptr<usb::LibUSBDevice> open() const
    {
        return std::make_unique<usb::LibUSBDevice>(static_cast<std::uint16_t>(handle.bus()),
                                                   static_cast<std::uint16_t>(handle.address()));
    }

    Submissions submissions; // outlives the handle, which refers to it
    std::shared_ptr<LoopbackDevice> device;
    emulation::PluggedDevice handle;
};

/// One of the door's four calls, so that a test can be made of all.
struct Call {
    const char* name;
    std::uint8_t endpoint; // as the device counts: 0 for control requests
    int (*run)(usb::LibUSBDevice& door, Bytes& bytes, int timeoutMs);
};

inline const std::vector<Call>& allCalls()
{
    static const std::vector<Call> calls{
        {"controlRead", control,
         [](usb::LibUSBDevice& door, Bytes& bytes, int timeoutMs) {
             return door.controlRead(memoryRead(0), bytes.begin(), bytes.end(), timeoutMs);
         }},
        {"controlWrite", control,
         [](usb::LibUSBDevice& door, Bytes& bytes, int timeoutMs) {
             return door.controlWrite(memoryWrite(0), bytes.cbegin(), bytes.cend(), timeoutMs);
         }},
        {"bulkRead", in,
         [](usb::LibUSBDevice& door, Bytes& bytes, int timeoutMs) {
             return door.bulkRead(in, bytes.begin(), bytes.end(), timeoutMs);
         }},
        {"bulkWrite", out,
         [](usb::LibUSBDevice& door, Bytes& bytes, int timeoutMs) {
             return door.bulkWrite(out, bytes.cbegin(), bytes.cend(), timeoutMs);
         }},
    };
    return calls;
}

} // namespace usb_tests
