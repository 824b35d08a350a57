#include <gmock/gmock.h>

#include "TestNodes.h"
#include "ondra/FunctionFilter.h"

namespace {

using namespace testing_nodes;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

TEST(Filter, RefusesWhatItCannotFeed)
{
    Source source;
    Sink sink;
    TextSink otherType;
    std::any gone = std::weak_ptr<ondra::Channel<int>>();
    EXPECT_FALSE(source.connectTo(otherType));
    EXPECT_FALSE(source.connectTo(source)) << "a source has no input";
    EXPECT_FALSE(source.addDestination(nullptr));
    EXPECT_FALSE(source.addDestination(&gone));
    EXPECT_FALSE(sink.connectTo(sink)) << "a sink has no output";
    EXPECT_FALSE(sink.disconnectFrom(sink));
    EXPECT_THAT(source.destinations, IsEmpty());
}

TEST(Filter, ForgetsADeadDestinationAtTheNextSend)
{
    Source source;
    Sink left, right;
    ASSERT_TRUE(source.connectTo(left));
    {
        Sink dying;
        ASSERT_TRUE(source.connectTo(dying));
    }
    ASSERT_TRUE(source.connectTo(right));
    EXPECT_THAT(source.destinations, SizeIs(3));
    source.send(1);
    EXPECT_THAT(source.destinations, SizeIs(2));
    EXPECT_THAT(left.received(), ElementsAre(1));
    EXPECT_THAT(right.received(), ElementsAre(1));
}

TEST(FunctionFilter, GivesOneValueForEachInOrder)
{
    Source source;
    ondra::FunctionFilter<int, int> filter([](const int&value) { return 10 * value; }), none(nullptr);
    Sink sink;
    ASSERT_TRUE(source.connectTo(filter));
    ASSERT_TRUE(filter.connectTo(sink));
    filter.apply();
    EXPECT_THAT(sink.received(), IsEmpty());
    source.send(1);
    source.send(2);
    filter.apply();
    EXPECT_THAT(sink.received(), ElementsAre(10, 20));

    ASSERT_TRUE(source.connectTo(none));
    EXPECT_NO_THROW(none.apply());
    source.send(1);
    EXPECT_THROW(none.apply(), std::bad_function_call);
}

TEST(FunctionFilter, LetsGoOfABatchWhenItIsOnItsWay)
{
    using Batch = std::shared_ptr<std::vector<int>>;
    ondra::FunctionFilter<Batch, Batch> forward([](const Batch& batch) { return batch; });
    const auto channel = std::make_shared<ondra::Channel<Batch>>();
    std::any boxed = std::weak_ptr(channel);
    ASSERT_TRUE(forward.addDestination(&boxed));
    const auto* input = std::any_cast<std::weak_ptr<ondra::Channel<Batch>>>(forward.getInputChannel());
    for (const int value : {1, 2})
        input->lock()->enqueue(std::make_shared<std::vector<int>>(1, value));
    forward.apply();
    for (const int value : {1, 2}) {
        Batch batch;
        ASSERT_TRUE(channel->try_dequeue(batch));
        EXPECT_THAT(*batch, ElementsAre(value));
        EXPECT_EQ(batch.use_count(), 1);
    }
}

} // namespace
