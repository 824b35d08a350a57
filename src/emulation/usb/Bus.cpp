#include "emulation/usb/Bus.h"

#include <stdexcept>
#include <utility>

namespace emulation {

Bus& Bus::instance()
{
    static Bus* const bus = new Bus;
    return *bus;
}

PluggedDevice Bus::plug(std::shared_ptr<Device> device)
{
    if (!device)
        throw std::invalid_argument("there is no device to plug in");
    const util::Lock lock(mutex);
    for (const auto& [address, port] : pluggedPorts)
        if (port->carries(*device))
            throw std::invalid_argument("this device is plugged in already");
    const int address = freeAddress();
    auto port = std::make_shared<Port>(std::move(device), address);
    pluggedPorts.emplace(address, port);
    lastAddress = address;
    return PluggedDevice(std::move(port));
}

// As a kernel does it: an address comes round again only after all the others.
int Bus::freeAddress() const
{
    for (int step = 1; step <= highestAddress; ++step) {
        const int address = (lastAddress + step - 1) % highestAddress + 1;
        if (!pluggedPorts.contains(address))
            return address;
    }
    throw std::runtime_error("all 127 addresses of the emulated USB bus are in use");
}

void Bus::remove(const std::shared_ptr<Port>& port)
{
    const util::Lock lock(mutex);
    const auto found = pluggedPorts.find(port->address);
    if (found != pluggedPorts.end() && found->second == port)
        pluggedPorts.erase(found);
}

std::vector<std::shared_ptr<Port>> Bus::ports()
{
    const util::Lock lock(mutex);
    std::vector<std::shared_ptr<Port>> result;
    for (const auto& [address, port] : pluggedPorts)
        result.push_back(port);
    return result;
}

std::shared_ptr<Port> Bus::byAddress(int address)
{
    const util::Lock lock(mutex);
    const auto found = pluggedPorts.find(address);
    return found == pluggedPorts.end() ? nullptr : found->second;
}

std::shared_ptr<Port> Bus::byFile(int descriptor)
{
    const util::Lock lock(mutex);
    const auto found = files.find(descriptor);
    return found == files.end() ? nullptr : found->second;
}

void Bus::remember(int descriptor, std::shared_ptr<Port> port)
{
    const util::Lock lock(mutex);
    files[descriptor] = std::move(port);
}

std::shared_ptr<Port> Bus::forget(int descriptor)
{
    const util::Lock lock(mutex);
    const auto found = files.find(descriptor);
    if (found == files.end())
        return nullptr;
    auto port = std::move(found->second);
    files.erase(found);
    return port;
}

} // namespace emulation
