#include "emulation/usb/PluggedDevice.h"

#include <utility>

#include "emulation/usb/Bus.h"

namespace emulation {

PluggedDevice::PluggedDevice(std::shared_ptr<Port> pluggedPort)
    : port(std::move(pluggedPort)), lastAddress(port->address)
{}

PluggedDevice::PluggedDevice(PluggedDevice&& other) noexcept
    : port(std::move(other.port)), lastAddress(std::exchange(other.lastAddress, 0))
{}

PluggedDevice& PluggedDevice::operator=(PluggedDevice&& other) noexcept
{
    unplug();
    port = std::move(other.port);
    lastAddress = std::exchange(other.lastAddress, 0);
    return *this;
}

PluggedDevice::~PluggedDevice() { unplug(); }

void PluggedDevice::unplug()
{
    if (!port)
        return;
    Bus::instance().remove(port);
    std::exchange(port, nullptr)->unplug();
}

int PluggedDevice::bus() const { return Bus::number; }
int PluggedDevice::address() const { return lastAddress; }

void PluggedDevice::setFaults(Port::Faults faults)
{
    if (port)
        port->setFaults(std::move(faults));
}

} // namespace emulation
