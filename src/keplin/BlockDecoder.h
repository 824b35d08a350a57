#pragma once
// Cuts the blocks that come from a board into packets:
//
//   word 0        credit: how many words the board has room for
//   words 1..255  packets, one after another; the first 0 in place of a header ends them
//
// A packet that the block's end cuts goes on at word 1 of the next block, in the same read or in the next one.

#include <cstdint>
#include <span>

#include "keplin/PacketBuffer.h"

namespace keplin {

class PacketDelivery;

/// Threads: reentrant.
class BlockDecoder {
public:
    BlockDecoder() = default;
    /// A packet that was not finished goes back to the pool.
    ~BlockDecoder();
    BlockDecoder(const BlockDecoder&) = delete;
    BlockDecoder& operator=(const BlockDecoder&) = delete;

    /// Delivers every packet that ends in `blocks`. What the last block lacks of its 1024 bytes counts as zeros.
    /// @return the credit of the last block, or `credit` where there is none
    std::int32_t decode(std::span<const std::uint8_t> blocks, std::int32_t credit, PacketDelivery& delivery);

private:
    void decodeBlock(const std::uint8_t* block, PacketDelivery& delivery);

    PacketPtr current;         // the packet being assembled
    std::uint32_t written = 0; // words of it that are there, the header first
    std::uint32_t missing = 0; // words of it that are not
};

} // namespace keplin
