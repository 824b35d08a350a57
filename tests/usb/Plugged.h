#pragma once
// Emulated devices that are plugged in, for all tests that open one.

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
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

inline Bytes slice(const Bytes& bytes, std::size_t from, std::size_t size)
{
    const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(from);
    return {begin, begin + static_cast<std::ptrdiff_t>(size)};
}

inline std::unique_ptr<usb::LibUSBDevice> openAt(int bus, int address)
{
    return std::make_unique<usb::LibUSBDevice>(static_cast<std::uint16_t>(bus), static_cast<std::uint16_t>(address));
}

/// A device or board, plugged in for as long as this lives.
template <class Board>
struct Plugged {
    template <class... Arguments>
    explicit Plugged(Arguments&&... arguments)
        : board(std::make_shared<Board>(std::forward<Arguments>(arguments)...)), handle(emulation::plug(board))
    {}
    std::unique_ptr<usb::LibUSBDevice> open() const { return openAt(handle.bus(), handle.address()); }

    std::shared_ptr<Board> board;
    emulation::PluggedDevice handle;
};

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

/// A loop-back device that counts its submissions.
struct PluggedLoop {
    explicit PluggedLoop(const std::string& serial = "A1") : plugged(serial)
    {
        plugged.handle.setFaults({.submit = submissions.asFault()});
    }
    std::unique_ptr<usb::LibUSBDevice> open() const { return plugged.open(); }
    int address() const { return plugged.handle.address(); }

    Submissions submissions; // outlives the handle, which refers to it
    Plugged<LoopbackDevice> plugged;
    LoopbackDevice& device = *plugged.board;
    emulation::PluggedDevice& handle = plugged.handle;
};

inline usb::USBSetupPacket memoryWrite(std::uint16_t at) { return {0x40, LoopbackDevice::memoryRequest, at, 0, 0}; }
inline usb::USBSetupPacket memoryRead(std::uint16_t at) { return {0xC0, LoopbackDevice::memoryRequest, at, 0, 0}; }

/// One of the four calls of usb::LibUSBDevice, so that one test covers them all.
struct Call {
    const char* name;
    std::uint8_t endpoint; // as the device counts: 0 for control requests
    int (*run)(usb::LibUSBDevice& door, Bytes& bytes, int timeoutMs);
};

inline constexpr Call allCalls[] = {
    {"controlRead", control,
     [](auto& door, Bytes& bytes, int ms) { return door.controlRead(memoryRead(0), bytes.begin(), bytes.end(), ms); }},
    {"controlWrite", control,
     [](auto& door, Bytes& bytes, int ms) {
         return door.controlWrite(memoryWrite(0), bytes.cbegin(), bytes.cend(), ms);
     }},
    {"bulkRead", in,
     [](auto& door, Bytes& bytes, int ms) { return door.bulkRead(in, bytes.begin(), bytes.end(), ms); }},
    {"bulkWrite", out,
     [](auto& door, Bytes& bytes, int ms) { return door.bulkWrite(out, bytes.cbegin(), bytes.cend(), ms); }},
};

} // namespace usb_tests
