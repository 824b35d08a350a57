#include "graph/EventFilterGraph.h"

#include <atomic>
#include <functional>
#include <thread>

#include "NodeTesting.h"
#include "graph/EventFilterNodeFactory.h"
#include "graph/nodes/BufferSinkNode.h"
#include "graph/nodes/EventCounterSink.h"
#include "graph/nodes/EventCropNode.h"

namespace {

using namespace graph::nodes;
using namespace node_testing;
using davis::event::DvsEvent;
using graph::EventFilterGraph;
using graph::EventFilterNodeFactory;
using testing::ElementsAre;

using Source = BasicSourceNode<DvsEvent>;
using Counter = EventCounterSink<DvsEvent>;

constexpr std::uint64_t sinkId = 100; // of sinks put into graphs by hand

TEST(EventFilterGraph, NumbersItsNodesAndUsesNoNumberTwice)
{
    EventFilterGraph graph;
    EXPECT_EQ(graph.addFilterNode("NoSuchNode"), std::nullopt);
    EXPECT_EQ(graph.addFilterNode("DvsEventCrop"), 0u);
    EXPECT_EQ(graph.addFilterNode("DvsEventDecimate"), 1u);
    EXPECT_TRUE(graph.remove(1));
    EXPECT_EQ(graph.addFilterNode("DvsEventRescale"), 2u);
    EXPECT_FALSE(graph.hasNode(1));
}

TEST(EventFilterGraph, SaysWhyItRefuses)
{
    EventFilterGraph graph;
    const auto a = graph.addFilterNodeOrThrow("DvsEventCrop"), b = graph.addFilterNodeOrThrow("DvsEventCrop");
    graph.add(sinkId, std::make_shared<SinkNode<Batch<int>>>());
    trovi::BoxedPtr foreign = graph.getNodeInput(a), mistyped = foreign;
    foreign.pid += 1;
    mistyped.type = "int*";
    ASSERT_TRUE(graph.connectOrThrow(a, b));

    const struct {
        std::function<void()> call;
        std::string whileStopped, whileRunning;
    } rows[] = {
        {[&] { graph.addFilterNodeOrThrow("Dvs"); }, "Unknown type: Dvs", "Cannot add node while graph is running!"},
        {[&] { graph.getNodeInputOrThrow(77); }, "Node 77 doesn't exist!", "Node 77 doesn't exist!"},
        {[&] { graph.connectOrThrow(b, a); }, "Cannot create connection 1 -> 0",
         "Cannot connect nodes while graph is running!"},
        {[&] { graph.connectOrThrow(a, sinkId); }, "Cannot create connection 0 -> 100",
         "Cannot connect nodes while graph is running!"},
        {[&] { graph.removeOrThrow(77); }, "Cannot remove node 77", "Cannot remove node while graph is running!"},
        {[&] { graph.disconnectOrThrow(b, a); }, "Cannot disconnect 1 -> 0",
         "Cannot disconnect nodes while graph is running!"},
        {[&] { graph.addDestinationOrThrow(a, foreign); }, "Cannot add destination!",
         "Cannot add destination to node while graph is running!"},
        {[&] { graph.addDestinationOrThrow(a, mistyped); }, "Cannot add destination!",
         "Cannot add destination to node while graph is running!"},
        {[&] { graph.addDestinationOrThrow(a, inputOfDeadNode<Counter>()); }, "Cannot add destination!",
         "Cannot add destination to node while graph is running!"},
        {[&] { graph.addDestinationOrThrow(a, trovi::BoxedPtr()); }, "Cannot add destination!",
         "Cannot add destination to node while graph is running!"},
        {[&] { graph.removeDestinationOrThrow(a, graph.getNodeInput(a)); }, "Cannot remove destination!",
         "Cannot remove destination to node while graph is running!"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(errorOf<std::invalid_argument>(row.call), row.whileStopped);
    EXPECT_EQ(errorOf<std::out_of_range>([&] { graph.getSharedNode(77); }), "_Map_base::at");

    ASSERT_TRUE(graph.start());
    for (const auto& row : rows)
        EXPECT_EQ(errorOf<std::invalid_argument>(row.call), row.whileRunning);
    EXPECT_TRUE(graph.hasNode(a));
    EXPECT_TRUE(graph.getNodeInputOrThrow(a).isValid());
    ASSERT_TRUE(graph.stop());
    EXPECT_TRUE(graph.disconnectOrThrow(a, b)) << "nothing of all that did a thing";
    EXPECT_TRUE(graph.removeOrThrow(a));
}

TEST(EventFilterGraph, StartsAndStopsOnce)
{
    EventFilterGraph graph;
    EXPECT_FALSE(graph.isRunning());
    EXPECT_FALSE(graph.stop());
    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(graph.start());
        EXPECT_TRUE(graph.isRunning());
        EXPECT_FALSE(graph.start());
        EXPECT_TRUE(graph.stop());
        EXPECT_FALSE(graph.isRunning());
        EXPECT_FALSE(graph.stop());
    }
}

// Source, crop, rescale and a sink inside the graph; a second sink outside.
struct Loaded {
    Loaded()
    {
        const auto crop = graph.addFilterNodeOrThrow("DvsEventCrop"),
                   rescale = graph.addFilterNodeOrThrow("DvsEventRescale");
        graph.connectOrThrow(crop, rescale);
        graph.add(sinkId, inside);
        graph.connectOrThrow(rescale, sinkId);
        graph.addDestinationOrThrow(rescale, outside.getInput());
        EXPECT_TRUE(source.addDestination(graph.getNodeInputOrThrow(crop)));
    }
    Source source;
    std::shared_ptr<Counter> inside = std::make_shared<Counter>();
    BufferSinkNode<DvsEvent> outside;
    EventFilterGraph graph; // last: its thread uses the others
};

TEST(EventFilterGraph, BringsEventsFromEndToEnd)
{
    Loaded loaded;
    std::dynamic_pointer_cast<EventCropNode<DvsEvent>>(loaded.graph.getSharedNode(0))->setROI(10, 10, 20, 20);
    ASSERT_TRUE(loaded.graph.start());
    loaded.source.write({{15, 16, true, 1}, {9, 15, true, 2}, {20, 20, false, 3}});
    std::vector<DvsEvent> events;
    while (events.size() < 2)
        for (const auto& event : loaded.outside.getBuf())
            events.push_back(event);
    EXPECT_THAT(events, ElementsAre(DvsEvent{5, 6, true, 1}, DvsEvent{10, 10, false, 3}));
    loaded.graph.stop();
    EXPECT_EQ(loaded.inside->getCount(), 2u);
}

TEST(EventFilterGraph, LosesNothingOverAHundredStartsUnderLoad)
{
    Loaded loaded;
    std::atomic<bool> writing = true;
    std::atomic<std::uint64_t> written = 0, seen = 0;
    std::thread camera([&] {
        while (writing)
            if (written - seen < 10'000) { // so that a slow graph is not buried
                loaded.source.write(std::vector<DvsEvent>(50));
                written += 50;
            } else {
                std::this_thread::yield();
            }
    });
    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(loaded.graph.start());
        EXPECT_TRUE(loaded.graph.hasNode(0)); // spins for the lock of the graph
        seen += loaded.inside->getCount();
        ASSERT_TRUE(loaded.graph.stop());
    }
    writing = false;
    camera.join();
    loaded.graph.compute(); // what still waits
    seen += loaded.inside->getCount();
    EXPECT_EQ(seen, written);
    EXPECT_EQ(loaded.outside.getBuf().size(), written);
}

TEST(EventFilterGraph, AnswersWithinAPassOrTwo)
{
    struct CountingSink : Counter {
        void apply() override
        {
            ++passes;
            Counter::apply(); // nothing comes: the graph's lock is held nearly always
        }
        std::atomic<int> passes = 0;
    };
    const auto sink = std::make_shared<CountingSink>();
    EventFilterGraph graph;
    graph.add(sinkId, sink);
    graph.start();
    constexpr int questions = 10;
    for (int i = 0; i < questions; ++i) {
        for (const int before = sink->passes; sink->passes == before;)
            std::this_thread::yield();
        EXPECT_TRUE(graph.hasNode(sinkId));
    }
    EXPECT_LE(sink->passes, 3 * questions) << "a graph that takes its lock again at once is asked in vain for seconds";
}

TEST(EventFilterGraph, IsStoppedByOneOfManyThreads)
{
    EventFilterGraph graph;
    graph.add(sinkId, std::make_shared<Counter>());
    for (int i = 0; i < 20; ++i) {
        std::atomic<int> started = 0, stopped = 0;
        std::vector<std::thread> threads;
        threads.reserve(3);
        for (int n = 0; n < 3; ++n)
            threads.emplace_back([&] {
                started += graph.start();
                stopped += graph.stop();
            });
        for (auto& thread : threads)
            thread.join();
        EXPECT_EQ(started, stopped + graph.isRunning());
        graph.stop();
    }
}

TEST(EventFilterGraph, EndsItsThreadWhenDestroyed)
{
    std::shared_ptr<ondra::NodeInterface> kept;
    auto sink = std::make_shared<Counter>();
    {
        EventFilterGraph graph;
        graph.addFilterNodeOrThrow("DvsEventCrop");
        graph.add(sinkId, sink);
        kept = graph.getSharedNode(0);
        graph.start();
    }
    EXPECT_EQ(sink.use_count(), 1);
    EXPECT_TRUE(kept->addDestination(sink->getInputChannel())) << "a node lives on with whoever has it";
}

TEST(EventFilterGraphDeathTest, ANodeThatThrowsEndsTheProcess)
{
    struct Thrower : Counter {
        void apply() override { throw std::runtime_error("apply failed"); }
    };
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            EventFilterGraph graph;
            graph.add(0, std::make_shared<Thrower>());
            graph.start();
            while (true)
                std::this_thread::yield();
        },
        "");
}

