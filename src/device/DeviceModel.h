#pragma once
// A role of drivers: a model wraps an API and adds a software model of the chip.

#include <memory>

#include "device/DeviceAPI.h"
#include "trovi/Reflect.h"

namespace device {

/// Base of all models. A model owns the API that it was built from.
class DeviceModel {
public:
    DeviceModel() = default;
    DeviceModel(const DeviceModel&) = delete;
    DeviceModel& operator=(const DeviceModel&) = delete;
    virtual ~DeviceModel() = default;

    /// Gives up the API; the model is good for nothing but destruction afterwards.
    virtual std::unique_ptr<DeviceAPI> releaseDeviceAPI() = 0;
};

} // namespace device

// A store holds it by this base, so it is described, though nothing can be called on it.
template <>
constexpr auto trovi::registerMemberFunctions<device::DeviceModel>()
{
    return functions();
}

template <>
constexpr const char* trovi::registerDoc<device::DeviceModel>()
{
    return "A device together with a software model of its chip.";
}
