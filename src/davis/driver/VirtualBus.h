#pragma once
// Where virtual cameras are plugged in.

#include <memory>
#include <vector>

#include "davis/driver/PluggedCamera.h"
#include "util/Mutex.h"

namespace davis::driver {

/// All plugged virtual cameras, in the order of plugging. One for the process. Threads: thread-safe.
/// The mutex is held while a camera's open() runs; a camera calls the bus without holding any mutex of its own.
class VirtualBus {
public:
    VirtualBus(const VirtualBus&) = delete;
    VirtualBus& operator=(const VirtualBus&) = delete;

    static VirtualBus& instance();

    void plug(std::shared_ptr<PluggedCamera> camera) VORNA_EXCLUDES(mutex);
    /// @return what the bus held, so that the caller decides when the last owner goes; null when it was not plugged
    std::shared_ptr<PluggedCamera> unplug(const PluggedCamera& camera) VORNA_EXCLUDES(mutex);
    std::vector<std::shared_ptr<PluggedCamera>> cameras() const VORNA_EXCLUDES(mutex);

    /// Opens the first camera of this kind that no driver has open.
    /// @return null when none of the kind is plugged in
    /// @throws std::runtime_error when all of the kind are open already
    std::shared_ptr<PluggedCamera> openFirst(CameraKind kind) VORNA_EXCLUDES(mutex);

private:
    VirtualBus() = default;

    mutable util::Mutex mutex;
    std::vector<std::shared_ptr<PluggedCamera>> plugged VORNA_GUARDED_BY(mutex);
};

} // namespace davis::driver
