#pragma once
// A plain device for trying out access to USB: memory behind control requests, a loop from the bulk endpoint that the
// host writes to the one that it reads, and faults on demand.

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "emulation/usb/Delay.h"
#include "emulation/usb/Device.h"
#include "util/Mutex.h"

namespace emulation {

/// What the host sees: bytes written to `writeEndpoint` come back from `readEndpoint` in order, however they are cut; a
/// read waits until there are some and takes what there is, up to its length. The request `memoryRequest` writes (0x40)
/// or reads (0xC0) memory from wValue on; other requests, and those beyond the memory's end, stall.
///
/// What a test does, from any thread: the functions below. An `endpoint` of 0 means control requests.
class LoopbackDevice final : public Device {
public:
    static constexpr std::uint16_t defaultVendorId = 0x1209; // pid.codes, whose product 1 is free for tests
    static constexpr std::uint16_t defaultProductId = 0x0001;
    static constexpr std::uint8_t writeEndpoint = 0x01;
    static constexpr std::uint8_t readEndpoint = 0x81;
    static constexpr std::uint8_t memoryRequest = 0xA0;
    static constexpr std::size_t memorySize = 65536;

    struct Counters {
        std::uint64_t transfers = 0; ///< answered, faults not counted
        std::uint64_t bytes = 0;     ///< moved by these
        std::uint64_t faults = 0;    ///< ended by a negative answer
    };

    explicit LoopbackDevice(std::string serialNumber, std::uint16_t vendor = defaultVendorId,
                            std::uint16_t product = defaultProductId);

    /// The next `times` transfers of the endpoint end with `result`: a negative errno, or that many bytes, zeros when
    /// the host reads.
    void answerNext(std::uint8_t endpoint, int result, int times = 1);

    /// A muted endpoint answers nothing; what waits is answered once it is unmuted.
    void mute(std::uint8_t endpoint);
    void unmute(std::uint8_t endpoint);

    /// Each read is answered this long after the device first sees it, no sooner.
    void setReadDelay(std::chrono::microseconds delay);

    /// Every read is answered at once with zeros, whatever was written; what is written is dropped.
    void setFreeRunning(bool on);

    /// Puts bytes into the loop from the device's side.
    void send(std::span<const std::uint8_t> bytes);

    Counters counters(std::uint8_t endpoint) const;
    std::optional<Setup> lastSetup() const; ///< of the control requests that reached the device

    std::uint16_t vendorId() const override { return vendor; }
    std::uint16_t productId() const override { return product; }
    std::string text(int index) const override;
    std::vector<std::uint8_t> endpoints() const override { return {writeEndpoint, readEndpoint}; }
    int controlTransfer(const Setup& setup, std::span<std::uint8_t> data) override;
    int bulkOut(std::uint8_t endpoint, std::span<const std::uint8_t> data) override;
    int bulkIn(std::uint8_t endpoint, std::span<std::uint8_t> data) override;
    std::optional<std::chrono::steady_clock::time_point> pollAfter() const override;
    void cancelled(std::uint8_t endpoint) override;

private:
    std::optional<int> answerOutOfTurn(std::uint8_t endpoint, std::size_t length) VORNA_REQUIRES(mutex);
    bool mustWait(std::size_t length) VORNA_REQUIRES(mutex);
    int accessMemory(const Setup& setup, std::span<std::uint8_t> data) VORNA_REQUIRES(mutex);
    int takeFromLoop(std::span<std::uint8_t> data) VORNA_REQUIRES(mutex);
    int count(std::uint8_t endpoint, int result) VORNA_REQUIRES(mutex);

    const std::string serial;
    const std::uint16_t vendor;
    const std::uint16_t product;

    mutable util::Mutex mutex; // inner to the port's, never held while the host is woken
    std::vector<std::uint8_t> memory VORNA_GUARDED_BY(mutex);
    std::deque<std::uint8_t> loop VORNA_GUARDED_BY(mutex);
    std::map<std::uint8_t, std::deque<int>> scripted VORNA_GUARDED_BY(mutex); // by endpoint, as the next two
    std::set<std::uint8_t> muted VORNA_GUARDED_BY(mutex);
    std::map<std::uint8_t, Counters> counted VORNA_GUARDED_BY(mutex);
    std::optional<Setup> latestSetup VORNA_GUARDED_BY(mutex);
    std::chrono::microseconds readDelay VORNA_GUARDED_BY(mutex){0};
    Delay delay VORNA_GUARDED_BY(mutex); // of the read that waits
    bool freeRunning VORNA_GUARDED_BY(mutex) = false;
};

} // namespace emulation
