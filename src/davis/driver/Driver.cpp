#include "davis/driver/Driver.h"

namespace davis::driver {

std::string failedToOpen(CameraKind kind)
{
    return std::string("Failed to open a ") + (kind == CameraKind::davis ? "DAVIS" : "DVXplorer") +
           " camera (device type " + std::to_string(static_cast<int>(kind)) + ", id " + std::to_string(deviceId) +
           "): ";
}

} // namespace davis::driver
