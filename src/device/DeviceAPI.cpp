#include "device/DeviceAPI.h"

namespace device {

std::string DeviceAPI::getDeviceTypeName() const { return "generic device"; }

} // namespace device
