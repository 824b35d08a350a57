#include "util/Report.h"

#include <array>
#include <sstream>

#include <gtest/gtest.h>

namespace {

using namespace util;

// The line that `report` writes. It says no, asks for the name and flushes exactly when it writes one.
template <class Report>
std::string lineOf(Report report)
{
    struct Counting : std::stringbuf {
        int flushed = 0;
        int sync() override { return ++flushed, 0; }
    };
    Counting buffer;
    std::ostream stream(&buffer);
    int asked = 0;
    const auto name = [&] {
        ++asked;
        return "a";
    };
    const bool good = report(name, stream);
    EXPECT_EQ(good, buffer.str().empty());
    EXPECT_EQ(asked, good ? 0 : 1);
    EXPECT_EQ(buffer.flushed, good ? 0 : 1);
    return buffer.str();
}

TEST(Report, Lines)
{
    const auto range = [](auto value, decltype(value) low, decltype(value) high) {
        return lineOf([&](auto name, auto& stream) { return reportIfNotInRange(value, low, high, name, stream); });
    };
    EXPECT_EQ(range(0, 0, 3) + range(3, 0, 3), "");
    EXPECT_EQ(range(5, 0, 3), "a must be in [0,3]. Actual: 5\n");
    EXPECT_EQ(range(-1, 0, 3), "a must be in [0,3]. Actual: -1\n");
    EXPECT_EQ(range('z', 'a', 'c'), "a must be in [a,c]. Actual: z\n");
    using Signed = signed char;
    using Unsigned = unsigned char;
    EXPECT_EQ(range(Signed(-2), Signed(0), Signed(65)), "a must be in [0,65]. Actual: -2\n");
    EXPECT_EQ(range(Unsigned(200), Unsigned(0), Unsigned(65)), "a must be in [0,65]. Actual: 200\n");

    const auto array = [](auto value, const auto& good) {
        return lineOf([&](auto name, auto& stream) { return reportIfNotInArray(value, good, name, stream); });
    };
    EXPECT_EQ(array(2, std::array{1, 2}), "");
    EXPECT_EQ(array(3, std::array{1, 2}), "a must be in {1, 2}. Actual: 3\n");
    EXPECT_EQ(array(3, std::array<int, 0>{}), "a must be in {}. Actual: 3\n");

    const auto equal = [](auto value, decltype(value) expected) {
        return lineOf([&](auto name, auto& stream) { return reportIfNotEqual(value, expected, name, stream); });
    };
    EXPECT_EQ(equal(true, true), "");
    EXPECT_EQ(equal(false, true), "a must be 1. Actual: 0\n");
}

} // namespace
