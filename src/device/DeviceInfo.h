#pragma once
// Which device is meant.

#include <cstdint>
#include <string>

#include "trovi/Reflect.h"

namespace device {

/// Names one device. `device_type_name` chooses the driver: it is the key into DeviceInterfaceFactory, and the name
/// under which DeviceController puts the driver in its store.
struct DeviceInfo {
    std::string serial_number;
    std::int32_t usb_bus_number = 0;
    std::int32_t usb_device_address = 0;
    std::int32_t logic_version = 0;
    std::string device_type_name;

    DeviceInfo() = default;
    DeviceInfo(std::string serialNumber, std::int32_t usbBusNumber, std::int32_t usbDeviceAddress,
               std::int32_t logicVersion, std::string deviceTypeName);

    friend bool operator==(const DeviceInfo& left, const DeviceInfo& right);

    /// False for equal infos; for different ones, whether `left` lies below `right` in memory. No ordering of values:
    /// don't search by it.
    friend bool operator<(const DeviceInfo& left, const DeviceInfo& right);
};

} // namespace device

template <>
constexpr auto trovi::registerMembers<device::DeviceInfo>()
{
    using device::DeviceInfo;
    return members(
        member("serial_number", &DeviceInfo::serial_number,
               "serial text of the USB descriptor, at most 49 characters; two equal devices show the first one's"),
        member("usb_bus_number", &DeviceInfo::usb_bus_number, "number of the USB bus, 1 to 255 for a real device"),
        member("usb_device_address", &DeviceInfo::usb_device_address,
               "address of the device on its bus, 1 to 127; it changes whenever the device is plugged in"),
        member("logic_version", &DeviceInfo::logic_version, "version of the device's logic; 0: unknown"),
        member("device_type_name", &DeviceInfo::device_type_name,
               "which driver to build, and the driver's name in the store; a listing of USB devices says \"usb\""));
}

template <>
constexpr const char* trovi::registerDoc<device::DeviceInfo>()
{
    return "Names one device: where it is plugged in and which driver it wants.";
}
