#pragma once
// What the FX3 controller of a dev kit understands over USB, in its boot state and with its firmware. All numbers in
// the data of these requests are 32 bits, little-endian.

#include <cstddef>
#include <cstdint>

#include "usb/Request.h"

namespace fxtree {

inline constexpr std::size_t maxChunk = 2048;      ///< bytes of data in one request
inline constexpr std::size_t announcementSize = 8; ///< two numbers about the transfers that follow

// In the boot state. The argument of setup() is an address in RAM.
inline constexpr usb::Request writeRam{
    .use = "write to RAM", .code = 0xA0, .wValue = usb::lowHalf, .wIndex = usb::highHalf, .maxBytes = maxChunk};
inline constexpr usb::Request jump{.use = "start at an address", // differs from writeRam by having no data
                                   .code = 0xA0,
                                   .wValue = usb::lowHalf,
                                   .wIndex = usb::highHalf,
                                   .maxBytes = 0,
                                   .timeoutMs = 5000};

// With firmware. An announcement has wValue 1; the data that it announces, 0.
inline constexpr usb::Request eraseFlashSector{// the argument is the number of a sector of 64 KiB
                                               .use = "erase a flash sector",
                                               .code = 0xB0,
                                               .wValue = usb::constant(1),
                                               .wIndex = usb::lowHalf};
inline constexpr usb::Request announceFlashWrite{.use = "announce a flash write: size, flash address",
                                                 .code = 0xB1,
                                                 .wValue = usb::constant(1),
                                                 .maxBytes = announcementSize};
inline constexpr usb::Request writeFlash{.use = "flash data", .code = 0xB1, .maxBytes = maxChunk};
inline constexpr usb::Request announceFlashRead{.use = "announce a flash read: size, flash address",
                                                .code = 0xB2,
                                                .wValue = usb::constant(1),
                                                .maxBytes = announcementSize};
inline constexpr usb::Request readFlash{
    .use = "flash data", .code = 0xB2, .direction = usb::Direction::read, .maxBytes = maxChunk};
inline constexpr usb::Request announceFpgaProgram{.use = "announce FPGA programming: size, size again",
                                                  .code = 0xC0,
                                                  .wValue = usb::constant(1),
                                                  .maxBytes = announcementSize};
inline constexpr usb::Request writeFpga{.use = "bitstream data", .code = 0xC0, .maxBytes = maxChunk};
inline constexpr usb::Request configureFpgaFromFlash{
    .use = "configure the FPGA from flash", .code = 0xC1, .wValue = usb::constant(1), .maxBytes = announcementSize};
inline constexpr usb::Request readConfigurationStatus{.use = "follows configureFpgaFromFlash",
                                                      .code = 0xC2,
                                                      .direction = usb::Direction::read,
                                                      .wValue = usb::constant(1),
                                                      .maxBytes = 8};
inline constexpr usb::Request resetFpga{.use = "reset the FPGA", .code = 0xC3, .wValue = usb::constant(1)};

// The second number of configureFpgaFromFlash is the caller's plus this, whatever it is.
inline constexpr std::uint32_t configurationBias = 5;

/// Bulk endpoints: the FX3's pipe to the FPGA (GPIF).
inline constexpr std::uint8_t gpifWriteEndpoint = 0x01;
inline constexpr std::uint8_t gpifReadEndpoint = 0x81;
inline constexpr int gpifTimeoutMs = 2000;

} // namespace fxtree
