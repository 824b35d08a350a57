#include "usb/DeviceList.h"

#include <cerrno>

#include <gmock/gmock.h>
#include <libusb-1.0/libusb.h>

#include "Interposed.h"
#include "Plugged.h"

namespace {

using namespace usb_tests;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr auto vendor = static_cast<usb::VendorId>(LoopbackDevice::defaultVendorId);
constexpr auto product = static_cast<usb::ProductId>(LoopbackDevice::defaultProductId);

TEST(DeviceList, WithNothingPluggedInIsEmptyAndSilent)
{
    testing::internal::CaptureStdout();
    EXPECT_THAT(usb::getDevicesWithVidPid(vendor, product), IsEmpty());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(interposed::openContexts(), 0);
}

TEST(DeviceList, NamesTheDevicesWithTheseIdsAndNoOthers)
{
    const Plugged plugged("SERIAL 7");
    const auto other = emulation::plug(std::make_shared<LoopbackDevice>("other", 0x1209, 0x0002));
    const auto foreign = emulation::plug(std::make_shared<LoopbackDevice>("foreign", 0x1210, 0x0001));
    EXPECT_THAT(usb::getDevicesWithVidPid(vendor, product),
                UnorderedElementsAre(device::DeviceInfo("SERIAL 7", 250, plugged.handle.address(), 0, "usb")));
    EXPECT_EQ(interposed::openContexts(), 0);
}

TEST(DeviceList, TwoEqualDevicesBothCarryTheFirstOnesSerial)
{
    const Plugged one("first"), two("second");
    const auto found = usb::getDevicesWithVidPid(vendor, product);
    ASSERT_EQ(found.size(), 2U);
    EXPECT_THAT((std::vector{found[0].usb_device_address, found[1].usb_device_address}),
                UnorderedElementsAre(one.handle.address(), two.handle.address()));
    // libusb's order decides which is the first
    const std::string first = found[0].usb_device_address == one.handle.address() ? "first" : "second";
    EXPECT_EQ(found[0].serial_number, first);
    EXPECT_EQ(found[1].serial_number, first);
}

TEST(DeviceList, ASerialIsCutAt49CharactersAndMayBeMissing)
{
    const struct {
        std::string serial, listed;
    } rows[] = {
        {"", ""},
        {std::string(49, 'x'), std::string(49, 'x')},
        {std::string(50, 'x'), std::string(49, 'x')},
        {std::string(126, 'x'), std::string(49, 'x')},
    };
    for (const auto& row : rows) {
        const Plugged plugged(row.serial);
        const auto found = usb::getDevicesWithVidPid(vendor, product);
        ASSERT_EQ(found.size(), 1U);
        EXPECT_EQ(found[0].serial_number, row.listed);
    }
}

TEST(DeviceList, ADeviceThatCannotBeOpenedIsListedWithoutSerial)
{
    Plugged plugged;
    plugged.handle.setFaults({.open = EACCES});
    EXPECT_THAT(usb::getDevicesWithVidPid(vendor, product),
                UnorderedElementsAre(device::DeviceInfo("", 250, plugged.handle.address(), 0, "usb")));
}

TEST(DeviceList, AnUnpluggedDeviceIsGone)
{
    Plugged plugged;
    plugged.handle.unplug();
    EXPECT_THAT(usb::getDevicesWithVidPid(vendor, product), IsEmpty());
}

TEST(DeviceList, FailuresArePrintedAndRaiseNothing)
{
    const Plugged plugged;
    const struct {
        std::optional<int> init, list;
        const char* printed;
    } rows[] = {
        {LIBUSB_ERROR_OTHER, {}, "Error initializing libusb\nError getting devices\n"},
        {{}, LIBUSB_ERROR_NO_MEM, "Error getting devices\n"},
    };
    for (const auto& row : rows) {
        interposed::initFails = row.init;
        interposed::listFails = row.list;
        testing::internal::CaptureStdout();
        EXPECT_THAT(usb::getDevicesWithVidPid(vendor, product), IsEmpty());
        EXPECT_EQ(testing::internal::GetCapturedStdout(), row.printed);
        EXPECT_EQ(interposed::openContexts(), 0);
    }
    interposed::initFails.reset();
    interposed::listFails.reset();
}

TEST(DeviceList, AnEntryIsFoundByBusAndAddress)
{
    const Plugged one("one"), two("two");
    libusb_context* context = nullptr;
    ASSERT_EQ(libusb_init(&context), 0);
    libusb_device** list = nullptr;
    const ssize_t count = libusb_get_device_list(context, &list);
    const auto address = static_cast<std::uint16_t>(two.handle.address());
    libusb_device* const found = usb::findDeviceInList(250, address, list, count);
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(libusb_get_device_address(found), address);
    EXPECT_EQ(usb::findDeviceInList(249, address, list, count), nullptr);
    EXPECT_EQ(usb::findDeviceInList(250 + 256, address, list, count), nullptr);
    EXPECT_EQ(usb::findDeviceInList(250, address, list, 0), nullptr);
    EXPECT_EQ(usb::findDeviceInList(250, address, list, -1), nullptr);
    libusb_free_device_list(list, 1);
    libusb_exit(context);
}

} // namespace
