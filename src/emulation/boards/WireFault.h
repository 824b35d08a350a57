#pragma once
// A fault of the wire between host and board, as a test or script asks for it.

#include <cstdint>

#include "trovi/Reflect.h"

namespace emulation {

enum class FaultKind : std::uint8_t {
    drop,          ///< what the host writes never arrives, though it is told so; what it reads is lost, and it waits on
    delay,         ///< the transfer begins `amount` microseconds late
    shortTransfer, ///< no more than `amount` bytes are carried; what a read leaves is lost
    stall,         ///< the transfer ends with a stall
    corrupt,       ///< the bits of the byte at `amount`, counted from the transfer's beginning, are turned over
    unplug,        ///< the device is pulled out: this transfer ends so, and all after it until plugIn()
};

/// One fault. Those of one endpoint come one after another: a fault begins with the transfer after the last of the
/// fault before.
struct WireFault {
    FaultKind kind = FaultKind::stall;
    std::uint8_t endpoint = 0;
    std::uint32_t after = 0;
    std::uint32_t times = 1;
    std::uint32_t amount = 0;

    friend bool operator==(const WireFault&, const WireFault&) = default;
};

} // namespace emulation

template <>
constexpr auto trovi::registerMembers<emulation::WireFault>()
{
    using emulation::WireFault;
    return members(
        member("kind", &WireFault::kind, "what goes wrong"),
        member("endpoint", &WireFault::endpoint, "the endpoint's address, e.g. 0x81; 0 for control requests"),
        member("after", &WireFault::after, "transfers that go well before"),
        member("times", &WireFault::times, "transfers that go wrong, 1 or more"),
        member("amount", &WireFault::amount,
               "delay: microseconds; shortTransfer: bytes that are carried; corrupt: the byte's place"));
}

template <>
constexpr const char* trovi::registerDoc<emulation::WireFault>()
{
    return "A fault of the wire between host and board.\n"
           "drop: what the host writes is lost on the way, what it reads too, and it waits on;\n"
           "delay: the transfer comes late; shortTransfer: only its beginning is carried; stall: it ends with a "
           "stall;\n"
           "corrupt: the bits of one of its bytes are turned over; unplug: the board is pulled out during it.";
}
