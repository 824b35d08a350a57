#pragma once
// A device that is open, and the role in which its driver is held.

#include "device/DeviceInfo.h"
#include "trovi/Reflect.h"
#include "trovi/StoreRef.h"

namespace device {

/// The role in which a device is open; it is in one at a time.
enum class DriverReferenceType { DeviceAPI = 0, DeviceModel = 1, Board = 2 };

/// One device that a DeviceController holds open.
struct OpenedDevice {
    DeviceInfo device_info;
    trovi::StoreRef store_ref;
    DriverReferenceType reference_type = DriverReferenceType::DeviceAPI;

    OpenedDevice() = default;
    OpenedDevice(DeviceInfo deviceInfo, trovi::StoreRef storeRef, DriverReferenceType referenceType);

    friend bool operator==(const OpenedDevice&, const OpenedDevice&) = default;
};

} // namespace device

template <>
constexpr const char* trovi::registerDoc<device::DriverReferenceType>()
{
    return "The role in which a device's driver is held; it is in one at a time.";
}

// The order is wire order; in memory the reference comes before its type.
template <>
constexpr auto trovi::registerMembers<device::OpenedDevice>()
{
    using device::OpenedDevice;
    return members(member("device_info", &OpenedDevice::device_info, "the device, as it was given when it was opened"),
                   member("reference_type", &OpenedDevice::reference_type, "the role in which it is open"),
                   member("store_ref", &OpenedDevice::store_ref, "where its driver is; dead after a change of role"));
}

template <>
constexpr const char* trovi::registerDoc<device::OpenedDevice>()
{
    return "A device that the controller holds open, with its role and its place in the store.";
}
