#include <tuple>

#include "NodeTesting.h"
#include "graph/nodes/Converters.h"

namespace {

using namespace graph::nodes;
using namespace node_testing;
using davis::event::DvsEvent;
using testing::ElementsAre;
using testing::IsEmpty;

struct Raw {
    Raw(std::uint64_t a, std::uint64_t row, std::uint64_t column, std::uint64_t d, std::uint32_t time,
        std::uint32_t polarity)
        : values(a, row, column, d, time, polarity)
    {}
    std::tuple<std::uint64_t, std::uint64_t, std::uint64_t, std::uint64_t, std::uint32_t, std::uint32_t> values;
    friend bool operator==(const Raw&, const Raw&) = default;
};
struct Spike {
    friend bool operator==(const Spike&, const Spike&) = default;
};
struct ChipDvs {
    std::uint8_t x = 0, y = 0;
    bool p = false;
    std::uint32_t timestamp = 0;
};
struct Router {
    std::uint8_t layer = 0;
    std::uint16_t feature = 0;
    std::uint8_t y = 0, x = 0;
    friend bool operator==(const Router&, const Router&) = default;
};
using ChipOutput = std::variant<Spike, ChipDvs>;
using ChipInput = std::variant<Spike, Router>;

TEST(Converters, ForwardTheVeryBatch)
{
    const auto node = forward<ChipOutput>();
    Bench<ChipOutput> bench(*node);
    BatchSink<ChipOutput> before;
    ASSERT_TRUE(bench.source.connectTo(before));
    const auto out = bench.apply({{Spike{}}, {ChipDvs{}}});
    EXPECT_THAT(out, testing::SizeIs(2)) << "one for one";
    EXPECT_EQ(out, before.batches());
    EXPECT_THAT(bench.apply({}), IsEmpty());
}

TEST(Converters, MakeRawEventsOfTheChips)
{
    const auto node = dvsToRawConverter<ChipOutput, ChipDvs, Raw>();
    Bench<ChipOutput, Raw> bench(*node);
    EXPECT_THAT(bench.applyOne({{Spike{}, ChipDvs{3, 128, true, 9}, ChipDvs{127, 0, false, 0xFFFFFFFF}}}),
                ElementsAre(Raw(0, 0, 3, 0, 9, 1), Raw(0, 128, 127, 0, 0xFFFFFFFF, 0)));
    EXPECT_THAT(bench.applyOne({{Spike{}}}), IsEmpty()) << "an empty batch for one without such events";
}

TEST(Converters, MakeRawEventsOfACameras)
{
    const auto node = davisToRawConverter<Raw>();
    Bench<DvsEvent, Raw> bench(*node);
    EXPECT_THAT(bench.applyOne({{{345, 259, true, 0x1'0000'0007}, {0, 1, false, -1}}}),
                ElementsAre(Raw(0, 259, 345, 0, 7, 1), Raw(0, 1, 0, 0, 0xFFFFFFFF, 0)));
}

TEST(Converters, CutCoordinatesForTheChip)
{
    const auto node = davisToChipInputConverter<ChipInput, Router>();
    Bench<DvsEvent, ChipInput> bench(*node);
    EXPECT_THAT(bench.applyOne({{{255, 0, true, 0}, {256, 300, false, 0}}}),
                ElementsAre(ChipInput(Router{13, 1, 0, 255}), ChipInput(Router{13, 0, 44, 0})));
}

TEST(Converters, TakeTheMiddleOfALargeSensor)
{
    const auto node = davis346Center128ToChipInputConverter<ChipInput, Router>();
    Bench<DvsEvent, ChipInput> bench(*node);
    for (const DvsEvent& outside : {DvsEvent{109, 66}, DvsEvent{238, 66}, DvsEvent{110, 65}, DvsEvent{110, 194}})
        EXPECT_THAT(bench.applyOne({{outside}}), IsEmpty()) << outside.x << ", " << outside.y;
    EXPECT_THAT(bench.applyOne({{{110, 66, true, 0}, {237, 193, false, 0}}}),
                ElementsAre(ChipInput(Router{13, 1, 0, 0}), ChipInput(Router{13, 0, 127, 127})));
}

} // namespace
