// The camera classes over virtual cameras.

#include <atomic>
#include <chrono>
#include <system_error>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TestSink.h"
#include "davis/Davis240.h"
#include "davis/DvXplorer.h"
#include "emulation/cameras/Scene.h"

namespace {

using davis::event::DvsEvent;
using emulation::plugVirtualDavis;
using emulation::plugVirtualDavisRecording;
using test::fastScene;
using test::longTimeMs;

const std::string dataFolder = std::string(VORNA_SOURCE_DIR) + "/tests/data/";

template <class T>
struct Kind;
template <>
struct Kind<davis::Davis240> {
    static auto plug(const emulation::SceneOptions& scene = {}) { return plugVirtualDavis(scene); }
    static std::string lines(const std::string& serial)
    {
        return "DAVIS346 ID-1 SN-" + serial + " [0:0] --- ID: 1, Master: 1, DVS X: 346, DVS Y: 260, Logic: 0.\n" +
               "New bias values --- PR-coarse: 2, PR-fine: 116, PRSF-coarse: 1, PRSF-fine: 33.\n";
    }
    static constexpr std::uint16_t width = 346, height = 260;
};
template <>
struct Kind<davis::DvXplorer> {
    static auto plug(const emulation::SceneOptions& scene = {}) { return emulation::plugVirtualDvXplorer(scene); }
    static std::string lines(const std::string& serial)
    {
        const std::string name = "DVXplorer ID-1 SN-" + serial + " [0:0]";
        return name + " --- ID: 1, DVS X: 640, DVS Y: 480, Firmware: 0, Logic: 0.\n" + name +
               " --- ID: 1, Master: 1, DVS X: 640, DVS Y: 480, Logic: 0.\n";
    }
    static constexpr std::uint16_t width = 640, height = 480;
};

/// What the camera of the test's kind shows for these options, made without a camera.
std::vector<DvsEvent> expectedOf(emulation::SceneOptions options, std::uint16_t width, std::uint16_t height)
{
    options.width = width;
    options.height = height;
    emulation::Scene scene(options);
    std::vector<DvsEvent> all;
    std::vector<DvsEvent> batch;
    while (scene.next(batch))
        all.insert(all.end(), batch.begin(), batch.end());
    return all;
}

template <class Camera>
class Cameras : public testing::Test {
protected:
    test::EmptyBus bus;
    test::Sink sink; // before the cameras of the tests, so that it outlives them
};
using Kinds = testing::Types<davis::Davis240, davis::DvXplorer>;
TYPED_TEST_SUITE(Cameras, Kinds);

TYPED_TEST(Cameras, OpeningPrintsWhatWasFound)
{
    const auto plugged = Kind<TypeParam>::plug();
    testing::internal::CaptureStdout();
    const TypeParam camera;
    EXPECT_EQ(testing::internal::GetCapturedStdout(), Kind<TypeParam>::lines(plugged->serialNumber()));
}

TYPED_TEST(Cameras, EveryEventComesThroughUnchangedOneVectorARead)
{
    const auto options = fastScene(300'000);
    const auto plugged = Kind<TypeParam>::plug(options);
    TypeParam camera;
    EXPECT_TRUE(camera.getSourceNode().connectTo(this->sink));
    camera.start();
    EXPECT_TRUE(plugged->waitUntilFinished(longTimeMs));
    EXPECT_TRUE(camera.isRunning()) << "a camera that shows nothing goes on being read";
    camera.stop();
    EXPECT_FALSE(camera.isRunning());

    const auto events = this->sink.drain();
    EXPECT_TRUE(events == expectedOf(options, Kind<TypeParam>::width, Kind<TypeParam>::height));
    EXPECT_EQ(plugged->eventCount(), 300'000u);
    EXPECT_EQ(plugged->batchCount(), 30u);
    EXPECT_EQ(this->sink.batches, 30u) << "the read that holds no polarity events sends nothing";
}

TYPED_TEST(Cameras, StoppingAndStartingLosesNothing)
{
    auto options = fastScene(20'000'000, 10'000); // 2000 batches, far more than the turns below take
    options.maxBacklog = 2;
    const auto plugged = Kind<TypeParam>::plug(options);
    TypeParam camera;
    camera.getSourceNode().connectTo(this->sink);
    std::vector<DvsEvent> events;
    const auto keep = [&](const std::vector<DvsEvent>& more) { events.insert(events.end(), more.begin(), more.end()); };
    for (int i = 0; i < 100; ++i) {
        camera.start();
        if (i % 2 == 0) // else it may be stopped before its first read
            keep(this->sink.wait().value());
        camera.stop();
        keep(this->sink.drain());
    }
    camera.start();
    while (events.size() < 200'000)
        keep(this->sink.wait().value());
    EXPECT_TRUE(plugged->waitUntilFinished(longTimeMs));
    camera.stop();
    keep(this->sink.drain());
    EXPECT_TRUE(events == expectedOf(options, Kind<TypeParam>::width, Kind<TypeParam>::height));
}

TYPED_TEST(Cameras, WithoutConnectionsTheCameraIsDrainedAllTheSame)
{
    const auto plugged = Kind<TypeParam>::plug(fastScene(100'000));
    TypeParam camera;
    camera.start();
    EXPECT_TRUE(plugged->waitUntilFinished(longTimeMs));
    camera.stop();
    EXPECT_EQ(plugged->eventCount(), 100'000u);
}

TYPED_TEST(Cameras, StoppingWhatDoesNotRunIsASystemError)
{
    const auto plugged = Kind<TypeParam>::plug();
    TypeParam camera;
    EXPECT_THROW(camera.stop(), std::system_error);
    EXPECT_FALSE(camera.stopIfRunning());
    camera.start();
    camera.stop();
    EXPECT_THROW(camera.stop(), std::system_error);
}

TYPED_TEST(Cameras, AnUnplugEndsTheReader)
{
    const auto plugged = Kind<TypeParam>::plug();
    TypeParam camera;
    camera.getSourceNode().connectTo(this->sink);
    camera.start();
    EXPECT_TRUE(this->sink.wait());
    plugged->unplug();
    while (camera.isRunning()) // ends by the test's time limit otherwise
        std::this_thread::yield();
    EXPECT_THROW(camera.stop(), std::system_error);
    EXPECT_FALSE(plugged->waitUntilFinished(longTimeMs)) << "an unplug ends the wait";
    EXPECT_THROW(TypeParam(), std::runtime_error) << "it is gone from the bus";
}

TYPED_TEST(Cameras, AnUnplugAfterTheEndOfTheShowEndsTheReaderToo)
{
    const auto plugged = Kind<TypeParam>::plug(fastScene(10'000));
    TypeParam camera;
    camera.start();
    EXPECT_TRUE(plugged->waitUntilFinished(longTimeMs));
    plugged->unplug();
    while (camera.isRunning())
        std::this_thread::yield();
    EXPECT_TRUE(plugged->isFinished());
    EXPECT_FALSE(camera.stopIfRunning());
}

TYPED_TEST(Cameras, AnUnplugMayMeetAStopOrTheEndOfTheCamera)
{
    for (int i = 0; i < 200; ++i) {
        const auto plugged = Kind<TypeParam>::plug();
        TypeParam camera;
        camera.getSourceNode().connectTo(this->sink);
        camera.start();
        while (!plugged->isDelivering()) // a start() without a camera ends the process
            std::this_thread::yield();
        std::thread puller([&] { plugged->unplug(); });
        switch (i % 3) {
        case 0:
            camera.stopIfRunning();
            break;
        case 1:
            try {
                camera.stop();
            } catch (const std::system_error&) { // the unplug came first
            }
            break;
        default:
            while (camera.isRunning())
                std::this_thread::yield();
        }
        puller.join(); // else an endless camera could be plugged twice
    }
}

TYPED_TEST(Cameras, AnUnplugMayMeetTheStart)
{
    for (int i = 0; i < 200; ++i) {
        const auto plugged = Kind<TypeParam>::plug();
        TypeParam camera;
        std::thread puller([&] {
            while (!plugged->isDelivering()) // start() may not have returned yet
                std::this_thread::yield();
            plugged->unplug();
        });
        camera.start();
        puller.join();
        while (camera.isRunning()) // ends by the test's time limit otherwise
            std::this_thread::yield();
    }
}

TYPED_TEST(Cameras, ADestinationThatGoesIsDroppedDuringASend)
{
    auto options = fastScene(0);
    options.maxBacklog = 2;
    const auto plugged = Kind<TypeParam>::plug(options);
    TypeParam camera;
    {
        test::Sink shortLived;
        camera.getSourceNode().connectTo(shortLived);
        camera.start();
        EXPECT_TRUE(shortLived.wait());
    }
    camera.getSourceNode().connectTo(this->sink);
    EXPECT_TRUE(this->sink.wait());
    camera.stop();
}

TYPED_TEST(Cameras, ReflectedFunctionsAreInTheirOrder)
{
    std::vector<std::string> names;
    trovi::forEach(trovi::MetaFunctionHolder<TypeParam>::memberFuncs, [&](const auto& f) { names.push_back(f.name); });
    EXPECT_EQ(names, (std::vector<std::string>{"start", "stop", "getSourceNode", "isRunning"}));
    EXPECT_EQ(trovi::registeredName<TypeParam>(),
              (std::is_same_v<TypeParam, davis::Davis240>) ? "davis::Davis240" : "davis::DvXplorer");
}

template <class Camera>
class CameraDeath : public testing::Test {
protected:
    CameraDeath() { testing::GTEST_FLAG(death_test_style) = "threadsafe"; }
    test::EmptyBus bus;
};
TYPED_TEST_SUITE(CameraDeath, Kinds);

TYPED_TEST(CameraDeath, StartingTwiceEndsTheProcess)
{
    EXPECT_DEATH(
        {
            const auto plugged = Kind<TypeParam>::plug();
            TypeParam camera;
            camera.start();
            camera.start();
        },
        "terminate called");
}

TYPED_TEST(CameraDeath, DestroyingARunningCameraEndsTheProcess)
{
    EXPECT_DEATH(
        {
            const auto plugged = Kind<TypeParam>::plug();
            TypeParam camera;
            camera.start();
        },
        "terminate called");
}

TYPED_TEST(CameraDeath, StartingAnUnpluggedCameraEndsTheProcessFromItsReader)
{
    EXPECT_DEATH(
        {
            const auto plugged = Kind<TypeParam>::plug();
            TypeParam camera;
            plugged->unplug();
            camera.start();
            while (true)
                std::this_thread::yield();
        },
        "failed to start getting data\\.");
}

} // namespace
