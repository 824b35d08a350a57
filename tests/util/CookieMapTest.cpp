#include "util/CookieMap.h"

#include <gtest/gtest.h>

namespace {

TEST(CookieMap, IsTheSeriesOfItsSecond)
{
    // the second may end between the two looks at the clock
    for (int attempt = 0; attempt < 100; ++attempt) {
        const std::time_t before = std::time(nullptr);
        const util::CookieMap<384> map;
        const util::CookieMap<4> small;
        if (std::time(nullptr) != before)
            continue;
        std::mt19937_64 random(static_cast<std::uint64_t>(before));
        std::uint64_t all = 0;
        for (const std::uint64_t cookie : map) {
            EXPECT_EQ(cookie, random() >> 1U); // half the generator's range: the lowest bit goes
            all |= cookie;
        }
        EXPECT_EQ(all, 0x7FFF'FFFF'FFFF'FFFFU);
        for (std::size_t i = 0; i < small.size(); ++i)
            EXPECT_EQ(small[i], map[i]);
        return;
    }
    FAIL() << "no attempt stayed within a second";
}

} // namespace
