#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <future>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <libusb-1.0/libusb.h>

#include "emulation/attach/Attach.h"
#include "emulation/boards/FaultyWire.h"
#include "emulation/boards/LoopbackDevice.h"
#include "emulation/usb/Descriptors.h"

namespace {

using namespace emulation;
using namespace std::chrono_literals;
using Bytes = std::vector<std::uint8_t>;

// ---- descriptors

TEST(Descriptors, AreTheBytesOfTheStandard)
{
    const LoopbackDevice device("A", 0x1234, 0x5678);
    EXPECT_EQ(descriptors(device),
              (Bytes{18, 1, 0,    2, 0, 0,    0, 64,   0x34, 0x12, 0x78, 0x56, 0, 1, 1, 2, 3, 1, // the device
                     9,  2, 32,   0, 1, 1,    0, 0x80, 50,                                       // its configuration
                     9,  4, 0,    0, 2, 0xFF, 0, 0,    0,                                        // its interface
                     7,  5, 0x01, 2, 0, 2,    0, 7,    5,    0x81, 2,    0,    2, 0}));
}

TEST(Descriptors, AnswerStandardRequestsUpToTheLengthAsked)
{
    const LoopbackDevice device("AB");
    const struct {
        ::emulation::Setup setup; // not the test class's own
        std::size_t length;
        int result;
        Bytes begin;
    } rows[] = {
        {{0x80, 6, 0x0100, 0, 0}, 64, 18, {18, 1}},
        {{0x80, 6, 0x0100, 0, 0}, 8, 8, {18, 1}},
        {{0x80, 6, 0x0200, 0, 0}, 64, 32, {9, 2, 32}},
        {{0x80, 6, 0x0300, 0, 0}, 64, 4, {4, 3, 9, 4}},
        {{0x80, 6, 0x0303, 0, 0}, 64, 6, {6, 3, 'A', 0, 'B', 0}},
        {{0x80, 6, 0x0303, 0, 0}, 0, 0, {}},
        {{0x80, 6, 0x0304, 0, 0}, 64, -EPIPE, {}}, // no such text
        {{0x80, 6, 0x0F00, 0, 0}, 64, -EPIPE, {}}, // no such kind
        {{0x80, 0, 0, 0, 0}, 2, -EPIPE, {}},
        {{0x00, 9, 1, 0, 0}, 0, 0, {}},
    };
    for (const auto& row : rows) {
        Bytes data(row.length);
        ASSERT_EQ(standardRequest(device, row.setup, data), row.result) << std::hex << row.setup.wValue;
        EXPECT_TRUE(std::equal(row.begin.begin(), row.begin.end(), data.begin()));
    }
}

TEST(Descriptors, RefuseATextThatIsTooLong)
{
    EXPECT_NO_THROW(descriptors(LoopbackDevice(std::string(126, 'x'))));
    for (const char* text : {"\xC3\xA9", "tab\t", "\x7F"})
        EXPECT_THROW(descriptors(LoopbackDevice(text)), std::invalid_argument) << text;
    EXPECT_THROW(descriptors(LoopbackDevice(std::string(127, 'x'))), std::invalid_argument);
    EXPECT_THROW(plug(std::make_shared<LoopbackDevice>(std::string(127, 'x'))), std::invalid_argument);
}

// ---- the bus

TEST(Bus, GivesEachDeviceAnAddressAndTakesItBackWithTheHandle)
{
    std::vector<PluggedDevice> all;
    std::set<int> addresses;
    for (int i = 0; i < Bus::highestAddress; ++i) {
        all.push_back(Bus::instance().plug(std::make_shared<LoopbackDevice>("A")));
        addresses.insert(all.back().address());
    }
    EXPECT_EQ(addresses.size(), 127U);
    EXPECT_EQ(*addresses.begin(), 1);
    EXPECT_EQ(*addresses.rbegin(), 127);
    EXPECT_THROW(Bus::instance().plug(std::make_shared<LoopbackDevice>("A")), std::runtime_error);

    const int freed = all[50].address();
    all[50].unplug();
    all[50].unplug(); // nothing more
    EXPECT_EQ(Bus::instance().byAddress(freed), nullptr);
    all[50] = Bus::instance().plug(std::make_shared<LoopbackDevice>("B"));
    EXPECT_EQ(all[50].address(), freed);
    all.clear();
    EXPECT_TRUE(Bus::instance().ports().empty());
}

TEST(Bus, TakesADeviceOnceAtATime)
{
    const auto device = std::make_shared<LoopbackDevice>("A");
    EXPECT_THROW(Bus::instance().plug(nullptr), std::invalid_argument);
    PluggedDevice first = Bus::instance().plug(device);
    EXPECT_THROW(Bus::instance().plug(device), std::invalid_argument);
    first.unplug();
    EXPECT_NO_THROW(Bus::instance().plug(device));
}

// ---- through libusb

class Host {
public:
    explicit Host(const PluggedDevice& plugged)
    {
        libusb_init(&context);
        libusb_device** list = nullptr;
        const ssize_t count = libusb_get_device_list(context, &list);
        for (ssize_t i = 0; i < count; ++i)
            if (libusb_get_bus_number(list[i]) == plugged.bus() &&
                libusb_get_device_address(list[i]) == plugged.address())
                libusb_open(list[i], &handle);
        libusb_free_device_list(list, 1);
        claimed = handle != nullptr && libusb_claim_interface(handle, 0) == 0;
    }
    ~Host()
    {
        if (handle != nullptr)
            libusb_close(handle);
        libusb_exit(context);
    }
    // libusb's code, or the bytes moved
    int bulk(std::uint8_t endpoint, Bytes& bytes, unsigned timeoutMs = 0)
    {
        int moved = 0;
        const int code =
            libusb_bulk_transfer(handle, endpoint, bytes.data(), static_cast<int>(bytes.size()), &moved, timeoutMs);
        return code == 0 ? moved : code;
    }

