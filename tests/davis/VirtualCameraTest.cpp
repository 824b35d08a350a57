// What virtual cameras show, and when.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <limits>
#include <optional>
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
using emulation::plugVirtualDavis;
using emulation::plugVirtualDavisRecording;
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
        written.resize(count);
        for (std::size_t i = 0; i < count; ++i)
            written[i] = {static_cast<std::uint16_t>(i % 346), static_cast<std::uint16_t>(i / 346), i % 2 == 0,
                          firstUs + static_cast<std::int64_t>(i) * stepUs};
        davis::recording::Writer writer(file, davis::recording::Format::aedat31, {{346, 260}});
        for (std::size_t at = 0; at < count; at += perPacket)
            writer.write(std::span(written).subspan(at, std::min(perPacket, count - at)));
        writer.close();
        return file.string();
    }

    /// Opens the camera that is plugged in, and runs it into `sink`.
    void start()
    {
        camera.emplace();
        camera->getSourceNode().connectTo(sink);
        camera->start();
    }

    test::EmptyBus bus;
    test::Sink sink;
    std::optional<davis::Davis240> camera;
    std::filesystem::path file;
    std::vector<DvsEvent> written;
};

TEST_F(VirtualCameras, ARecordingComesInBatchesOfTheGivenTimeOrItsOwnPackets)
{
    constexpr std::int64_t tenMinutesUs = 600'000'000;
    const struct {
        const char* description;
        std::size_t count;
        std::int64_t stepUs, firstUs;
        bool ownPackets, loop;
        std::uintmax_t cut; // bytes of the file's end
        std::vector<std::size_t> batches;
    } rows[] = {
        {"10 ms each, from the first event", 1000, 100, 5'000, false, false, 0, std::vector<std::size_t>(10, 100)},
        {"packets of 33 events", 100, 10'000, 0, true, false, 0, {33, 33, 33, 1}},
        {"silence makes no empty batches", 3, tenMinutesUs, 0, false, false, 0, {1, 1, 1}},
        {"nothing, not even in a loop", 0, 0, 0, false, true, 0, {}},
        {"a damaged recording shows its good part", 300, 100, 0, false, false, 3, {100, 100, 99}},
    };
    for (const auto& row : rows) {
        const std::string path = record(row.count, row.stepUs, row.firstUs, row.ownPackets ? 33 : 4096);
        std::filesystem::resize_file(path, std::filesystem::file_size(path) - row.cut);
        const auto plugged = plugVirtualDavisRecording(
            path, {.loop = row.loop, .ownPackets = row.ownPackets, .realtime = false, .maxBacklog = 1'000'000});
        for (int i = 0; i < 2; ++i) { // opening again begins anew
            start();
            EXPECT_TRUE(plugged->waitUntilFinished(longTimeMs));
            camera->stop();
            camera.reset();
            auto left = written.begin();
            for (const std::size_t size : row.batches) {
                EXPECT_EQ(sink.wait(), std::vector(left, left + static_cast<std::ptrdiff_t>(size))) << row.description;
                left += static_cast<std::ptrdiff_t>(size);
            }
            EXPECT_EQ(sink.waiting(), 0u) << row.description;
            EXPECT_EQ(plugged->eventCount(), left - written.begin());
        }
        EXPECT_THAT(plugged->damage(), testing::StartsWith(row.cut == 0 ? "" : path + ": damaged at byte "));
        plugged->unplug();
    }
}

TEST_F(VirtualCameras, TheSensorIsThatOfTheRecordingUnlessToldOtherwise)
{
    const auto digit = plugVirtualDavisRecording(digitFile);
    EXPECT_EQ(digit->model(), "DAVIS34");
    EXPECT_EQ(digit->width(), 34);
    EXPECT_EQ(plugVirtualDavisRecording(digitFile, {.width = 128, .height = 100})->height(), 100);
    EXPECT_EQ(plugVirtualDavis()->width(), 346);
    EXPECT_EQ(emulation::plugVirtualDvXplorer()->height(), 480);
    EXPECT_EQ(emulation::virtualCameras().size(), 4u);
}

TEST_F(VirtualCameras, NoBatchComesBeforeItsTime)
{
    const std::pair<double, std::int64_t> rows[] = {{1.0, 1'000}, {10.0, 10'000}, {0.1, 100}};
    for (const auto& [speed, stepUs] : rows) {
        const auto plugged = plugVirtualDavisRecording(
            record(100, stepUs, 1'000'000), {.batchUs = static_cast<std::int32_t>(stepUs * 20), .speed = speed});
        const auto begin = Clock::now();
        start();
        for (int i = 0; i < 5; ++i) {
            const auto batch = sink.wait();
            const double passedUs = std::chrono::duration<double, std::micro>(Clock::now() - begin).count();
            ASSERT_TRUE(batch);
            EXPECT_GE(passedUs, static_cast<double>(batch->back().timestamp - 1'000'000) / speed)
                << "speed " << speed << ", batch " << i;
        }
        camera->stop();
        camera.reset();
        plugged->unplug();
    }
}

TEST_F(VirtualCameras, AStopInTheMiddleHoldsTheShowAsLongAsItLasts)
{
    const auto plugged = plugVirtualDavisRecording(record(2, 400'000)); // one event at once, one after 0.4 s
    for (const std::int64_t timeoutMs : {-1, 0, 20})
        EXPECT_FALSE(plugged->waitUntilFinished(timeoutMs));
    start();
    ASSERT_TRUE(sink.wait());
    camera->stop();
    EXPECT_EQ(sink.waiting(), 0u);
    camera->start();
    ASSERT_TRUE(sink.wait()) << "and not a day later";
    camera->stop();
    EXPECT_EQ(plugged->eventCount(), 2u);
}

TEST_F(VirtualCameras, ALoopGoesOnWithGrowingTimestampsUntilItsFileGoesMissing)
{
    for (const bool ownPackets : {false, true}) {
        const auto plugged = plugVirtualDavisRecording(
            record(1000, 7, 500), {.loop = true, .ownPackets = ownPackets, .realtime = false, .maxBacklog = 4});
        start();
        std::vector<DvsEvent> events;
        while (events.size() < 10'000) {
            const auto batch = sink.wait();
            ASSERT_TRUE(batch);
            events.insert(events.end(), batch->begin(), batch->end());
        }
        EXPECT_FALSE(plugged->isFinished());
        constexpr std::int64_t turnUs = 999 * 7 + 1;
        for (std::size_t i = 0; i < 10'000; ++i) {
            DvsEvent expected = written[i % 1000];
            expected.timestamp += turnUs * static_cast<std::int64_t>(i / 1000);
            ASSERT_EQ(events[i], expected) << i;
        }
        std::filesystem::remove(file);
        while (!plugged->isFinished()) // ends by the test's time limit otherwise
            sink.drain();
        camera->stop();
        camera.reset();
        EXPECT_THAT(plugged->damage(), testing::HasSubstr("No such file"));
        plugged->unplug();
        sink.drain();
    }
}

// A reader that does not read: as fast as possible must not mean without bound.
TEST_F(VirtualCameras, AFastShowWaitsForTheGraph)
{
    auto options = test::fastScene(1'000'000);
    options.maxBacklog = 3;
    const auto plugged = plugVirtualDavis(options);
    test::Sink other;
    camera.emplace();
    camera->getSourceNode().connectTo(sink);
    camera->getSourceNode().connectTo(other);
    camera->start();
    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(sink.wait());
        EXPECT_LE(sink.waiting(), 3u);
        if (i >= 2) { // the other one stays behind, and holds the camera up
            while (other.waiting() < 3 && plugged->batchCount() < 100)
                std::this_thread::yield();
            EXPECT_LE(other.waiting(), 3u);
            EXPECT_TRUE(other.wait());
        }
    }
    EXPECT_TRUE(plugged->waitUntilFinished(longTimeMs));
    camera->stop();
    EXPECT_EQ(plugged->eventCount(), 1'000'000u);
}

SceneOptions smallScene(double bars, double dot, double noise)
{
    return {.width = 90, .height = 60, .movingBars = bars, .rotatingDot = dot, .noise = noise, .durationUs = 1'000'000};
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

TEST(Scenes, BarsMoveADotRunsRoundTheMiddleAndNoiseIsEverywhere)
{
    for (const DvsEvent& event : sceneOf(smallScene(1, 0, 0))) {
        // An edge each 90 / 8 pixels, ON at the odd ones, blurred by up to 3 pixels; things move each millisecond.
        const double column = event.x - 90.0 * static_cast<double>(event.timestamp / 1000) / 1000.0;
        const double inBar = column - std::floor(column / 22.5) * 22.5;
        ASSERT_EQ(event.polarity, inBar > 8.25 && inBar < 16.25) << event.x << " at " << event.timestamp;
    }
    for (const DvsEvent& event : sceneOf(smallScene(0, 1, 0)))
        ASSERT_NEAR(std::hypot(event.x - 45.0, event.y - 30.0), 20.0, 3.75 + 1.5)
            << "orbit of 60 / 3 pixels, radius of 60 / 16";
    std::vector<int> hits(90 * 60);
    for (const DvsEvent& event : sceneOf(smallScene(0, 0, 1)))
        ++hits[event.y * 90u + event.x];
    EXPECT_EQ(std::ranges::count(hits, 0), 0) << "37 events a pixel on average";
    EXPECT_LT(std::ranges::max(hits), 100);
}

TEST(Options, WhatIsOutOfRangeIsRefusedByName)
{
    const std::pair<SceneOptions, const char*> rows[] = {
        {{.width = 4097}, "width must be 0 to 4096"},
        {{.height = 5000}, "height must be 0 to 4096"},
        {{.batchUs = 0}, "batch_us must be 1 or more"},
        {{.speed = 0}, "speed must be above 0"},
        {{.speed = std::numeric_limits<double>::quiet_NaN()}, "speed must be above 0"},
        {{.maxBacklog = 0}, "max_backlog must be 1 or more"},
        {{.movingBars = -1}, "moving_bars must be 0 to 1e9"},
        {{.noise = std::numeric_limits<double>::infinity()}, "noise must be 0 to 1e9"},
        {{.movingBars = 0, .rotatingDot = 0, .noise = 0}, "moving_bars, rotating_dot, noise must be above 0"},
        {{.eventsPerSecond = 0.5}, "events_per_second must be 1 to 1e8"},
        {{.durationUs = -1}, "duration_us must be 0 (endless) or more"},
        {{.eventsPerSecond = 1e8, .batchUs = 1'000'000}, "10 million events a batch"},
    };
    const test::EmptyBus bus;
    for (const auto& [options, text] : rows)
        EXPECT_THAT([&options = options] { plugVirtualDavis(options); },
                    testing::ThrowsMessage<std::invalid_argument>(testing::HasSubstr(text)));
    EXPECT_TRUE(emulation::virtualCameras().empty());
    EXPECT_THROW(plugVirtualDavisRecording("/no/such.aedat"), std::runtime_error);
}

} // namespace
