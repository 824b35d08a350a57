#pragma once
// The header word of every packet: its fields, and the formats and extensions that they hold.
//
//    31      24 23           16 15    14 13       8 7      0
//   | extension | second length | format | module id | length |

#include <bit>
#include <cstdint>

#include "util/BitField.h"

namespace keplin {

static_assert(std::endian::native == std::endian::little, "packets are copied as words, and those are little-endian");

namespace header {

inline constexpr util::BitField length{0, 8};        ///< payload bytes less 1
inline constexpr util::BitField moduleId{8, 6};      ///< target when sent, source when received
inline constexpr util::BitField format{14, 2};       ///< PktFmt, which holds its values in place
inline constexpr util::BitField secondLength{16, 8}; ///< of Raw packets: `length` again; of others: 0
inline constexpr util::BitField extension{24, 8};    ///< of Raw packets: HdrExtFmt; of others: 0

static_assert(util::fillWord(length, moduleId, format, secondLength, extension));

} // namespace header

/// Format of a packet, with its bits in place for the header word.
enum class PktFmt : std::uint32_t {
    Ev32 = 0x0000,   ///< a run of event words
    Raw = 0x4000,    ///< what the extension says; with extension 0 one 16-bit command
    Route = 0x8000,  ///< only sent: 16-bit words that set a module's routing
    Config = 0xC000, ///< only sent: register writes, pairs of a 16-bit value and a 16-bit register address
};
static_assert(static_cast<std::uint32_t>(PktFmt::Config) == header::format.mask());

/// Kind of the payload of a Raw packet. Modules define further kinds.
enum class HdrExtFmt : std::uint8_t {
    Command = 0,       ///< sent: one 16-bit code
    InputEvents = 1,   ///< sent: words for a chip's input
    WriteRegister = 3, ///< sent: 32-bit register writes; to a converter: channel settings
    ReadRegister = 4,  ///< sent: 16-bit requests
    WriteMemory = 5,   ///< sent: 32-bit memory writes
    ReadMemory = 6,    ///< sent: 32-bit requests
    AdcSample = 7,     ///< received: one sample of all channels
    ReadProbe = 10,    ///< sent: 16-bit requests
};

/// Packets from modules 0 to MaxModules - 1 are dispatched.
inline constexpr std::uint32_t MaxModules = 49;
/// Packets can be addressed to modules 0 to MaxTargets - 1: what the field holds.
inline constexpr std::uint32_t MaxTargets = 1U << header::moduleId.width;

inline constexpr std::uint32_t MaxPayloadBytes = 1U << header::length.width;

/// Words on the wire of a packet of `size` payload bytes: the header and the payload, which is padded to whole words.
constexpr std::uint32_t wordsOfSize(std::uint32_t size) { return (size + 7) / 4; }
/// The same for a packet that arrives, from its header alone.
constexpr std::uint32_t wordsOfHeader(std::uint32_t word) { return wordsOfSize(header::length.get(word) + 1); }

inline constexpr std::uint32_t MaxPacketWords = wordsOfSize(MaxPayloadBytes);
static_assert(MaxPacketWords == 65 && wordsOfHeader(0xFF) == MaxPacketWords && wordsOfHeader(0) == 2);

/// The stream between host and board consists of blocks. Those from the board begin with a credit word.
inline constexpr std::uint32_t BlockWords = 256;
inline constexpr std::uint32_t BlockBytes = 4 * BlockWords;

} // namespace keplin
