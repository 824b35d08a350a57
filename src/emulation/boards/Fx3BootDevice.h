#pragma once
// An FX3 USB controller in its boot state: it takes an image into RAM and jumps to it.

#include <functional>
#include <mutex>
#include <vector>

#include "emulation/boards/Counters.h"
#include "emulation/boards/Problems.h"
#include "emulation/usb/Device.h"

namespace emulation {

/// Request 0xA0 with data writes (0x40) or reads (0xC0) RAM from wValue | wIndex << 16 on; without data it jumps there.
/// RAM is 16 KiB at 0, 8 KiB at 0x10000000 and 512 KiB at 0x40000000; what doesn't lie in one of them whole stalls.
/// A jump starts the firmware when the word at the entry has been written, and every write since power-up was whole and
/// in RAM; else it stalls.
///
/// Threads: thread-safe; `mutex` guards all state and isn't held while the host is told or `onStart` runs.
class Fx3BootDevice final : public Device {
public:
    explicit Fx3BootDevice(std::string serialNumber);

    /// As when power comes: RAM is empty. Problems and counters stay.
    void powerUp();

    /// Called, inside the transfer, when a jump has started the firmware. It may not unplug the device itself.
    void setOnStart(std::function<void(std::uint32_t entry)> action);

    bool isStarted() const;
    /// @throws std::out_of_range for what isn't RAM
    std::vector<std::uint8_t> ram(std::uint32_t address, std::size_t size) const;
    std::size_t bytesWritten() const; ///< different ones
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

    const Region* regionOf(std::uint32_t address, std::size_t size) const;
    Region* regionOf(std::uint32_t address, std::size_t size);
    int access(const Setup& setup, std::span<std::uint8_t> data, std::uint32_t address);
    int jump(std::uint32_t address);
    int refuse(std::string problem);
    int refuseBulk();

    const std::string serial;
    mutable std::mutex mutex;
    std::vector<Region> regions;
    bool whole = true; // nothing of the image was refused or cut
    bool started = false;
    BoardCounters counted;
    Problems noted;
    std::function<void(std::uint32_t)> onStart;
};

} // namespace emulation
