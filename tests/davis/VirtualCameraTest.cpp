// What virtual cameras show, and when.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <functional>
#include <limits>
#include <stdexcept>
#include <thread>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TestSink.h"
#include "davis/Davis240.h"
#include "davis/recording/Writer.h"

namespace {

using davis::event::DvsEvent;
using davis::recording::Format;
using emulation::plugVirtualDavis;
using emulation::plugVirtualDavisRecording;
using emulation::ReplayOptions;
using emulation::SceneOptions;
using test::longTimeMs;
using test::sceneOf;
using Clock = std::chrono::steady_clock;

const std::string digitFile = std::string(VORNA_SOURCE_DIR) + "/tests/data/digit_34x34.bin";

class VirtualCameras : public testing::Test {
protected:
    VirtualCameras() : file(std::filesystem::temp_directory_path() / ("vorna_replay_" + std::to_string(getpid()))) {}
    ~VirtualCameras() override { std::filesystem::remove(file); }

    /// A recording of `count` events, one each `stepUs`.
    std::string record(std::size_t count, std::int64_t stepUs, std::int64_t firstUs = 0, std::size_t perPacket = 4096)
    {
        std::vector<DvsEvent> events(count);
        for (std::size_t i = 0; i < count; ++i)
            events[i] = {static_cast<std::uint16_t>(i % 346), static_cast<std::uint16_t>(i / 346 % 260), i % 2 == 0,
                         firstUs + static_cast<std::int64_t>(i) * stepUs};
        davis::recording::Writer writer(file, Format::aedat31, {{346, 260}});
        for (std::size_t at = 0; at < count; at += perPacket)
            writer.write(std::span(events).subspan(at, std::min(perPacket, count - at)));
        writer.close();
        written = events;
        return file.string();
    }

    /// Plays what is plugged to its end and gives the batches.
    std::vector<std::vector<DvsEvent>> play(const emulation::VirtualCamera& plugged)
    {
        davis::Davis240 camera;
        camera.getSourceNode().connectTo(sink);
        camera.start();
        EXPECT_TRUE(plugged.waitUntilFinished(longTimeMs));
        camera.stop();
        std::vector<std::vector<DvsEvent>> batches;
        while (sink.waiting() > 0)
            batches.push_back(sink.wait().value());
        return batches;
    }

