#pragma once
// What holds an emulated device on the bus.

#include <memory>

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

    /// Takes the device out, as pulling its cable does: transfers under way end, and open handles fail from now on. A
    /// second call does nothing. May not be called from inside the device.
    void unplug();

    int bus() const;
    int address() const; ///< 0 for an empty one

    /// What goes wrong at the kernel's side from now on. Does nothing once unplugged.
    void setFaults(Port::Faults faults);

private:
    std::shared_ptr<Port> port; // null once unplugged
    int lastAddress = 0;
};

} // namespace emulation
