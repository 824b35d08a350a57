#include <algorithm>
#include <array>
#include <charconv>
#include <stdexcept>

#include "davis/event/PolarityWord.h"
#include "davis/recording/detail/FileReader.h"
#include "davis/recording/detail/PacketHeader.h"
#include "util/LittleEndian.h"

namespace davis::recording::detail {

namespace {

using event::PolarityWord;

struct KnownSource {
    std::string_view name; // how the model's name begins in a "#Source" line
    SensorSize size;
};
constexpr auto knownSources = std::to_array<KnownSource>({
    {"DAVIS128", {128, 128}},
    {"DAVIS208", {208, 192}},
    {"DAVIS240", {240, 180}},
    {"DAVIS346", {346, 260}},
    {"DAVIS640", {640, 480}},
    {"DVS128", {128, 128}},
    {"DVXplorer", {640, 480}},
});

/// The size at the end of a line, as in "346x260": Writer puts it there.
std::optional<SensorSize> trailingSize(std::string_view line)
{
    const std::size_t blank = line.rfind(' ');
    if (blank == std::string_view::npos)
        return std::nullopt;
    const std::string_view text = line.substr(blank + 1);
    SensorSize size;
    const char* end = text.data() + text.size();
    const auto [cross, error] = std::from_chars(text.data(), end, size.width);
    if (error != std::errc{} || cross == end || *cross != 'x')
        return std::nullopt;
    const auto [rest, error2] = std::from_chars(cross + 1, end, size.height);
    if (error2 != std::errc{} || rest != end || size.width == 0 || size.height == 0)
        return std::nullopt;
    return size;
}

std::optional<SensorSize> sizeOfSource(std::string_view line)
{
    const std::size_t colon = line.find(": ");
    if (colon == std::string_view::npos)
        return std::nullopt;
    if (const auto size = trailingSize(line))
        return size;
    for (const KnownSource& known : knownSources)
        if (line.substr(colon + 2).starts_with(known.name))
            return known.size;
    return std::nullopt;
}

class Aedat31Reader : public FileReader {
public:
    explicit Aedat31Reader(BufferedFile&& opened) : FileReader(std::move(opened)) { readHeader(); }
    Format format() const override { return Format::aedat31; }
    std::optional<SensorSize> sensorSize() const override { return size; }

protected:
    // One packet per call, or a part of a large one.
    bool decode(std::vector<event::DvsEvent>& batch) override
    {
        if (eventsLeft == 0 && !startPacket())
            return false;
        if (header.eventType != PacketHeader::polarityType)
            return skipEvents();
        return decodeEvents(batch);
    }

private:
    [[noreturn]] void headerError(const std::string& expected) const
    {
        throw std::runtime_error(file.name() + ": expected " + expected + " at byte " + std::to_string(file.offset()));
    }

    void readHeader()
    {
        constexpr std::size_t longestLine = 65'536;
        bool first = true;
        for (bool more = true; more; first = false) {
            const std::string_view text = file.peekText(longestLine).substr(0, longestLine);
            const std::size_t end = text.find('\n');
            if (!text.starts_with('#') || end == std::string_view::npos)
                headerError(first ? "the line \"#!AER-DAT3.1\"" : "a header line, the last being \"#!END-HEADER\",");
            std::string_view line = text.substr(0, end);
            if (line.ends_with('\r'))
                line.remove_suffix(1);
            if (first && line != "#!AER-DAT3.1")
                headerError("the line \"#!AER-DAT3.1\" (this file is of another version)");
            if (line.starts_with("#Format: ") && line != "#Format: RAW")
                headerError("\"#Format: RAW\", since other formats of AEDAT 3.1 are not read,");
            if (line.starts_with("#Source ") && !size)
                size = sizeOfSource(line);
            more = line != "#!END-HEADER";
            file.take(end + 1);
        }
    }

    bool startPacket()
    {
        const std::span<const std::byte> bytes = file.peek(PacketHeader::bytes);
        if (bytes.size() < PacketHeader::bytes) {
            if (!bytes.empty())
                truncated("the 28 bytes of a packet header", bytes.size());
            return false;
        }
        header = packetHeader(bytes);
        if (!checkHeader())
            return false;
        eventsLeft = static_cast<std::uint64_t>(header.eventNumber);
        if (header.eventType != PacketHeader::polarityType)
            ++skipped_.otherPackets;
        file.take(PacketHeader::bytes);
        return true;
    }

