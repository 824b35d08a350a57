#pragma once
// The lowest of the three roles that a driver can play: raw access to the hardware.

#include <string>

#include "trovi/Reflect.h"

namespace device {

/// Base of all drivers at the level of raw access.
class DeviceAPI {
public:
    DeviceAPI() = default;
    DeviceAPI(const DeviceAPI&) = delete;
    DeviceAPI& operator=(const DeviceAPI&) = delete;
    virtual ~DeviceAPI() = default;

    /// Key under which a model for this API is looked up; "generic device" unless a driver says otherwise.
    virtual std::string getDeviceTypeName() const;
};

} // namespace device

template <>
constexpr auto trovi::registerMemberFunctions<device::DeviceAPI>()
{
    using device::DeviceAPI;
    return functions(function("get_device_type_name", &DeviceAPI::getDeviceTypeName,
                              "The kind of device; \"generic device\" when its driver doesn't say."));
}

template <>
constexpr const char* trovi::registerDoc<device::DeviceAPI>()
{
    return "Raw access to a device.";
}