    test::EmptyBus bus;
    test::Sink sink;
    std::filesystem::path file;
    std::vector<DvsEvent> written;
};

ReplayOptions fast()
{
    ReplayOptions options;
    options.realtime = false;
    options.maxBacklog = 1'000'000;
    return options;
}

std::vector<DvsEvent> joined(const std::vector<std::vector<DvsEvent>>& batches)
{
    std::vector<DvsEvent> all;
    for (const auto& batch : batches)
        all.insert(all.end(), batch.begin(), batch.end());
    return all;
}

TEST_F(VirtualCameras, ARecordingComesInBatchesOfTheGivenTime)
{
    const auto plugged = plugVirtualDavisRecording(record(1000, 100, 5'000), fast());
    const auto batches = play(*plugged);
    ASSERT_EQ(batches.size(), 10u);
    for (const auto& batch : batches)
        EXPECT_EQ(batch.size(), 100u);
    EXPECT_EQ(joined(batches), written);
    EXPECT_EQ(plugged->damage(), "");
}

TEST_F(VirtualCameras, ARecordingComesInItsOwnPacketsWhenAsked)
{
    auto options = fast();
    options.ownPackets = true;
    const auto plugged = plugVirtualDavisRecording(record(100, 10'000, 0, 33), options);
    const auto batches = play(*plugged);
    ASSERT_EQ(batches.size(), 4u);
    EXPECT_EQ(batches[0].size(), 33u);
    EXPECT_EQ(batches[3].size(), 1u);
    EXPECT_EQ(joined(batches), written);
}

TEST_F(VirtualCameras, SilenceMakesNoEmptyBatches)
{
    const auto plugged = plugVirtualDavisRecording(record(3, 3'600'000'000), fast()); // an hour between two events
    EXPECT_EQ(plugged->model(), "DAVIS346");
    EXPECT_EQ(play(*plugged).size(), 3u);
}

TEST_F(VirtualCameras, TheSensorIsThatOfTheRecordingUnlessToldOtherwise)
{
    const auto digit = plugVirtualDavisRecording(digitFile);
    EXPECT_EQ(digit->model(), "DAVIS34");
    EXPECT_EQ(digit->width(), 34);
    ReplayOptions larger;
    larger.width = 128;
    larger.height = 100;
    EXPECT_EQ(plugVirtualDavisRecording(digitFile, larger)->height(), 100);
    EXPECT_EQ(plugVirtualDavis()->width(), 346);
    EXPECT_EQ(emulation::plugVirtualDvXplorer()->height(), 480);
    EXPECT_EQ(emulation::virtualCameras().size(), 4u);
}

TEST_F(VirtualCameras, NoBatchComesBeforeItsTime)
{
    const struct {
        double speed;
        std::int64_t stepUs;
    } rows[] = {{1.0, 1'000}, {10.0, 10'000}, {0.1, 100}};
    for (const auto& row : rows) {
        ReplayOptions options;
        options.speed = row.speed;
        options.batchUs = static_cast<std::int32_t>(row.stepUs * 20);
        const auto plugged = plugVirtualDavisRecording(record(100, row.stepUs, 1'000'000), options);
        davis::Davis240 camera;
        camera.getSourceNode().connectTo(sink);
        const auto begin = Clock::now();
        camera.start();
        for (int i = 0; i < 5; ++i) {
            const auto batch = sink.wait();
            const double passedUs = std::chrono::duration<double, std::micro>(Clock::now() - begin).count();
            ASSERT_TRUE(batch);
            EXPECT_GE(passedUs, static_cast<double>(batch->back().timestamp - 1'000'000) / row.speed)
                << "speed " << row.speed << ", batch " << i;
        }
        camera.stop();
        plugged->unplug();
    }
}

TEST_F(VirtualCameras, AStopInTheMiddleHoldsTheShowAsLongAsItLasts)
{
    const auto plugged = plugVirtualDavisRecording(record(2, 400'000)); // one event at once, one after 0.4 s
    davis::Davis240 camera;
    camera.getSourceNode().connectTo(sink);
    camera.start();
    ASSERT_TRUE(sink.wait());
    camera.stop();
    EXPECT_EQ(sink.waiting(), 0u);
    const auto again = Clock::now();
    camera.start();
    ASSERT_TRUE(sink.wait());
    EXPECT_LT(Clock::now() - again, std::chrono::milliseconds(longTimeMs));
    camera.stop();
    EXPECT_EQ(plugged->eventCount(), 2u);
}

TEST_F(VirtualCameras, ALoopGoesOnWithGrowingTimestamps)
{
    for (const bool ownPackets : {false, true}) {
        auto options = fast();
        options.loop = true;
        options.ownPackets = ownPackets;
        options.maxBacklog = 4;
        const auto plugged = plugVirtualDavisRecording(record(1000, 7, 500), options);
        davis::Davis240 camera;
        camera.getSourceNode().connectTo(sink);
        camera.start();
        std::vector<DvsEvent> events;
        while (events.size() < 10'000) {
            const auto batch = sink.wait();
            ASSERT_TRUE(batch);
            events.insert(events.end(), batch->begin(), batch->end());
        }
        camera.stop();
        EXPECT_FALSE(plugged->isFinished());
        constexpr std::int64_t turnUs = 999 * 7 + 1;
        for (std::size_t i = 0; i < 10'000; ++i) {
            DvsEvent expected = written[i % 1000];
            expected.timestamp += turnUs * static_cast<std::int64_t>(i / 1000);
            ASSERT_EQ(events[i], expected) << i;
        }
        plugged->unplug();
        sink.drain();
    }
}

TEST_F(VirtualCameras, AnEmptyRecordingEndsAlsoInALoop)
{
    auto options = fast();
    options.loop = true;
    EXPECT_TRUE(play(*plugVirtualDavisRecording(record(0, 0), options)).empty());
}

TEST_F(VirtualCameras, ADamagedRecordingShowsItsGoodPartAndTellsTheRest)
{
    const std::string path = record(1000, 100);
    std::filesystem::resize_file(path, std::filesystem::file_size(path) - 3);
    const auto plugged = plugVirtualDavisRecording(path, fast());
    EXPECT_EQ(joined(play(*plugged)), std::vector(written.begin(), written.end() - 1));
    EXPECT_THAT(plugged->damage(), testing::HasSubstr(path + ": damaged at byte "));
}

TEST_F(VirtualCameras, ARecordingThatGoesMissingInALoopEndsTheShow)
{
    auto options = fast();
    options.loop = true;
    options.maxBacklog = 1;
    const auto plugged = plugVirtualDavisRecording(record(10, 1), options);
    davis::Davis240 camera;
    camera.getSourceNode().connectTo(sink);
    camera.start();
    ASSERT_TRUE(sink.wait());
    std::filesystem::remove(file);
    while (!plugged->isFinished())
        sink.drain();
    camera.stop();
    EXPECT_THAT(plugged->damage(), testing::HasSubstr("No such file"));
}

TEST_F(VirtualCameras, OpeningAgainBeginsAnew)
{
    const auto plugged = plugVirtualDavisRecording(digitFile, fast());
    const auto first = joined(play(*plugged));
    EXPECT_EQ(first.size(), 4325u);
    EXPECT_EQ(joined(play(*plugged)), first);
    EXPECT_EQ(plugged->eventCount(), 4325u);
}

// A reader that does not read: as fast as possible must not mean without bound.
TEST_F(VirtualCameras, AFastShowWaitsForTheGraph)
{
    auto options = test::fastScene(1'000'000);
    options.maxBacklog = 3;
    const auto plugged = plugVirtualDavis(options);
    davis::Davis240 camera;
    test::Sink other;
    camera.getSourceNode().connectTo(sink);
    camera.getSourceNode().connectTo(other);
    camera.start();
    std::uint64_t events = 0;
    for (int i = 0; i < 100; ++i) {
        const auto batch = sink.wait();
        ASSERT_TRUE(batch);
        events += batch->size();
        EXPECT_LE(sink.waiting(), 3u);
        if (i >= 2) { // the other one stays behind, and holds the camera up
            while (other.waiting() < 3 && plugged->batchCount() < 100)
                std::this_thread::yield();
            EXPECT_LE(other.waiting(), 3u);
            EXPECT_TRUE(other.wait());
        }
    }
    EXPECT_EQ(events, 1'000'000u);
    EXPECT_TRUE(plugged->waitUntilFinished(longTimeMs));
    camera.stop();
}

TEST_F(VirtualCameras, AWaitForTheEndGivesUpInTime)
{
    const auto plugged = plugVirtualDavis();
    EXPECT_FALSE(plugged->waitUntilFinished(0));
    EXPECT_FALSE(plugged->waitUntilFinished(20));
    EXPECT_FALSE(plugged->waitUntilFinished(-1));
}

SceneOptions smallScene(double bars, double dot, double noise)
{
    SceneOptions options;
    options.width = 90;
    options.height = 60;
    options.movingBars = bars;
    options.rotatingDot = dot;
    options.noise = noise;
    options.durationUs = 1'000'000;
    return options;
}

TEST(Scenes, TheSameSeedShowsTheSameAndAnotherOneSomethingElse)
{
    auto options = smallScene(1, 1, 1);
    const auto events = sceneOf(options);
    EXPECT_TRUE(sceneOf(options) == events);
    options.seed = 2;
    EXPECT_FALSE(sceneOf(options) == events);
}

TEST(Scenes, EventsLieWithinTheSensorInOrderAndAtTheirRate)
{
    const struct {
        std::uint16_t width, height;
        double rate;
        std::int32_t batchUs;
    } rows[] = {{1, 1, 10'000, 10'000}, {2, 3, 1, 1'000}, {346, 260, 123'456, 777}, {4096, 4096, 1e6, 100'000}};
    for (const auto& row : rows) {
        auto options = smallScene(1, 1, 0.5);
        options.width = row.width;
        options.height = row.height;
        options.eventsPerSecond = row.rate;
        options.batchUs = row.batchUs;
        const auto events = sceneOf(options);
        EXPECT_EQ(events.size(), static_cast<std::size_t>(row.rate));
        EXPECT_TRUE(std::ranges::is_sorted(events, {}, &DvsEvent::timestamp));
        EXPECT_LT(events.back().timestamp, 1'000'000);
        EXPECT_TRUE(
            std::ranges::all_of(events, [&](const DvsEvent& e) { return e.x < row.width && e.y < row.height; }));
    }
}

TEST(Scenes, BarsMoveOnePixelAfterTheOther)
{
    // ON events of one moment stand at the four leading edges; follow the first across a tenth of the sensor.
    const auto events = sceneOf(smallScene(1, 0, 0));
    for (const DvsEvent& event : events) {
        const double shift =
            90.0 * static_cast<double>(event.timestamp / 1000) / 1000.0; // things move each millisecond
        double column = event.x - shift; // an edge each 90 / 8 pixels, ON at the odd ones, blurred by up to 3 pixels
        column -= std::floor(column / 22.5) * 22.5;
        const bool leading = column > 8.25 && column < 16.25;
        ASSERT_EQ(event.polarity, leading) << event.x << " at " << event.timestamp;
    }
}

TEST(Scenes, TheDotRunsRoundTheMiddle)
{
    for (const DvsEvent& event : sceneOf(smallScene(0, 1, 0))) {
        const double fromMiddle = std::hypot(event.x - 45.0, event.y - 30.0);
        ASSERT_NEAR(fromMiddle, 20.0, 3.75 + 1.5) << "orbit of 60 / 3 pixels, radius of 60 / 16";
    }
}

TEST(Scenes, NoiseIsEverywhere)
{
    std::vector<int> hits(90 * 60);
    for (const DvsEvent& event : sceneOf(smallScene(0, 0, 1)))
        ++hits[event.y * 90u + event.x];
    EXPECT_EQ(std::ranges::count(hits, 0), 0) << "37 events a pixel on average";
    EXPECT_LT(std::ranges::max(hits), 100);
}

TEST(Options, WhatIsOutOfRangeIsRefusedByName)
{
    const struct {
        std::function<void(SceneOptions&)> spoil;
        const char* text;
    } rows[] = {
        {[](SceneOptions& o) { o.width = 4097; }, "width must be 0 to 4096"},
        {[](SceneOptions& o) { o.height = 5000; }, "height must be 0 to 4096"},
        {[](SceneOptions& o) { o.batchUs = 0; }, "batch_us must be 1 or more"},
        {[](SceneOptions& o) { o.speed = 0; }, "speed must be above 0"},
        {[](SceneOptions& o) { o.speed = std::numeric_limits<double>::quiet_NaN(); }, "speed must be above 0"},
        {[](SceneOptions& o) { o.maxBacklog = 0; }, "max_backlog must be 1 or more"},
        {[](SceneOptions& o) { o.movingBars = -1; }, "moving_bars must be 0 to 1e9"},
        {[](SceneOptions& o) { o.noise = std::numeric_limits<double>::infinity(); }, "noise must be 0 to 1e9"},
        {[](SceneOptions& o) { o.movingBars = o.rotatingDot = o.noise = 0; },
         "moving_bars, rotating_dot, noise must be above 0"},
        {[](SceneOptions& o) { o.eventsPerSecond = 0.5; }, "events_per_second must be 1 to 1e8"},
        {[](SceneOptions& o) { o.durationUs = -1; }, "duration_us must be 0 (endless) or more"},
        {[](SceneOptions& o) {
             o.eventsPerSecond = 1e8;
             o.batchUs = 1'000'000;
         },
         "10 million events a batch"},
    };
    const test::EmptyBus bus;
    for (const auto& row : rows) {
        SceneOptions options;
        row.spoil(options);
        EXPECT_THAT([&] { plugVirtualDavis(options); },
                    testing::ThrowsMessage<std::invalid_argument>(testing::HasSubstr(row.text)));
    }
    EXPECT_TRUE(emulation::virtualCameras().empty());
    EXPECT_THROW(plugVirtualDavisRecording("/no/such.aedat"), std::runtime_error);
}

} // namespace
