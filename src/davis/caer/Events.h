#pragma once
// Event packets under libcaer's names, as far as the cameras read them: memory that begins with a header of 28 bytes
// (its fields in recording/detail/Aedat31.h, which is the same on disk), then events.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "davis/event/DvsEvent.h"

/// How libcaer's C side sees a packet's memory.
struct caer_event_packet_header;
using caerEventPacketHeaderConst = const caer_event_packet_header*;

enum caer_default_event_types : std::int16_t { SPECIAL_EVENT = 0, POLARITY_EVENT = 1 };
constexpr std::size_t CAER_EVENT_PACKET_HEADER_SIZE = 28;

namespace libcaer::events {

class EventPacket {
public:
    /// A packet of `type` over `events` (8 bytes each), which share the time bits above the 31st.
    EventPacket(std::int16_t type, std::span<const davis::event::DvsEvent> events);
    virtual ~EventPacket() = default;

    std::int16_t getEventType() const noexcept;
    std::int32_t getEventSize() const noexcept;
    std::int32_t getEventTSOverflow() const noexcept;
    std::int32_t getEventNumber() const noexcept; ///< valid or not
    /// The packet's memory: header, then getEventNumber() events of getEventSize() bytes.
    caerEventPacketHeaderConst getHeaderPointer() const noexcept;

private:
    std::vector<std::byte> memory;
};

class PolarityEventPacket : public EventPacket {
public:
    explicit PolarityEventPacket(std::span<const davis::event::DvsEvent> events) : EventPacket(POLARITY_EVENT, events)
    {}
};

/// Packets of several types that belong to one read; a place may be empty.
class EventPacketContainer {
public:
    using Packets = std::vector<std::shared_ptr<EventPacket>>;

    void addEventPacket(std::shared_ptr<EventPacket> packet) { packets.push_back(std::move(packet)); }
    Packets::size_type size() const noexcept { return packets.size(); }
    Packets::iterator begin() noexcept { return packets.begin(); }
    Packets::iterator end() noexcept { return packets.end(); }

private:
    Packets packets;
};

} // namespace libcaer::events
