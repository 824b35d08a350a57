#pragma once
// The registers of the input interface.

#include "tessel/registers/Register.h"

namespace tessel::registers::inputinterface {

// clang-format off
VORNA_REGISTER(00, 0x03, 0xFB, "switches, first probe of the router",
    // bit, width, from
    (0, 1, 0, monitorInputEnable, "what enters the chip also leaves it"),
    (1, 1, 0, strongDrive,        "output drivers are strong"),
    (3, 5, 0, routerProbe0,       "first signal of the router that is led out"))
VORNA_REGISTER(01, 0x00, 0xFF, "second and third probe of the router",
    (0, 5, 0, routerProbe1,    "second signal of the router that is led out"),
    (5, 3, 0, routerProbe2Low, "third signal of the router that is led out: low part"))
VORNA_REGISTER(02, 0x00, 0x7F, "third and fourth probe of the router",
    (0, 2, 3, routerProbe2High, "third signal of the router that is led out: high part"),
    (2, 5, 0, routerProbe3,     "fourth signal of the router that is led out"))
// clang-format on

using Registers = RegisterList<Register00, Register01, Register02>;
static_assert(Registers::count == 3);

} // namespace tessel::registers::inputinterface
