#include <atomic>
#include <limits>
#include <numeric>
#include <thread>

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

TEST(Crop, KeepsTheRegionAndMovesTheOrigin)
{
    struct Roi {
        std::int32_t xtl, ytl, xbr, ybr;
    };
    const struct {
        Roi roi;
        std::uint16_t x, y;
        bool kept;
        std::uint16_t newX, newY;
    } rows[] = {
        {{0, 0, 10, 10}, 10, 10, true, 10, 10},
        {{0, 0, 10, 10}, 11, 10, false, 0, 0},
        {{0, 0, 10, 10}, 10, 11, false, 0, 0},
        {{5, 5, 10, 10}, 5, 5, true, 0, 0},
        {{5, 5, 10, 10}, 4, 5, false, 0, 0},
        {{5, 5, 10, 10}, 5, 4, false, 0, 0},
        {{-5, -1, 10, 10}, 0, 0, true, 5, 1},            // 16-bit arithmetic: minus a negative corner
        {{-70000, -1, 70000, 10}, 0, 0, true, 4464, 1},  // 70000 modulo 65536
        {{-10, -10, -1, -1}, 0, 0, false, 0, 0},         // beside the sensor
        {{-10, -10, -1, -1}, 65535, 65535, false, 0, 0}, // compared as integers, not as 16 bits
        {{65535, 65535, 65536, 65536}, 65535, 65535, true, 0, 0},
        {{std::numeric_limits<std::int32_t>::min(), 0, std::numeric_limits<std::int32_t>::max(), 1}, 7, 1, true, 7, 1},
    };
    for (const auto& row : rows) {
        EventCropNode<DvsEvent> node;
        Bench<DvsEvent> bench(node);
        node.setROI(row.roi.xtl, row.roi.ytl, row.roi.xbr, row.roi.ybr);
        const auto out = bench.applyOne({{{row.x, row.y, true, -7}}});
        if (row.kept)
            EXPECT_THAT(out, ElementsAre(DvsEvent{row.newX, row.newY, true, -7})) << row.roi.xtl << ", " << row.x;
        else
            EXPECT_THAT(out, IsEmpty()) << row.roi.xtl << ", " << row.x;
    }
}

TEST(Crop, RefusesEmptyRegionsAndKeepsTheOldOne)
{
    EventCropNode<DvsEvent> node;
    Bench<DvsEvent> bench(node);
    node.setROI(1, 1, 2, 2);
    EXPECT_EQ(errorOf([&] { node.setROI(10, 0, 10, 10); }),
              "Left column (xtl = 10) is smaller (or equal) than right column (xbr = 10)\n");
    EXPECT_EQ(errorOf([&] { node.setROI(0, 10, 10, -3); }),
              "First row (ytl = 10) is greater (or equal) than last row (ybr = -3)\n");
    EXPECT_EQ(errorOf([&] { node.setROI(3, 3, 2, 2); }),
              "Left column (xtl = 3) is smaller (or equal) than right column (xbr = 2)\n");
    EXPECT_THAT(bench.applyOne({{{1, 1, false, 0}, {3, 3, false, 0}}}), ElementsAre(DvsEvent{0, 0, false, 0}));
    node.reset();
    EXPECT_THAT(bench.applyOne({{{1, 1, false, 0}, {3, 3, false, 0}}}), SizeIs(2));
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

// Sizes around the chunks in which filters copy, against the plain way to say it.
TEST(Crop, AgreesWithOneEventAtATime)
{
    for (const std::int64_t size : {1, 255, 256, 257, 511, 512, 5000}) {
        EventCropNode<DvsEvent> node;
        Bench<DvsEvent> bench(node);
        node.setROI(20, 0, 200, 3);
        const auto first = numbered(size), second = numbered(size, size);
        Events expected;
        for (const auto& batch : {first, second})
            for (auto event : batch)
                if (event.x >= 20 && event.x <= 200 && event.y <= 3) {
                    event.x = static_cast<std::uint16_t>(event.x - 20);
                    expected.push_back(event);
                }
        EXPECT_THAT(bench.applyOne({first, second}), ElementsAreArray(expected)) << size;
    }
}

TEST(Decimate, KeepsEveryNthAcrossBatches)
{
    const struct {
        std::uint64_t M, L;
        std::vector<std::int64_t> kept; // of 0 to 11, which come in batches of 5, 1 and 6
    } rows[] = {
        {1, 1, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}},
        {10, 3, {0, 3, 6, 9}},
        {7, 1, {0, 7}},
        {11, 1, {0, 11}},
        {12, 1, {0}},
        {5, 3, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}},
        {std::numeric_limits<std::uint64_t>::max(), 1, {0}},
    };
    for (const auto& row : rows)
        for (const bool inOnePass : {true, false}) {
            EventDecimateNode<DvsEvent> node;
            Bench<DvsEvent> bench(node);
            bench.apply({numbered(2)}); // so that the count is not at 0 when the fraction is set
            node.setDecimationFraction(row.M, row.L);
            const std::vector<Events> batches = {numbered(5), numbered(1, 5), numbered(6, 6)};
            Events out;
            if (inOnePass)
                out = bench.applyOne(batches);
            else
                for (const auto& batch : batches)
                    for (const auto& event : bench.applyOne({batch}))
                        out.push_back(event);
            EXPECT_EQ(numbersOf(out), row.kept) << row.M << " " << row.L;
        }
}

