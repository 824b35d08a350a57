#include "davis/recording/Writer.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <system_error>

#include "davis/event/PolarityWord.h"
#include "davis/recording/detail/PacketHeader.h"

namespace davis::recording {

namespace {

using event::DvsEvent;
using event::PolarityWord;

constexpr std::int64_t largestPolarityTime = 0xFFFF'FFFF;
constexpr std::int64_t largestAedatTime = (std::int64_t{1} << (2 * detail::timestampBits)) - 1;

template <class Word>
void put(std::vector<std::byte>& bytes, const Word& word)
{
    const std::size_t at = bytes.size();
    bytes.resize(at + sizeof word);
    std::memcpy(bytes.data() + at, &word, sizeof word);
}

void putEvents(std::vector<std::byte>& bytes, std::span<const DvsEvent> events, std::uint32_t timestampMask)
{
    for (const DvsEvent& event : events)
        put(bytes, std::array<std::uint32_t, 2>{event::dataWord(event),
                                                static_cast<std::uint32_t>(event.timestamp) & timestampMask});
}

/// Packets for events that may lie in more than one turn of the 31-bit timestamp.
void putPackets(std::vector<std::byte>& bytes, std::span<const DvsEvent> events)
{
    const auto turn = [](const DvsEvent& event) { return event.timestamp >> detail::timestampBits; };
    while (!events.empty()) {
        const auto end = std::ranges::find_if(events, [&](const DvsEvent& e) { return turn(e) != turn(events[0]); });
        const auto packet = events.first(static_cast<std::size_t>(end - events.begin()));
        detail::PacketHeader header;
        header.eventType = detail::PacketHeader::polarityType;
        header.eventSource = 1;
        header.eventSize = static_cast<std::int32_t>(PolarityWord::bytes);
        header.eventTSOffset = detail::PacketHeader::polarityTSOffset;
        header.eventTSOverflow = static_cast<std::int32_t>(turn(events[0]));
        header.eventCapacity = header.eventNumber = header.eventValid = static_cast<std::int32_t>(packet.size());
        put(bytes, header);
        putEvents(bytes, packet, (std::uint32_t{1} << detail::timestampBits) - 1);
        events = events.subspan(packet.size());
    }
}

std::string aedatHeader(std::optional<SensorSize> size)
{
    std::string source = "DVS";
    if (size)
        source += " " + std::to_string(size->width) + "x" + std::to_string(size->height);
    return "#!AER-DAT3.1\r\n#Format: RAW\r\n#Source 1: " + source + "\r\n#!END-HEADER\r\n";
}

} // namespace

Writer::Writer(const std::filesystem::path& path, Format format, std::optional<SensorSize> sensorSize)
    : name(path.string()), format(format)
{
    if (format != Format::polarity && format != Format::aedat31)
        throw std::invalid_argument(name + ": recordings are written as polarity words or AEDAT 3.1, not as " +
                                    formatName(format));
    file.open(path, std::ios::binary | std::ios::trunc);
    if (!file)
        throw std::runtime_error(name + ": cannot write a recording there: " + std::generic_category().message(errno));
    if (format == Format::aedat31)
        file << aedatHeader(sensorSize);
}

Writer::~Writer() { file.close(); }

void Writer::write(std::span<const DvsEvent> events)
{
    check(events);
    // so that a packet's count always fits its field, and the copy in memory stays small
    constexpr std::size_t mostAtOnce = 65'536;
    while (!events.empty()) {
        const auto part = events.first(std::min(events.size(), mostAtOnce));
        std::vector<std::byte> bytes;
        bytes.reserve(part.size() * PolarityWord::bytes + detail::PacketHeader::bytes);
        if (format == Format::aedat31)
            putPackets(bytes, part);
        else
            putEvents(bytes, part, 0xFFFF'FFFF);
        append(bytes);
        events = events.subspan(part.size());
    }
}

void Writer::check(std::span<const DvsEvent> events) const
{
    const std::int64_t largestTime = format == Format::aedat31 ? largestAedatTime : largestPolarityTime;
    for (std::size_t i = 0; i < events.size(); ++i) {
        const DvsEvent& event = events[i];
        if (event.x > PolarityWord::x.largest() || event.y > PolarityWord::y.largest())
            throw std::invalid_argument(name + ": event " + std::to_string(i) + " has x = " + std::to_string(event.x) +
                                        ", y = " + std::to_string(event.y) + "; the format holds 0 to 32767");
        if (event.timestamp < 0 || event.timestamp > largestTime)
            throw std::invalid_argument(name + ": event " + std::to_string(i) + " has the timestamp " +
                                        std::to_string(event.timestamp) + "; the format holds 0 to " +
                                        std::to_string(largestTime));
    }
}

void Writer::append(const std::vector<std::byte>& bytes)
{
    if (!file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size())))
        throw std::runtime_error(name + ": writing the recording failed: " + std::generic_category().message(errno));
}

void Writer::close()
{
    if (!file.is_open())
        return;
    file.close();
    if (!file)
        throw std::runtime_error(name + ": writing the recording failed: " + std::generic_category().message(errno));
}

void writeAll(const std::filesystem::path& path, Format format, std::span<const DvsEvent> events,
              std::optional<SensorSize> sensorSize)
{
    constexpr std::size_t packetEvents = 4096; // a camera's packets hold some thousands
    Writer writer(path, format, sensorSize);
    for (std::size_t at = 0; at < events.size(); at += packetEvents)
        writer.write(events.subspan(at, std::min(packetEvents, events.size() - at)));
    writer.close();
}

} // namespace davis::recording
