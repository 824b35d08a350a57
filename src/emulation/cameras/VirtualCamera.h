#pragma once
// Cameras in software. One is plugged in with a synthetic scene or a recording, and is then found, opened, read and
// unplugged as a camera on USB is.
//
//   auto camera = emulation::plugVirtualDavis({.eventsPerSecond = 1e6, .realtime = false});
//   davis::Davis240 davis;                       // finds it
//   davis.getSourceNode().addDestination(input);
//   davis.start();
//   camera->unplug();                            // davis stops as on a pulled cable
//
// No event is lost: batches are made when they are read. In real time, a reader that comes late gets what it missed at
// once. As fast as possible (realtime = false), no batch is handed out while `maxBacklog` of them wait at any node
// connected to the camera, so those queues stay short. The camera doesn't see what these nodes send on: a node that
// forwards each batch to a slower one still fills that one's queue.

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "davis/driver/VirtualBus.h"
#include "emulation/cameras/Content.h"
#include "emulation/cameras/ReplayOptions.h"
#include "emulation/cameras/SceneOptions.h"
#include "emulation/cameras/TransferThread.h"
#include "trovi/Reflect.h"
#include "util/Mutex.h"

namespace emulation {

/// What a reader got from a camera since it was last opened.
struct CameraCounters {
    std::uint64_t events = 0;
    std::uint64_t batches = 0;

    friend bool operator==(const CameraCounters&, const CameraCounters&) = default;
};

/// When batches are due.
struct Pace {
    bool realtime = true;
    double speed = 1.0;
    std::uint32_t maxBacklog = 8;
};

/// Life: plugged -> open (by one driver at a time, from the beginning) -> delivering (on and off, each time from where
/// it stopped) -> closed, and again. unplug() may come at any moment and is for good; after failTransfers() the driver
/// may start delivery again.
///
/// Threads: the public functions above "what the driver calls" are thread-safe. While open it has one thread, which
/// completes control transfers and calls the shutdown callback; close() joins it. No callback runs under `mutex`. The
/// bus's mutex may be held when open() takes `mutex`; the thread's own is taken under it.
class VirtualCamera final : public davis::driver::PluggedCamera {
public:
    VirtualCamera(davis::driver::CameraKind kind, davis::driver::CameraInfo info, std::unique_ptr<Content> content,
                  Pace pace);
    VirtualCamera(const VirtualCamera&) = delete;
    VirtualCamera& operator=(const VirtualCamera&) = delete;
    ~VirtualCamera() override;

    /// Takes the camera off the bus for good. A running reader ends as when the cable is pulled; this does not wait for
    /// it. Does nothing a second time.
    void unplug();
    /// All data transfers fail, as over a bad cable, while control transfers still succeed. A running reader ends; this
    /// does not wait for it. The camera can be started again, and goes on where it was. Does nothing when the camera is
    /// not delivering.
    void failTransfers();
    bool isPlugged() const;
    bool isOpen() const;
    bool isDelivering() const;

    /// True once everything has been shown and the reader asked for more, so the last batch has been sent. Never true
    /// for an endless scene, a loop, or a camera that was unplugged before.
    bool isFinished() const;
    /// Waits for isFinished(), at most `timeoutMs`; an unplug ends the wait.
    /// @return isFinished()
    bool waitUntilFinished(std::int64_t timeoutMs) const;

    CameraCounters counters() const;
    std::uint64_t eventCount() const { return counters().events; }
    std::uint64_t batchCount() const { return counters().batches; }
    /// Why a recording ended early (file, byte, what was expected); empty when nothing is wrong.
    std::string damage() const;

    std::string model() const { return information.model; }
    std::string serialNumber() const { return information.serialNumber; }
    int width() const { return information.width; }
    int height() const { return information.height; }

    // What the driver calls.
    davis::driver::CameraKind kind() const override { return kind_; }
    davis::driver::CameraInfo info() const override { return information; }
    bool open() override;
    void close() override;
    bool controlTransfer() override;
    bool startStream(std::function<void()> shutdown) override;
    bool stopStream() override;
    bool next(std::vector<davis::event::DvsEvent>& events, int waitMs,
              const std::function<std::size_t()>& backlog) override;

private:
    using Clock = std::chrono::steady_clock;

    bool silent() const VORNA_REQUIRES(mutex) { return !plugged || failed; }
    void postShutdown() VORNA_REQUIRES(mutex);
    bool fillPending();
    bool waitUntilDue(Clock::time_point giveUp);
    bool waitForRoom(Clock::time_point giveUp, const std::function<std::size_t()>& backlog);
    void idleAtEnd(Clock::time_point giveUp);
    Clock::duration sinceBegin(std::int64_t timestampUs) const VORNA_REQUIRES(mutex);

