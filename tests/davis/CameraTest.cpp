// The camera classes over virtual cameras, and over real ones as a stand-in for libcaer gives them.

#include <atomic>
#include <filesystem>
#include <system_error>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "TestSink.h"
#include "davis/Davis240.h"
#include "davis/DvXplorer.h"
#include "davis/recording/Writer.h"

namespace {

using davis::event::DvsEvent;
using emulation::SceneOptions;
using test::fastScene;
using test::longTimeMs;

template <class CameraClass, bool libcaer>
struct Case {
    using Camera = CameraClass;
    static constexpr bool isDavis = std::is_same_v<Camera, davis::Davis240>;

    static auto plug(const SceneOptions& scene = {})
    {
        return test::plugged((isDavis ? emulation::plugVirtualDavis : emulation::plugVirtualDvXplorer)(scene), libcaer);
    }
    static auto plug(const std::string& recording, const emulation::ReplayOptions& options)
    {
        return test::plugged((isDavis ? emulation::plugVirtualDavisRecording
                                      : emulation::plugVirtualDvXplorerRecording)(recording, options),
                             libcaer);
    }
    /// What opening prints.
    static std::string lines(const std::string& serial)
    {
        const std::string logic = "Logic: " + std::to_string(libcaer ? standin::logicVersion : 0) + ".\n";
        if (isDavis)
            return "DAVIS346 ID-1 SN-" + serial + " [0:0] --- ID: 1, Master: 1, DVS X: 346, DVS Y: 260, " + logic +
                   "New bias values --- PR-coarse: 2, PR-fine: 116, PRSF-coarse: 1, PRSF-fine: 33.\n";
        const std::string firmware = std::to_string(libcaer ? standin::firmwareVersion : 0);
        const std::string name = "DVXplorer ID-1 SN-" + serial + " [0:0] --- ID: 1, ";
        return name + "DVS X: 640, DVS Y: 480, Firmware: " + firmware + ", " + logic + name +
               "Master: 1, DVS X: 640, DVS Y: 480, " + logic;
    }
};

template <class CaseType>
class Cameras : public testing::Test {
protected:
    using Camera = typename CaseType::Camera;

    static void waitForEnd(const Camera& camera)
    {
        while (camera.isRunning()) // ends by the test's time limit otherwise
            std::this_thread::yield();
    }

