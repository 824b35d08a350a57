#include "davis/event/PolarityWord.h"

#include <cstring>
#include <vector>

#include <gtest/gtest.h>

namespace {

using davis::event::DvsEvent;

const struct {
    const char* description;
    std::uint32_t data;
    std::uint32_t timestamp;
    DvsEvent event;
} rows[] = {
    {"all clear", 0, 0, {0, 0, false, 0}},
    {"the valid mark is not read", 1, 0, {0, 0, false, 0}},
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

TEST(PolarityWord, WordsAndEventsAreMadeFromEachOtherInOrderAtAnyAlignment)
{
    std::vector<std::byte> bytes(1);
    std::vector<DvsEvent> events{{1, 2, true, 3}}; // new ones are appended
    std::vector<DvsEvent> expected = events;
    for (const auto& row : rows) {
        const std::size_t at = bytes.size();
        bytes.resize(at + 8);
        std::memcpy(bytes.data() + at, &row.data, 4);
        std::memcpy(bytes.data() + at + 4, &row.timestamp, 4);
        expected.push_back(row.event);
        EXPECT_EQ(davis::event::dataWord(row.event), row.data | 1) << row.description << ": a valid event";
    }
    davis::event::appendEvents(std::span(bytes).subspan(1), events);
    EXPECT_EQ(events, expected);
}

} // namespace
