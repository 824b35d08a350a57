#pragma once
// A module of a board: packets in, packets out. A converter, a chip, a loop: each is one class behind this interface,
// and a board takes any of them under any module id.

#include <chrono>

#include "emulation/boards/Packet.h"
#include "emulation/boards/PacketSink.h"

namespace emulation {

/// One object may serve several module ids. A packet to the host carries the id that its sender puts into it;
/// only event and raw packets may be sent, since hosts accept no others.
///
/// Threads: a board calls with its own lock held, never two calls at once, so a module needs a lock only for what other
/// threads read. It may not call the board.
class Module {
public:
    using Time = std::chrono::steady_clock::time_point;

    Module() = default;
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;
    virtual ~Module() = default;

    /// Acts on a packet from the host; answers go to `out`.
    virtual void receive(const Packet& packet, PacketSink& out) = 0;

    /// Sends what came due by `now` by itself. A board asks each millisecond while its host reads.
    virtual void advance(Time /*now*/, PacketSink& /*out*/) {}

    /// Back to what it was at power-up.
    virtual void reset() = 0;
};

} // namespace emulation