    libusb_context* context = nullptr;
    libusb_device_handle* handle = nullptr;
    bool claimed = false;
};

TEST(Attach, ShowsLibusbAndNothingElseWhatADeviceIs)
{
    const auto plugged = plug(std::make_shared<LoopbackDevice>("serial", 0x1234, 0x5678));
    const Host host(plugged);
    EXPECT_TRUE(host.claimed);
    libusb_device* const device = libusb_get_device(host.handle);
    libusb_device_descriptor descriptor{};
    ASSERT_EQ(libusb_get_device_descriptor(device, &descriptor), 0);
    EXPECT_EQ(descriptor.idVendor, 0x1234);
    EXPECT_EQ(libusb_get_device_speed(device), LIBUSB_SPEED_HIGH);
    EXPECT_EQ(libusb_get_max_packet_size(device, 0x81), 512);
    unsigned char text[64] = {};
    EXPECT_EQ(libusb_get_string_descriptor_ascii(host.handle, descriptor.iProduct, text, sizeof text), 25);
    EXPECT_STREQ(reinterpret_cast<char*>(text), "emulated loop-back device");
    std::array<char, 32> node{};
    std::snprintf(node.data(), node.size(), "/dev/bus/usb/250/%03d", plugged.address());
    EXPECT_EQ(::open(node.data(), O_RDWR), -1) << "the program's own open is the kernel's";
}

TEST(Attach, AnswersAsTheWireDoes)
{
    const auto device = std::make_shared<LoopbackDevice>("A");
    const auto plugged = plug(device);
    Host host(plugged);
    const struct {
        int answer, seen;
    } rows[] = {
        {-EPIPE, LIBUSB_ERROR_PIPE}, {-EPROTO, LIBUSB_ERROR_IO}, {-EOVERFLOW, LIBUSB_ERROR_OVERFLOW}, {7, 7}, {0, 0},
    };
    Bytes bytes(16);
    for (const std::uint8_t endpoint : {std::uint8_t{0x01}, std::uint8_t{0x81}}) {
        for (const auto& row : rows) {
            device->answerNext(endpoint, row.answer);
            EXPECT_EQ(host.bulk(endpoint, bytes), row.seen) << int{endpoint} << ' ' << row.answer;
        }
    }
    constexpr std::uint8_t request = LoopbackDevice::memoryRequest;
    EXPECT_EQ(libusb_control_transfer(host.handle, 0xC0, request, 65535, 0, bytes.data(), 1, 0), 1);
    EXPECT_EQ(libusb_control_transfer(host.handle, 0xC0, request, 65535, 0, bytes.data(), 2, 0), LIBUSB_ERROR_PIPE);
    EXPECT_EQ(host.bulk(0x81, bytes, 20), LIBUSB_ERROR_TIMEOUT) << "nothing to read";
    EXPECT_EQ(host.bulk(0x85, bytes), LIBUSB_ERROR_IO) << "no such endpoint";
    device->send(Bytes(16, 9));
    EXPECT_EQ(host.bulk(0x81, bytes), 16) << "well again";
    EXPECT_EQ(bytes, Bytes(16, 9));
}

// Breaks both promises of a transfer, or never answers a read; how often it was asked is counted.
class Odd : public Device {
public:
    explicit Odd(bool isSilent) : silent(isSilent) {}
    std::uint16_t vendorId() const override { return 1; }
    std::uint16_t productId() const override { return 1; }
    std::string text(int) const override { return {}; }
    Bytes endpoints() const override { return {0x01, 0x81}; }
    int controlTransfer(const Setup&, std::span<std::uint8_t>) override { return 0; }
    int bulkOut(std::uint8_t, std::span<const std::uint8_t> data) override
    {
        return silent ? static_cast<int>(data.size()) : throw std::runtime_error("broken");
    }
    int bulkIn(std::uint8_t, std::span<std::uint8_t> data) override
    {
        ++reads;
        return silent ? pending : static_cast<int>(data.size()) + 1;
    }
    std::atomic<int> reads = 0;

private:
    const bool silent;
};

TEST(Attach, OutlivesADeviceThatBreaksItsPromises)
{
    const auto plugged = plug(std::make_shared<Odd>(false));
    Host host(plugged);
    Bytes bytes(16);
    EXPECT_EQ(host.bulk(0x01, bytes), LIBUSB_ERROR_IO) << "an exception is a bus error";
    EXPECT_EQ(host.bulk(0x81, bytes), LIBUSB_ERROR_OVERFLOW) << "more than there is room for";
}

TEST(Attach, AReadWaitsForWhatAnotherThreadWrites)
{
    const auto device = std::make_shared<LoopbackDevice>("A");
    const auto plugged = plug(device);
    Host host(plugged);
    for (int i = 0; i < 200; ++i) { // whichever comes first
        Bytes read(4);
        auto moved = std::async(std::launch::async, [&] { return host.bulk(0x81, read); });
        device->send(Bytes(4, static_cast<std::uint8_t>(i)));
        ASSERT_EQ(moved.get(), 4);
        ASSERT_EQ(read, Bytes(4, static_cast<std::uint8_t>(i)));
    }
}

TEST(Attach, ADelayOutlivesTheTransferThatTheHostGivesUp)
{
    const auto device = std::make_shared<Odd>(true);
    const auto wire = std::make_shared<FaultyWire>(device);
    auto plugged = plug(wire);
    wire->add({.kind = FaultKind::delay, .endpoint = 0x01, .amount = 40'000});
    Bytes bytes(4);
    const auto writeInFull = [&](Host& host) {
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_EQ(host.bulk(0x01, bytes), 4);
        return std::chrono::steady_clock::now() - begin >= 40ms;
    };
    {
        Host host(plugged);
        EXPECT_EQ(host.bulk(0x01, bytes, 5), LIBUSB_ERROR_TIMEOUT);
        EXPECT_EQ(host.bulk(0x81, bytes, 100), LIBUSB_ERROR_TIMEOUT);
        EXPECT_LT(device->reads, 20) << "the port asks on and on for what nobody waits for";
        EXPECT_TRUE(writeInFull(host));
        wire->add({.kind = FaultKind::delay, .endpoint = 0x01, .amount = 40'000});
        EXPECT_EQ(host.bulk(0x01, bytes, 5), LIBUSB_ERROR_TIMEOUT);
    }
    plugged.unplug();
    wire->plugIn();
    plugged = plug(wire);
    Host host(plugged);
    EXPECT_TRUE(writeInFull(host));
}

TEST(Attach, AnOpenDoorSeesTheUnplugAndAFreshContextTheReplug)
{
    const auto device = std::make_shared<LoopbackDevice>("A");
    auto plugged = plug(device);
    Host old(plugged);
    const int oldAddress = plugged.address();
    plugged.unplug();
    Bytes bytes(4);
    EXPECT_EQ(old.bulk(0x01, bytes), LIBUSB_ERROR_NO_DEVICE);
    plugged = plug(device); // while the old handle is still open
    EXPECT_NE(plugged.address(), oldAddress);
    Host fresh(plugged);
    EXPECT_TRUE(fresh.claimed);
    EXPECT_EQ(fresh.bulk(0x01, bytes), 4);
    EXPECT_EQ(old.bulk(0x01, bytes), LIBUSB_ERROR_NO_DEVICE);
    // a wake-up still reaches the new port after the old one is gone
    libusb_close(std::exchange(old.handle, nullptr));
    ASSERT_EQ(fresh.bulk(0x81, bytes), 4);
    auto moved = std::async(std::launch::async, [&] { return fresh.bulk(0x81, bytes); });
    device->send(Bytes(4));
    EXPECT_EQ(moved.get(), 4);
}

} // namespace
