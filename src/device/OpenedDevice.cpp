#include "device/OpenedDevice.h"

#include <utility>

namespace device {

OpenedDevice::OpenedDevice(DeviceInfo deviceInfo, trovi::StoreRef storeRef, DriverReferenceType referenceType)
    : device_info(std::move(deviceInfo)), store_ref(storeRef), reference_type(referenceType)
{}

} // namespace device
