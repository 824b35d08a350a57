#pragma once
// How a module sends packets to the host.

#include <cstddef>

namespace emulation {

struct Packet;

/// Where modules put what they send to the host.
class PacketSink {
public:
    virtual ~PacketSink() = default;
    virtual void send(const Packet& packet) = 0;

    /// Words, headers included, that a module may send by itself without using up the room that the host needs. Answers
    /// to the host are sent regardless.
    virtual std::size_t freeWords() const = 0;
};

} // namespace emulation
