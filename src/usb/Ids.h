#pragma once
// The USB ids of boards.

#include <array>
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

struct KnownBoard {
    VendorId vendor;
    ProductId product;
};

/// All boards; packaging/60-vorna.rules has a line for each.
inline constexpr auto knownBoards = std::to_array<KnownBoard>({
    {VendorId::Cypress, ProductId::Fx3Boot},
    {VendorId::Cypress, ProductId::DevKit},
    {VendorId::OpalKelly, ProductId::OpalKellyFpga},
});

/// The udev rules that let users open these boards.
inline constexpr const char* udevRulesFile = "60-vorna.rules";

} // namespace usb
