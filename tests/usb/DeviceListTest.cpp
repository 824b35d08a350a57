#include "usb/DeviceList.h"

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <regex>
#include <set>

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

TEST(DeviceList, NamesTheDevicesWithTheseIdsAndNoOthers)
{
    const Plugged<LoopbackDevice> other("other", 0x1209, 0x0002), foreign("foreign", 0x1210, 0x0001);
    PluggedLoop plugged("SERIAL 7");
    testing::internal::CaptureStdout();
    EXPECT_THAT(usb::getDevicesWithVidPid(vendor, product),
                UnorderedElementsAre(device::DeviceInfo("SERIAL 7", 250, plugged.address(), 0, "usb")));
    plugged.handle.setFaults({.open = EACCES});
    EXPECT_THAT(usb::getDevicesWithVidPid(vendor, product),
                UnorderedElementsAre(device::DeviceInfo("", 250, plugged.address(), 0, "usb")))
        << "listed without its serial number";
    plugged.handle.unplug();
    EXPECT_THAT(usb::getDevicesWithVidPid(vendor, product), IsEmpty());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(interposed::openContexts(), 0);
}

TEST(DeviceList, EqualDevicesAllCarryTheFirstOnesSerialCutAt49Characters)
{
    for (const std::size_t size : {0U, 49U, 50U, 126U}) {
        const PluggedLoop one(std::string(size, '1')), two(std::string(size, '2'));
        const auto found = usb::getDevicesWithVidPid(vendor, product);
        ASSERT_EQ(found.size(), 2U);
        EXPECT_THAT((std::vector{found[0].usb_device_address, found[1].usb_device_address}),
                    UnorderedElementsAre(one.address(), two.address()));
        // libusb's order decides which is the first
        const char first = found[0].usb_device_address == one.address() ? '1' : '2';
        for (const auto& info : found)
            EXPECT_EQ(info.serial_number, std::string(std::min<std::size_t>(size, 49), first));
    }
}

TEST(DeviceList, FailuresArePrintedAndRaiseNothing)
{
    const PluggedLoop plugged;
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
    const PluggedLoop one("one"), two("two");
    libusb_context* context = nullptr;
    ASSERT_EQ(libusb_init(&context), 0);
    libusb_device** list = nullptr;
    const ssize_t count = libusb_get_device_list(context, &list);
    const auto address = static_cast<std::uint16_t>(two.address());
    libusb_device* const found = usb::findDeviceInList(250, address, list, count);
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(libusb_get_device_address(found), address);
    for (const auto& [bus, size] : {std::pair{249, count}, {250 + 256, count}, {250, ssize_t{0}}, {250, ssize_t{-1}}})
        EXPECT_EQ(usb::findDeviceInList(static_cast<std::uint16_t>(bus), address, list, size), nullptr) << bus << size;
    libusb_free_device_list(list, 1);
    libusb_exit(context);
}

// udev reads the file on machines of users, so nothing else would show that a board was left out.
TEST(UdevRules, NameEveryBoardAndNoOther)
{
    std::set<std::string> expected, found;
    for (const auto& board : usb::knownBoards) {
        char ids[16];
        std::snprintf(ids, sizeof ids, "%04x:%04x", static_cast<unsigned>(board.vendor),
                      static_cast<unsigned>(board.product));
        expected.insert(ids);
    }
    std::ifstream file(std::string(VORNA_SOURCE_DIR "/packaging/") + usb::udevRulesFile);
    ASSERT_TRUE(file) << usb::udevRulesFile;
    const std::regex rule(
        R"re(SUBSYSTEM=="usb", ATTR\{idVendor\}=="([0-9a-f]{4})", ATTR\{idProduct\}=="([0-9a-f]{4})", )re"
        R"re(MODE="0660", GROUP="plugdev", TAG\+="uaccess")re");
    for (std::string line; std::getline(file, line);) {
        if (line.empty() || line[0] == '#')
            continue;
        std::smatch parts;
        ASSERT_TRUE(std::regex_match(line, parts, rule)) << line;
        EXPECT_TRUE(found.insert(parts[1].str() + ":" + parts[2].str()).second) << line;
    }
    EXPECT_EQ(found, expected);
}

} // namespace
