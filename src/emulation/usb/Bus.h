#pragma once
// All emulated devices of this process, on one bus.

#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "emulation/usb/Port.h"

namespace emulation {

/// A device that is plugged in; it is unplugged when this is destroyed. Movable; a moved-from one is empty.
class PluggedDevice {
public:
    PluggedDevice() = default;
    explicit PluggedDevice(std::shared_ptr<Port> pluggedPort);
    PluggedDevice(PluggedDevice&& other) noexcept;
    PluggedDevice& operator=(PluggedDevice&& other) noexcept;
    ~PluggedDevice();

    /// Takes the device out, as pulling its cable does: transfers under way end, open doors fail from now on. A second
    /// call does nothing. May not be called from inside the device.
    void unplug();

    int bus() const;
    int address() const; ///< 0 for an empty one

    /// What goes wrong at the kernel's side from now on. Does nothing once unplugged.
    void setFaults(Port::Faults faults);

private:
    std::shared_ptr<Port> port; // null once unplugged
    int lastAddress = 0;
};

/// Threads: thread-safe. The lock is outer to none: a port is asked for something only after it is released.
class Bus {
public:
    /// Kernels number buses from 1 up, so real ones stay clear of this.
    static constexpr int number = 250;
    static constexpr int highestAddress = 127;

    /// Lives until the process ends, since libusb's threads may ask to the last.
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
    int freeAddress() const;
    void remove(const std::shared_ptr<Port>& port);

    std::mutex mutex;
    std::map<int, std::shared_ptr<Port>> pluggedPorts; // by address
    std::map<int, std::shared_ptr<Port>> files;        // a port lives until its last file is closed
    int lastAddress = 0;
};

} // namespace emulation
