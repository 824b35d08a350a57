#pragma once
// A device around another one that lets some transfers go wrong, on demand.

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "emulation/boards/WireFault.h"
#include "emulation/usb/Delay.h"
#include "emulation/usb/Device.h"
#include "util/Mutex.h"

namespace emulation {

/// Carries transfers to and from `inner`, which works as if nothing were between it and the host.
///
/// Threads: thread-safe.
class FaultyWire final : public Device {
public:
    /// @param unplugger  takes the device off the bus; called inside a transfer, so it must leave that to
    ///                   another thread
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
    mutable util::Mutex mutex; // inner to the port's; nothing is called while it is held
    std::map<std::uint8_t, Queue> queues VORNA_GUARDED_BY(mutex); // by endpoint
    std::uint64_t applied VORNA_GUARDED_BY(mutex) = 0;
    bool gone VORNA_GUARDED_BY(mutex) = false;
};

} // namespace emulation
