#include "davis/driver/Open.h"

#include <stdexcept>
#include <string>

#include "davis/driver/Libcaer.h"
#include "davis/driver/VirtualBus.h"
#include "davis/driver/VirtualDriver.h"

namespace davis::driver {

std::unique_ptr<Driver> open(CameraKind kind)
{
    if (auto camera = VirtualBus::instance().openFirst(kind))
        return std::make_unique<VirtualDriver>(std::move(camera));

    const std::string plug =
        std::string("vorna.emulation.plug_virtual_") + (kind == CameraKind::davis ? "davis()" : "dvxplorer()");
    try {
        if (auto camera = openLibcaer(kind))
            return camera;
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(std::string(error.what()) + " (No virtual camera of the kind is plugged in either; " +
                                 plug + " plugs one in.)");
    }
    throw std::runtime_error(failedToOpen(kind) +
                             "none is plugged in. This build has no libcaer and so drives no "
                             "real camera; plug in a virtual one first, with " +
                             plug + ".");
}

} // namespace davis::driver
