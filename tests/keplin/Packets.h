#pragma once
// Packets, blocks and pool counts for the tests of the board packet protocol.

#include <cstring>
#include <ostream>
#include <span>
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
    friend bool operator==(const PoolStats&, const PoolStats&) = default;
    friend std::ostream& operator<<(std::ostream& stream, const PoolStats& stats)
    {
        return stream << stats.inCirculation << " in circulation, " << stats.inPool << " in the pool";
    }
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

inline Bytes payloadOf(const PacketBuffer& packet)
{
    return {packet.data.begin(), packet.data.begin() + static_cast<std::ptrdiff_t>(packet.size)};
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

} // namespace packets
