#include "ondra/Graph.h"

#include <algorithm>
#include <atomic>
#include <random>
#include <thread>

#include <gmock/gmock.h>

#include "TestNodes.h"
#include "ondra/GraphExecutor.h"

namespace {

using namespace testing_nodes;
using ondra::Graph;
using testing::ElementsAre;
using testing::IsEmpty;

using Edge = std::pair<std::uint64_t, std::uint64_t>;

// A graph of relays that notes in which order they run.
struct Relays {
    explicit Relays(const std::vector<std::uint64_t>& ids)
    {
        for (const auto id : ids)
            EXPECT_TRUE(graph.add(id, std::make_shared<Relay>([this, id] { order.push_back(id); })));
    }
    std::vector<std::uint64_t> pass()
    {
        order.clear();
        graph.compute();
        return order;
    }
    std::vector<std::uint64_t> order;
    Graph graph;
};

TEST(Graph, KnowsItsNodes)
{
    Relays relays({3});
    Graph& graph = relays.graph;
    EXPECT_FALSE(graph.add(3, std::make_shared<Sink>()));
    EXPECT_FALSE(graph.add(4, nullptr));
    EXPECT_TRUE(graph.hasNode(3));
    EXPECT_FALSE(graph.hasNode(4));
    EXPECT_EQ(graph.getTypeErasedNodeInputChannel(3), graph.getNode(3).getInputChannel());
    EXPECT_EQ(graph.getTypeErasedNodeInputChannel(4), nullptr);
    EXPECT_THAT([&] { graph.getNode(4); }, testing::ThrowsMessage<std::out_of_range>("_Map_base::at"));
    EXPECT_TRUE(graph.remove(3));
    EXPECT_FALSE(graph.remove(3));
    EXPECT_FALSE(graph.hasNode(3));
    graph.compute(); // empty
}

TEST(Graph, RefusesEdgesAndKeepsTheOthers)
{
    Relays relays({0, 1, 2});
    Graph& graph = relays.graph;
    ASSERT_TRUE(graph.add(9, std::make_shared<TextSink>()));
    ASSERT_TRUE(graph.connect(0, 1));
    const struct {
        const char* what;
        std::uint64_t from, to;
    } refused[] = {{"to itself", 0, 0},  {"no destination", 0, 7}, {"no source", 7, 0}, {"closes a cycle of two", 1, 0},
                   {"other type", 1, 9}, {"from a sink", 9, 1}};
    for (const auto& row : refused) {
        EXPECT_FALSE(graph.connect(row.from, row.to)) << row.what;
        EXPECT_FALSE(graph.disconnect(row.from, row.to)) << row.what << ": no edge is left";
    }
    ASSERT_TRUE(graph.connect(1, 2));
    EXPECT_FALSE(graph.connect(2, 0)) << "closes a cycle of three";
    EXPECT_TRUE(graph.disconnect(0, 1)) << "the first edge stayed in force";
    EXPECT_TRUE(graph.connect(2, 0)) << "and no cycle is left without it";
}

TEST(Graph, DoublesWhatADoubleEdgeDeliversAndRemovesItAtOnce)
{
    Relays relays({0, 1});
    Graph& graph = relays.graph;
    Source source;
    Sink sink;
    ASSERT_TRUE(source.addDestination(graph.getTypeErasedNodeInputChannel(0)));
    ASSERT_TRUE(graph.addDestination(1, sink.getInputChannel()));
    EXPECT_TRUE(graph.connect(0, 1));
    EXPECT_TRUE(graph.connect(0, 1));
    source.send(1);
    graph.compute();
    EXPECT_THAT(sink.received(), ElementsAre(1, 1)) << "from end to end in one pass";
    for (const bool found : {true, false}) {
        EXPECT_EQ(graph.disconnect(0, 1), found);
        EXPECT_EQ(graph.removeDestination(1, sink.getInputChannel()), found);
    }
    EXPECT_FALSE(graph.removeDestination(7, sink.getInputChannel()));
    EXPECT_FALSE(graph.addDestination(7, sink.getInputChannel()));
}

TEST(Graph, DropsANodeWithItsEdges)
{
    Relays relays({0, 1, 2, 5});
    Graph& graph = relays.graph;
    ASSERT_TRUE(graph.connect(0, 1));
    ASSERT_TRUE(graph.connect(1, 2));
    const auto channel = *std::any_cast<std::weak_ptr<ondra::Channel<int>>>(graph.getTypeErasedNodeInputChannel(5));
    {
        ondra::GraphExecutor idle(0);
        graph.compute(idle); // fills the list for executors, which then holds node 5 too
    }
    EXPECT_TRUE(graph.remove(5));
    EXPECT_TRUE(channel.expired()) << "nobody holds the node any more";
    EXPECT_TRUE(graph.remove(1));
    EXPECT_TRUE(graph.connect(2, 0)) << "2 after 0 is no rule any more";
    EXPECT_THAT(relays.pass(), ElementsAre(2, 0));
}

// Nodes that are reached twice in one walk count as a cycle. Walks start in the order of an unordered map, in which a
// node that was added later comes earlier: whether branches may meet depends on who was added when.
TEST(Graph, LetsBranchesMeetWhereAnEarlierWalkHasBeen)
{
    const std::vector<Edge> diamond = {{0, 1}, {0, 2}, {1, 3}, {2, 3}};
    const struct {
        std::vector<std::uint64_t> added;
        bool meets;
    } rows[] = {
        {{0, 1, 2, 3}, true},  // 3 is walked first, on its own
        {{3, 2, 1, 0}, false}, // one walk from 0 reaches 3 by both branches
        {{0, 3, 2, 1}, true},  // 1 is walked first, and 3 with it
        {{1, 2, 3, 0}, false},
    };
    for (const auto& row : rows) {
        Relays relays(row.added);
        for (std::size_t i = 0; i + 1 < diamond.size(); ++i)
            EXPECT_TRUE(relays.graph.connect(diamond[i].first, diamond[i].second));
        EXPECT_EQ(relays.graph.connect(2, 3), row.meets) << testing::PrintToString(row.added);
        EXPECT_THAT(relays.pass(), testing::SizeIs(4)) << "a refused edge leaves a graph that runs";
    }
}

TEST(Graph, AcceptsNoCycleAndRunsEveryNodeAfterThoseBeforeIt)
{
    constexpr std::uint64_t nodeCount = 12;
    std::mt19937 random(4);
    std::uniform_int_distribution<std::uint64_t> anyNode(0, nodeCount - 1);
    for (int round = 0; round < 50; ++round) {
        std::vector<std::uint64_t> ids(nodeCount);
        std::iota(ids.begin(), ids.end(), 0u);
        std::ranges::shuffle(ids, random);
        Relays relays(ids);
        std::vector<Edge> accepted;
        for (int i = 0; i < 40; ++i)
            if (const Edge edge(anyNode(random), anyNode(random)); relays.graph.connect(edge.first, edge.second))
                accepted.push_back(edge);
        ASSERT_FALSE(accepted.empty());
        const auto order = relays.pass();
        ASSERT_EQ(order.size(), nodeCount);
        for (const auto& [from, to] : accepted)
            EXPECT_LT(std::ranges::find(order, from), std::ranges::find(order, to)) << from << " -> " << to;
    }
}

TEST(Graph, SortsAChainThatIsLongerThanAnyStack)
{
    ondra::detail::DAG<std::uint64_t> dag;
    constexpr std::uint64_t length = 300'000;
    for (std::uint64_t id = length; id-- > 0;) // so that the walk begins at the chain's far end or near it
        dag.addNode(id);
    for (std::uint64_t id = 1; id < length; ++id)
        dag.addEdge(id - 1, id);
    ASSERT_EQ(dag.order().size(), length);
    EXPECT_TRUE(std::ranges::is_sorted(dag.order()));
}

TEST(Graph, SkipsAPassWhileItIsChanged)
{
    // A node that is asked for its input while the graph connects it: the lock is held then.
    struct Asked : Relay {
        const std::any* getInputChannel() const override
        {
            std::thread([this] { graph->compute(); }).join(); // would wait for ever if it waited for the lock
            return Relay::getInputChannel();
        }
        Graph* graph = nullptr;
    };
    Relays relays({0});
    auto asked = std::make_shared<Asked>();
    asked->graph = &relays.graph;
    ASSERT_TRUE(relays.graph.add(1, asked));
    EXPECT_TRUE(relays.graph.connect(0, 1));
    EXPECT_THAT(relays.order, IsEmpty());
}

TEST(Graph, LetsAnExceptionOutOfAPassAndGoesOn)
{
    Graph graph;
    bool broken = true;
    ASSERT_TRUE(graph.add(0, std::make_shared<Relay>([&] {
                              if (broken)
                                  throw std::runtime_error("broken");
                          })));
    EXPECT_THROW(graph.compute(), std::runtime_error);
    broken = false;
    EXPECT_NO_THROW(graph.compute());
    EXPECT_TRUE(graph.remove(0)) << "the lock was released";
}

TEST(GraphExecutor, RunsAllNodesOfAPassAndDropsWhatIsLeft)
{
    for (const std::size_t threads : {0u, 1u, 2u}) {
        std::atomic<int> runs = 0;
        std::vector<std::uint64_t> order; // with one thread, that of the edges
        const auto node = std::make_shared<Relay>();
        {
            Graph graph;
            for (const std::uint64_t id : {0u, 1u, 2u})
                ASSERT_TRUE(graph.add(id, std::make_shared<Relay>([&, id] {
                                          if (threads == 1)
                                              order.push_back(id);
                                          ++runs;
                                      })));
            ASSERT_TRUE(graph.connect(2, 1));
            ASSERT_TRUE(graph.connect(1, 0));
            ASSERT_TRUE(graph.add(3, node));
            ASSERT_TRUE(graph.remove(3));
            ondra::GraphExecutor executor(threads);
            if (threads == 0)
                executor.execute({node, node});
            for (int passes = 1; passes <= 2; ++passes) {
                graph.compute(executor);
                while (threads > 0 && runs < 3 * passes)
                    std::this_thread::yield();
            }
            EXPECT_EQ(node.use_count(), threads == 0 ? 3 : 1);
        }
        EXPECT_EQ(runs, threads == 0 ? 0 : 6);
        EXPECT_EQ(node.use_count(), 1);
        EXPECT_EQ(order, threads == 1 ? std::vector<std::uint64_t>({2, 1, 0, 2, 1, 0}) : std::vector<std::uint64_t>());
    }
}

} // namespace
