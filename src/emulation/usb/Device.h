#pragma once
// What an emulated USB device does, apart from how a host reaches it: no libusb, no file descriptor, no thread in here.
// Tests may call a device directly; emulation::plug() puts it where libusb finds it.

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "util/Mutex.h"

namespace emulation {

/// The head of a control request, as it comes over the wire.
struct Setup {
    std::uint8_t bmRequestType = 0; ///< bit 7: the device answers with data
    std::uint8_t bRequest = 0;
    std::uint16_t wValue = 0;
    std::uint16_t wIndex = 0;
    std::uint16_t wLength = 0; ///< bytes of data

    friend bool operator==(const Setup&, const Setup&) = default;
};

/// The answer of a device that has none yet. The port asks again at pollAfter() and after each wake().
inline constexpr int pending = -100'000;

/// A device's answer to one attempt at a transfer: bytes moved, `pending`, or a negative errno as the kernel puts it
/// into a transfer's status (-EPIPE a stall, -EPROTO a bus error, -EOVERFLOW more data than the host asked for).
/// An exception out of a transfer counts as a bus error.
///
/// Threads: the port never lets two calls of one device overlap, but makes them on any thread, with a lock of its own
/// held: a call may not wait for the host. wake() is thread-safe; state that other threads change is the device's to
/// guard.
class Device {
public:
    Device() = default;
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;
    virtual ~Device() = default;

    virtual std::uint16_t vendorId() const = 0;
    virtual std::uint16_t productId() const = 0;

    /// @param index  1 manufacturer, 2 product, 3 serial number; at most 126 characters of ASCII, empty for none
    virtual std::string text(int index) const = 0;

    /// Addresses of the bulk endpoints of interface 0, bit 7 set for those that the host reads. Constant.
    virtual std::vector<std::uint8_t> endpoints() const = 0;

    /// A vendor or class request; standard requests don't come here. `data` holds what the host sends, or takes what
    /// the device answers.
    virtual int controlTransfer(const Setup& setup, std::span<std::uint8_t> data) = 0;
    virtual int bulkOut(std::uint8_t endpoint, std::span<const std::uint8_t> data) = 0;
    virtual int bulkIn(std::uint8_t endpoint, std::span<std::uint8_t> data) = 0;

    /// When to ask again a transfer that was answered `pending`, if time alone can finish it. Doesn't throw.
    virtual std::optional<std::chrono::steady_clock::time_point> pollAfter() const { return std::nullopt; }

    /// The host has given up the transfer of this endpoint (0: control requests) that was answered `pending`: nothing
    /// waits for its pollAfter() any more. Doesn't throw.
    virtual void cancelled(std::uint8_t /*endpoint*/) {}

    /// For the port: `newWaker` is called at each wake(); an empty one ends that.
    void setWaker(std::function<void()> newWaker);

protected:
    /// Says that a pending transfer may now be answered. May be called from inside a transfer.
    void wake();

private:
    util::Mutex wakerMutex; // inner to the port's mutex, outer to the one of its worker's wake-up
    std::function<void()> waker VORNA_GUARDED_BY(wakerMutex);
};

} // namespace emulation
