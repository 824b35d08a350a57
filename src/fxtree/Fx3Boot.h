#pragma once
// Puts firmware into an FX3 that is still in its boot state. When it runs, the FX3 leaves the bus and comes back under
// the ids of a dev kit.
//
//   fxtree::Fx3Boot boot(std::make_unique<usb::LibUSBDevice>(bus, address));
//   boot.configure("fx3.img"); // 0: the firmware runs
//
// Progress and failures are printed to the standard streams.

#include <cstdint>
#include <iterator>
#include <memory>
#include <span>
#include <string>

#include "fxtree/FirmwareImage.h"
#include "fxtree/Requests.h"
#include "usb/LibUSBDevice.h"

namespace fxtree {

/// Writes bytes to the FX3's RAM, at most 2048 in one request, and prints two lines for each.
/// @return 0, or -1 when a request fell short; that is printed to standard error
int fx3RamWrite(usb::LibUSBDevice& device, std::span<const std::uint8_t> bytes, std::uint32_t address);

template <std::contiguous_iterator Iterator>
int fx3RamWrite(usb::LibUSBDevice& device, Iterator first, Iterator last, std::uint32_t address)
{
    return fx3RamWrite(device, std::span<const std::uint8_t>(first, last), address);
}

/// Good for one image. Threads: one at a time; configure() blocks.
class Fx3Boot {
public:
    /// Without a device (null) every transfer fails.
    explicit Fx3Boot(std::unique_ptr<usb::LibUSBDevice> device);

    /// Loads an image and starts it. One without a last record is loaded and not started; one without any record is
    /// done at once. A device that takes the start but can't confirm it, since it is gone from the bus, is no failure.
    /// @return 0; -3 when writing to RAM failed; -4 for a wrong checksum, with the RAM written and nothing started
    /// @throws std::runtime_error "Error: Device has already been programmed" after a 0
    /// @throws std::invalid_argument as readFirmwareImage() and parseFirmware(); nothing was sent then
    int configure(const std::string& path);

private:
    std::unique_ptr<usb::LibUSBDevice> device;
    bool loaded = false;
};

} // namespace fxtree
