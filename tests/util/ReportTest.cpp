#include "util/Report.h"

#include <array>
#include <sstream>

#include <gtest/gtest.h>

namespace {

using namespace util;

// The line that `report` writes, and that it says no exactly when it writes one and asks for the name.
template <class Report>
std::string lineOf(Report report)
{
    std::ostringstream stream;
    int asked = 0;
    const auto name = [&] {
        ++asked;
        return std::string("a");
    };
    const bool good = report(name, stream);
    EXPECT_EQ(good, stream.str().empty());
    EXPECT_EQ(asked, good ? 0 : 1);
    return stream.str();
}

TEST(Report, Range)
{
    const auto line = [](auto value, decltype(value) low, decltype(value) high) {
        return lineOf([&](auto name, auto& stream) { return reportIfNotInRange(value, low, high, name, stream); });
    };
    EXPECT_EQ(line(0, 0, 3), "");
    EXPECT_EQ(line(3, 0, 3), "");
    EXPECT_EQ(line(5, 0, 3), "a must be in [0,3]. Actual: 5\n");
    EXPECT_EQ(line(-1, 0, 3), "a must be in [0,3]. Actual: -1\n");
    EXPECT_EQ(line('z', 'a', 'c'), "a must be in [a,c]. Actual: z\n");
    EXPECT_EQ(line(static_cast<signed char>(-2), static_cast<signed char>(0), static_cast<signed char>(65)),
              "a must be in [0,65]. Actual: -2\n");
    EXPECT_EQ(line(static_cast<unsigned char>(200), static_cast<unsigned char>(0), static_cast<unsigned char>(65)),
              "a must be in [0,65]. Actual: 200\n");
}

TEST(Report, Array)
{
    const auto line = [](auto value, const auto& array) {
        return lineOf([&](auto name, auto& stream) { return reportIfNotInArray(value, array, name, stream); });
    };
    EXPECT_EQ(line(2, std::array{1, 2}), "");
    EXPECT_EQ(line(3, std::array{1, 2}), "a must be in {1, 2}. Actual: 3\n");
    EXPECT_EQ(line(3, std::array<int, 0>{}), "a must be in {}. Actual: 3\n");
}

TEST(Report, FlushesEachLine)
{
    struct Counting : std::stringbuf {
        int flushed = 0;
        int sync() override { return ++flushed, 0; }
    };
    Counting buffer;
    std::ostream stream(&buffer);
    const auto name = [] { return "a"; };
    reportIfNotInRange(5, 0, 3, name, stream);
    reportIfNotInArray(3, std::array{1, 2}, name, stream);
    reportIfNotEqual(0, 1, name, stream);
    EXPECT_EQ(buffer.flushed, 3);
}

TEST(Report, Equality)
{
    const auto line = [](auto value, decltype(value) expected) {
        return lineOf([&](auto name, auto& stream) { return reportIfNotEqual(value, expected, name, stream); });
    };
    EXPECT_EQ(line(true, true), "");
    EXPECT_EQ(line(false, true), "a must be 1. Actual: 0\n");
}

} // namespace