TEST(EventFilterNodeFactory, BuildsByNameAndLetsTheLastBuilderWin)
{
    auto& factory = EventFilterNodeFactory::getInstance();
    EXPECT_EQ(factory.buildEventFilterNode("TestNode"), nullptr);
    EXPECT_TRUE(factory.registerNodeBuilder("TestNode", [] { return std::make_unique<Source>(); }));
    EXPECT_NE(dynamic_cast<Source*>(factory.buildEventFilterNode("TestNode").get()), nullptr);
    EXPECT_FALSE(factory.registerNodeBuilder("TestNode", [] { return std::make_unique<Counter>(); }));
    EXPECT_NE(dynamic_cast<Counter*>(factory.buildEventFilterNode("TestNode").get()), nullptr);
    for (const char* name : {"DvsEventCrop", "DvsEventDecimate", "DvsEventRescale"})
        EXPECT_NE(factory.buildEventFilterNode(name), nullptr) << name;
}

TEST(EventFilterGraph, IsDescribed)
{
    EXPECT_EQ(trovi::registeredName<EventFilterGraph>(), "graph::EventFilterGraph");
    EXPECT_THAT(functionNames<EventFilterGraph>(),
                ElementsAre("addFilterNode", "getNodeInput", "connect", "remove", "disconnect", "addDestination",
                            "removeDestination", "getNode", "hasNode", "start", "stop"));
}

} // namespace