TEST(Decimate, RefusesFractionsAndKeepsTheOldOne)
{
    EventDecimateNode<DvsEvent> node;
    Bench<DvsEvent> bench(node);
    node.setDecimationFraction(2, 1);
    EXPECT_EQ(numbersOf(bench.applyOne({numbered(3)})), (std::vector<std::int64_t>{0, 2}));
    for (const auto& [M, L] : {std::pair(0, 1), std::pair(1, 0), std::pair(0, 0)})
        EXPECT_EQ(errorOf([&, M = M, L = L] {
                      node.setDecimationFraction(static_cast<std::uint64_t>(M), static_cast<std::uint64_t>(L));
                  }),
                  "Neither values in setDecimationFunction can be zero!");
    EXPECT_EQ(errorOf([&] { node.setDecimationFraction(1, 2); }),
              "The number of points where the decimation is performed (M = 1) is smaller than the number of points "
              "that are being selected!(L = 2).\n");
    EXPECT_EQ(numbersOf(bench.applyOne({numbered(3)})), (std::vector<std::int64_t>{1})) << "the count went on";
    node.reset();
    EXPECT_THAT(bench.applyOne({numbered(3)}), SizeIs(3));
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
}

TEST(Rescale, CoefficientIsTheRatioOfTheSizes)
{
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

TEST(DvsFilters, AreDescribed)
{
    EXPECT_EQ(trovi::registeredName<EventCropNode<DvsEvent>>(), "graph::nodes::DvsEventCrop");
    EXPECT_EQ(trovi::registeredName<EventDecimateNode<DvsEvent>>(), "graph::nodes::DvsEventDecimate");
    EXPECT_EQ(trovi::registeredName<EventRescaleNode<DvsEvent>>(), "graph::nodes::DvsEventRescale");
    EXPECT_THAT(functionNames<EventCropNode<DvsEvent>>(),
                ElementsAre("setROI", "reset", "getInputChannel", "addDestination", "removeDestination"));
    EXPECT_THAT(
        functionNames<EventDecimateNode<DvsEvent>>(),
        ElementsAre("setDecimationFraction", "reset", "getInputChannel", "addDestination", "removeDestination"));
    EXPECT_THAT(
        functionNames<EventRescaleNode<DvsEvent>>(),
        ElementsAre("setRescalingCoefficients", "reset", "getInputChannel", "addDestination", "removeDestination"));
}

} // namespace
