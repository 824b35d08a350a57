#include "device/DeviceInfo.h"

#include <functional>
#include <tuple>
#include <utility>

namespace device {

DeviceInfo::DeviceInfo(std::string serialNumber, std::int32_t usbBusNumber, std::int32_t usbDeviceAddress,
                       std::int32_t logicVersion, std::string deviceTypeName)
    : serial_number(std::move(serialNumber)), usb_bus_number(usbBusNumber), usb_device_address(usbDeviceAddress),
      logic_version(logicVersion), device_type_name(std::move(deviceTypeName))
{}

bool operator==(const DeviceInfo& left, const DeviceInfo& right)
{
    const auto fields = [](const DeviceInfo& info) {
        return std::tie(info.device_type_name, info.serial_number, info.usb_bus_number, info.usb_device_address,
                        info.logic_version);
    };
    return fields(left) == fields(right);
}

bool operator<(const DeviceInfo& left, const DeviceInfo& right)
{
    // std::less orders unrelated addresses too, where a plain < leaves it open
    return !(left == right) && std::less<const void*>()(&left, &right);
}

} // namespace device
