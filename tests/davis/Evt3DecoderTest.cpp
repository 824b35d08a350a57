#include "davis/recording/Evt3Decoder.h"

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using davis::event::DvsEvent;
using davis::recording::Evt3Decoder;
using davis::recording::SensorSize;

std::vector<std::byte> bytesOf(const std::vector<std::uint16_t>& words)
{
    std::vector<std::byte> bytes(words.size() * 2);
    if (!words.empty())
        std::memcpy(bytes.data(), words.data(), bytes.size());
    return bytes;
}

struct Row {
    const char* description;
    std::vector<std::uint16_t> words;
    std::vector<DvsEvent> events;
    std::uint64_t triggers = 0;
    std::uint64_t incomplete = 0;
};
const std::vector<Row> rows = {
    {"nothing", {}, {}},
    {"one ON and one OFF event of a row",
     {0x8000, 0x6005, 0x0007, 0x2803, 0x2004},
     {{3, 7, true, 5}, {4, 7, false, 5}}},
    {"time's high part stands 12 bits up", {0x8001, 0x6002, 0x0000, 0x2000}, {{0, 0, false, 0x1002}}},
    {"a new high part clears the low one", {0x8001, 0x6FFF, 0x0000, 0x8002, 0x2000}, {{0, 0, false, 0x2000}}},
    {"the same high part repeated does not", {0x8001, 0x6FFF, 0x0000, 0x8001, 0x2000}, {{0, 0, false, 0x1FFF}}},
    {"time goes on growing beyond 24 bits",
     {0x8FFF, 0x6FFF, 0x0000, 0x2000, 0x8000, 0x6001, 0x2001},
     {{0, 0, false, 0xFFFFFF}, {1, 0, false, 0x1000001}}},
    {"a high part that goes back a little is no turn", {0x8010, 0x0000, 0x800F, 0x2000}, {{0, 0, false, 0xF000}}},
    {"the camera's number is no part of the row", {0x8000, 0x0FFF, 0x2000}, {{0, 0x7FF, false, 0}}},
    {"a vector of 12", {0x8000, 0x0001, 0x380A, 0x4801}, {{10, 1, true, 0}, {21, 1, true, 0}}},
    {"a vector of 8 ignores its upper bits", {0x8000, 0x0001, 0x300A, 0x5F81}, {{10, 1, false, 0}, {17, 1, false, 0}}},
    {"vectors go on where the last one ended",
     {0x8000, 0x0000, 0x3000, 0x4000, 0x5001, 0x4001},
     {{12, 0, false, 0}, {20, 0, false, 0}}},
    {"triggers are counted", {0x8000, 0xA001, 0xA100, 0x0000, 0x2000}, {{0, 0, false, 0}}, 2},
    {"other words and what continues them are passed over",
     {0x8000, 0x0000, 0xE014, 0x7001, 0xF123, 0x2000},
     {{0, 0, false, 0}}},
    {"events before the first time and the first row are counted and dropped",
     {0x6003, 0x0002, 0x2001, 0x3000, 0x4007, 0x8000, 0x2001, 0x6001, 0x2001},
     {{1, 2, false, 0}, {1, 2, false, 1}},
     0,
     4},
    {"events before the first row alone", {0x8000, 0x2001, 0x0002, 0x2001}, {{1, 2, false, 0}}, 0, 1},
};

TEST(Evt3Decoder, WordsTellEventsWhereverTheStreamIsCutBetweenThem)
{
    for (const Row& row : rows)
        for (std::size_t cut = 0; cut <= row.words.size(); ++cut) {
            const auto bytes = bytesOf(row.words);
            Evt3Decoder decoder;
            std::vector<DvsEvent> events;
            EXPECT_EQ(decoder.decode(std::span(bytes).first(2 * cut), events), cut) << row.description;
            EXPECT_EQ(decoder.decode(std::span(bytes).subspan(2 * cut), events), row.words.size() - cut);
            EXPECT_EQ(events, row.events) << row.description << ", cut at word " << cut;
            EXPECT_EQ(decoder.triggers(), row.triggers) << row.description;
            EXPECT_EQ(decoder.incomplete(), row.incomplete) << row.description;
        }
}

TEST(Evt3Decoder, AWordThatCannotBeEndsDecodingAndTheEventsBeforeItStay)
{
    const char* const type = "an EVT 3.0 word of type 0, 2 to 8, A, E or F";
    const std::pair<std::uint16_t, const char*> bad[] = {
        {0x1000, type},
        {0x9000, type},
        {0xBFFF, type},
        {0xD001, type},
        {0x2000 | 34, "a column within the sensor"},
        {0x0000 | 20, "a row within the sensor"},
        {0x4008, "a vector within the sensor"},
    };
    for (const auto& [word, expected] : bad) {
        Evt3Decoder decoder(SensorSize{34, 20});
        std::vector<DvsEvent> events;
        const auto bytes = bytesOf({0x8000, 0x0013, 0x2021, 0x301F, 0x4007, word, 0x2001});
        // the vector's base has moved on by 12, so that even its first bit lies outside
        EXPECT_EQ(decoder.decode(bytes, events), 5u) << std::hex << word;
        EXPECT_STREQ(decoder.expected(), expected);
        EXPECT_EQ(events.size(), 4u);
        EXPECT_EQ(decoder.decode(bytes, events), 0u) << "it stays ended";
    }
}

// Nothing but vectors: the base must not run out of what a pixel holds.
TEST(Evt3Decoder, ALongRunOfVectorsEndsAtTheEdge)
{
    std::vector<std::uint16_t> words{0x8000, 0x0000, 0x3000};
    words.insert(words.end(), 100'000, 0x4FFF);
    Evt3Decoder decoder;
    std::vector<DvsEvent> events;
    EXPECT_LT(decoder.decode(bytesOf(words), events), words.size());
    EXPECT_STREQ(decoder.expected(), "a vector within the sensor");
    EXPECT_LT(events.back().x, 4096);
}

} // namespace
