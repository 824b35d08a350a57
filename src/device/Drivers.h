#pragma once
// The three roles that a driver can play. The lowest is the API, raw access to the hardware; a model wraps an API and
// adds a software model of the chip; a board drives a whole board by itself and never wraps an API.

#include <memory>
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

/// Base of all whole-board drivers.
class Board {
public:
    Board() = default;
    Board(const Board&) = delete;
    Board& operator=(const Board&) = delete;
    virtual ~Board() = default;
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

// Held in a store by their base, so they are described, though nothing can be called on them.
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

template <>
constexpr auto trovi::registerMemberFunctions<device::Board>()
{
    return functions();
}

template <>
constexpr const char* trovi::registerDoc<device::Board>()
{
    return "The driver of a whole board.";
}
