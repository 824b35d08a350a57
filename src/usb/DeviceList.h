#pragma once
// Finding USB devices, through libusb.

#include <cstdint>
#include <sys/types.h>
#include <vector>

#include "device/DeviceInfo.h"
#include "usb/Ids.h"

struct libusb_device;

namespace usb {

/// The devices with these ids, as `device_type_name` "usb" and `logic_version` 0, in libusb's order. Devices with the
/// same ids all carry the first one's serial number, so tell them apart by bus and address. A serial that cannot be
/// read is empty. Failures are printed to standard output and end the listing; nothing is raised.
std::vector<device::DeviceInfo> getDevicesWithVidPid(VendorId vendorId, ProductId productId);

/// The entry of `list` at that bus and address; null when there is none or `count` is below 1.
libusb_device* findDeviceInList(std::uint16_t busNumber, std::uint16_t deviceAddress, libusb_device** list,
                                ssize_t count);

} // namespace usb
