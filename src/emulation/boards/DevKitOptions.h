#pragma once
// How an emulated dev kit comes up.

#include <string>

#include "emulation/boards/ChipKind.h"
#include "trovi/Reflect.h"

namespace emulation {

struct DevKitOptions {
    std::string serialNumber{};
    ChipKind chip = ChipKind::memory;
    bool firmware = true;
    bool configured = true;

    friend bool operator==(const DevKitOptions&, const DevKitOptions&) = default;
};

} // namespace emulation

template <>
constexpr auto trovi::registerMembers<emulation::DevKitOptions>()
{
    using emulation::DevKitOptions;
    return members(member("serialNumber", &DevKitOptions::serialNumber,
                          "up to 126 characters; empty: one that no other board has"),
                   member("chip", &DevKitOptions::chip, "which chip answers the packets"),
                   member("firmware", &DevKitOptions::firmware,
                          "True: the kit comes up with its firmware running.\n"
                          "False: its FX3 waits in the boot state for an image, then comes back as a dev kit"),
                   member("configured", &DevKitOptions::configured,
                          "True: the FPGA is configured at power-up; False: only by the host"));
}

template <>
constexpr const char* trovi::registerDoc<emulation::DevKitOptions>()
{
    return "How an emulated dev kit comes up.";
}
