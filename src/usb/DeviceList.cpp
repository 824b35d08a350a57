#include "usb/DeviceList.h"

#include <array>
#include <iostream>

#include <libusb-1.0/libusb.h>

namespace usb {
namespace {

// Opens by ids, not by entry: of several equal devices this reads the first one's text.
std::string serialOfFirst(libusb_context* context, const libusb_device_descriptor& descriptor)
{
    std::array<unsigned char, 50> text{};
    libusb_device_handle* const handle =
        libusb_open_device_with_vid_pid(context, descriptor.idVendor, descriptor.idProduct);
    if (handle == nullptr)
        return {};
    const int length = libusb_get_string_descriptor_ascii(handle, descriptor.iSerialNumber, text.data(),
                                                          static_cast<int>(text.size()));
    libusb_close(handle);
    if (length <= 0)
        return {};
    text.back() = 0;
    return reinterpret_cast<const char*>(text.data());
}

} // namespace

std::vector<device::DeviceInfo> getDevicesWithVidPid(VendorId vendorId, ProductId productId)
{
    std::vector<device::DeviceInfo> found;
    libusb_context* context = nullptr;
    libusb_device** list = nullptr;
    ssize_t count = LIBUSB_ERROR_OTHER;
    const bool initialised = libusb_init(&context) >= 0;
    if (initialised)
        count = libusb_get_device_list(context, &list);
    else
        std::cout << "Error initializing libusb" << std::endl; // and no list: it needs the context
    if (count < 0)
        std::cout << "Error getting devices" << std::endl;

    for (ssize_t i = 0; i < count; ++i) {
        libusb_device_descriptor descriptor{};
        if (libusb_get_device_descriptor(list[i], &descriptor) != 0)
            continue;
        if (descriptor.idVendor != static_cast<std::uint16_t>(vendorId) ||
            descriptor.idProduct != static_cast<std::uint16_t>(productId))
            continue;
        found.emplace_back(serialOfFirst(context, descriptor), libusb_get_bus_number(list[i]),
                           libusb_get_device_address(list[i]), 0, "usb");
    }
    if (count >= 0)
        libusb_free_device_list(list, 1);
    if (initialised)
        libusb_exit(context);
    return found;
}

libusb_device* findDeviceInList(std::uint16_t busNumber, std::uint16_t deviceAddress, libusb_device** list,
                                ssize_t count)
{
    for (ssize_t i = 0; i < count; ++i)
        if (libusb_get_bus_number(list[i]) == busNumber && libusb_get_device_address(list[i]) == deviceAddress)
            return list[i];
    return nullptr;
}

} // namespace usb
