#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../Golden.h"
#include "davis/recording/Reader.h"
#include "davis/recording/Writer.h"

namespace {

namespace recording = davis::recording;
using davis::event::DvsEvent;
using recording::Format;
using recording::SensorSize;
using testing::HasSubstr;

const std::string dataFolder = std::string(VORNA_SOURCE_DIR) + "/tests/data/";

/// A folder of the test's own, removed with it.
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

/// What a recording holds, or why it is refused, without the folder's name.
std::string outcome(const std::filesystem::path& path)
{
    std::ostringstream text;
    text << path.filename().string() << ": ";
    try {
        const auto read = recording::readAll(path);
        text << formatName(read.format);
        if (read.sensorSize)
            text << ", " << read.sensorSize->width << " x " << read.sensorSize->height;
        text << ", " << read.events.size() << " events";
        if (!read.events.empty())
            text << " (" << std::ranges::count(read.events, true, &DvsEvent::polarity) << " ON, "
                 << read.events.front().timestamp << " to " << read.events.back().timestamp << " us)";
        const auto& [triggers, incomplete, otherPackets] = read.skipped;
        if (read.skipped != recording::Skipped{})
            text << ", skipped " << triggers << ' ' << incomplete << ' ' << otherPackets;
        if (read.damage)
            text << "\n  " << read.damage->text();
    } catch (const std::runtime_error& error) {
        text << "refused\n  " << error.what();
    }
    std::string all = text.str() + "\n";
    const std::string folder = path.parent_path().string() + "/";
    for (std::size_t at = 0; (at = all.find(folder)) != std::string::npos;)
        all.erase(at, folder.size());
    return all;
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

TEST_F(Recordings, AFileGivesItsEventsAndTellsByPlaceWhyThereAreNoMore)
{
    const std::string good = word(1, 1, 1, 5);
    const auto words = [](auto... values) { return "% evt 3.0\n" + bytes(static_cast<std::uint16_t>(values)...); };
    // eventSize, tsOffset, overflow, capacity, number, valid
    const auto header = [](auto... fields) {
        return aedatBegin + bytes(std::int16_t{1}, std::int16_t{1}, std::int32_t{fields}...);
    };
    const std::string special = packet(0, 12, 0, 2, std::string(24, '\xFF'));
    const std::string three = packet(1, 8, 0, 3, good + word(3, 4, 0, 11, /*valid*/ 0) + word(5, 6, 0, 12));
    const std::string late = packet(1, 8, 3, 1, word(345, 259, 1, 0x7FFFFFFF)); // (4 << 31) - 1
    const std::pair<const char*, std::string> rows[] = {
        {"types.aedat", aedatBegin + special + three + packet(1, 8, 0, 0, "") + late + special},
        {"hello.txt", "hello"},
        {"marked.dat", aedatBegin},
        {"marked.evt", "% evt 3.0\n"},
        {"geometry.raw", "% geometry 640x480\n"},
        {"keys.raw", "% format EVT3;height=20;width=30\n% end\n"},
        {"bare.raw", bytes(std::uint16_t{0x2025}, std::uint16_t{0x8001})}, // its first byte is that of '%'
        {"evt2.raw", "% evt 2.0\n"},
        {"evt21.raw", "% date today\n% format EVT21;width=3;height=4\n"},
        {"word.raw", words(0x8000, 0, 0x2001, 0x9123)},
        {"odd.raw", words(0x8000) + "x"},
        {"mark.polarity", good + word(2, 2, 0, 6, 0)},
        {"cut.polarity", good + "abc"},
        {"pixel.bin", std::string("\x01\x02\x80\x00\x05\x22\x02\x00\x00\x06", 10)},
        {"cut.bin", std::string("\x01\x02\x80\x00\x05\x01", 6)},
        {"empty.aedat", ""},
        {"version.aedat", "#!AER-DAT2.0\r\n#x\r\n"},
        {"format.aedat", "#!AER-DAT3.1\r\n#Format: SerialTS\r\n#!END-HEADER\r\n"},
        {"endless.aedat", "#!AER-DAT3.1\r\n#Format: RAW\r\n"},
        {"line.aedat", "#!AER-DAT3.1\r\n#Form"},
        {"header.aedat", aedatBegin + packet(1, 8, 0, 1, good) + "0123456789"},
        {"packet.aedat", aedatBegin + packet(1, 8, 0, 3, good + good.substr(0, 7))},
        {"timestamp.aedat", aedatBegin + packet(1, 8, 0, 2, good + word(1, 1, 1, 0x80000000))},
        {"special.aedat", aedatBegin + packet(0, 12, 0, 3, "0123")},
        {"compressed.aedat", aedatBegin + packet(std::int16_t(-32767), 8, 0, 1, good)},
        {"size.aedat", header(12, 4, 0, 1, 1, 1)},
        {"offset.aedat", header(8, 0, 0, 1, 1, 1)},
        {"overflow.aedat", header(8, 4, -1, 1, 1, 1)},
        {"capacity.aedat", header(8, 4, 0, 1, 2, 1)},
        {"count.aedat", header(8, 4, 0, 0, -1, 0)},
        {"valid.aedat", header(8, 4, 0, 2, 1, 2)},
        {"nosize.aedat", aedatBegin + packet(7, 0, 0, 5, "")},
        {"huge.aedat", aedatBegin + packet(1, 8, 0, 2147483647, good)},
    };
    std::string text = outcome(folder / "missing.bin");
    for (const char* known : {"digit_34x34.bin", "scene_640x480_cut.evt3.raw", "scene_640x480_cut.polarity"})
        text += outcome(dataFolder + known);
    for (const auto& [name, content] : rows)
        text += outcome(write(name, content));
    EXPECT_GOLDEN("recordings.txt", text);
    EXPECT_THAT([&] { recording::open(folder); }, testing::ThrowsMessage<std::runtime_error>(HasSubstr("directory")));
}

TEST(RecordingFiles, Evt3WordsAndTheirPolarityWordsHoldTheSameEvents)
{
    auto evt3 = recording::readAll(dataFolder + "scene_640x480_cut.evt3.raw");
    const auto polarity = recording::readAll(dataFolder + "scene_640x480_cut.polarity");
    EXPECT_EQ(polarity.events.front(), (DvsEvent{479, 441, false, 0}));
    const std::int64_t begin = 0x6CF'200 + 0x5; // the camera's own time
    for (DvsEvent& event : evt3.events)
        event.timestamp -= begin;
    EXPECT_EQ(evt3.events, polarity.events);
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
    const std::tuple<Format, DvsEvent, const char*> rows[] = {
        {Format::polarity, {0x8000, 0, false, 0}, "event 1 has x = 32768, y = 0; the format holds 0 to 32767"},
        {Format::polarity, {0, 0x8000, false, 0}, "event 1 has x = 0, y = 32768; the format holds 0 to 32767"},
        {Format::polarity, {0, 0, false, -1}, "event 1 has the timestamp -1; the format holds 0 to 4294967295"},
        {Format::polarity, {0, 0, false, 0x1'0000'0000}, "the timestamp 4294967296"},
        {Format::aedat31, {0, 0, false, std::int64_t{1} << 62}, "the timestamp 4611686018427387904"},
    };
    for (const auto& [format, bad, text] : rows) {
        const auto path = folder / "refused";
        recording::Writer writer(path, format);
        const std::vector<DvsEvent> events{{1, 1, true, 1}, bad};
        EXPECT_THAT([&] { writer.write(events); }, testing::ThrowsMessage<std::invalid_argument>(HasSubstr(text)));
        writer.close();
        const auto reader = recording::open(path, format);
        std::vector<DvsEvent> batch;
        EXPECT_FALSE(reader->read(batch) || reader->damage()) << "nothing was written";
    }
    EXPECT_THROW(recording::Writer(folder / "x.raw", Format::evt3), std::invalid_argument);
    EXPECT_THROW(recording::Writer(folder / "no/such/folder.polarity", Format::polarity), std::runtime_error);
}

TEST_F(Recordings, AFullDiskIsAnError)
{
    recording::Writer writer("/dev/full", Format::polarity);
    const auto events = someEvents(100);
    EXPECT_THROW((writer.write(events), writer.close()), std::runtime_error);
}

/// Good files: name and content.
std::vector<std::pair<const char*, std::string>> samples()
{
    std::string aedat = aedatBegin + packet(0, 12, 0, 1, std::string(12, 'x'));
    for (std::uint32_t i = 0; i < 5; ++i)
        aedat += packet(1, 8, 0, 3, word(i, 1, 1, i) + word(i, 2, 0, i) + word(i, 3, 1, i));
    const auto head = [](const char* name, std::size_t count) {
        std::string content(count, 0);
        std::ifstream(dataFolder + name, std::ios::binary).read(content.data(), static_cast<std::streamsize>(count));
        return content;
    };
    return {{"s.polarity", head("scene_640x480_cut.polarity", 160)},
            {"s.raw", head("scene_640x480_cut.evt3.raw", 229)},
            {"s.bin", head("digit_34x34.bin", 200)},
            {"s.aedat", aedat}};
}

TEST_F(Recordings, CutAnywhereTheBeginningIsKept)
{
    for (const auto& [name, content] : samples()) {
        const auto whole = recording::readAll(write(name, content));
        ASSERT_FALSE(whole.damage);
        std::size_t before = 0;
        for (std::size_t length = 0; length < content.size(); ++length) {
            const auto path = write(name, content.substr(0, length));
            try {
                const auto cut = recording::readAll(path);
                ASSERT_TRUE(std::ranges::mismatch(cut.events, whole.events).in1 == cut.events.end());
                EXPECT_GE(cut.events.size(), before) << name << " cut at " << length;
                EXPECT_LE(cut.events.size(), before + 1) << name << " cut at " << length;
                EXPECT_LE(cut.damage.value_or(recording::Damage{}).offset, length);
                before = cut.events.size();
            } catch (const std::runtime_error& error) { // only a header that is not whole
                EXPECT_LT(length, aedatBegin.size()) << name << ": " << error.what();
            }
        }
        EXPECT_GT(before, 0u);
    }
}

TEST_F(Recordings, AnyByteMayBeWrong)
{
    std::mt19937 random(7);
    for (const auto& [name, good] : samples())
        for (int i = 0; i < 1000; ++i) {
            std::string content = good;
            for (int flips = 1 + static_cast<int>(random() % 3); flips > 0; --flips)
                content[random() % content.size()] = static_cast<char>(random());
            const auto path = write(name, content);
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
    std::string evt3 = "% evt 3.0\n";
    std::vector<DvsEvent> events;
    for (std::uint32_t i = 0; i < 200'000; ++i) {
        const DvsEvent& event = events.emplace_back(
            DvsEvent{static_cast<std::uint16_t>(i % 34), static_cast<std::uint16_t>(i % 33), i % 3 == 0, i});
        const std::uint32_t low = i | (event.polarity ? 1u << 23 : 0);
        for (const std::uint32_t byte : {i % 34, i % 33, low >> 16, low >> 8, low})
            digit.push_back(static_cast<char>(byte));
        for (const std::uint32_t half :
             {0x8000 | i >> 12, 0x6000 | (i & 0xFFF), i % 33, 0x2000 | (event.polarity ? 0x800 : 0) | i % 34})
            evt3 += bytes(static_cast<std::uint16_t>(half));
    }
    EXPECT_TRUE(recording::readAll(write("long.bin", digit)).events == events);
    EXPECT_TRUE(recording::readAll(write("long.raw", evt3)).events == events);
}

} // namespace
