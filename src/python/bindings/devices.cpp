// Python classes of device management.

#include "device/DeviceController.h"
#include "device/Drivers.h"
#include "device/OpenedDevice.h"
#include "trovi/python/Local.h"
#include "trovi/python/Remote.h"

namespace py = pybind11;

VORNA_BIND_ENUM(device::DriverReferenceType)
VORNA_BIND_LOCAL_WITH(device::DeviceInfo, [](auto& cls) {
    cls.def(py::init<std::string, std::int32_t, std::int32_t, std::int32_t, std::string>(), py::arg("serial_number"),
            py::arg("usb_bus_number"), py::arg("usb_device_address"), py::arg("logic_version"),
            py::arg("device_type_name"));
    cls.def(py::init<const device::DeviceInfo&>(), py::arg("other"));
})
VORNA_BIND_LOCAL_WITH(device::OpenedDevice, [](auto& cls) {
    cls.def(py::init<device::DeviceInfo, trovi::StoreRef, device::DriverReferenceType>(), py::arg("device_info"),
            py::arg("store_ref"), py::arg("reference_type"));
    cls.def(py::init<const device::OpenedDevice&>(), py::arg("other"));
})

VORNA_BIND_REMOTE(device::DriverReferenceType)
VORNA_BIND_REMOTE(device::DeviceInfo)
VORNA_BIND_REMOTE(device::OpenedDevice)
VORNA_BIND_REMOTE(device::DeviceController)
VORNA_BIND_REMOTE(device::DeviceAPI)
VORNA_BIND_REMOTE(device::DeviceModel)
VORNA_BIND_REMOTE(device::Board)
