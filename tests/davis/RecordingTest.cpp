#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "davis/recording/Reader.h"
#include "davis/recording/Writer.h"

namespace {

namespace recording = davis::recording;
using davis::event::DvsEvent;
using recording::Format;
using recording::SensorSize;
using testing::HasSubstr;

const std::string dataFolder = std::string(VORNA_SOURCE_DIR) + "/tests/data/";

/// A folder of the test's own that goes with it.
class Recordings : public testing::Test {
protected:
    Recordings()
    {
        folder = std::filesystem::temp_directory_path() / ("vorna_recordings_" + std::to_string(getpid()));
        std::filesystem::create_directories(folder);
    }
    ~Recordings() override { std::filesystem::remove_all(folder); }

    std::filesystem::path write(const std::string& name, const std::string& bytes) const
    {
        std::filesystem::remove(folder / name); // some file systems flush a file that is emptied and written again
        std::ofstream(folder / name, std::ios::binary) << bytes;
        return folder / name;
    }

    std::filesystem::path folder;
};

std::string contentOf(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

template <class... Values>
std::string bytes(Values... values)
{
    std::string text;
    const auto add = [&](auto value) { text.append(reinterpret_cast<const char*>(&value), sizeof value); };
    (add(values), ...);
    return text;
}

std::string packet(std::int16_t type, std::int32_t eventSize, std::int32_t overflow, std::int32_t count,
                   const std::string& events)
{
    return bytes(type, std::int16_t{1}, eventSize, std::int32_t{4}, overflow, count, count, count) + events;
}

std::string word(std::uint32_t x, std::uint32_t y, std::uint32_t polarity, std::uint32_t timestamp,
                 std::uint32_t valid = 1)
{
    return bytes(x << 17 | y << 2 | polarity << 1 | valid, timestamp);
}

const std::string aedatBegin = "#!AER-DAT3.1\r\n#Format: RAW\r\n#Source 1: DAVIS346\r\n#!END-HEADER\r\n";

std::vector<DvsEvent> someEvents(std::size_t count, std::int64_t firstUs = 0)
{
    std::mt19937 random(1);
    std::vector<DvsEvent> events(count);
    std::int64_t time = firstUs;
    for (DvsEvent& event : events) {
        time += random() % 50;
        event = {static_cast<std::uint16_t>(random() % 346), static_cast<std::uint16_t>(random() % 260),
                 random() % 2 == 0, time};
    }
    return events;
}

TEST(RecordingFiles, TheDigitHasItsKnownEvents)
{
    const auto digit = recording::readAll(dataFolder + "digit_34x34.bin");
    EXPECT_FALSE(digit.damage);
    EXPECT_EQ(digit.format, Format::digit);
    EXPECT_EQ(digit.sensorSize, (SensorSize{34, 34}));
    ASSERT_EQ(digit.events.size(), 4325u);
    EXPECT_EQ(std::ranges::count(digit.events, true, &DvsEvent::polarity), 2145);
    EXPECT_EQ(digit.events.front().timestamp, 654);
    EXPECT_EQ(digit.events.back().timestamp, 311'175);
    EXPECT_TRUE(std::ranges::is_sorted(digit.events, {}, &DvsEvent::timestamp));
}

TEST(RecordingFiles, Evt3WordsAndTheirPolarityWordsTellTheSameEvents)
{
    auto evt3 = recording::readAll(dataFolder + "scene_640x480_cut.evt3.raw");
    const auto polarity = recording::readAll(dataFolder + "scene_640x480_cut.polarity");
    EXPECT_FALSE(evt3.damage);
    EXPECT_FALSE(polarity.damage);
    EXPECT_EQ(evt3.sensorSize, (SensorSize{640, 480}));
    EXPECT_EQ(evt3.skipped.triggers, 67u);
    ASSERT_EQ(polarity.events.size(), 2612u);
    EXPECT_EQ(polarity.events.front(), (DvsEvent{479, 441, false, 0}));
    EXPECT_EQ(evt3.events.front().timestamp, 0x6CF'200 + 0x5) << "the camera's own time";
    const std::int64_t begin = evt3.events.front().timestamp;
    for (DvsEvent& event : evt3.events)
        event.timestamp -= begin;
    EXPECT_EQ(evt3.events, polarity.events);
}

TEST_F(Recordings, AedatPacketsAreReadByType)
{
    const std::string special = packet(0, 12, 0, 2, std::string(24, '\xFF'));
    const std::string first =
        packet(1, 8, 0, 3, word(1, 2, 1, 10) + word(3, 4, 0, 11, /*valid*/ 0) + word(5, 6, 0, 12));
    const std::string later = packet(1, 8, 3, 1, word(345, 259, 1, 0x7FFFFFFF));
    const std::string empty = packet(1, 8, 0, 0, "");
    const auto path = write("scene.aedat", aedatBegin + special + first + empty + later + special);

    const auto reader = recording::open(path);
    EXPECT_EQ(reader->format(), Format::aedat31);
    EXPECT_EQ(reader->sensorSize(), (SensorSize{346, 260}));
    std::vector<DvsEvent> batch;
    ASSERT_TRUE(reader->read(batch));
    EXPECT_EQ(batch, (std::vector<DvsEvent>{{1, 2, true, 10}, {3, 4, false, 11}, {5, 6, false, 12}}))
        << "a packet, whole";
    ASSERT_TRUE(reader->read(batch));
    EXPECT_EQ(batch, (std::vector<DvsEvent>{{345, 259, true, (std::int64_t{4} << 31) - 1}}));
    EXPECT_FALSE(reader->read(batch));
    EXPECT_FALSE(reader->damage());
    EXPECT_EQ(reader->skipped().otherPackets, 2u);
}

TEST_F(Recordings, WhatIsWrittenIsReadBackEqual)
{
    const struct {
        Format format;
        const char* name;
        std::int64_t firstUs;
    } rows[] = {
        {Format::polarity, "a.polarity", 0},
        {Format::polarity, "b.polarity", 0xFFFFFFFF - 5'000'000},
        {Format::aedat31, "c.aedat", 0},
        {Format::aedat31, "d.aedat", (std::int64_t{1} << 31) - 2'000'000}, // crosses into the overflow
        {Format::aedat31, "e.aedat", (std::int64_t{1} << 40) + 12'345},
    };
    for (const auto& row : rows) {
        const auto events = someEvents(150'000, row.firstUs);
        recording::writeAll(folder / row.name, row.format, events, SensorSize{34, 12});
        const auto back = recording::readAll(folder / row.name);
        EXPECT_FALSE(back.damage) << row.name;
        EXPECT_EQ(back.format, row.format);
        EXPECT_TRUE(back.events == events) << row.name;
        EXPECT_EQ(back.sensorSize.has_value(), row.format == Format::aedat31);
        EXPECT_EQ(back.sensorSize.value_or(SensorSize{34, 12}), (SensorSize{34, 12}));
    }
}

TEST_F(Recordings, TheWriterRefusesWhatItsFormatCannotHoldBeforeItWritesAnything)
{
    const struct {
        Format format;
        DvsEvent event;
        const char* text;
    } rows[] = {
        {Format::polarity, {0x8000, 0, false, 0}, "event 1 has x = 32768, y = 0; the format holds 0 to 32767"},
        {Format::polarity, {0, 0x8000, false, 0}, "event 1 has x = 0, y = 32768; the format holds 0 to 32767"},
        {Format::polarity, {0, 0, false, -1}, "event 1 has the timestamp -1; the format holds 0 to 4294967295"},
        {Format::polarity, {0, 0, false, 0x1'0000'0000}, "the timestamp 4294967296"},
        {Format::aedat31, {0, 0, false, std::int64_t{1} << 62}, "the timestamp 4611686018427387904"},
    };
    for (const auto& row : rows) {
        const auto path = folder / "refused";
        recording::Writer writer(path, row.format);
        const std::vector<DvsEvent> events{{1, 1, true, 1}, row.event};
        EXPECT_THAT([&] { writer.write(events); }, testing::ThrowsMessage<std::invalid_argument>(HasSubstr(row.text)));
        writer.close();
        const std::string header = row.format == Format::aedat31 ? "#!END-HEADER\r\n" : "";
        EXPECT_TRUE(contentOf(path).ends_with(header));
        EXPECT_TRUE(recording::open(path, row.format)->damage() == std::nullopt);
    }
    EXPECT_THROW(recording::Writer(folder / "x.raw", Format::evt3), std::invalid_argument);
    EXPECT_THROW(recording::Writer(folder / "no/such/folder.polarity", Format::polarity), std::runtime_error);
}

TEST_F(Recordings, AFullDiskIsAnError)
{
    if (!std::filesystem::exists("/dev/full"))
        FAIL() << "no /dev/full on this system";
    recording::Writer writer("/dev/full", Format::polarity);
    const auto events = someEvents(100);
    EXPECT_THROW(
        {
            writer.write(events);
            writer.close();
        },
        std::runtime_error);
}

TEST_F(Recordings, WhatIsNoRecordingIsRefusedByName)
{
    const struct {
        const char* name;
        std::string content;
        const char* text;
    } rows[] = {
        {"x.txt", "hello", "cannot tell what recording this is"},
        {"x.raw", "% evt 2.0\n", "header line \"% evt 2.0\" at byte 0 names an encoding other than EVT 3.0"},
        {"y.raw", "% date today\n% format EVT21;width=3;height=4\n", "at byte 13 names an encoding other than EVT 3.0"},
        {"x.aedat", "", "expected the line \"#!AER-DAT3.1\" at byte 0"},
        {"y.aedat", "#!AER-DAT2.0\r\n#x\r\n",
         "expected the line \"#!AER-DAT3.1\" (this file is of another version) at byte 0"},
        {"z.aedat", "#!AER-DAT3.1\r\n#Format: SerialTS\r\n#!END-HEADER\r\n", "expected \"#Format: RAW\""},
        {"u.aedat", "#!AER-DAT3.1\r\n#Format: RAW\r\n",
         "expected a header line, the last being \"#!END-HEADER\", at byte 28"},
        {"v.aedat", "#!AER-DAT3.1\r\n#Form", "at byte 14"},
    };
    for (const auto& row : rows) {
        const auto path = write(row.name, row.content);
        EXPECT_THAT([&] { recording::open(path); }, testing::ThrowsMessage<std::runtime_error>(
                                                        testing::AllOf(HasSubstr(path.string()), HasSubstr(row.text))));
    }
    EXPECT_THAT([&] { recording::open(folder / "missing.bin"); },
                testing::ThrowsMessage<std::runtime_error>(HasSubstr("No such file or directory")));
    EXPECT_THAT([&] { recording::open(folder); }, testing::ThrowsMessage<std::runtime_error>(HasSubstr("directory")));
}

TEST_F(Recordings, ContentTellsTheFormatWhereTheNameDoesNot)
{
    EXPECT_EQ(recording::open(write("a.dat", aedatBegin))->format(), Format::aedat31);
    EXPECT_EQ(recording::open(write("b.dat", "% evt 3.0\n"))->format(), Format::evt3);
    // The first word of a stream without header may begin with the byte of '%'.
    const auto bare = recording::open(write("c.raw", bytes(std::uint16_t{0x2025}, std::uint16_t{0x8001})));
    std::vector<DvsEvent> batch;
    EXPECT_FALSE(bare->read(batch));
    EXPECT_FALSE(bare->damage());
    EXPECT_EQ(bare->skipped().incomplete, 1u);
    EXPECT_EQ(recording::open(write("d.raw", "% format EVT3;height=20;width=30\n% end\n"))->sensorSize(),
              (SensorSize{30, 20}));
}

TEST_F(Recordings, ADamagedPlaceIsToldAndWhatCameBeforeItStays)
{
    const std::string good = word(1, 1, 1, 5);
    const std::uint64_t head = aedatBegin.size();
    const auto header = [](std::int32_t eventSize, std::int32_t tsOffset, std::int32_t overflow, std::int32_t capacity,
                           std::int32_t number, std::int32_t valid) {
        return bytes(std::int16_t{1}, std::int16_t{1}, eventSize, tsOffset, overflow, capacity, number, valid);
    };
    const struct {
        const char* name;
        std::string content;
        std::size_t events;
        std::uint64_t offset;
        const char* text;
    } rows[] = {
        {"a.polarity", good + word(2, 2, 0, 6, 0), 1, 8,
         "expected an event with its valid mark (bit 0) set, found data word 0x00040008"},
        {"b.polarity", good + "abc", 1, 8,
         "expected the 8 bytes of an event, found the end of the file after 3 of them"},
        {"c.bin", std::string("\x01\x02\x80\x00\x05", 5) + std::string("\x22\x02\x00\x00\x06", 5), 1, 5,
         "found x = 34, y = 2"},
        {"d.bin", std::string("\x01\x02\x80\x00\x05", 5) + "\x01", 1, 5, "after 1 of them"},
        {"e.raw",
         "% evt 3.0\n" + bytes(std::uint16_t{0x8000}, std::uint16_t{0}, std::uint16_t{0x2001}, std::uint16_t{0x9123}),
         1, 16, "found word 0x9123"},
        {"f.raw", "% evt 3.0\n" + bytes(std::uint16_t{0x8000}) + "x", 0, 12, "the 2 bytes of a word"},
        {"g.aedat", aedatBegin + packet(1, 8, 0, 1, good) + "0123456789", 1, head + 36,
         "the 28 bytes of a packet header, found the end of the file after 10"},
        {"h.aedat", aedatBegin + packet(1, 8, 0, 3, good + good.substr(0, 7)), 1, head + 36,
         "the first of 2 that the packet still has, found the end of the file after 7"},
        {"i.aedat", aedatBegin + packet(1, 8, 0, 2, good + word(1, 1, 1, 0x80000000)), 1, head + 40,
         "a timestamp of 31 bits"},
        {"j.aedat", aedatBegin + packet(0, 12, 0, 3, "0123"), 0, head + 32, "the 32 bytes that the packet still has"},
        {"k.aedat", aedatBegin + packet(std::int16_t(-32767), 8, 0, 1, good), 0, head,
         "without the mark of compression, found -32767"},
        {"l.aedat", aedatBegin + header(12, 4, 0, 1, 1, 1), 0, head + 4,
         "an event size of 8 for polarity events, found 12"},
        {"m.aedat", aedatBegin + header(8, 0, 0, 1, 1, 1), 0, head + 8, "a timestamp offset of 4"},
        {"n.aedat", aedatBegin + header(8, 4, -1, 1, 1, 1), 0, head + 12, "overflow of 0 or more, found -1"},
        {"o.aedat", aedatBegin + header(8, 4, 0, 1, 2, 1), 0, head + 16, "a capacity of no less than the event count"},
        {"p.aedat", aedatBegin + header(8, 4, 0, 0, -1, 0), 0, head + 20, "an event count of 0 or more, found -1"},
        {"q.aedat", aedatBegin + header(8, 4, 0, 2, 1, 2), 0, head + 24, "a count of valid events"},
        {"r.aedat", aedatBegin + packet(7, 0, 0, 5, ""), 0, head + 4, "an event size of 1 or more, found 0"},
        {"s.aedat", aedatBegin + packet(1, 8, 0, 2147483647, good), 1, head + 36,
         "the first of 2147483646 that the packet still has"},
    };
    for (const auto& row : rows) {
        const auto path = write(row.name, row.content);
        const auto read = recording::readAll(path);
        ASSERT_TRUE(read.damage) << row.name;
        EXPECT_EQ(read.events.size(), row.events) << row.name;
        EXPECT_EQ(read.damage->offset, row.offset) << row.name;
        EXPECT_THAT(read.damage->text(), HasSubstr(row.text));
        EXPECT_THAT(read.damage->text(), HasSubstr(path.string() + ": damaged at byte " + std::to_string(row.offset)));
    }
}

struct Sample {
    const char* name;
    std::string content;
};

std::vector<Sample> samples()
{
    std::string aedat = aedatBegin + packet(0, 12, 0, 1, std::string(12, 'x'));
    for (std::uint32_t i = 0; i < 5; ++i)
        aedat += packet(1, 8, 0, 3, word(i, 1, 1, i) + word(i, 2, 0, i) + word(i, 3, 1, i));
    const auto head = [](const char* name, std::size_t count) { return contentOf(dataFolder + name).substr(0, count); };
    return {{"s.polarity", head("scene_640x480_cut.polarity", 160)},
            {"s.raw", head("scene_640x480_cut.evt3.raw", 229)},
            {"s.bin", head("digit_34x34.bin", 200)},
            {"s.aedat", aedat}};
}

TEST_F(Recordings, CutAnywhereTheBeginningIsKept)
{
    for (const Sample& sample : samples()) {
        const auto whole = recording::readAll(write(sample.name, sample.content));
        ASSERT_FALSE(whole.damage);
        ASSERT_FALSE(whole.events.empty());
        std::size_t before = 0;
        for (std::size_t length = 0; length < sample.content.size(); ++length) {
            const auto path = write(sample.name, sample.content.substr(0, length));
            try {
                const auto cut = recording::readAll(path);
                ASSERT_LE(cut.events.size(), whole.events.size());
                EXPECT_TRUE(std::equal(cut.events.begin(), cut.events.end(), whole.events.begin()));
                EXPECT_GE(cut.events.size(), before) << sample.name << " cut at " << length;
                EXPECT_LE(cut.events.size(), before + 1) << sample.name << " cut at " << length;
                EXPECT_LE(cut.damage.value_or(recording::Damage{}).offset, length);
                before = cut.events.size();
            } catch (const std::runtime_error& error) { // only a header that is not whole
                EXPECT_EQ(before, 0u) << error.what();
                EXPECT_LT(length, aedatBegin.size()) << sample.name << ": " << error.what();
            }
        }
    }
}

TEST_F(Recordings, NoByteAtAllMayBeAnything)
{
    std::mt19937 random(7);
    for (const Sample& sample : samples())
        for (int i = 0; i < 1000; ++i) {
            std::string content = sample.content;
            for (int flips = 1 + static_cast<int>(random() % 3); flips > 0; --flips)
                content[random() % content.size()] = static_cast<char>(random());
            const auto path = write(sample.name, content);
            try {
                const auto read = recording::readAll(path);
                EXPECT_LE(read.events.size(), 12 * content.size());
                EXPECT_LE(read.damage.value_or(recording::Damage{}).offset, content.size());
            } catch (const std::runtime_error& error) {
                EXPECT_THAT(error.what(), HasSubstr(path.string()));
            }
        }
}

// Longer than every buffer of the readers, with records that lie across their ends.
TEST_F(Recordings, NothingIsLostBetweenBuffers)
{
    std::string digit;
    std::vector<DvsEvent> events;
    for (std::uint32_t i = 0; i < 200'000; ++i) {
        events.push_back({static_cast<std::uint16_t>(i % 34), static_cast<std::uint16_t>(i % 33), i % 3 == 0, i});
        const std::uint32_t low = i | (i % 3 == 0 ? 1u << 23 : 0);
        for (const std::uint32_t byte : {i % 34, i % 33, low >> 16, low >> 8, low})
            digit.push_back(static_cast<char>(byte));
    }
    EXPECT_TRUE(recording::readAll(write("long.bin", digit)).events == events);

    std::string evt3 = "% evt 3.0\n";
    for (const DvsEvent& event : events)
        evt3 += bytes(static_cast<std::uint16_t>(0x8000 | event.timestamp >> 12),
                      static_cast<std::uint16_t>(0x6000 | (event.timestamp & 0xFFF)), event.y,
                      static_cast<std::uint16_t>(0x2000 | (event.polarity ? 0x800 : 0) | event.x));
    EXPECT_TRUE(recording::readAll(write("long.raw", evt3)).events == events);
}

} // namespace
