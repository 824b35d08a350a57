#include "emulation/boards/Packet.h"

#include <algorithm>

namespace emulation {

bool Packet::push(std::uint64_t value, std::size_t count)
{
    if (count > capacity - size)
        return false;
    for (std::size_t i = 0; i < count; ++i)
        bytes[size + i] = i < 8 ? static_cast<std::uint8_t>(value >> (8 * i)) : std::uint8_t{0};
    size = static_cast<std::uint16_t>(size + count);
    return true;
}

std::uint64_t Packet::value(std::size_t offset, std::size_t count) const
{
    std::uint64_t result = 0;
    for (std::size_t i = 0; i < std::min<std::size_t>(count, 8); ++i)
        if (offset + i < size)
            result |= static_cast<std::uint64_t>(bytes[offset + i]) << (8 * i);
    return result;
}

std::vector<std::uint64_t> Packet::numbers(std::size_t count) const
{
    std::vector<std::uint64_t> result;
    for (std::size_t at = 0; at + count <= size; at += count)
        result.push_back(value(at, count));
    return result;
}

std::vector<std::uint64_t> Packet::commands() const
{
    constexpr std::uint8_t commandExtension = 0;
    if (format != PacketFormat::raw || extension != commandExtension)
        return {};
    return numbers(2);
}

std::uint32_t Packet::header() const
{
    using namespace packet_header;
    const std::uint64_t lengthLess1 = size - 1U;
    std::uint64_t word =
        length.put(lengthLess1) | packet_header::module.put(module) | packet_header::format.put(std::uint64_t(format));
    if (format == PacketFormat::raw)
        word |= secondLength.put(lengthLess1) | packet_header::extension.put(extension);
    return static_cast<std::uint32_t>(word);
}

std::optional<Packet> packetFor(std::uint32_t header)
{
    Packet packet;
    packet.module = static_cast<std::uint8_t>(packet_header::module.get(header));
    packet.format = static_cast<PacketFormat>(packet_header::format.get(header));
    packet.extension = static_cast<std::uint8_t>(packet_header::extension.get(header));
    packet.size = static_cast<std::uint16_t>(packet_header::length.get(header) + 1);
    if (packet.header() != header) // a second length or an extension where none belongs, or two lengths
        return std::nullopt;
    return packet;
}

} // namespace emulation
