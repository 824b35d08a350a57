#pragma once
// Packets, blocks and pool counts for the tests of the board packet protocol.

#include <cstring>
#include <utility>
#include <vector>

#include "keplin/Keplin.h"

namespace packets {

using namespace keplin;
using Words = std::vector<std::uint32_t>;
using Bytes = std::vector<std::uint8_t>;

struct PoolStats {
    std::uint32_t inCirculation = 0;
    std::uint32_t inPool = 0;
    std::uint32_t inUse() const { return inCirculation - inPool; }
    friend bool operator==(const PoolStats&, const PoolStats&) = default;
};

inline PoolStats poolStats()
{
    PoolStats stats;
    Keplin::getBufferPoolStats(stats.inCirculation, stats.inPool);
    return stats;
}

inline PacketPtr packet(std::uint8_t moduleId, PktFmt format, const Bytes& payload,
                        HdrExtFmt extension = HdrExtFmt::Command)
{
    PacketPtr result = Keplin::getRawPacketBuffer(moduleId, extension, format);
    for (const std::uint8_t byte : payload)
        result->push_back(byte, 1);
    result->prepToSend();
    return result;
}

/// The words that go over the wire.
inline Words wireOf(const PacketBuffer& packet)
{
    Words words(packet.wireWords());
    std::memcpy(words.data(), packet.wire(), 4 * words.size());
    return words;
}

/// Takes everything out of `queue`, as it would go over the wire.
inline std::vector<Words> drain(PacketQueue& queue)
{
    std::vector<Words> result;
    while (auto packet = queue.dequeue()) {
        result.push_back(wireOf(**packet));
        Keplin::putPacketBuffer(std::move(*packet));
    }
    return result;
}

inline Bytes bytesOf(const Words& words)
{
    Bytes bytes(4 * words.size());
    std::memcpy(bytes.data(), words.data(), bytes.size());
    return bytes;
}

/// One block: the credit, the words, zeros.
inline Words block(std::uint32_t credit, const Words& words)
{
    Words result{credit};
    result.insert(result.end(), words.begin(), words.end());
    result.resize(BlockWords);
    return result;
}

inline Words operator+(Words left, const Words& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

/// The packets in these blocks, found a word at a time.
inline std::vector<Words> packetsIn(const Words& blocks)
{
    std::vector<Words> packets;
    Words current;
    std::uint32_t missing = 0;
    bool ended = false;
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        if (i % BlockWords == 0) {
            ended = false;
            continue; // the credit
        }
        if (missing == 0 && (ended = ended || blocks[i] == 0))
            continue;
        if (missing == 0) {
            current.clear();
            missing = (((blocks[i] & 0xFF) + 4) >> 2) + 1;
        }
        current.push_back(blocks[i]);
        if (--missing == 0)
            packets.push_back(current);
    }
    return packets;
}

} // namespace packets
