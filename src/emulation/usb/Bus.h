#pragma once
// All emulated devices of this process, on one bus.

#include <map>
#include <memory>
#include <vector>

#include "emulation/usb/PluggedDevice.h"
#include "emulation/usb/Port.h"
#include "util/Mutex.h"

namespace emulation {

/// Threads: thread-safe.
class Bus {
public:
    /// Kernels number buses from 1 up, so real ones stay clear of this.
    static constexpr int number = 250;
    static constexpr int highestAddress = 127;

    /// Lives until the process ends, since libusb's threads may use it until then.
    static Bus& instance();

    /// Gives the device the next free address. libusb doesn't see it before attachToLibusb(); see emulation::plug().
    /// @throws std::invalid_argument for a null device, one that is plugged in already, or one that cannot be described
    /// @throws std::runtime_error when all 127 addresses are in use
    PluggedDevice plug(std::shared_ptr<Device> device);

    // For the attachment: what is plugged in, and which port a file descriptor belongs to.
    std::vector<std::shared_ptr<Port>> ports();
    std::shared_ptr<Port> byAddress(int address);
    std::shared_ptr<Port> byFile(int descriptor);
    void remember(int descriptor, std::shared_ptr<Port> port);
    std::shared_ptr<Port> forget(int descriptor);

private:
    friend class PluggedDevice;
    Bus() = default;
    int freeAddress() const VORNA_REQUIRES(mutex);
    void remove(const std::shared_ptr<Port>& port);

    // Innermost: nothing is asked of a port while it is held, except whether it carries a device.
    util::Mutex mutex;
    std::map<int, std::shared_ptr<Port>> pluggedPorts VORNA_GUARDED_BY(mutex); // by address
    std::map<int, std::shared_ptr<Port>> files VORNA_GUARDED_BY(mutex); // a port lives until its last file is closed
    int lastAddress VORNA_GUARDED_BY(mutex) = 0;
};

} // namespace emulation
