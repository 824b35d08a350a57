#pragma once
// Cuts the blocks that come from a board into packets:
//
//   word 0        credit: how many words the board has room for
//   words 1..255  packets, one after another; the first 0 in place of a header ends them
//
// A packet cut off by the end of a block continues at word 1 of the next block, in the same read or in the next.

#include <cstdint>
#include <span>

#include "keplin/PacketBuffer.h"

namespace keplin {

class PacketDelivery;

/// Threads: reentrant.
class BlockDecoder {
public:
    BlockDecoder() = default;
    /// An unfinished packet goes back to the pool.
    ~BlockDecoder();
    BlockDecoder(const BlockDecoder&) = delete;
    BlockDecoder& operator=(const BlockDecoder&) = delete;

    /// Delivers every packet that ends in `blocks`. If the last block is shorter than 1024 bytes, its rest is zero.
    /// @return the credit of the last block, or `credit` if there is no block
    std::int32_t decode(std::span<const std::uint8_t> blocks, std::int32_t credit, PacketDelivery& delivery);

private:
    void decodeBlock(const std::uint8_t* block, PacketDelivery& delivery);

    PacketPtr current;         // the packet being assembled
    std::uint32_t written = 0; // words of it received so far, with the header
    std::uint32_t missing = 0; // words of it still to come
};

} // namespace keplin
