#pragma once
// Faults of the wire, on demand: a device around another one, which lets some transfers go wrong.

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "emulation/usb/Delay.h"
#include "emulation/usb/Device.h"
#include "trovi/Reflect.h"

namespace emulation {

enum class FaultKind : std::uint8_t {
    drop,          ///< what the host writes never arrives, though it is told so; what it reads is lost, and it waits on
    delay,         ///< the transfer begins `amount` microseconds late
    shortTransfer, ///< no more than `amount` bytes are carried; what a read leaves is lost
    stall,         ///< the transfer ends with a stall
    corrupt,       ///< the bits of the byte at `amount`, counted from the transfer's beginning, are turned over
    unplug,        ///< the device is pulled out: this transfer ends so, and all after it until plugIn()
};

/// One fault. Those of one endpoint come one after another: a fault begins with the transfer after the last of the
/// fault before.
struct WireFault {
    FaultKind kind = FaultKind::stall;
    std::uint8_t endpoint = 0;
    std::uint32_t after = 0;
    std::uint32_t times = 1;
    std::uint32_t amount = 0;

    friend bool operator==(const WireFault&, const WireFault&) = default;
};

/// Carries transfers to and from `inner`, which works as if nothing were between it and the host.
///
/// Threads: thread-safe; `mutex` guards the faults, and nothing is called with it held.
class FaultyWire final : public Device {
public:
    /// @param unplugger  takes the device off the bus; called inside a transfer, so it must leave that to another
    /// thread
    explicit FaultyWire(std::shared_ptr<Device> innerDevice, std::function<void()> unplugger = {});
    ~FaultyWire() override;

    void add(const WireFault& fault);
    void clear();
    /// Ends what an unplug has begun; a delay that was under way begins anew.
    void plugIn();
    bool isGone() const;                ///< between an unplug and plugIn()
    std::uint64_t appliedCount() const; ///< transfers that went wrong

    std::uint16_t vendorId() const override { return inner->vendorId(); }
    std::uint16_t productId() const override { return inner->productId(); }
    std::string text(int index) const override { return inner->text(index); }
    std::vector<std::uint8_t> endpoints() const override { return inner->endpoints(); }
    int controlTransfer(const Setup& setup, std::span<std::uint8_t> data) override;
    int bulkOut(std::uint8_t endpoint, std::span<const std::uint8_t> data) override;
    int bulkIn(std::uint8_t endpoint, std::span<std::uint8_t> data) override;
    std::optional<std::chrono::steady_clock::time_point> pollAfter() const override;
    void cancelled(std::uint8_t endpoint) override;

private:
    struct Queue {
        std::deque<WireFault> faults;
        Delay delay; // of the fault at the front
    };

    std::optional<WireFault> current(std::uint8_t endpoint) const;
    void goAway();
    bool mustWait(const WireFault& fault);
    void done(std::uint8_t endpoint, bool faulty);
    int carry(std::uint8_t endpoint, bool reads, std::span<std::uint8_t> data,
              const std::function<int(std::span<std::uint8_t>)>& transfer);

    const std::shared_ptr<Device> inner;
    const std::function<void()> unplug;
    mutable std::mutex mutex;
    std::map<std::uint8_t, Queue> queues;
    std::uint64_t applied = 0;
    bool gone = false;
};

} // namespace emulation

template <>
constexpr auto trovi::registerMembers<emulation::WireFault>()
{
    using emulation::WireFault;
    return members(
        member("kind", &WireFault::kind, "what goes wrong"),
        member("endpoint", &WireFault::endpoint, "the endpoint's address, e.g. 0x81; 0 for control requests"),
        member("after", &WireFault::after, "transfers that go well before"),
        member("times", &WireFault::times, "transfers that go wrong, 1 or more"),
        member("amount", &WireFault::amount,
               "delay: microseconds; shortTransfer: bytes that are carried; corrupt: the byte's place"));
}

template <>
constexpr const char* trovi::registerDoc<emulation::WireFault>()
{
    return "A fault of the wire between host and board.\n"
           "drop: what the host writes is lost on the way, what it reads too, and it waits on;\n"
           "delay: the transfer comes late; shortTransfer: only its beginning is carried; stall: it ends with a "
           "stall;\n"
           "corrupt: the bits of one of its bytes are turned over; unplug: the board is pulled out during it.";
}
