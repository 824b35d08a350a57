#include "keplin/PacketBuffer.h"

#include <algorithm>
#include <iomanip>
#include <stdexcept>

namespace keplin {

void PacketBuffer::pushBackSizeCheck(std::uint64_t count) const
{
    if (size > MaxPayloadBytes || MaxPayloadBytes - size < count)
        throw std::length_error("Attempt to exceed max size of Keplin packet.");
}

void PacketBuffer::push_back(std::uint64_t value, std::uint64_t count)
{
    pushBackSizeCheck(count);
    for (; count > 0; --count, value >>= 8)
        data[size++] = static_cast<std::uint8_t>(value);
}

void PacketBuffer::prepToSend()
{
    // Not cut to its field: boards recognise a packet without payload by the header that results.
    const auto sizeLess1 = static_cast<std::uint32_t>(size - 1);
    header = (header & ~(header::length.mask() | header::secondLength.mask())) | sizeLess1;
    if (format() == PktFmt::Raw)
        header |= sizeLess1 << header::secondLength.lowest;
    if (size < data.size())
        std::fill_n(data.begin() + static_cast<std::ptrdiff_t>(size), (4 - size % 4) % 4, std::uint8_t{0});
}

std::ostream& operator<<(std::ostream& stream, const PacketBuffer& packet)
{
    stream << std::hex << std::setfill('0');
    const std::size_t bytes = std::min<std::size_t>(packet.size, packet.data.size()) + sizeof packet.header;
    for (std::size_t i = 0; i < bytes; ++i)
        stream << std::setw(2) << std::to_integer<unsigned>(packet.wire()[i]) << ' ';
    return stream << std::dec << '\n';
}

} // namespace keplin
