#pragma once
// An FX3 USB controller in its boot state: it takes an image into RAM and jumps to it.

#include <functional>
#include <vector>

#include "emulation/boards/BoardCounters.h"
#include "emulation/boards/Problems.h"
#include "emulation/usb/Device.h"
#include "util/Mutex.h"

namespace emulation {

/// Request 0xA0 with data writes (0x40) or reads (0xC0) RAM from wValue | wIndex << 16 on; without data it jumps there.
/// RAM is 16 KiB at 0, 8 KiB at 0x10000000 and 512 KiB at 0x40000000; what doesn't lie in one of them whole stalls.
/// A jump starts the firmware when the word at the entry has been written, and every write since power-up was whole and
/// in RAM; else it stalls.
///
/// Threads: thread-safe.
class Fx3BootDevice final : public Device {
public:
    explicit Fx3BootDevice(std::string serialNumber);

    /// As at power-up: RAM is empty. Problems and counters stay.
    void powerUp();

    /// Called, inside the transfer, when a jump has started the firmware. It may not unplug the device itself.
    void setOnStart(std::function<void(std::uint32_t entry)> action);

    bool isStarted() const;
    /// @throws std::out_of_range for what isn't RAM
    std::vector<std::uint8_t> ram(std::uint32_t address, std::size_t size) const;
    BoardCounters counters() const;
    std::vector<std::string> problems() const;

    std::uint16_t vendorId() const override { return 0x04B4; }
    std::uint16_t productId() const override { return 0x00F3; }
    std::string text(int index) const override;
    std::vector<std::uint8_t> endpoints() const override { return {}; }
    int controlTransfer(const Setup& setup, std::span<std::uint8_t> data) override;
    int bulkOut(std::uint8_t, std::span<const std::uint8_t>) override { return refuseBulk(); }
    int bulkIn(std::uint8_t, std::span<std::uint8_t>) override { return refuseBulk(); }

private:
    struct Region {
        std::uint32_t begin;
        std::vector<std::uint8_t> bytes;
        std::vector<bool> written;
    };

    int access(const Setup& setup, std::span<std::uint8_t> data, std::uint32_t address) VORNA_REQUIRES(mutex);
    int jump(std::uint32_t address) VORNA_REQUIRES(mutex);
    int refuse(std::string problem) VORNA_REQUIRES(mutex);
    int refuseBulk();

    const std::string serial;
    mutable util::Mutex mutex; // inner to the port's; not held while `onStart` runs
    std::vector<Region> regions VORNA_GUARDED_BY(mutex);
    bool whole VORNA_GUARDED_BY(mutex) = true; // nothing of the image was refused or cut
    bool started VORNA_GUARDED_BY(mutex) = false;
    BoardCounters counted VORNA_GUARDED_BY(mutex);
    Problems noted VORNA_GUARDED_BY(mutex);
    std::function<void(std::uint32_t)> onStart VORNA_GUARDED_BY(mutex);
};

} // namespace emulation
