#include "usb/LibUSBDevice.h"

#include <cerrno>
#include <chrono>
#include <future>
#include <malloc.h>

#include <gmock/gmock.h>
#include <libusb-1.0/libusb.h>

#include "Interposed.h"
#include "Plugged.h"

namespace {

using namespace usb_tests;
using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::ThrowsMessage;

constexpr int timeoutMs = 2000;

// A thread's result; what hangs fails the test within ctest's own limit.
template <class Function>
auto inThread(Function function)
{
    return std::async(std::launch::async, std::move(function));
}

TEST(LibUSBDevice, WhatFailsWhileOpeningIsSaidAndReleased)
{
    PluggedLoop plugged;
    const auto bus = static_cast<std::uint16_t>(plugged.handle.bus());
    const auto address = static_cast<std::uint16_t>(plugged.address());
    const struct {
        const char* description;
        std::optional<int> init, list;
        emulation::Port::Faults faults;
        std::uint16_t bus, address;
        testing::Matcher<std::string> text;
    } rows[] = {
        {"no context", LIBUSB_ERROR_OTHER, {}, {}, bus, address, "Failed to initialize LibUSB context"},
        {"no list", {}, LIBUSB_ERROR_NO_MEM, {}, bus, address, "No devices"},
        {"no such address", {}, {}, {}, bus, 126, "Device not found"},
        {"numbers are compared whole", {}, {}, {}, bus, static_cast<std::uint16_t>(address + 256), "Device not found"},
        {"gone meanwhile", {}, {}, {.open = ENOENT}, bus, address, "libusb_open returned error -4 opening device"},
        {"interface taken", {}, {}, {.claim = EBUSY}, bus, address, "Error claiming interface"},
        {"no permission: the rule that grants it is named",
         {},
         {},
         {.open = EACCES},
         bus,
         address,
         testing::AllOf(
             testing::StartsWith("libusb_open returned error -3 opening device: "),
             HasSubstr("no permission for the USB device 1209:0001 at bus 250, address " + std::to_string(address)),
             HasSubstr("60-vorna.rules"), HasSubstr("sudo make install-udev"),
             HasSubstr(R"(SUBSYSTEM=="usb", ATTR{idVendor}=="1209", ATTR{idProduct}=="0001")"))},
    };
    for (const auto& row : rows) {
        interposed::initFails = row.init;
        interposed::listFails = row.list;
        plugged.handle.setFaults(row.faults);
        EXPECT_THAT([&] { usb::LibUSBDevice(row.bus, row.address); }, ThrowsMessage<std::runtime_error>(row.text))
            << row.description;
        EXPECT_EQ(interposed::openContexts(), 0) << row.description;
    }
    interposed::initFails.reset();
    interposed::listFails.reset();
    plugged.handle.setFaults({});
    auto first = plugged.open();
    EXPECT_THAT([&] { plugged.open(); }, ThrowsMessage<std::runtime_error>("Error claiming interface"));
    first.reset();
    plugged.handle.setFaults({.kernelDriver = "cdc_acm"}); // gives way
    Bytes bytes(4);
    EXPECT_EQ(plugged.open()->controlRead(memoryRead(0), bytes, timeoutMs), 4);
    EXPECT_EQ(interposed::openContexts(), 0);
}

TEST(LibUSBDevice, TransfersCarryEveryByteBothWays)
{
    const PluggedLoop plugged;
    const auto door = plugged.open();
    for (const std::size_t size : {4097U, 65535U, 65536U, 100'000U}) { // no request can carry them
        Bytes bytes(size);
        EXPECT_EQ(door->controlRead(memoryRead(0), bytes, timeoutMs), LIBUSB_ERROR_INVALID_PARAM) << size;
        EXPECT_EQ(door->controlWrite(memoryWrite(0), bytes, timeoutMs), LIBUSB_ERROR_INVALID_PARAM) << size;
    }
    EXPECT_EQ(plugged.device.lastSetup(), std::nullopt);
    const auto framed = [](Bytes bytes) {
        bytes.insert(bytes.begin(), 0xEE);
        bytes.push_back(0xEE);
        return bytes;
    };
    for (const std::size_t size : {0U, 1U, 8U, 64U, 2048U, 4096U}) {
        const Bytes written = pattern(size);
        auto setup = memoryWrite(0x1234);
        setup.wIndex = 0xABCD;
        setup.wLength = 7; // ignored
        EXPECT_EQ(door->controlWrite(setup, written.begin(), written.end(), timeoutMs), static_cast<int>(size));
        EXPECT_EQ(plugged.device.lastSetup(), (emulation::Setup{0x40, LoopbackDevice::memoryRequest, 0x1234, 0xABCD,
                                                                static_cast<std::uint16_t>(size)}));
        Bytes read(size + 2, 0xEE); // the range lies inside a longer vector
        EXPECT_EQ(door->controlRead(memoryRead(0x1234), read.begin() + 1, read.end() - 1, timeoutMs),
                  static_cast<int>(size));
        EXPECT_EQ(read, framed(written)) << size;
    }
    for (const std::size_t size : {0U, 1U, 512U, 8192U, 16384U, 16385U, 1'000'000U}) {
        const Bytes written = pattern(size, 3);
        ASSERT_EQ(door->bulkWrite(out, written.begin(), written.end(), timeoutMs), static_cast<int>(size));
        Bytes read(size + 2, 0xEE);
        ASSERT_EQ(door->bulkRead(in, read.begin() + 1, read.end() - 1, timeoutMs), static_cast<int>(size));
        EXPECT_TRUE(read == framed(written)) << size;
    }
}

TEST(LibUSBDevice, WhatTheDeviceAnswersIsWhatTheCallReturns)
{
    const PluggedLoop plugged;
    const auto door = plugged.open();
    const struct {
        int answer, result;
    } rows[] = {{-EPIPE, -1}, {-EPROTO, -1}, {-EOVERFLOW, -1}, {0, 0}, {5, 5}, {64, 64}};
    for (const auto& call : allCalls) {
        for (const auto& row : rows) {
            plugged.device.answerNext(call.endpoint, row.answer);
            Bytes bytes(64);
            EXPECT_EQ(call.run(*door, bytes, timeoutMs), row.result) << call.name << ' ' << row.answer;
        }
    }
    // A reader's loop turns as fast as it can on a board that only stalls, for as long as the device is open.
    const auto failMany = [&](int times) {
        for (const auto& call : allCalls) {
            plugged.device.answerNext(call.endpoint, -EPIPE, times);
            Bytes bytes(512);
            for (int i = 0; i < times; ++i)
                ASSERT_EQ(call.run(*door, bytes, timeoutMs), -1) << call.name;
        }
    };
    const auto heapInUse = [] { // 0 under a sanitizer, which looks for leaks itself
        const struct mallinfo2 info = mallinfo2();
        return info.uordblks + info.hblkhd;
    };
    failMany(50);
    const std::size_t before = heapInUse();
    failMany(2000);
    EXPECT_LT(heapInUse(), before + 32 * 1024) << "5 bytes a transfer";
}

TEST(LibUSBDevice, ATimeOutRenewsTheTransferAndStaysUnseen)
{
    for (const auto& call : allCalls) {
        PluggedLoop plugged;
        const auto door = plugged.open();
        plugged.device.mute(call.endpoint);
        Bytes bytes(16);
        auto result = inThread([&] { return call.run(*door, bytes, 10); });
        plugged.submissions.waitFor(call.endpoint, 4); // the first and three renewals
        EXPECT_EQ(result.wait_for(0s), std::future_status::timeout) << call.name;
        plugged.device.send(pattern(16));
        plugged.device.unmute(call.endpoint);
        EXPECT_EQ(result.get(), 16) << call.name;
    }
    const PluggedLoop late;
    late.device.setReadDelay(60ms);
    late.device.send(pattern(32));
    Bytes read(32);
    EXPECT_EQ(late.open()->bulkRead(in, read, 25), 32) << "renewed twice before its answer";
    EXPECT_EQ(read, pattern(32));
}

TEST(LibUSBDevice, ASubmissionThatFailsReturnsItsCodeAndARenewalThatFailsMinusOne)
{
    const struct {
        int error, code, controlCode; // libusb reports lack of memory for bulk transfers only
    } rows[] = {{ENOMEM, LIBUSB_ERROR_NO_MEM, LIBUSB_ERROR_IO},
                {ENODEV, LIBUSB_ERROR_NO_DEVICE, LIBUSB_ERROR_NO_DEVICE},
                {EIO, LIBUSB_ERROR_IO, LIBUSB_ERROR_IO}};
    for (const auto& call : allCalls) {
        PluggedLoop plugged;
        const auto door = plugged.open();
        Bytes bytes(16);
        for (const auto& row : rows) {
            plugged.handle.setFaults({.submit = [&](std::uint8_t) { return row.error; }});
            EXPECT_EQ(call.run(*door, bytes, timeoutMs), call.endpoint == control ? row.controlCode : row.code)
                << call.name;
        }
        plugged.handle.setFaults(
            {.submit = plugged.submissions.asFault([](int before) { return before == 2 ? ENOMEM : 0; })});
        plugged.device.mute(call.endpoint);
        EXPECT_EQ(call.run(*door, bytes, 10), -1) << call.name;
        EXPECT_EQ(plugged.submissions.count(call.endpoint), 3) << call.name;
        plugged.device.unmute(call.endpoint);
        plugged.device.send(pattern(16));
        EXPECT_EQ(call.run(*door, bytes, timeoutMs), 16) << call.name << ", and goes on working";
    }
}

TEST(LibUSBDevice, AnUnplugEndsTheWait)
{
    for (const auto& call : allCalls) {
        PluggedLoop plugged;
        auto door = plugged.open();
        plugged.device.mute(call.endpoint);
        Bytes bytes(16, 0xEE);
        auto result = inThread([&] { return call.run(*door, bytes, timeoutMs); });
        plugged.submissions.waitFor(call.endpoint, 1);
        plugged.handle.unplug();
        EXPECT_EQ(result.get(), -1) << call.name;

        // the range is its owner's again, and later calls fail at once
        plugged.device.send(pattern(16));
        plugged.device.unmute(call.endpoint);
        EXPECT_EQ(bytes, Bytes(16, 0xEE)) << call.name;
        EXPECT_EQ(call.run(*door, bytes, timeoutMs), LIBUSB_ERROR_NO_DEVICE) << call.name;
        door.reset();
        EXPECT_EQ(interposed::openContexts(), 0);
    }
}

TEST(LibUSBDevice, ClosingEndsTheWaitsOfOtherThreads)
{
    interposed::freeingIsSlow = true;
    for (int round = 0; round < 50; ++round) {
        const bool renewing = round % 2 == 1; // else the transfers lie still
        PluggedLoop plugged;
        auto door = plugged.open();
        usb::LibUSBDevice* const shared = door.get();
        std::vector<Bytes> bytes(std::size(allCalls), Bytes(16));
        std::vector<std::future<int>> results;
        for (std::size_t i = 0; i < std::size(allCalls); ++i) {
            const Call& call = allCalls[i];
            const int before = plugged.submissions.count(call.endpoint);
            if (renewing && before > 0)
                continue; // its submission would look like a renewal of the other control transfer
            plugged.device.mute(call.endpoint);
            results.push_back(inThread([&, i] { return call.run(*shared, bytes[i], renewing ? 1 : 0); }));
            plugged.submissions.waitFor(call.endpoint, before + 1);
        }
        door.reset();
        for (auto& result : results)
            EXPECT_EQ(result.get(), -1);
    }
    interposed::freeingIsSlow = false;
    EXPECT_EQ(interposed::lateFrees(), 0);
}

TEST(LibUSBDevice, ATransferThatTimesOutWhileTheDoorClosesIsNotRenewed)
{
    for (const auto& call : allCalls) {
        PluggedLoop plugged;
        auto door = plugged.open();
        usb::LibUSBDevice* const shared = door.get();
        plugged.device.mute(call.endpoint);
        Bytes bytes(16);
        auto result = inThread([&] { return call.run(*shared, bytes, 10); });
        plugged.submissions.waitFor(call.endpoint, 1);
        interposed::cancelComesTooLate = true;
        door.reset();
        interposed::cancelComesTooLate = false;
        EXPECT_EQ(result.get(), -1) << call.name;
    }
}

// The event thread has read the flag but isn't in libusb yet when the device is closed. libusb's close then uses up its
// own wake-up, and without another one the thread would sleep for 60 seconds.
TEST(LibUSBDevice, ClosingWakesAnEventThreadThatIsNotInLibusbYet)
{
    const PluggedLoop plugged;
    interposed::holdEventThread();
    auto door = plugged.open();
    interposed::waitForHeldThread();
    const auto begin = std::chrono::steady_clock::now();
    door.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 20s);
}

TEST(LibUSBDevice, DoorsOpenAndCloseWhetherOrNotTheDeviceVanishes)
{
    const PluggedLoop stays;
    for (int i = 0; i < 300; ++i)
        stays.open();
    for (int i = 0; i < 50; ++i) {
        PluggedLoop plugged;
        const auto door = plugged.open();
        auto unplugging = inThread([&] { plugged.handle.unplug(); }); // at any moment of the traffic and the close
        Bytes bytes(8);
        while (i % 2 == 0 && door->controlRead(memoryRead(0), bytes, timeoutMs) >= 0) {
        }
    }
    EXPECT_EQ(interposed::openContexts(), 0);
}

} // namespace
