#include "davis/caer/VirtualBus.h"

#include <mutex>
#include <stdexcept>

namespace davis::caer {

struct VirtualBus::State {
    mutable std::mutex mutex;
    std::vector<std::shared_ptr<PluggedCamera>> cameras; // under `mutex`
};

VirtualBus::VirtualBus() : state(std::make_unique<State>()) {}
VirtualBus::~VirtualBus() = default;

VirtualBus& VirtualBus::instance()
{
    static VirtualBus bus;
    return bus;
}

void VirtualBus::plug(std::shared_ptr<PluggedCamera> camera)
{
    const std::lock_guard lock(state->mutex);
    state->cameras.push_back(std::move(camera));
}

void VirtualBus::unplug(const PluggedCamera& camera)
{
    std::vector<std::shared_ptr<PluggedCamera>> removed; // let go of outside the lock: it may be the last owner
    const std::lock_guard lock(state->mutex);
    std::erase_if(state->cameras, [&](const auto& plugged) {
        if (plugged.get() != &camera)
            return false;
        removed.push_back(plugged);
        return true;
    });
}

std::vector<std::shared_ptr<PluggedCamera>> VirtualBus::cameras() const
{
    const std::lock_guard lock(state->mutex);
    return state->cameras;
}

std::shared_ptr<PluggedCamera> VirtualBus::openFirst(CameraKind kind)
{
    const std::lock_guard lock(state->mutex);
    std::size_t inUse = 0;
    for (const auto& camera : state->cameras) {
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
