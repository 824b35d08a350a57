#pragma once
// What both kinds of camera share: a thread reads polarity events and sends them into the graph, one vector per read.
//
//   davis::Davis240 camera;                        // the first one that is found; configured, not yet running
//   camera.getSourceNode().addDestination(input);  // connect before starting, or events go nowhere
//   camera.start();
//   ...
//   camera.stop();                                 // before the camera is destroyed
//
// State: open -> start() -> running -> stop(), or the camera fails (unplugged, transfers failed) -> open.
//
// Threads: one reader a running camera. start() makes it; it waits in the driver for data. It ends when `running` is
// cleared, by stop() or by the shutdown callback, and stops the driver on its way out. The callback runs on the thread
// on which the driver completes control transfers, and stopping the driver waits for one. So the callback only clears
// `running`; the next start() or stop(), or the destructor, joins the reader. start(), stop() and isRunning() are
// thread-safe.

#include <atomic>
#include <memory>
#include <thread>

#include "davis/event/DvsEvent.h"
#include "graph/nodes/BasicSourceNode.h"
#include "trovi/Reflect.h"
#include "util/Mutex.h"

namespace davis {

namespace driver {
class Driver;
}

/// The shutdown callback that the driver gets with a camera as `self`: asks the reader to end, and returns at once.
/// Threads: the driver's; thread-safe.
void usbShutdownHandler(void* self);

namespace detail {

/// A source node that knows how far the graph is behind.
class CameraSourceNode : public graph::nodes::BasicSourceNode<event::DvsEvent> {
public:
    /// Batches that wait in the fullest of the connected channels. Threads: thread-safe.
    std::size_t waitingBatches();
};

class Camera {
public:
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    /// Begins to read. After a failure it first waits for the reader of that run, as stop() does. A second start()
    /// without stop() ends the process, and so does a camera that can't be started (unplugged), from its reader thread.
    /// @throws std::system_error when the system has no thread left; the camera is then not running
    void start() VORNA_EXCLUDES(life);
    /// Waits until the reader has sent its last read and stopped the driver. A virtual camera takes up to 10 ms. A real
    /// one that shows nothing takes about a second: libcaer's read returns no sooner.
    /// @throws std::system_error (invalid argument) when the camera is not running: never started, stopped, or failed
    void stop() VORNA_EXCLUDES(life);
    /// True from start() until stop() or a failure.
    bool isRunning() const;
    /// stop() for an owner that puts the camera away and cannot know whether it fails meanwhile.
    /// @return false when it was not running
    bool stopIfRunning() VORNA_EXCLUDES(life);

    /// The node that graphs connect to; lives as long as the camera.
    graph::nodes::BasicSourceNode<event::DvsEvent>& getSourceNode() { return source; }

protected:
    explicit Camera(std::unique_ptr<driver::Driver> opened);
    /// Ends the process when the camera still runs.
    ~Camera();

private:
    friend void davis::usbShutdownHandler(void* self);

    void readerLoop();
    bool endReader() VORNA_REQUIRES(life);

    util::Mutex life; // outermost; held while the reader is joined. Neither reader nor callback takes it.
    std::thread reader VORNA_GUARDED_BY(life);
    std::atomic<bool> running = false;
    CameraSourceNode source;
    // Last, so that it is destroyed first: its threads may be in usbShutdownHandler() until then.
    std::unique_ptr<driver::Driver> device;
};

/// The functions of both classes; the index is the function's number on the wire.
template <class Class>
constexpr auto cameraFunctions()
{
    return trovi::functions(
        trovi::blockingFunction("start", &Class::start,
                                "Begins to read events and to send them to the source node's destinations.\n"
                                "Starting a running camera ends the process."),
        trovi::blockingFunction(
            "stop", &Class::stop,
            "Ends reading; waits until the last batch is sent, for a real camera up to about a second.\n"
            "Raises an error when the camera is not running."),
        trovi::function("getSourceNode", &Class::getSourceNode,
                        "The node from which graphs get this camera's events, one batch per read."),
        trovi::function("isRunning", &Class::isRunning, "True from start() until stop() or a failure."));
}

} // namespace detail
} // namespace davis
