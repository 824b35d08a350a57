#pragma once
// What both kinds of camera share: a thread that reads polarity events through libcaer and sends them, one vector a
// read, into the graph.
//
//   davis::Davis240 camera;                        // the first one that is found; configured, not yet running
//   camera.getSourceNode().addDestination(input);  // connect before starting, or events go nowhere
//   camera.start();
//   ...
//   camera.stop();                                 // before the camera is destroyed
//
// State: open -> start() -> running -> stop(), or the camera is unplugged -> open.
//
// Threads: one reader a running camera, made by start() and joined by stop(), or, after an unplug, by libcaer's thread.
// The reader waits inside libcaer for data. start(), stop() and isRunning() are thread-safe.
// Lock: `life` guards `reader` and changes of `running`; whoever ends the reader holds it while joining. The reader
// takes it never, and begins only when start() no longer holds it. The graph's side is the source node's affair.

#include <atomic>
#include <memory>
#include <mutex>
#include <thread>

#include "davis/event/DvsEvent.h"
#include "graph/nodes/BasicSourceNode.h"
#include "trovi/Reflect.h"

namespace libcaer::devices {
class usb;
}

namespace davis {

/// The shutdown callback that libcaer gets with a camera as `self`: ends the reader as stop() does. Does nothing when
/// the reader is being ended already. Threads: libcaer's.
void usbShutdownHandler(void* self);

namespace detail {

/// A source node that can tell how far the graph is behind.
class CameraSourceNode : public graph::nodes::BasicSourceNode<event::DvsEvent> {
public:
    /// Batches that wait in the fullest of the connected channels. Threads: thread-safe.
    std::size_t waitingBatches();
};

class Camera {
public:
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    /// Begins to read. A second start() without stop() ends the process, and so does a camera that was unplugged, from
    /// its reader thread.
    /// @throws std::system_error when the system has no thread left; the camera is then not running
    void start();
    /// Lets the reader finish what it is at (up to 10 ms) and joins it.
    /// @throws std::system_error (invalid argument) when the camera is not running: never started, stopped or unplugged
    void stop();
    /// True from start() until stop() or an unplug.
    bool isRunning() const;
    /// stop() for an owner that puts the camera away and cannot know whether it is unplugged meanwhile.
    /// @return false when it was not running
    bool stopIfRunning();

    /// The node that graphs connect to; lives as long as the camera.
    graph::nodes::BasicSourceNode<event::DvsEvent>& getSourceNode() { return source; }

protected:
    explicit Camera(std::unique_ptr<libcaer::devices::usb> device);
    /// Ends the process when the camera still runs.
    ~Camera();

private:
    friend void davis::usbShutdownHandler(void* self);

    void readerLoop();
    void endReader();

    // The order is that of construction: the device goes first and takes libcaer's threads along, which may be in
    // usbShutdownHandler() until then.
    std::mutex life;
    std::thread reader;
    std::atomic<bool> running = false;
    CameraSourceNode source;
    std::unique_ptr<libcaer::devices::usb> device;
};

/// The functions of both classes; the index is the function's number on the wire.
template <class Class>
constexpr auto cameraFunctions()
{
    return trovi::functions(
        trovi::function("start", &Class::start,
                        "Begins to read events and to send them to the source node's destinations.\n"
                        "Starting a running camera ends the process."),
        trovi::blockingFunction("stop", &Class::stop,
                                "Ends reading; waits until the last batch is sent.\n"
                                "Raises an error when the camera is not running."),
        trovi::function("getSourceNode", &Class::getSourceNode,
                        "The node from which graphs get this camera's events, one batch a read."),
        trovi::function("isRunning", &Class::isRunning, "True from start() until stop() or an unplug."));
}

} // namespace detail
} // namespace davis
