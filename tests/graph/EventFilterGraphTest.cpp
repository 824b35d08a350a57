#include "graph/EventFilterGraph.h"

#include <atomic>
#include <functional>
#include <sstream>
#include <thread>

#include "../Golden.h"
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

    const std::pair<const char*, std::function<void()>> refused[] = {
        {"add an unknown node", [&] { graph.addFilterNodeOrThrow("Dvs"); }},
        {"input of no node", [&] { graph.getNodeInputOrThrow(77); }},
        {"close a circle", [&] { graph.connectOrThrow(b, a); }},
        {"connect other events", [&] { graph.connectOrThrow(a, sinkId); }},
        {"remove no node", [&] { graph.removeOrThrow(77); }},
        {"disconnect what is not connected", [&] { graph.disconnectOrThrow(b, a); }},
        {"add an input of another process", [&] { graph.addDestinationOrThrow(a, foreign); }},
        {"add what is no input", [&] { graph.addDestinationOrThrow(a, mistyped); }},
        {"add the input of a dead node", [&] { graph.addDestinationOrThrow(a, inputOfDeadNode<Counter>()); }},
        {"add an empty input", [&] { graph.addDestinationOrThrow(a, trovi::BoxedPtr()); }},
        {"remove what is no destination", [&] { graph.removeDestinationOrThrow(a, graph.getNodeInput(a)); }},
    };
    EXPECT_EQ(errorOf<std::out_of_range>([&] { graph.getSharedNode(77); }), "_Map_base::at");
    std::ostringstream texts;
    for (const bool running : {false, true}) {
        EXPECT_EQ(running && graph.start(), running);
        texts << (running ? "running\n" : "stopped\n");
        for (const auto& [what, call] : refused)
            texts << "    " << what << ": " << errorOf<std::invalid_argument>(call) << '\n';
    }
    EXPECT_GOLDEN("graph_refusals.txt", texts.str());
    EXPECT_TRUE(graph.hasNode(a));
    EXPECT_TRUE(graph.getNodeInputOrThrow(a).isValid());
    ASSERT_TRUE(graph.stop());
    EXPECT_TRUE(graph.disconnectOrThrow(a, b)) << "nothing of all that did a thing";
    EXPECT_TRUE(graph.removeOrThrow(a));
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
}

} // namespace
