#pragma once
// AEDAT 3.1: lines of text that begin with '#', the last of them "#!END-HEADER", then event packets: a header of 28
// bytes, little-endian, and its events.
//
//   bytes   field            meaning
//   0..1    eventType        1 polarity; bit 15 set: the events are compressed
//   2..3    eventSource      number of the source that the header's "#Source" lines name
//   4..7    eventSize        bytes of one event; 8 for polarity
//   8..11   eventTSOffset    offset of the timestamp in an event; 4 for polarity
//   12..15  eventTSOverflow  bits 31 and up of all timestamps of the packet
//   16..19  eventCapacity    room for events in memory, at least eventNumber
//   20..23  eventNumber      events that follow
//   24..27  eventValid       how many of them are valid
//
// A polarity event is the 8-byte word of event/PolarityWord.h, with a timestamp of 31 bits.

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace davis::recording::detail {

struct PacketHeader {
    std::int16_t eventType = 0;
    std::int16_t eventSource = 0;
    std::int32_t eventSize = 0;
    std::int32_t eventTSOffset = 0;
    std::int32_t eventTSOverflow = 0;
    std::int32_t eventCapacity = 0;
    std::int32_t eventNumber = 0;
    std::int32_t eventValid = 0;

    static constexpr std::size_t bytes = 28;
    static constexpr std::int16_t polarityType = 1;
    static constexpr std::uint16_t compressedMark = 0x8000;
    static constexpr std::int32_t polarityTSOffset = 4;
};
static_assert(sizeof(PacketHeader) == PacketHeader::bytes, "the header has no gaps, so it is copied as it is");
static_assert(std::endian::native == std::endian::little, "and so are its fields");

constexpr unsigned timestampBits = 31;

inline PacketHeader packetHeader(std::span<const std::byte> bytes)
{
    PacketHeader header;
    std::memcpy(&header, bytes.data(), PacketHeader::bytes);
    return header;
}

} // namespace davis::recording::detail
