#include "util/Vec2.h"

#include <gtest/gtest.h>

namespace {

using util::Vec2;

TEST(Vec2, PrintsItsComponentsAsNumbers)
{
    EXPECT_EQ((Vec2<int>{-1, 2}.toString()), "(-1,2)");
    EXPECT_EQ((Vec2<unsigned>{4'000'000'000u, 0}.toString()), "(4000000000,0)");
    EXPECT_EQ((Vec2<unsigned char>{65, 255}.toString()), "(65,255)");
    EXPECT_EQ((Vec2<bool>{true, false}.toString()), "(1,0)");
}

TEST(Vec2, IsNamedAfterItsComponent)
{
    EXPECT_EQ(trovi::registeredName<Vec2<unsigned>>(), "Vec2_unsigned_int");
    EXPECT_EQ(trovi::registeredName<Vec2<unsigned char>>(), "Vec2_unsigned_char");
    static_assert(trovi::memberCount<Vec2<bool>> == 2 && trovi::functionCount<Vec2<bool>> == 1);
    static_assert(Vec2<int>{1, 2} == Vec2<int>{1, 2} && Vec2<int>{1, 2} != Vec2<int>{2, 1});
}

} // namespace
