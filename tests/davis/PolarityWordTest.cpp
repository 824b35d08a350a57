#include "davis/event/PolarityWord.h"

#include <cstring>
#include <vector>

#include <gtest/gtest.h>

namespace {

using davis::event::DvsEvent;

struct Row {
    const char* description;
    std::uint32_t data;
    std::uint32_t timestamp;
    DvsEvent event;
};
constexpr Row rows[] = {
    {"all clear", 0, 0, {0, 0, false, 0}},
    {"the valid mark is not looked at", 1, 0, {0, 0, false, 0}},
    {"bit 1 is the polarity", 2, 0, {0, 0, true, 0}},
    {"lowest bit of y", 1u << 2, 0, {0, 1, false, 0}},
    {"highest bit of y", 1u << 16, 0, {0, 0x4000, false, 0}},
    {"lowest bit of x", 1u << 17, 0, {1, 0, false, 0}},
    {"highest bit of x", 1u << 31, 0, {0x4000, 0, false, 0}},
    {"all set", 0xFFFFFFFF, 0x7FFFFFFF, {0x7FFF, 0x7FFF, true, 0x7FFFFFFF}},
    {"a timestamp with its top bit is negative", 0, 0x80000000, {0, 0, false, -2147483648LL}},
    {"one before the turn to 0", 0, 0xFFFFFFFF, {0, 0, false, -1}},
    {"a pixel of a 346 x 260 sensor", 345u << 17 | 259u << 2 | 3, 1'000'000, {345, 259, true, 1'000'000}},
};

std::vector<std::byte> bytesOf(std::span<const Row> some)
{
    std::vector<std::byte> bytes(some.size() * 8);
    for (std::size_t i = 0; i < some.size(); ++i) {
        std::memcpy(bytes.data() + 8 * i, &some[i].data, 4);
        std::memcpy(bytes.data() + 8 * i + 4, &some[i].timestamp, 4);
    }
    return bytes;
}

TEST(PolarityWord, EventsComeOutOfWordsBitByBit)
{
    for (const Row& row : rows) {
        std::vector<DvsEvent> events;
        davis::event::appendEvents(bytesOf({&row, 1}), events);
        EXPECT_EQ(events, std::vector{row.event}) << row.description;
    }
}

TEST(PolarityWord, WordsAreAppendedInOrderAtAnyAlignment)
{
    std::vector<std::byte> bytes = bytesOf(rows);
    bytes.insert(bytes.begin(), std::byte{0xAA});
    std::vector<DvsEvent> events{{1, 2, true, 3}};
    std::vector<DvsEvent> expected = events;
    for (const Row& row : rows)
        expected.push_back(row.event);
    davis::event::appendEvents(std::span(bytes).subspan(1), events);
    EXPECT_EQ(events, expected);
}

TEST(PolarityWord, AWordMadeFromAnEventIsValidAndGivesItBack)
{
    for (const DvsEvent event : {DvsEvent{0, 0, false, 0}, {0x7FFF, 0, true, 0}, {0, 0x7FFF, false, 0}}) {
        const std::uint32_t word = davis::event::dataWord(event);
        EXPECT_EQ(word & 1, 1u);
        EXPECT_EQ(davis::event::eventOf(word, 0), event);
    }
}

} // namespace
