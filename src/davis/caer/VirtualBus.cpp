#include "davis/caer/VirtualBus.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace davis::caer {

VirtualBus& VirtualBus::instance()
{
    static VirtualBus bus;
    return bus;
}

void VirtualBus::plug(std::shared_ptr<PluggedCamera> camera)
{
    const std::lock_guard lock(mutex);
    plugged.push_back(std::move(camera));
}

std::shared_ptr<PluggedCamera> VirtualBus::unplug(const PluggedCamera& camera)
{
    const std::lock_guard lock(mutex);
    const auto found = std::ranges::find(plugged, &camera, [](const auto& held) { return held.get(); });
    if (found == plugged.end())
        return nullptr;
    std::shared_ptr<PluggedCamera> held = std::move(*found);
    plugged.erase(found);
    return held;
}

std::vector<std::shared_ptr<PluggedCamera>> VirtualBus::cameras() const
{
    const std::lock_guard lock(mutex);
    return plugged;
}

std::shared_ptr<PluggedCamera> VirtualBus::openFirst(CameraKind kind)
{
    const std::lock_guard lock(mutex);
    std::size_t inUse = 0;
    for (const auto& camera : plugged) {
        if (camera->kind() != kind)
            continue;
        if (camera->open())
            return camera;
        ++inUse;
    }
    const bool davis = kind == CameraKind::davis;
    std::string text = "Failed to open a " + std::string(davis ? "DAVIS" : "DVXplorer") + " camera (device type " +
                       std::to_string(static_cast<int>(kind)) + ", id 1): ";
    if (inUse > 0)
        text += "all " + std::to_string(inUse) + " that are plugged in are open already.";
    else
        text += "none is plugged in. This build has no libcaer and so drives no real camera; plug in a virtual one "
                "first, with vorna.emulation." +
                std::string(davis ? "plug_virtual_davis()" : "plug_virtual_dvxplorer()") + ".";
    throw std::runtime_error(text);
}

} // namespace davis::caer
