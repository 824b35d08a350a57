#pragma once
// Where virtual cameras are plugged in, and what the libcaer layer asks of one. emulation::VirtualCamera is the one
// implementation; this header stands below it, so that cameras know no emulation.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "davis/event/DvsEvent.h"

namespace davis::caer {

/// libcaer's device type numbers.
enum class CameraKind : std::uint16_t { davis = 4, dvXplorer = 8 };

struct CameraInfo {
    std::string model;        ///< "DAVIS346"
    std::string serialNumber; ///< up to 8 characters
    std::int16_t width = 0;   ///< columns
    std::int16_t height = 0;  ///< rows
};

/// A camera on the bus. One device at a time has it open, and between open() and close() calls the rest.
class PluggedCamera {
public:
    virtual ~PluggedCamera() = default;

    virtual CameraKind kind() const = 0;
    virtual CameraInfo info() const = 0;

    /// Takes the camera for one device, at the beginning of what it shows; false when it is taken or unplugged.
    virtual bool open() = 0;
    /// Gives it back. Waits for a shutdown callback that is under way. Threads: not from that callback.
    virtual void close() = 0;
    virtual bool isPlugged() const = 0;

    /// Begins to deliver, where the last stopStream() left off. `shutdown` is called on a thread of the camera's own if
    /// it is unplugged before stopStream().
    /// @return false when it is unplugged or delivers already
    virtual bool startStream(std::function<void()> shutdown) = 0;
    /// @return false when it does not deliver
    virtual bool stopStream() = 0;

    /// Replaces `events` by the next batch, in timestamp order, once it is due; waits for that at most `waitMs`.
    /// @param backlog  tells how many batches wait behind the reader; may be empty
    /// @return false when nothing is due yet, nothing is left, or the camera is unplugged
    virtual bool next(std::vector<event::DvsEvent>& events, int waitMs,
                      const std::function<std::size_t()>& backlog) = 0;
};

/// All plugged virtual cameras, in the order of plugging. One for the process. Threads: thread-safe.
/// Lock: its mutex is held while a camera's open() runs; a camera calls the bus under none of its own.
class VirtualBus {
public:
    VirtualBus(const VirtualBus&) = delete;
    VirtualBus& operator=(const VirtualBus&) = delete;

    static VirtualBus& instance();

    void plug(std::shared_ptr<PluggedCamera> camera);
    /// @return what the bus held, so that the caller decides when the last owner goes; null when it was not plugged
    std::shared_ptr<PluggedCamera> unplug(const PluggedCamera& camera);
    std::vector<std::shared_ptr<PluggedCamera>> cameras() const;

    /// Opens the first camera of this kind that no device holds.
    /// @throws std::runtime_error when there is none, with what to do about it
    std::shared_ptr<PluggedCamera> openFirst(CameraKind kind);

private:
    VirtualBus() = default;

    mutable std::mutex mutex;
    std::vector<std::shared_ptr<PluggedCamera>> plugged; // under `mutex`
};

} // namespace davis::caer
