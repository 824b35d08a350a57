#include <gtest/gtest.h>

#include "util/BitField.h"
#include "util/CookieMap.h"
#include "util/LittleEndian.h"
#include "util/ScopeGuard.h"
#include "util/Vec2.h"

namespace {

using util::BitField;
using util::Vec2;

static_assert(BitField{4, 8}.put(0x1AB) == 0xAB0 && BitField{4, 8}.get(0xFFFFFABF) == 0xAB);
static_assert(BitField{0, 32}.mask() == 0xFFFFFFFF && BitField{31, 1}.largest() == 1);
static_assert(util::fillWord(BitField{16, 16}, BitField{0, 16}));
static_assert(!util::fillWord(BitField{0, 16}, BitField{15, 16}) && !util::fillWord(BitField{0, 16}, BitField{15, 17}));

TEST(LittleEndian, NumbersLieLowestByteFirstAtAnyAddress)
{
    std::uint8_t bytes[6] = {};
    util::writeLittleEndian(std::span(bytes), 1, 0x01020304U);
    EXPECT_EQ((std::vector<std::uint8_t>(bytes, bytes + 6)), (std::vector<std::uint8_t>{0, 4, 3, 2, 1, 0}));
    EXPECT_EQ(util::readLittleEndian<std::int16_t>(bytes, 2), 0x0203);
    EXPECT_EQ(util::readLittleEndian<std::uint32_t>(bytes + 1), 0x01020304U);
}

TEST(ScopeGuard, ActsOnceUnlessDismissed)
{
    int calls = 0;
    {
        const util::ScopeGuard guard([&] { ++calls; });
        util::ScopeGuard dismissed([&] { ++calls; });
        dismissed.dismiss();
    }
    EXPECT_EQ(calls, 1);
}

TEST(Vec2, PrintsItsComponentsAsNumbersAndIsNamedAfterThem)
{
    EXPECT_EQ((Vec2<int>{-1, 2}.toString()), "(-1,2)");
    EXPECT_EQ((Vec2<unsigned char>{65, 255}.toString()), "(65,255)");
    EXPECT_EQ((Vec2<bool>{true, false}.toString()), "(1,0)");
    EXPECT_EQ(trovi::registeredName<Vec2<unsigned char>>(), "Vec2_unsigned_char");
    static_assert(Vec2<int>{1, 2} == Vec2<int>{1, 2} && Vec2<int>{1, 2} != Vec2<int>{2, 1});
}

TEST(CookieMap, IsTheSeriesOfItsSecond)
{
    for (int attempt = 0; attempt < 100; ++attempt) { // the second may end while the table is made
        const std::time_t before = std::time(nullptr);
        const util::CookieMap<384> map;
        if (std::time(nullptr) != before)
            continue;
        std::mt19937_64 random(static_cast<std::uint64_t>(before));
        for (const std::uint64_t cookie : map)
            EXPECT_EQ(cookie, random() >> 1U); // half the generator's range: the lowest bit goes
        return;
    }
    FAIL() << "no attempt stayed within a second";
}

} // namespace
