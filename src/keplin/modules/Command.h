#pragma once
// How drivers of board modules send: one packet of words that all have the same width.

#include <concepts>
#include <initializer_list>
#include <span>
#include <utility>

#include "keplin/Keplin.h"
#include "keplin/PacketBuffer.h"
#include "keplin/PacketQueue.h"

namespace keplin::modules {

/// Puts one packet with `words` on `queue`.
/// @throws std::out_of_range "Bad target ID" when `moduleId` is outside 0 to 63
/// @throws std::length_error "Attempt to exceed max size of Keplin packet." when the words take more than 256 bytes
template <std::unsigned_integral Word>
void send(PacketQueue& queue, int moduleId, HdrExtFmt hdrExt, PktFmt pktFmt, std::span<const Word> words)
{
    const auto target = static_cast<std::uint8_t>(std::in_range<std::uint8_t>(moduleId) ? moduleId : 0xFF);
    PacketPtr packet = Keplin::getRawPacketBuffer(target, hdrExt, pktFmt);
    try {
        packet->pushBackSizeCheck(words.size_bytes());
    } catch (...) {
        Keplin::putPacketBuffer(std::move(packet));
        throw;
    }
    for (const Word word : words)
        packet->push_back(word, sizeof word);
    packet->prepToSend();
    queue.enqueue(std::move(packet));
}

/// The same for the 16-bit words of commands and register writes.
inline void send(PacketQueue& queue, int moduleId, PktFmt pktFmt, std::initializer_list<std::uint16_t> words)
{
    send(queue, moduleId, HdrExtFmt::Command, pktFmt, std::span(words.begin(), words.end()));
}

} // namespace keplin::modules
