#include "davis/caer/Events.h"

#include <array>
#include <cstring>

#include "davis/event/PolarityWord.h"
#include "davis/recording/detail/Aedat31.h"

namespace libcaer::events {

using davis::event::PolarityWord;
using davis::recording::detail::PacketHeader;
using davis::recording::detail::timestampBits;
static_assert(CAER_EVENT_PACKET_HEADER_SIZE == PacketHeader::bytes);

EventPacket::EventPacket(std::int16_t type, std::span<const davis::event::DvsEvent> events)
    : memory(PacketHeader::bytes + events.size() * PolarityWord::bytes)
{
    PacketHeader header;
    header.eventType = type;
    header.eventSource = 1;
    header.eventSize = static_cast<std::int32_t>(PolarityWord::bytes);
    header.eventTSOffset = PacketHeader::polarityTSOffset;
    header.eventTSOverflow = events.empty() ? 0 : static_cast<std::int32_t>(events[0].timestamp >> timestampBits);
    header.eventCapacity = header.eventNumber = header.eventValid = static_cast<std::int32_t>(events.size());
    std::memcpy(memory.data(), &header, sizeof header);
    std::byte* at = memory.data() + PacketHeader::bytes;
    constexpr std::uint32_t timestampMask = (std::uint32_t{1} << timestampBits) - 1;
    for (const davis::event::DvsEvent& event : events) {
        const std::array<std::uint32_t, 2> word{davis::event::dataWord(event),
                                                static_cast<std::uint32_t>(event.timestamp) & timestampMask};
        std::memcpy(at, word.data(), sizeof word);
        at += sizeof word;
    }
}

namespace {

PacketHeader headerOf(const std::vector<std::byte>& memory) { return davis::recording::detail::packetHeader(memory); }

} // namespace

std::int16_t EventPacket::getEventType() const noexcept { return headerOf(memory).eventType; }
std::int32_t EventPacket::getEventSize() const noexcept { return headerOf(memory).eventSize; }
std::int32_t EventPacket::getEventTSOverflow() const noexcept { return headerOf(memory).eventTSOverflow; }
std::int32_t EventPacket::getEventNumber() const noexcept { return headerOf(memory).eventNumber; }

caerEventPacketHeaderConst EventPacket::getHeaderPointer() const noexcept
{
    return reinterpret_cast<caerEventPacketHeaderConst>(memory.data());
}

} // namespace libcaer::events
