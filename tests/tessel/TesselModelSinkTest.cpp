#include <gmock/gmock.h>

#include "../graph/NodeTesting.h"
#include "tessel/ModelSink.h"

namespace tessel {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(TesselModelSink, TakesOneBatchAStep)
{
    TesselModelSink sink;
    graph::nodes::BasicSourceNode<event::InputEvent> source;
    ASSERT_TRUE(source.addDestination(sink.getInput()));
    const event::InputEvent first = event::ReadProbe{1}, second = event::ReadProbe{2};
    source.write({first, first});
    source.write({second});
    EXPECT_THAT(sink.getEventBuf(), ElementsAre(first, first));
    sink.apply();
    EXPECT_THAT(sink.getEventBuf(), ElementsAre(second));
    EXPECT_THAT(sink.getEventBuf(), IsEmpty());
    EXPECT_THAT(node_testing::functionNames<TesselModelSink>(), ElementsAre("getEventBuf", "getinputNode"));
    EXPECT_EQ(trovi::typeName<TesselModelSink>(), "tessel::TesselModelSink");
}

} // namespace
} // namespace tessel
