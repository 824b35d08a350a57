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
using ChipOutput = std::variant<Spike, ChipDvs>;

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

} // namespace
