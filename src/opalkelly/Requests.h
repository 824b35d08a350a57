#pragma once
// What an Opal Kelly FPGA board understands over USB: requests, endpoints and the blocks that they carry. All numbers
// here are little-endian.

#include <array>
#include <cstddef>
#include <cstdint>

#include "usb/Request.h"

namespace opalkelly {

// Wires: registers of 32 bits in the FPGA, moved all 32 at once.
inline constexpr int wireCount = 32;
inline constexpr int firstWireOut = 32; ///< wire-ins have the addresses 0 to 31, wire-outs 32 to 63
inline constexpr std::size_t wireBytes = 4;
inline constexpr std::size_t wireBlockSize = wireCount * wireBytes;

inline constexpr std::size_t pipeSetupSize = 32;
inline constexpr std::size_t flashSetupSize = 4096;

inline constexpr usb::Request writeWireIns{.use = "write all wire-ins", .code = 0xC2, .maxBytes = wireBlockSize};
inline constexpr usb::Request readWireOuts{
    .use = "read all wire-outs", .code = 0xC3, .direction = usb::Direction::read, .maxBytes = wireBlockSize};
inline constexpr usb::Request setUpPipeWrite{
    .use = "announce a chunk to the board", .code = 0xC6, .wValue = usb::constant(0), .maxBytes = pipeSetupSize};
inline constexpr usb::Request setUpPipeRead{
    .use = "ask for a chunk from the board", .code = 0xC6, .wValue = usb::constant(1), .maxBytes = pipeSetupSize};
inline constexpr usb::Request setUpConfiguration{
    .use = "announce an FPGA configuration", .code = 0xC0, .wValue = usb::constant(1), .maxBytes = flashSetupSize};

inline constexpr usb::USBSetupPacket wireWriteSetupPacket = writeWireIns.setup();
inline constexpr usb::USBSetupPacket wireReadSetupPacket = readWireOuts.setup();

/// Bulk endpoints. The time after which a transfer is renewed is that of the requests.
inline constexpr std::uint8_t configurationEndpoint = 0x01;
inline constexpr std::uint8_t pipeInEndpoint = 0x02; ///< to the board
inline constexpr std::uint8_t pipeOutEndpoint = 0x82;
inline constexpr int bulkTimeoutMs = 2000;
inline constexpr std::size_t maxConfigurationChunk = 16384;

/// The addresses that pipes of one direction have, and the bytes that go in one chunk, which is also the largest block.
struct PipeKind {
    int firstAddress;
    int lastAddress;
    int maxChunk;

    constexpr bool has(int address) const { return address >= firstAddress && address <= lastAddress; }
};
inline constexpr PipeKind pipeIn{0x80, 0x9F, 1024};
inline constexpr PipeKind pipeOut{0xA0, 0xBF, 16384};

/// Offsets of the numbers of one chunk in the pipe setup block.
inline constexpr std::size_t pipeSetupLengthAt = 0;    ///< bytes of the chunk, 16 bits
inline constexpr std::size_t pipeSetupBlockSizeAt = 4; ///< 16 bits
inline constexpr std::size_t pipeSetupPipeAt = 14;     ///< pipe address, 8 bits

/// The bytes of the pipe setup block that are always the same and not zero.
struct FixedByte {
    std::size_t at;
    std::uint8_t value;
};
inline constexpr auto pipeSetupFixedBytes = std::to_array<FixedByte>({{6, 12}, {10, 1}, {19, 1}, {24, 1}});

/// The flash setup block: a mark, and how many bytes follow on the bulk endpoint; else zeros.
inline constexpr std::size_t flashSetupMarkAt = 0;
inline constexpr std::uint32_t flashSetupMark = 0xBE097C3D;
inline constexpr std::size_t flashSetupSizeAt = 8; ///< 32 bits

} // namespace opalkelly
