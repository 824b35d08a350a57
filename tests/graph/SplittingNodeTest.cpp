#include "graph/nodes/SplittingNode.h"

#include "NodeTesting.h"

namespace {

using namespace graph::nodes;
using namespace node_testing;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(SplittingNode, GivesEachDestinationWhatItsFunctionYields)
{
    struct Splitter : SplittingNode<int> {
        Splitter()
        {
            callables["all"] = [](const auto& batch) { return batch; };
            callables["count"] = [](const auto& batch) {
                return std::make_shared<std::vector<int>>(1, static_cast<int>(batch->size()));
            };
        }
    } node;
    BasicSourceNode<int> source;
    BatchSink<int> all, count, nameless;
    BatchSink<char> otherType;
    ASSERT_TRUE(source.connectTo(node));
    EXPECT_TRUE(node.addDestination("all", all.getInput()));
    EXPECT_TRUE(node.addDestination("count", count.getInput()));
    EXPECT_FALSE(node.addDestination("none", count.getInput()));
    EXPECT_FALSE(node.addDestination("all", otherType.getInput()));
    EXPECT_FALSE(node.addDestination("all", inputOfDeadNode<BatchSink<int>>()));
    EXPECT_THAT(errorOf([&] { node.addDestination("none", trovi::BoxedPtr()); }), testing::HasSubstr("BoxedPtr"));
    EXPECT_TRUE(node.connectTo(nameless));

    source.write({1, 2});
    source.write({3});
    node.apply();
    const auto seen = all.batches(), counted = count.batches();
    ASSERT_THAT(seen, testing::SizeIs(1));
    EXPECT_THAT(*seen[0], ElementsAre(1, 2, 3));
    ASSERT_THAT(counted, testing::SizeIs(1));
    EXPECT_THAT(*counted[0], ElementsAre(3));
    EXPECT_THAT(nameless.batches(), IsEmpty());

    EXPECT_TRUE(node.removeDestination(all.getInput()));
    EXPECT_FALSE(node.removeDestination(all.getInput()));
    node.apply();
    EXPECT_THAT(all.batches(), IsEmpty());
    EXPECT_THAT(count.batches(), testing::SizeIs(1)) << "what its function makes of no events";
}

TEST(SplittingNode, HasNoFunctionsOfItsOwn)
{
    SplittingNode<int> node;
    BatchSink<int> sink;
    EXPECT_FALSE(node.addDestination("", sink.getInput()));
}

} // namespace
