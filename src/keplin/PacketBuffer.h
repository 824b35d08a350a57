#pragma once
// One packet in memory: the size of its payload, and the words that go over the wire.
//
//   auto packet = Keplin::getRawPacketBuffer(2, HdrExtFmt::Command, PktFmt::Raw);
//   packet->push_back(0x0004, 2);
//   packet->prepToSend();
//   transmitQueue.enqueue(std::move(packet));

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <ostream>

#include "keplin/PacketHeader.h"
#include "util/LittleEndian.h"

namespace keplin {

struct PacketBuffer {
    std::uint64_t size;   ///< payload bytes in use, 0 to 256
    std::uint32_t header; ///< see PacketHeader.h
    std::array<std::uint8_t, MaxPayloadBytes> data;

    /// @throws std::length_error "Attempt to exceed max size of Keplin packet." when `count` more bytes don't fit
    void pushBackSizeCheck(std::uint64_t count) const;

    /// Starts the header. The id is cut to 6 bits; the extension is used in Raw packets only.
    void setHeader(std::uint8_t moduleId, HdrExtFmt hdrExt, PktFmt pktFmt)
    {
        header = header::moduleId.put(moduleId) | static_cast<std::uint32_t>(pktFmt);
        if (pktFmt == PktFmt::Raw)
            header |= header::extension.put(static_cast<std::uint32_t>(hdrExt));
    }

    /// Appends the `count` low bytes of `value`, lowest first; bytes beyond the eighth are zero.
    /// @throws std::length_error as pushBackSizeCheck(); the packet keeps what it had
    void push_back(std::uint64_t value, std::uint64_t count);

    /// Finishes the header and zeroes the padding. A packet without payload gets the header 0xFFFFFFFF.
    void prepToSend();

    PktFmt format() const { return static_cast<PktFmt>(header & header::format.mask()); }
    std::uint32_t moduleId() const { return header::moduleId.get(header); }
    HdrExtFmt extension() const { return static_cast<HdrExtFmt>(header::extension.get(header)); }

    /// The T at byte `offset` of the payload, lowest byte first. Bytes outside the payload read as zero.
    template <std::unsigned_integral T>
    T payload(std::size_t offset) const
    {
        const std::size_t end = size < data.size() ? static_cast<std::size_t>(size) : data.size();
        if (offset + sizeof(T) <= end)
            return util::readLittleEndian<T>(data.data() + offset);
        std::array<std::uint8_t, sizeof(T)> padded{};
        if (offset < end)
            std::memcpy(padded.data(), data.data() + offset, end - offset);
        return util::readLittleEndian<T>(padded.data());
    }

    /// Calls `visit` with each 64-bit event word of the payload, in order. A last word of at least 4 bytes is filled up
    /// with zeros, so a packet of 4 bytes has one word.
    template <class Visit>
    void forEachEventWord(Visit&& visit) const
    {
        const std::size_t end = size < data.size() ? static_cast<std::size_t>(size) : data.size();
        std::size_t offset = 0;
        for (; offset + 8 <= end; offset += 8)
            visit(util::readLittleEndian<std::uint64_t>(data.data() + offset));
        if (end - offset >= 4)
            visit(payload<std::uint64_t>(offset));
    }

    /// The packet on the wire: wireWords() words of 4 bytes, beginning with the header.
    std::byte* wire() { return reinterpret_cast<std::byte*>(this) + offsetof(PacketBuffer, header); }
    const std::byte* wire() const { return reinterpret_cast<const std::byte*>(this) + offsetof(PacketBuffer, header); }
    std::uint32_t wireWords() const
    {
        return wordsOfSize(size < MaxPayloadBytes ? static_cast<std::uint32_t>(size) : MaxPayloadBytes);
    }
};
static_assert(std::is_trivial_v<PacketBuffer> && std::is_standard_layout_v<PacketBuffer>);
static_assert(offsetof(PacketBuffer, data) == offsetof(PacketBuffer, header) + 4, "one run of words, for the wire");

/// One line: the first `size` + 4 bytes from the header on, as two hexadecimal digits and a blank each.
std::ostream& operator<<(std::ostream& stream, const PacketBuffer& packet);

/// A packet has one owner at a time. Buffers come from the pool of Keplin and go back to it.
using PacketPtr = std::unique_ptr<PacketBuffer>;

} // namespace keplin
