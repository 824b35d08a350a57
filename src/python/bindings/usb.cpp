// Finding boards on USB, and telling emulated ones from real ones.

#include "emulation/usb/Bus.h"
#include "trovi/python/GilRelease.h"
#include "trovi/python/Local.h"
#include "usb/DeviceList.h"

namespace py = pybind11;

namespace {

std::vector<device::DeviceInfo> devicesWithVidPid(std::uint16_t vendorId, std::uint16_t productId)
{
    return usb::getDevicesWithVidPid(static_cast<usb::VendorId>(vendorId), static_cast<usb::ProductId>(productId));
}

bool isEmulated(const device::DeviceInfo& info) { return info.usb_bus_number == emulation::Bus::number; }

} // namespace

// After the classes, so that the signatures show them by their Python names.
VORNA_BINDING("trovi_bind_local_type_usb_functions", [](py::module_& root) {
    trovi::python::bindingDetails("usb::", root)
        .first.def("get_devices_with_vid_pid", &devicesWithVidPid, py::arg("vendor_id"), py::arg("product_id"),
                   py::call_guard<trovi::python::GilRelease>(),
                   "The devices on USB with these ids, real and emulated, as a list of device.DeviceInfo with the "
                   "device_type_name \"usb\". Several with the same ids all show the serial number of the first: tell "
                   "them apart by bus and address. The serial number is empty when the device may not be opened. "
                   "Boards: 0x04B4, 0x00F3 an FX3 without firmware; 0x04B4, 0x5BC1 a dev kit; 0x151F, 0x012B an Opal "
                   "Kelly board.");
    trovi::python::bindingDetails("emulation::", root)
        .first.def("is_emulated", &isEmulated, py::arg("device_info"),
                   "True for a device that exists in software: those are on a USB bus of their own, number 250.");
})
