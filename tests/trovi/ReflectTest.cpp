#include "trovi/Reflect.h"

#include <sstream>
#include <unistd.h>

#include <gmock/gmock.h>

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
static_assert(SignatureTraits<decltype(&Point::twice)>::isConst);

TEST(Reflect, DescriptorsReachTheObject)
{
    Point point;
    std::get<0>(MetaFunctionHolder<Point>::memberFuncs)
        .makeInvoker<Point>(FunctionParams<int, const double&>())(point, 3, 0.5);
    EXPECT_EQ(point.*(std::get<0>(MetaHolder<Point>::members).field), 3);
    EXPECT_EQ(point.*(std::get<1>(MetaHolder<Point>::members).field), 0.5);
    // a base's function, registered on the derived class
    const auto twice = std::get<1>(MetaFunctionHolder<Point>::memberFuncs).makeInvoker<Point>(FunctionParams<int>());
    EXPECT_EQ(twice(point, 4), 8);
}

TEST(Reflect, ForEachAndStaticForWalkInOrder)
{
    std::string names;
    forEach(MetaHolder<Point>::members, [&](const auto& m) { names += m.name; });
    staticFor<3>([&](auto i) { names += std::to_string(i()); });
    EXPECT_EQ(names, "xy012");
}

TEST(Reflect, ARunTimeIndexIsChecked)
{
    std::string seen;
    const auto note = [&](const auto& m) { seen = m.name; };
    const auto& list = MetaHolder<Point>::members;
    detail::TupleVisitorImpl<2>::visit(list, 1, note);
    EXPECT_EQ(seen, "y");
    for (const std::size_t index : {std::size_t{2}, ~std::size_t{0}})
        EXPECT_THAT([&] { detail::TupleVisitorImpl<2>::visit(list, index, note); },
                    testing::ThrowsMessage<std::runtime_error>("Tuple index out of range!"));
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
    EXPECT_FALSE(foreign.isValid());
    std::ostringstream expected;
    expected
        << "Error in getting resource with type int*. BoxedPtr is either holding a null pointer, holding a pointer "
           "that is in another process or requested type doesent match held type.Address: 0x"
        << std::hex << foreign.address << std::dec << ", PID: 1, Current PID: " << getpid() << ", Held type: int*.\n";
    EXPECT_THAT([&] { foreign.get<int*>(); }, testing::ThrowsMessage<std::runtime_error>(expected.str()));
}

} // namespace
