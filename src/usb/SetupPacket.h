#pragma once
// The head of a USB control request.

#include <cstdint>

namespace usb {

/// `bmRequestType` 0x40 is a vendor write, 0xC0 a vendor read.
struct USBSetupPacket {
    std::uint8_t bmRequestType = 0;
    std::uint8_t bRequest = 0;
    std::uint16_t wValue = 0;
    std::uint16_t wIndex = 0;
    std::uint16_t wLength = 0; ///< ignored by LibUSBDevice: the length is that of the byte range given

    friend bool operator==(const USBSetupPacket&, const USBSetupPacket&) = default;
};

} // namespace usb