    const davis::driver::CameraKind kind_;
    const davis::driver::CameraInfo information;
    const Pace pace;

    // Of the opener: open(), then the one thread in next().
    const std::unique_ptr<Content> content;
    std::vector<davis::event::DvsEvent> pending; // the batch that is next, made but not yet due
    bool ended = false;                          // `content` has no more

    mutable util::Mutex mutex;
    mutable util::ConditionVariable changed; // plugged, failed, delivering, finished
    bool plugged VORNA_GUARDED_BY(mutex) = true;
    bool opened VORNA_GUARDED_BY(mutex) = false;
    bool delivering VORNA_GUARDED_BY(mutex) = false;
    bool failed VORNA_GUARDED_BY(mutex) = false; // data transfers, since startStream()
    bool finished VORNA_GUARDED_BY(mutex) = false;
    CameraCounters counts VORNA_GUARDED_BY(mutex);
    std::string damage_ VORNA_GUARDED_BY(mutex);
    std::optional<std::int64_t> firstUs VORNA_GUARDED_BY(mutex); // timestamp of the first event since open()
    Clock::duration played VORNA_GUARDED_BY(mutex){};            // of the scene's time, at the last stopStream()
    Clock::time_point begin VORNA_GUARDED_BY(mutex);             // when the first event was or would have been due
    std::function<void()> onShutdown VORNA_GUARDED_BY(mutex);
    // While open. Last: its work uses all of the above.
    std::unique_ptr<TransferThread> transfers VORNA_GUARDED_BY(mutex);
};

/// Plugs in a virtual DAVIS (346 x 260 by default) or DVXplorer (640 x 480), after those that are plugged in already.
/// It stays until it is unplugged, whether or not the result is kept.
/// @throws std::invalid_argument for options out of range, naming the option
std::shared_ptr<VirtualCamera> plugVirtualDavis(const SceneOptions& scene = {});
std::shared_ptr<VirtualCamera> plugVirtualDvXplorer(const SceneOptions& scene = {});
/// The same with a recording, of the formats of davis/recording/Reader.h.
/// @throws also std::runtime_error when the file can't be read; damage after its header is reported by damage() instead
std::shared_ptr<VirtualCamera> plugVirtualDavisRecording(const std::string& path, const ReplayOptions& options = {});
std::shared_ptr<VirtualCamera> plugVirtualDvXplorerRecording(const std::string& path,
                                                             const ReplayOptions& options = {});

/// All that are plugged in, in the order of plugging.
std::vector<std::shared_ptr<VirtualCamera>> virtualCameras();
void unplugAllVirtualCameras();

} // namespace emulation

template <>
constexpr auto trovi::registerMemberFunctions<emulation::VirtualCamera>()
{
    using emulation::VirtualCamera;
    return functions(
        function("unplug", &VirtualCamera::unplug, "Pulls the cable, for good: a running camera object stops."),
        function("isPlugged", &VirtualCamera::isPlugged, "True until unplug()."),
        function("isOpen", &VirtualCamera::isOpen, "True while a camera object has it open."),
        function("isDelivering", &VirtualCamera::isDelivering, "True while a camera object reads it."),
        function("isFinished", &VirtualCamera::isFinished, "True once everything has been shown and sent."),
        blockingFunction("waitUntilFinished", &VirtualCamera::waitUntilFinished,
                         "Waits up to timeoutMs milliseconds until everything has been shown and sent; True if it has.",
                         "timeoutMs"),
        function("eventCount", &VirtualCamera::eventCount, "Events shown since the camera was last opened."),
        function("batchCount", &VirtualCamera::batchCount, "Batches shown since the camera was last opened."),
        function("damage", &VirtualCamera::damage,
                 "Why a recording ended early: file, byte, what was expected; empty when nothing is wrong."),
        function("model", &VirtualCamera::model, "Name of the camera's model."),
        function("serialNumber", &VirtualCamera::serialNumber, "Serial number, unique in the process."),
        function("width", &VirtualCamera::width, "Columns."), function("height", &VirtualCamera::height, "Rows."),
        function("failTransfers", &VirtualCamera::failTransfers,
                 "Fails all data transfers, as a bad cable does. A running camera object stops, and can start again."));
}

template <>
constexpr const char* trovi::registerDoc<emulation::VirtualCamera>()
{
    return "A camera in software, plugged in where a real one would be.";
}
