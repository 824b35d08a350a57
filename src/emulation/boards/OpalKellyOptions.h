#pragma once
// How an emulated Opal Kelly board comes up.

#include <string>

#include "emulation/boards/ChipKind.h"
#include "trovi/Reflect.h"

namespace emulation {

struct OpalKellyOptions {
    std::string serialNumber{};
    ChipKind chip = ChipKind::memory;
    bool configured = false;

    friend bool operator==(const OpalKellyOptions&, const OpalKellyOptions&) = default;
};

} // namespace emulation

template <>
constexpr auto trovi::registerMembers<emulation::OpalKellyOptions>()
{
    using emulation::OpalKellyOptions;
    return members(member("serialNumber", &OpalKellyOptions::serialNumber,
                          "up to 126 characters; empty: one that no other board has"),
                   member("chip", &OpalKellyOptions::chip, "which chip answers the packets of modules 2 and 5"),
                   member("configured", &OpalKellyOptions::configured,
                          "False: the host has to configure the FPGA and set wire-in 0 to 1, as with a real board.\n"
                          "True: the board comes up with both done"));
}

template <>
constexpr const char* trovi::registerDoc<emulation::OpalKellyOptions>()
{
    return "How an emulated Opal Kelly board comes up.";
}