    bool checkHeader()
    {
        const auto field = [this](bool good, const char* expected, std::int64_t found, std::uint64_t at) {
            if (!good && !damage_)
                damaged(expected, std::to_string(found), at);
        };
        field((static_cast<std::uint16_t>(header.eventType) & PacketHeader::compressedMark) == 0,
              "an event type without the mark of compression", header.eventType, 0);
        const bool polarity = header.eventType == PacketHeader::polarityType;
        field(header.eventSize > 0, "an event size of 1 or more", header.eventSize, 4);
        field(!polarity || header.eventSize == static_cast<std::int32_t>(PolarityWord::bytes),
              "an event size of 8 for polarity events", header.eventSize, 4);
        field(!polarity || header.eventTSOffset == PacketHeader::polarityTSOffset,
              "a timestamp offset of 4 for polarity events", header.eventTSOffset, 8);
        field(header.eventTSOverflow >= 0, "a timestamp overflow of 0 or more", header.eventTSOverflow, 12);
        field(header.eventNumber >= 0, "an event count of 0 or more", header.eventNumber, 20);
        field(header.eventCapacity >= header.eventNumber, "a capacity of no less than the event count",
              header.eventCapacity, 16);
        field(header.eventValid >= 0 && header.eventValid <= header.eventNumber,
              "a count of valid events of no more than the event count", header.eventValid, 24);
        return !damage_;
    }

    bool decodeEvents(std::vector<event::DvsEvent>& batch)
    {
        while (eventsLeft > 0 && batch.size() < maxBatch) {
            const std::span<const std::byte> bytes = file.peek(PolarityWord::bytes);
            if (bytes.size() < PolarityWord::bytes) {
                truncated("the 8 bytes of an event, the first of " + std::to_string(eventsLeft) +
                              " that the packet still has",
                          bytes.size());
                return false;
            }
            const std::size_t count = static_cast<std::size_t>(
                std::min<std::uint64_t>({bytes.size() / PolarityWord::bytes, maxBatch - batch.size(), eventsLeft}));
            std::size_t taken = 0;
            while (taken < count && decodeEvent(bytes.subspan(taken * PolarityWord::bytes), batch))
                ++taken;
            if (taken < count)
                damaged("a timestamp of 31 bits", "bit 31 set", taken * PolarityWord::bytes + 4);
            file.take(taken * PolarityWord::bytes);
            eventsLeft -= taken;
            if (damage_)
                return false;
        }
        return true;
    }

    bool decodeEvent(std::span<const std::byte> bytes, std::vector<event::DvsEvent>& batch)
    {
        const auto timestamp = util::readLittleEndian<std::uint32_t>(bytes.data() + 4);
        if (timestamp >> timestampBits != 0)
            return false;
        // the valid mark is not read, as with a camera
        batch.push_back(event::eventOf(util::readLittleEndian<std::uint32_t>(bytes.data()),
                                       (std::int64_t{header.eventTSOverflow} << timestampBits) | timestamp));
        return true;
    }

    bool skipEvents()
    {
        std::uint64_t left = eventsLeft * static_cast<std::uint64_t>(header.eventSize);
        while (left > 0) {
            const std::size_t present = file.peek(1).size();
            if (present == 0) {
                damaged("the " + std::to_string(left) + " bytes that the packet still has", "the end of the file");
                return false;
            }
            const auto taken = static_cast<std::size_t>(std::min<std::uint64_t>(present, left));
            file.take(taken);
            left -= taken;
        }
        eventsLeft = 0;
        return true;
    }

    std::optional<SensorSize> size;
    PacketHeader header;
    std::uint64_t eventsLeft = 0; // of the packet that has been begun
};

} // namespace

std::unique_ptr<Reader> openAedat31(BufferedFile&& file) { return std::make_unique<Aedat31Reader>(std::move(file)); }

} // namespace davis::recording::detail
