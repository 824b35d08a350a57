#pragma once
// Packs waiting packets into blocks, one after another; the rest of the last block is zero.

#include <cstdint>
#include <vector>

#include "keplin/PacketQueue.h"
#include "keplin/PacketRun.h"

namespace keplin {

/// Threads: reentrant; the thread that calls collect() is the queue's only consumer.
class BlockWriter {
public:
    /// A packet without payload is sent to a dev kit as its header word, and to an Opal Kelly board not at all.
    enum class EmptyPackets { send, drop };

    explicit BlockWriter(EmptyPackets emptyPackets) : emptyPackets(emptyPackets) {}

    /// Takes packets from `queue`, in order, while the next one fits into what is left of `limitWords`, and gives their
    /// buffers back to the pool. A limit of 0 or less takes nothing.
    /// @return words taken, without the zeros that fill the last block
    std::int32_t collect(PacketQueue& queue, std::int32_t limitWords);

    /// What collect() took, as whole blocks; valid until its next call.
    const std::vector<std::uint8_t>& blocks() const { return bytes; }

private:
    EmptyPackets emptyPackets;
    PacketRun run;
    std::vector<std::uint8_t> bytes;
};

} // namespace keplin
