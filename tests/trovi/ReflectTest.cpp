#include "trovi/Reflect.h"

#include <unistd.h>

#include <gtest/gtest.h>

#include "../ErrorOf.h"
#include "trovi/BoxedPtr.h"
#include "trovi/StoreRef.h"

namespace sample {

struct Base {
    int twice(int value) const { return 2 * value; }
};

struct Point : Base {
    int x = 0;
    double y = 0;
    void move(int dx, const double& dy) noexcept { x += dx, y += dy; }
};

struct Empty {};

} // namespace sample

namespace trovi {

template <>
constexpr auto registerMembers<sample::Point>()
{
    return members(member("x", &sample::Point::x, "column"), member("y", &sample::Point::y));
}
template <>
constexpr auto registerMemberFunctions<sample::Point>()
{
    return functions(function("move", &sample::Point::move, "Moves it.", "dx, dy"),
                     function("twice", &sample::Point::twice));
}
template <>
constexpr auto registerMembers<sample::Empty>()
{
    return members();
}

} // namespace trovi

namespace {

using namespace trovi;
using sample::Point;

// The spelled name of a type is data: messages carry it and peers compare it.
static_assert(typeName<unsigned short>() == "short unsigned int");
static_assert(typeName<unsigned long>() == "long unsigned int");
static_assert(typeName<const std::any*>() == "const std::any*");
static_assert(typeName<StoreRef>() == "trovi::StoreRef");
static_assert(typeName<std::vector<Point>>() == "std::vector<sample::Point>");

static_assert(isReflected<Point> && isReflected<sample::Empty> && !isReflected<sample::Base> && !isReflected<int>);
static_assert(memberCount<Point> == 2 && functionCount<Point> == 2 && memberCount<sample::Empty> == 0);
static_assert(std::get<0>(MetaHolder<Point>::members).name == std::string_view("x"));
static_assert(std::is_same_v<SignatureTraits<decltype(&Point::move)>::Params, FunctionParams<int, double>>);

TEST(Reflect, DescriptorsReachTheObject)
{
    Point point;
    const auto [move, twice] = MetaFunctionHolder<Point>::memberFuncs;
    move.makeInvoker<Point>(FunctionParams<int, const double&>())(point, 3, 0.5);
    EXPECT_EQ(twice.makeInvoker<Point>(FunctionParams<int>())(point, 4), 8); // a base's function
    std::string walked;
    forEach(MetaHolder<Point>::members, [&](const auto& m) { walked += m.name + std::to_string(point.*(m.field)); });
    staticFor<3>([&](auto i) { walked += std::to_string(i()); });
    EXPECT_EQ(walked, "x3y0.500000012");
}

TEST(Reflect, ARunTimeIndexIsChecked)
{
    std::string seen;
    const auto visit = [&](std::size_t index) {
        detail::TupleVisitorImpl<2>::visit(MetaHolder<Point>::members, index, [&](const auto& m) { seen = m.name; });
    };
    visit(1);
    EXPECT_EQ(seen, "y");
    for (const std::size_t index : {std::size_t{2}, ~std::size_t{0}})
        EXPECT_EQ(errorOf([&] { visit(index); }), "Tuple index out of range!");
}

TEST(TypeInfo, EqualityNeedsTypeClassAndName)
{
    const auto point = traits::getTypeInfo<Point>();
    EXPECT_EQ(point, traits::getTypeInfo<Point>());
    EXPECT_FALSE(point == traits::getTypeInfo<int>());
    EXPECT_FALSE(traits::TypeInfo{} == traits::TypeInfo{}) << "unknown equals nothing";
    EXPECT_FALSE((point == traits::TypeInfo{point.type, point.meta, "other"}));
    EXPECT_FALSE((point == traits::TypeInfo{point.type, 1, point.name}));
    EXPECT_EQ(point(), "trovi::traits::TypeInfo {name = sample::Point, meta = 1573120}");
    EXPECT_EQ(traits::getTypeInfo<void>().meta, 0x10002U);
    EXPECT_EQ(traits::getTypeInfo<bool>().meta, 0xF0008U);
    EXPECT_EQ(traits::getTypeInfo<double>().meta, 0xF0010U);
}

TEST(BoxedPtr, OpensOnlyAtHomeAndOnlyAsWhatItHolds)
{
    int value = 7;
    const BoxedPtr boxed = BoxedPtr::of(&value);
    EXPECT_TRUE(boxed.isValid());
    EXPECT_EQ(boxed.get<int*>(), &value);
    EXPECT_FALSE(BoxedPtr().isValid());
    EXPECT_THROW(BoxedPtr().get<int*>(), std::runtime_error);
    EXPECT_THROW(boxed.get<const int*>(), std::runtime_error);

    BoxedPtr foreign = boxed;
    foreign.pid = 1;
    foreign.address = 0xAB;
    EXPECT_FALSE(foreign.isValid());
    EXPECT_EQ(
        errorOf([&] { foreign.get<int*>(); }),
        "Error in getting resource with type int*. BoxedPtr is either holding a null pointer, holding a pointer that "
        "is in another process or requested type doesent match held type.Address: 0xab, PID: 1, Current PID: " +
            std::to_string(getpid()) + ", Held type: int*.\n");
}

} // namespace
