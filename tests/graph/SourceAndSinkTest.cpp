#include <any>
#include <atomic>
#include <thread>

#include <gmock/gmock.h>

#include "NodeTesting.h"
#include "davis/event/DvsEvent.h"
#include "graph/nodes/BasicSinkNode.h"
#include "graph/nodes/BufferSinkNode.h"
#include "graph/nodes/EventCounterSink.h"

namespace {

using davis::event::DvsEvent;
using namespace graph::nodes;
using testing::ElementsAre;
using testing::IsEmpty;

using Source = BasicSourceNode<DvsEvent>;
using Buffer = BufferSinkNode<DvsEvent>;
using Counter = EventCounterSink<DvsEvent>;

const DvsEvent first{1, 2, true, 10};
const DvsEvent second{3, 4, false, 20};
const DvsEvent third{5, 6, true, 30};

using Probe = node_testing::BatchSink<DvsEvent>;

TEST(BasicSource, SendsOneVectorToAllItsDestinations)
{
    Source source;
    Probe left, right;
    ASSERT_TRUE(source.addDestination(left.getInput()));
    ASSERT_TRUE(source.addDestination(right.getInput()));
    source.write({first, second});
    source.write({});
    const auto seenLeft = left.batches(), seenRight = right.batches();
    ASSERT_THAT(seenLeft, testing::SizeIs(1)) << "an empty batch is not sent";
    EXPECT_EQ(seenLeft, seenRight) << "both own the same vector";
    EXPECT_THAT(*seenLeft[0], ElementsAre(first, second));
}

TEST(BasicSource, TakesOnlyInputsOfItsOwnEventsAndProcess)
{
    Source source;
    Probe sink;
    SinkNode<Batch<int>> otherEvents;
    trovi::BoxedPtr foreign = sink.getInput(), mistyped = sink.getInput();
    foreign.pid += 1;
    mistyped.type = "int*";
    const std::any noInput;
    for (const auto& refused :
         {trovi::BoxedPtr(), foreign, mistyped, otherEvents.getInput(), trovi::BoxedPtr::of(source.getInputChannel()),
          trovi::BoxedPtr::of(&noInput), node_testing::inputOfDeadNode<Probe>()}) {
        EXPECT_FALSE(source.addDestination(refused)) << refused;
        EXPECT_FALSE(source.removeDestination(refused)) << refused;
    }
    EXPECT_TRUE(source.addDestination(sink.getInput()));
    EXPECT_TRUE(source.removeDestination(sink.getInput()));
    source.write({first});
    EXPECT_THAT(sink.batches(), IsEmpty());
}

TEST(Sinks, HoldWhatPassedAndWhatWaits)
{
    Source source;
    Buffer buffer;
    Counter counter;
    EXPECT_THAT(buffer.getBuf(), IsEmpty());
    ASSERT_TRUE(source.connectTo(buffer));
    ASSERT_TRUE(source.connectTo(counter));
    for (const auto& event : {first, second, third})
        source.write({event});
    buffer.apply(); // takes one batch of the three
    counter.apply();
    EXPECT_THAT(buffer.getBuf(), ElementsAre(first, second, third));
    EXPECT_THAT(buffer.getBuf(), IsEmpty());
    EXPECT_EQ(counter.getCount(), 3u);
    EXPECT_EQ(counter.getCount(), 0u);
}

TEST(BasicSink, TakesOneBatchAStep)
{
    BasicSinkNode<DvsEvent> sink;
    Source source;
    ASSERT_TRUE(source.connectTo(sink));
    source.write({first, second});
    source.write({third});
    sink.apply();
    EXPECT_THAT(sink.takeEvents(), ElementsAre(first, second));
    source.write({first});
    sink.apply();
    sink.apply();
    sink.apply(); // nothing waits: returns after its 10 ms
    EXPECT_THAT(sink.takeEvents(), ElementsAre(third, first));
    EXPECT_THAT(sink.takeEvents(), IsEmpty());
}

TEST(BasicSink, CopiesNoEventsOfABatchThatIsItsAlone)
{
    BasicSinkNode<DvsEvent> sink;
    Probe other;
    Source source;
    ASSERT_TRUE(source.connectTo(sink));
    std::vector<DvsEvent> events{first, second};
    const DvsEvent* memory = events.data();
    source.write(std::move(events));
    sink.apply();
    EXPECT_EQ(sink.takeEvents().data(), memory);

    ASSERT_TRUE(source.connectTo(other));
    source.write({first, third});
    sink.apply();
    EXPECT_THAT(sink.takeEvents(), ElementsAre(first, third));
    EXPECT_THAT(*other.batches().at(0), ElementsAre(first, third)) << "a batch that others hold stays whole";
}

// The other owner releases the batch while its owners are counted. Nothing but the batch orders the two threads.
TEST(BasicSink, LeavesABatchAloneUntilItsReadersAreDone)
{
    constexpr int rounds = 1000;
    std::vector<Batch<int>> given(rounds);
    std::atomic<int> handedOver = 0, reading = 0;
    int seen = 0, taken = 0;
    const auto await = [](const auto& holds) {
        for (int looks = 0; !holds(); ++looks)
            if (looks > 20'000) // before that, giving the processor away would miss the moment
                std::this_thread::yield();
    };
    std::thread reader([&] {
        for (int i = 0; i < rounds; ++i) {
            await([&] { return handedOver.load(std::memory_order_acquire) > i; });
            reading.store(i + 1, std::memory_order_relaxed);
            seen += given[static_cast<std::size_t>(i)]->front();
            given[static_cast<std::size_t>(i)].reset();
        }
    });
    for (int i = 0; i < rounds; ++i) {
        auto batch = std::make_shared<std::vector<int>>(1, 1);
        given[static_cast<std::size_t>(i)] = batch;
        handedOver.store(i + 1, std::memory_order_release);
        await([&] { return reading.load(std::memory_order_relaxed) == i + 1; });
        for (int look = 0; look < i % 32; ++look)
            static_cast<void>(batch.use_count());
        std::vector<int> events;
        detail::takeIn(std::move(batch), events);
        taken += events.at(0);
        events[0] = 100; // the owner's from now on
    }
    reader.join();
    EXPECT_EQ(seen, rounds);
    EXPECT_EQ(taken, rounds);
}

TEST(Sinks, AnswerWhileAGraphKeepsThemBusy)
{
    Buffer sink;
    std::atomic<bool> running = true;
    std::atomic<int> passes = 0;
    std::thread graph([&] {
        for (; running; ++passes)
            sink.apply(); // holds the mutex nearly always
    });
    while (passes == 0)
        std::this_thread::yield();
    constexpr int calls = 20;
    for (int i = 0; i < calls; ++i)
        EXPECT_THAT(sink.getBuf(), IsEmpty());
    EXPECT_LE(passes, 3 * calls) << "a plain mutex lets the graph's thread win many times over";
    running = false;
    graph.join();
}

TEST(Sources, MayBeWrittenAndConnectedByManyThreads)
{
    constexpr int writers = 3, batches = 500;
    Source source;
    Counter kept;
    ASSERT_TRUE(source.connectTo(kept));
    std::vector<std::thread> threads;
    threads.reserve(writers);
    for (int i = 0; i < writers; ++i)
        threads.emplace_back([&] {
            for (int n = 0; n < batches; ++n)
                source.write({first, second});
        });
    for (int n = 0; n < batches; ++n) {
        Buffer passing; // dies with batches in it, and is dropped at a later send
        EXPECT_TRUE(source.addDestination(passing.getInput()));
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(kept.getCount(), 2u * writers * batches);
}

} // namespace
