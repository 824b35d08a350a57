#pragma once
// What VirtualDriver needs of a virtual camera. emulation::VirtualCamera implements it; this header is in a lower
// layer, so that the cameras do not depend on the emulation.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "davis/driver/Driver.h"
#include "davis/event/DvsEvent.h"

namespace davis::driver {

struct CameraInfo {
    std::string model;        ///< "DAVIS346"
    std::string serialNumber; ///< up to 8 characters
    std::int16_t width = 0;   ///< columns
    std::int16_t height = 0;  ///< rows
};

/// A camera on the bus. One driver at a time has it open; it calls the other functions between open() and close().
class PluggedCamera {
public:
    virtual ~PluggedCamera() = default;

    virtual CameraKind kind() const = 0;
    virtual CameraInfo info() const = 0;

    /// Takes the camera for one driver, at the beginning of what it shows, and starts its USB thread.
    /// @return false when another driver has it, or when it is unplugged
    virtual bool open() = 0;
    /// Releases the camera and joins the USB thread, which may be in the shutdown callback.
    virtual void close() = 0;

    /// One control transfer: waits until the camera's USB thread has completed it.
    /// @return false when the camera is unplugged
    virtual bool controlTransfer() = 0;

    /// Begins to deliver, where the last stopStream() left off. The USB thread calls `shutdown` when the camera is
    /// unplugged or its data transfers fail before stopStream().
    /// @return false when it is unplugged or delivers already
    virtual bool startStream(std::function<void()> shutdown) = 0;
    /// Ends delivery by a control transfer; after that the shutdown callback has returned and is not called any more.
    /// On an unplugged camera it returns without waiting.
    /// @return false when the camera does not deliver
    virtual bool stopStream() = 0;

    /// Replaces `events` by the next batch, in timestamp order, once it is due; waits for that at most `waitMs`.
    /// @param backlog  gives the number of batches that wait behind the reader; may be empty
    /// @return false when nothing is due yet, nothing is left, or delivery has failed
    virtual bool next(std::vector<event::DvsEvent>& events, int waitMs,
                      const std::function<std::size_t()>& backlog) = 0;
};

} // namespace davis::driver
