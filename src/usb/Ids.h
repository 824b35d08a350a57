#pragma once
// The USB identities that this system looks for.

#include <cstdint>

namespace usb {

enum class VendorId : std::uint16_t {
    Cypress = 0x04B4,
    OpalKelly = 0x151F,
};

enum class ProductId : std::uint16_t {
    Fx3Boot = 0x00F3,      ///< an FX3 chip in boot mode: a dev kit without firmware
    DevKit = 0x5BC1,       ///< a dev kit that runs its FX3 firmware
    OpalKellyFpga = 0x012B ///< the FPGA board of the mixed-signal and test boards
};

} // namespace usb
