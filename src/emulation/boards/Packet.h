#pragma once
// Packets as a board's logic reads and writes them. It implements the format apart from the code that the host uses
// (src/keplin): where the two disagree, tests of one against the other fail.

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "emulation/boards/BitRange.h"

namespace emulation {

enum class PacketFormat : std::uint8_t {
    events = 0, ///< 32-bit words of the event stream
    raw = 1,    ///< what the extension says; extension 0: 16-bit command codes
    route = 2,  ///< 16-bit words that set a module's routing; from the host only
    config = 3, ///< pairs of 16-bit words, a value and a register's address; from the host only
};

namespace packet_header {

inline constexpr BitRange length{0, 8}; ///< bytes of payload, less 1
inline constexpr BitRange module{8, 6};
inline constexpr BitRange format{14, 2};
inline constexpr BitRange secondLength{16, 8}; ///< raw packets: the length again; others: 0
inline constexpr BitRange extension{24, 8};    ///< raw packets only; others: 0

/// What a host makes of a packet without payload: the header alone, as one word.
inline constexpr std::uint32_t empty = 0xFFFFFFFF;

} // namespace packet_header

struct Packet {
    static constexpr std::size_t capacity = 256;
    static constexpr int modules = 64; ///< ids are 0 to 63

    std::uint8_t module = 0;
    PacketFormat format = PacketFormat::raw;
    std::uint8_t extension = 0;
    std::uint16_t size = 0; ///< bytes of payload
    std::array<std::uint8_t, capacity> bytes{};

    std::span<const std::uint8_t> payload() const { return std::span(bytes).first(size); }

    /// @return false when the packet has no room for them; it is then unchanged
    bool push(std::uint64_t value, std::size_t count);

    /// `count` payload bytes (8 at most) from `offset` on, lowest first; what lies beyond the payload reads as 0.
    std::uint64_t value(std::size_t offset, std::size_t count) const;

    /// The whole payload as numbers of `count` bytes each; a rest that is shorter is left out.
    std::vector<std::uint64_t> numbers(std::size_t count) const;
    /// The 16-bit codes of a packet of commands; none of any other packet.
    std::vector<std::uint64_t> commands() const;

    /// Words on the wire, the header included.
    std::size_t words() const { return (size + 7U) / 4U; }
    std::uint32_t header() const;
};

/// A packet of the size and kind in the header, with a payload of zeros; nothing for a header that contradicts
/// itself.
std::optional<Packet> packetFor(std::uint32_t header);

} // namespace emulation