    test::EmptyBus bus;
    test::Sink sink; // before the cameras of the tests, so that it outlives them
};
using Cases = testing::Types<Case<davis::Davis240, false>, Case<davis::DvXplorer, false>, Case<davis::Davis240, true>,
                             Case<davis::DvXplorer, true>>;
TYPED_TEST_SUITE(Cameras, Cases);

TYPED_TEST(Cameras, OpeningPrintsWhatWasFound)
{
    const auto plugged = TypeParam::plug();
    testing::internal::CaptureStdout();
    const typename TypeParam::Camera camera;
    EXPECT_EQ(testing::internal::GetCapturedStdout(), TypeParam::lines(plugged->serialNumber()));
}

TYPED_TEST(Cameras, EveryEventComesThroughUnchangedOneVectorARead)
{
    const auto options = fastScene(300'000);
    const auto plugged = TypeParam::plug(options);
    for (const bool connected : {false, true}) { // without connections the camera is drained all the same
        typename TypeParam::Camera camera;
        EXPECT_THROW(camera.stop(), std::system_error);
        EXPECT_FALSE(camera.stopIfRunning());
        camera.getSourceNode().connectTo(*std::make_unique<test::Sink>()); // one that has gone is dropped
        if (connected)
            camera.getSourceNode().connectTo(this->sink);
        camera.start();
        EXPECT_TRUE(plugged->waitUntilFinished(longTimeMs));
        EXPECT_TRUE(camera.isRunning()) << "a camera that shows nothing goes on being read";
        camera.stop();
        EXPECT_FALSE(camera.isRunning());
        EXPECT_THROW(camera.stop(), std::system_error);
        EXPECT_EQ(plugged->eventCount(), 300'000u);
        EXPECT_EQ(plugged->batchCount(), 30u);
    }
    EXPECT_EQ(this->sink.waiting(), 30u) << "a read that holds no polarity events sends nothing";
    EXPECT_TRUE(this->sink.drain() == test::sceneOf(options));
}

TYPED_TEST(Cameras, TimestampsWrapWithTheCamerasCounter)
{
    constexpr std::int64_t turn = std::int64_t{1} << 31;
    std::vector<DvsEvent> events(10);
    for (std::size_t i = 0; i < events.size(); ++i)
        events[i].timestamp = turn - 5 + static_cast<std::int64_t>(i);
    const auto path = std::filesystem::temp_directory_path() / ("vorna_wrap_" + std::to_string(getpid()) + ".aedat");
    davis::recording::writeAll(path, davis::recording::Format::aedat31, events);
    const auto plugged = TypeParam::plug(path.string(), {.realtime = false});
    typename TypeParam::Camera camera;
    camera.getSourceNode().connectTo(this->sink);
    camera.start();
    const auto batch = this->sink.wait();
    camera.stop();
    std::filesystem::remove(path);
    for (DvsEvent& event : events)
        event.timestamp %= turn;
    EXPECT_EQ(batch, events) << "two packets of one read make one vector";
}

TYPED_TEST(Cameras, StoppingAndStartingLosesNothing)
{
    // 2000 batches, one each half millisecond
    const SceneOptions options{
        .width = 90, .height = 60, .eventsPerSecond = 10'000, .durationUs = 20'000'000, .speed = 20};
    const auto plugged = TypeParam::plug(options);
    typename TypeParam::Camera camera;
    camera.getSourceNode().connectTo(this->sink);
    std::vector<DvsEvent> events;
    const auto keep = [&](const std::vector<DvsEvent>& more) { events.insert(events.end(), more.begin(), more.end()); };
    for (int i = 0; i < 100; ++i) {
        camera.start();
        if (i % 2 == 0 && events.size() < 200'000) // else it may be stopped before its first read
            keep(this->sink.wait().value());
        if (i % 10 == 0) {
            plugged->failTransfers();
            this->waitForEnd(camera);
        } else {
            camera.stop();
        }
        keep(this->sink.drain());
    }
    camera.start();
    EXPECT_TRUE(plugged->waitUntilFinished(longTimeMs));
    camera.stop();
    keep(this->sink.drain());
    EXPECT_TRUE(events == test::sceneOf(options));
}

// The callback comes on the thread that completes control transfers, and the reader waits for one on its way out.
TYPED_TEST(Cameras, AFailureEndsTheReader)
{
    const auto plugged = TypeParam::plug();
    typename TypeParam::Camera camera;
    camera.getSourceNode().connectTo(this->sink);
    for (int run = 0; run < 3; ++run) {
        camera.start();
        EXPECT_TRUE(this->sink.wait());
        plugged->failTransfers();
        this->waitForEnd(camera);
        if (run == 1) { // else start() or the destructor comes next
            EXPECT_THROW(camera.stop(), std::system_error);
        }
        this->sink.drain();
    }
    camera.start();
    EXPECT_TRUE(this->sink.wait());
    plugged->unplug();
    this->waitForEnd(camera);
    EXPECT_FALSE(camera.stopIfRunning());
    EXPECT_FALSE(plugged->isDelivering());
    EXPECT_FALSE(plugged->waitUntilFinished(longTimeMs)) << "an unplug ends the wait";
    EXPECT_THROW(typename TypeParam::Camera(), std::runtime_error) << "it is gone from the bus";
}

TYPED_TEST(Cameras, AFailureMayMeetTheStartAStopOrTheEndOfTheCamera)
{
    for (int i = 0; i < 400; ++i) {
        const auto plugged =
            TypeParam::plug(i % 8 == 0 ? fastScene(10'000) : SceneOptions{}); // or after the show's end
        {
            typename TypeParam::Camera camera;
            camera.getSourceNode().connectTo(this->sink);
            std::atomic<bool> delivers = false;
            std::thread failing([&] {
                while (!plugged->isDelivering()) // start() may not have returned yet
                    std::this_thread::yield();
                delivers = true;
                i % 2 == 0 ? plugged->failTransfers() : plugged->unplug();
            });
            camera.start();
            while (!delivers && i % 4 != 3) // a start() without a camera ends the process
                std::this_thread::yield();
            try {
                if (i % 4 == 0)
                    camera.stopIfRunning();
                else if (i % 4 == 1)
                    camera.stop();
                else
                    this->waitForEnd(camera);
            } catch (const std::system_error&) { // the failure came first
            }
            if (i % 2 == 0) { // a failure that comes late may end this run too
                camera.start();
                camera.stopIfRunning();
            }
            failing.join();
        }
        EXPECT_FALSE(plugged->isOpen()) << "the camera's end waits for its reader";
        plugged->unplug(); // an endless camera is not plugged twice
    }
}

TYPED_TEST(Cameras, ReflectedFunctionsAreInTheirOrder)
{
    using Camera = typename TypeParam::Camera;
    std::vector<std::string> names;
    trovi::forEach(trovi::MetaFunctionHolder<Camera>::memberFuncs, [&](const auto& f) { names.push_back(f.name); });
    EXPECT_EQ(names, (std::vector<std::string>{"start", "stop", "getSourceNode", "isRunning"}));
    EXPECT_EQ(trovi::registeredName<Camera>(), TypeParam::isDavis ? "davis::Davis240" : "davis::DvXplorer");
}

TYPED_TEST(Cameras, WrongUseEndsTheProcess)
{
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    const struct {
        bool unplugged, twice;
        const char* text;
    } rows[] = {
        {false, true, "terminate called"},
        {false, false, "terminate called"}, // the camera goes while it runs
        {true, false, "ID-1 .*: failed"},
    };
    for (const auto& row : rows)
        EXPECT_DEATH(
            {
                const auto plugged = TypeParam::plug();
                typename TypeParam::Camera camera;
                if (row.unplugged)
                    plugged->unplug();
                camera.start();
                if (row.twice)
                    camera.start();
                while (row.unplugged)
                    std::this_thread::yield();
            },
            row.text);
}

} // namespace
