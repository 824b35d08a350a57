#pragma once
// A fault of the wire between host and board, as a test or script asks for it.

#include <cstdint>

#include "trovi/Reflect.h"

namespace emulation {

enum class FaultKind : std::uint8_t {
    drop,          ///< a write never arrives, though the host sees success; a read loses its data and waits for more
    delay,         ///< the transfer begins `amount` microseconds late
    shortTransfer, ///< no more than `amount` bytes are carried; what a read leaves is lost
    stall,         ///< the transfer ends with a stall
    corrupt,       ///< the bits of the byte at `amount`, counted from the transfer's beginning, are inverted
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
           "drop: the data are lost; a write seems to succeed, a read waits for the next data;\n"
           "delay: the transfer comes late; shortTransfer: only its beginning is carried; stall: it ends with a "
           "stall;\n"
           "corrupt: the bits of one of its bytes are inverted; unplug: the board is pulled out during it.";
}
