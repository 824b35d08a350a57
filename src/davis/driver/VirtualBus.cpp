#include "davis/driver/VirtualBus.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

namespace davis::driver {

VirtualBus& VirtualBus::instance()
{
    static VirtualBus bus;
    return bus;
}

void VirtualBus::plug(std::shared_ptr<PluggedCamera> camera)
{
    const util::Lock lock(mutex);
    plugged.push_back(std::move(camera));
}

std::shared_ptr<PluggedCamera> VirtualBus::unplug(const PluggedCamera& camera)
{
    const util::Lock lock(mutex);
    const auto found = std::ranges::find(plugged, &camera, [](const auto& held) { return held.get(); });
    if (found == plugged.end())
        return nullptr;
    std::shared_ptr<PluggedCamera> held = std::move(*found);
    plugged.erase(found);
    return held;
}

std::vector<std::shared_ptr<PluggedCamera>> VirtualBus::cameras() const
{
    const util::Lock lock(mutex);
    return plugged;
}

std::shared_ptr<PluggedCamera> VirtualBus::openFirst(CameraKind kind)
{
    const util::Lock lock(mutex);
    std::size_t inUse = 0;
    for (const auto& camera : plugged) {
        if (camera->kind() != kind)
            continue;
        if (camera->open())
            return camera;
        ++inUse;
    }
    if (inUse > 0)
        throw std::runtime_error(failedToOpen(kind) + "all " + std::to_string(inUse) +
                                 " that are plugged in are open already.");
    return nullptr;
}

} // namespace davis::driver
