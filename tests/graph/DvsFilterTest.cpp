#include <array>
#include <atomic>
#include <functional>
#include <limits>
#include <numeric>
#include <thread>

#include "../Golden.h"
#include "NodeTesting.h"
#include "graph/nodes/EventCropNode.h"
#include "graph/nodes/EventDecimateNode.h"
#include "graph/nodes/EventRescaleNode.h"

namespace {

using namespace graph::nodes;
using namespace node_testing;
using davis::event::DvsEvent;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::SizeIs;
using Events = std::vector<DvsEvent>;

// `count` events whose timestamps number them from `first`.
Events numbered(std::int64_t count, std::int64_t first = 0)
{
    Events events;
    for (std::int64_t i = first; i < first + count; ++i)
        events.push_back(
            {static_cast<std::uint16_t>(i % 346), static_cast<std::uint16_t>(i / 346 % 260), i % 3 == 0, i});
    return events;
}

std::vector<std::int64_t> numbersOf(const Events& events)
{
    std::vector<std::int64_t> numbers;
    for (const auto& event : events)
        numbers.push_back(event.timestamp);
    return numbers;
}

TEST(DvsFilters, RefuseSettingsAndKeepTheOldOnes)
{
    EventCropNode<DvsEvent> crop;
    EventDecimateNode<DvsEvent> decimate;
    Bench<DvsEvent> cropping(crop), decimating(decimate);
    crop.setROI(1, 1, 2, 2);
    decimate.setDecimationFraction(2, 1);
    EXPECT_EQ(numbersOf(decimating.applyOne({numbered(3)})), (std::vector<std::int64_t>{0, 2}));
    std::string texts;
    for (const auto& refused : std::initializer_list<std::function<void()>>{
             [&] { crop.setROI(10, 0, 10, 10); }, [&] { crop.setROI(0, 10, 10, -3); }, [&] { crop.setROI(3, 3, 2, 2); },
             [&] { decimate.setDecimationFraction(0, 1); }, [&] { decimate.setDecimationFraction(1, 0); },
             [&] { decimate.setDecimationFraction(1, 2); }})
        texts += errorOf(refused) + '\n';
    EXPECT_GOLDEN("filter_refusals.txt", texts);
    const Events events = {{1, 1, false, 0}, {3, 3, false, 0}};
    EXPECT_THAT(cropping.applyOne({events}), ElementsAre(DvsEvent{0, 0, false, 0}));
    EXPECT_EQ(numbersOf(decimating.applyOne({numbered(3)})), (std::vector<std::int64_t>{1})) << "the count went on";
    crop.reset();
    decimate.reset();
    EXPECT_EQ(cropping.applyOne({events}), events);
    EXPECT_THAT(decimating.applyOne({numbered(3)}), SizeIs(3));
}

TEST(Crop, TakesAnyPredicate)
{
    EventCropNode<DvsEvent> node;
    Bench<DvsEvent> bench(node);
    node.setROI(1, 1, 2, 2);
    node.setPredicate([](const DvsEvent& event) { return event.polarity; });
    EXPECT_THAT(bench.applyOne({{{1, 1, false, 0}, {9, 9, true, 1}}}), ElementsAre(DvsEvent{9, 9, true, 1}));
    node.setPredicate(nullptr);
    EXPECT_THAT(bench.applyOne({}), IsEmpty());
    EXPECT_THROW(bench.apply({{{1, 1, false, 0}}}), std::bad_function_call);
}

// Regions at and beyond the ends of what coordinates hold, and sizes around the chunks in which filters copy. Compared
// with the plain rule: ends included, compared as integers, the corner subtracted in 16 bits.
TEST(Crop, AgreesWithOneEventAtATime)
{
    constexpr auto least = std::numeric_limits<std::int32_t>::min(), most = std::numeric_limits<std::int32_t>::max();
    const std::array<std::int32_t, 4> regions[] = {{20, 0, 200, 3},
                                                   {0, 0, 10, 10},
                                                   {5, 5, 10, 10},
                                                   {-5, -1, 10, 10},
                                                   {-70000, -1, 70000, 10},
                                                   {-10, -10, -1, -1},
                                                   {65535, 65535, 65536, 65536},
                                                   {least, 0, most, 1}};
    for (const auto& [xtl, ytl, xbr, ybr] : regions)
        for (const std::int64_t size : {1, 255, 256, 257, 511, 512, 5000}) {
            EventCropNode<DvsEvent> node;
            Bench<DvsEvent> bench(node);
            node.setROI(xtl, ytl, xbr, ybr);
            const std::vector<Events> batches = {
                numbered(size),
                numbered(size, size),
                {{4, 5}, {5, 5}, {5, 4}, {10, 11}, {10, 10, true, -7}, {65535, 65535}}};
            Events expected;
            for (const auto& batch : batches)
                for (auto event : batch)
                    if (event.x >= xtl && event.x <= xbr && event.y >= ytl && event.y <= ybr) {
                        event.x = static_cast<std::uint16_t>(event.x - xtl);
                        event.y = static_cast<std::uint16_t>(event.y - ytl);
                        expected.push_back(event);
                    }
            EXPECT_THAT(bench.applyOne(batches), ElementsAreArray(expected)) << xtl << ", " << size;
        }
}

TEST(Decimate, KeepsEveryNthAcrossBatches)
{
    const std::pair<std::uint64_t, std::uint64_t> fractions[] = {
        {1, 1}, {10, 3}, {7, 1}, {11, 1}, {12, 1}, {5, 3}, {std::numeric_limits<std::uint64_t>::max(), 1}};
    for (const auto& [M, L] : fractions)
        for (const bool inOnePass : {true, false}) {
            EventDecimateNode<DvsEvent> node;
            Bench<DvsEvent> bench(node);
            bench.apply({numbered(2)}); // so that the count is not at 0 when the fraction is set
            node.setDecimationFraction(M, L);
            const std::vector<Events> batches = {numbered(5), numbered(1, 5), numbered(6, 6)};
            std::vector<std::int64_t> expected, kept;
            for (std::int64_t number = 0; number < 12; ++number)
                if (static_cast<std::uint64_t>(number) % (M / L) == 0)
                    expected.push_back(number);
            using Passes = std::vector<std::vector<Events>>;
            for (const auto& pass : inOnePass ? Passes{batches} : Passes{{batches[0]}, {batches[1]}, {batches[2]}})
                for (const std::int64_t number : numbersOf(bench.applyOne(pass)))
                    kept.push_back(number);
            EXPECT_EQ(kept, expected) << M << " " << L;
        }
}

TEST(Rescale, DividesXByTheSecondAndYByTheFirst)
{
    constexpr double infinity = std::numeric_limits<double>::infinity();
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    const struct {
        double a, b;
        std::uint16_t x, y, newX, newY;
    } rows[] = {
        {2, 4, 8, 8, 2, 4},
        {1, 1, 65535, 0, 65535, 0},
        {3, 3, 8, 10, 2, 3},                // cut, not rounded
        {0.5, 0.5, 100, 40000, 200, 14464}, // 80000 modulo 65536
        {-1, -2, 5, 5, 65534, 65531},       // -2.5 is cut to -2
        {1, 0, 5, 5, 0, 5},                 // nothing is undefined about dividing by 0,
        {0, nan, 5, 0, 0, 0},               // NaN,
        {infinity, -infinity, 5, 5, 0, 0},  // infinity,
        {1e-300, 1e-5, 5, 21474, 41247, 0}, // quotients beyond 32 bits, or by what could be beyond
        {65535.0 / 2147483648.0, 1, 9, 65535, 9, 0},
    };
    for (const auto& row : rows) {
        EventRescaleNode<DvsEvent> node;
        Bench<DvsEvent> bench(node);
        node.setRescalingCoefficients(row.a, row.b);
        EXPECT_THAT(bench.applyOne({{{row.x, row.y, true, -9}}}), ElementsAre(DvsEvent{row.newX, row.newY, true, -9}))
            << row.a << " " << row.b;
        node.reset();
        EXPECT_THAT(bench.applyOne({{{row.x, row.y, true, -9}}}), ElementsAre(DvsEvent{row.x, row.y, true, -9}));
    }
    EXPECT_EQ(detail::rescalingCoefficient(346, 260, 128, 130), (std::pair{346.0 / 128, 2.0}));
}

template <class Node>
class DvsFilter : public testing::Test {};
using Filters = testing::Types<EventCropNode<DvsEvent>, EventDecimateNode<DvsEvent>, EventRescaleNode<DvsEvent>>;
TYPED_TEST_SUITE(DvsFilter, Filters);

TYPED_TEST(DvsFilter, SendsOneVectorAPassToAllAndLeavesItsInputAlone)
{
    TypeParam node;
    Bench<DvsEvent> bench(node);
    BatchSink<DvsEvent> second, untouched;
    ASSERT_TRUE(node.addDestination(second.getInput()));
    ASSERT_TRUE(bench.source.addDestination(untouched.getInput()));
    const auto out = bench.apply({numbered(300), numbered(2, 300)});
    ASSERT_THAT(out, SizeIs(1));
    EXPECT_EQ(*out[0], numbered(302));
    EXPECT_EQ(second.batches(), out) << "the same vector, not a copy";
    const auto input = untouched.batches();
    ASSERT_THAT(input, SizeIs(2));
    EXPECT_EQ(*input[0], numbered(300));

    EXPECT_THAT(bench.applyOne({}), IsEmpty()) << "an empty batch is sent when nothing waits";
    EXPECT_TRUE(node.removeDestination(second.getInput()));
    EXPECT_FALSE(node.removeDestination(second.getInput()));
    EXPECT_FALSE(node.addDestination(trovi::BoxedPtr()));
}

TYPED_TEST(DvsFilter, MayBeSetAndConnectedWhileItRuns)
{
    TypeParam node;
    Bench<DvsEvent> bench(node);
    std::atomic<bool> running = true;
    std::atomic<int> passes = 0;
    std::thread graph([&] {
        for (; running; ++passes) {
            bench.source.write(numbered(300));
            node.apply();
        }
    });
    for (int i = 0; i < 200 || passes < 20; ++i) {
        if constexpr (requires { node.setROI(0, 0, 1, 1); })
            node.setROI(i % 7, 0, 100 + i % 7, 200);
        else if constexpr (requires { node.setDecimationFraction(1, 1); })
            node.setDecimationFraction(static_cast<std::uint64_t>(1 + i % 7), 1);
        else
            node.setRescalingCoefficients(1 + i % 7, i % 3);
        BatchSink<DvsEvent> passing;
        EXPECT_TRUE(node.addDestination(passing.getInput()));
        node.reset();
    }
    running = false;
    graph.join();
    bench.sink.batches();
    EXPECT_EQ(bench.applyOne({numbered(5)}), numbered(5)) << "after the last reset()";
}

} // namespace
