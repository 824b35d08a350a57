#include "usb/LibUSBDevice.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <future>
#include <thread>

#include <gmock/gmock.h>
#include <libusb-1.0/libusb.h>

#include "Interposed.h"
#include "Plugged.h"
#include "Process.h"

namespace {

using namespace usb_tests;
using namespace std::chrono_literals;
using testing::HasSubstr;

constexpr int timeoutMs = 2000;

// A thread's result; what hangs fails the test within ctest's own limit.
template <class Function>
auto inThread(Function function)
{
    return std::async(std::launch::async, std::move(function));
}

TEST(LibUSBDevice, WhatFailsWhileOpeningIsSaidAndReleased)
{
    Plugged plugged;
    const auto bus = static_cast<std::uint16_t>(plugged.handle.bus());
    const auto address = static_cast<std::uint16_t>(plugged.handle.address());
    const struct {
        const char* description;
        std::optional<int> init, list;
        emulation::Port::Faults faults;
        std::uint16_t bus, address;
        const char* text;
    } rows[] = {
        {"no context", LIBUSB_ERROR_OTHER, {}, {}, bus, address, "Failed to initialize LibUSB context"},
        {"no list", {}, LIBUSB_ERROR_NO_MEM, {}, bus, address, "No devices"},
        {"no such address", {}, {}, {}, bus, 126, "Device not found"},
        {"numbers are compared whole", {}, {}, {}, bus, static_cast<std::uint16_t>(address + 256), "Device not found"},
        {"gone meanwhile", {}, {}, {.open = ENOENT}, bus, address, "libusb_open returned error -4 opening device"},
        {"interface taken", {}, {}, {.claim = EBUSY}, bus, address, "Error claiming interface"},
    };
    for (const auto& row : rows) {
        interposed::initFails = row.init;
        interposed::listFails = row.list;
        plugged.handle.setFaults(row.faults);
        EXPECT_THAT([&] { usb::LibUSBDevice(row.bus, row.address); },
                    testing::ThrowsMessage<std::runtime_error>(row.text))
            << row.description;
        EXPECT_EQ(interposed::openContexts(), 0) << row.description;
    }
    interposed::initFails.reset();
    interposed::listFails.reset();
    plugged.handle.setFaults({});
    EXPECT_NO_THROW(plugged.open());
    EXPECT_EQ(interposed::openContexts(), 0);
}

TEST(LibUSBDevice, RefusedPermissionNamesTheDeviceAndTheRuleThatGrantsIt)
{
    Plugged plugged;
    plugged.handle.setFaults({.open = EACCES});
    EXPECT_THAT([&] { plugged.open(); },
                testing::ThrowsMessage<std::runtime_error>(
                    testing::AllOf(testing::StartsWith("libusb_open returned error -3 opening device: "),
                                   HasSubstr("no permission for the USB device 1209:0001 at bus 250, address " +
                                             std::to_string(plugged.handle.address())),
                                   HasSubstr("60-vorna.rules"), HasSubstr("sudo make install-udev"),
                                   HasSubstr(R"(SUBSYSTEM=="usb", ATTR{idVendor}=="1209", ATTR{idProduct}=="0001")"))));
    EXPECT_EQ(interposed::openContexts(), 0);
}

TEST(LibUSBDevice, TheSecondDoorToADeviceIsRefusedUntilTheFirstIsClosed)
{
    const Plugged plugged;
    auto first = plugged.open();
    EXPECT_THAT([&] { plugged.open(); }, testing::ThrowsMessage<std::runtime_error>("Error claiming interface"));
    first.reset();
    EXPECT_NO_THROW(plugged.open());
}

TEST(LibUSBDevice, AKernelDriverGivesWay)
{
    Plugged plugged;
    plugged.handle.setFaults({.kernelDriver = "cdc_acm"});
    const auto door = plugged.open();
    Bytes bytes(4);
    EXPECT_EQ(door->controlRead(memoryRead(0), bytes, timeoutMs), 4);
}

TEST(LibUSBDevice, ControlTransfersCarryTheirSetupAndData)
{
    const Plugged plugged;
    const auto door = plugged.open();
    for (const std::size_t size : {0U, 1U, 8U, 64U, 2048U, 4096U}) {
        const Bytes written = pattern(size);
        auto setup = memoryWrite(0x1234);
        setup.wIndex = 0xABCD;
        setup.wLength = 7; // not looked at
        EXPECT_EQ(door->controlWrite(setup, written.begin(), written.end(), timeoutMs), static_cast<int>(size));
        const auto seen = plugged.device->lastSetup().value();
        EXPECT_EQ(seen.bmRequestType, 0x40);
        EXPECT_EQ(seen.bRequest, LoopbackDevice::memoryRequest);
        EXPECT_EQ(seen.wValue, 0x1234);
        EXPECT_EQ(seen.wIndex, 0xABCD);
        EXPECT_EQ(seen.wLength, size);

        Bytes read(size + 2, 0xEE); // the range lies inside a longer vector
        EXPECT_EQ(door->controlRead(memoryRead(0x1234), read.begin() + 1, read.end() - 1, timeoutMs),
                  static_cast<int>(size));
        Bytes expected = written;
        expected.insert(expected.begin(), 0xEE);
        expected.push_back(0xEE);
        EXPECT_EQ(read, expected) << size;
    }
}

TEST(LibUSBDevice, ARangeThatNoRequestCanCarryIsRefused)
{
    const Plugged plugged;
    const auto door = plugged.open();
    for (const std::size_t size : {4097U, 65535U, 65536U, 100'000U}) {
        Bytes bytes(size);
        EXPECT_EQ(door->controlRead(memoryRead(0), bytes, timeoutMs), LIBUSB_ERROR_INVALID_PARAM) << size;
        EXPECT_EQ(door->controlWrite(memoryWrite(0), bytes, timeoutMs), LIBUSB_ERROR_INVALID_PARAM) << size;
    }
    EXPECT_EQ(plugged.device->lastSetup(), std::nullopt);
}

TEST(LibUSBDevice, BulkTransfersCarryEveryByteBothWays)
{
    const Plugged plugged;
    const auto door = plugged.open();
    for (const std::size_t size : {0U, 1U, 512U, 8192U, 16384U, 16385U, 1'000'000U}) {
        const Bytes written = pattern(size, 3);
        ASSERT_EQ(door->bulkWrite(out, written.begin(), written.end(), timeoutMs), static_cast<int>(size));
        Bytes read(size + 2, 0xEE);
        ASSERT_EQ(door->bulkRead(in, read.begin() + 1, read.end() - 1, timeoutMs), static_cast<int>(size));
        EXPECT_TRUE(std::equal(written.begin(), written.end(), read.begin() + 1)) << size;
        EXPECT_EQ(read.front(), 0xEE);
        EXPECT_EQ(read.back(), 0xEE);
    }
}

TEST(LibUSBDevice, WhatTheDeviceAnswersIsWhatTheCallReturns)
{
    const Plugged plugged;
    const auto door = plugged.open();
    const struct {
        int answer, result;
    } rows[] = {
        {-EPIPE, -1}, {-EPROTO, -1}, {-EOVERFLOW, -1}, {0, 0}, {5, 5}, {64, 64},
    };
    for (const auto& call : allCalls()) {
        for (const auto& row : rows) {
            plugged.device->answerNext(call.endpoint, row.answer);
            Bytes bytes(64);
            EXPECT_EQ(call.run(*door, bytes, timeoutMs), row.result) << call.name << ' ' << row.answer;
        }
        // and the door is as good as before
        plugged.device->answerNext(call.endpoint, 64);
        Bytes bytes(64);
        EXPECT_EQ(call.run(*door, bytes, timeoutMs), 64) << call.name;
    }
}

// A reader's loop turns as fast as it can on a board that only stalls, for as long as the door is open.
TEST(LibUSBDevice, FailedTransfersLeaveNothingBehind)
{
    const Plugged plugged;
    const auto door = plugged.open();
    const auto failMany = [&](int times) {
        for (const auto& call : allCalls()) {
            plugged.device->answerNext(call.endpoint, -EPIPE, times);
            Bytes bytes(512);
            for (int i = 0; i < times; ++i)
                ASSERT_EQ(call.run(*door, bytes, timeoutMs), -1) << call.name;
        }
    };
    failMany(50);
    const std::size_t before = heapInUse();
    failMany(2000);
    EXPECT_LT(heapInUse(), before + 32 * 1024); // less than 5 bytes a transfer
}

TEST(LibUSBDevice, ATimeOutRenewsTheTransferAndStaysUnseen)
{
    for (const auto& call : allCalls()) {
        Plugged plugged;
        const auto door = plugged.open();
        plugged.device->mute(call.endpoint);
        Bytes bytes(16);
        auto result = inThread([&] { return call.run(*door, bytes, 10); });
        plugged.submissions.waitFor(call.endpoint, 4); // the first and three renewals
        EXPECT_EQ(result.wait_for(0s), std::future_status::timeout) << call.name;
        plugged.device->send(pattern(16));
        plugged.device->unmute(call.endpoint);
        EXPECT_EQ(result.get(), 16) << call.name;
    }
}

TEST(LibUSBDevice, ALateAnswerEndsARenewedRead)
{
    const Plugged plugged;
    const auto door = plugged.open();
    plugged.device->setReadDelay(60ms);
    const Bytes written = pattern(32);
    ASSERT_EQ(door->bulkWrite(out, written, timeoutMs), 32);
    Bytes read(32);
    EXPECT_EQ(door->bulkRead(in, read, 25), 32);
    EXPECT_EQ(read, written);
}

TEST(LibUSBDevice, ARenewalThatFailsEndsTheCall)
{
    for (const auto& call : allCalls()) {
        Plugged plugged;
        const auto door = plugged.open();
        plugged.device->mute(call.endpoint);
        plugged.handle.setFaults(
            {.submit = plugged.submissions.asFault([](int before) { return before < 2 ? 0 : ENOMEM; })});
        Bytes bytes(16);
        EXPECT_EQ(call.run(*door, bytes, 10), -1) << call.name;
        EXPECT_EQ(plugged.submissions.count(call.endpoint), 3) << call.name;
    }
}

TEST(LibUSBDevice, ASubmissionThatFailsReturnsItsCode)
{
    const struct {
        int error, code, controlCode; // libusb tells lack of memory for bulk transfers only
    } rows[] = {{ENOMEM, LIBUSB_ERROR_NO_MEM, LIBUSB_ERROR_IO},
                {ENODEV, LIBUSB_ERROR_NO_DEVICE, LIBUSB_ERROR_NO_DEVICE},
                {EIO, LIBUSB_ERROR_IO, LIBUSB_ERROR_IO}};
    for (const auto& call : allCalls()) {
        Plugged plugged;
        const auto door = plugged.open();
        for (const auto& row : rows) {
            plugged.handle.setFaults({.submit = [&](std::uint8_t) { return row.error; }});
            Bytes bytes(16);
            EXPECT_EQ(call.run(*door, bytes, timeoutMs), call.endpoint == control ? row.controlCode : row.code)
                << call.name;
        }
        plugged.handle.setFaults({});
        plugged.device->send(pattern(16));
        Bytes bytes(16);
        EXPECT_EQ(call.run(*door, bytes, timeoutMs), 16) << call.name;
    }
}

TEST(LibUSBDevice, AnUnplugEndsTheWait)
{
    for (const auto& call : allCalls()) {
        Plugged plugged;
        auto door = plugged.open();
        plugged.device->mute(call.endpoint);
        Bytes bytes(16, 0xEE);
        auto result = inThread([&] { return call.run(*door, bytes, timeoutMs); });
        plugged.submissions.waitFor(call.endpoint, 1);
        plugged.handle.unplug();
        EXPECT_EQ(result.get(), -1) << call.name;

        // the range is its owner's again, and later calls fail at once
        plugged.device->send(pattern(16));
        plugged.device->unmute(call.endpoint);
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
        Plugged plugged;
        auto door = plugged.open();
        usb::LibUSBDevice* const shared = door.get();
        std::vector<Bytes> bytes(allCalls().size(), Bytes(16));
        std::vector<std::future<int>> results;
        for (std::size_t i = 0; i < allCalls().size(); ++i) {
            const Call& call = allCalls()[i];
            const int before = plugged.submissions.count(call.endpoint);
            if (renewing && before > 0)
                continue; // its submission couldn't be told from a renewal of the other control transfer
            plugged.device->mute(call.endpoint);
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
    for (const auto& call : allCalls()) {
        Plugged plugged;
        auto door = plugged.open();
        usb::LibUSBDevice* const shared = door.get();
        plugged.device->mute(call.endpoint);
        Bytes bytes(16);
        auto result = inThread([&] { return call.run(*shared, bytes, 10); });
        plugged.submissions.waitFor(call.endpoint, 1);
        interposed::cancelComesTooLate = true;
        door.reset();
        interposed::cancelComesTooLate = false;
        EXPECT_EQ(result.get(), -1) << call.name;
    }
}

// The event thread stands between its look at the flag and libusb while the device is closed. libusb's close then uses
// up its own wake-up, and without another one the thread would sleep for 60 seconds.
TEST(LibUSBDevice, ClosingWakesAnEventThreadThatIsNotInLibusbYet)
{
    const Plugged plugged;
    interposed::EventThreadGate gate;
    auto door = plugged.open();
    gate.waitUntilReached();
    const auto begin = std::chrono::steady_clock::now();
    door.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 20s);
}

TEST(LibUSBDevice, AThousandDoorsOpenAndClose)
{
    const Plugged plugged;
    for (int i = 0; i < 1000; ++i) {
        const auto door = plugged.open();
        if (i % 10 == 0) {
            Bytes bytes(8);
            ASSERT_EQ(door->controlRead(memoryRead(0), bytes, timeoutMs), 8) << i;
        }
    }
    EXPECT_EQ(interposed::openContexts(), 0);
}

TEST(LibUSBDevice, AVanishedDeviceClosesEveryTime)
{
    for (int i = 0; i < 50; ++i) {
        Plugged plugged;
        const auto door = plugged.open();
        auto unplugging = inThread([&] { plugged.handle.unplug(); }); // at any moment of the traffic and the close
        Bytes bytes(8);
        while (i % 2 == 0 && door->controlRead(memoryRead(0), bytes, timeoutMs) >= 0) {
        }
    }
    EXPECT_EQ(interposed::openContexts(), 0);
}

TEST(LibUSBDevice, TwoDevicesCarryTrafficBothWaysAtOnce)
{
    constexpr int blocks = 200;
    constexpr std::size_t blockSize = 1024;
    const Plugged one("one"), two("two");
    std::vector<std::thread> threads;
    std::atomic<int> faults = 0;
    std::vector<std::unique_ptr<usb::LibUSBDevice>> doors;
    for (const Plugged* plugged : {&one, &two})
        doors.push_back(plugged->open());
    for (std::size_t k = 0; k < doors.size(); ++k) {
        usb::LibUSBDevice& door = *doors[k];
        const int seed = static_cast<int>(k) * 100;
        threads.emplace_back([&, seed] {
            for (int i = 0; i < blocks; ++i)
                faults += door.bulkWrite(out, pattern(blockSize, seed + i), 5) != static_cast<int>(blockSize);
        });
        threads.emplace_back([&, seed] {
            Bytes all(blocks * blockSize);
            for (std::size_t at = 0; at < all.size();) {
                const int moved = door.bulkRead(in, all.begin() + static_cast<std::ptrdiff_t>(at), all.end(), 5);
                if (moved < 0) {
                    ++faults;
                    return;
                }
                at += static_cast<std::size_t>(moved);
            }
            Bytes expected;
            for (int i = 0; i < blocks; ++i) {
                const Bytes block = pattern(blockSize, seed + i);
                expected.insert(expected.end(), block.begin(), block.end());
            }
            faults += all != expected;
        });
        threads.emplace_back([&, seed] {
            for (int i = 0; i < blocks; ++i) {
                const Bytes written = pattern(64, seed + i);
                Bytes read(64);
                faults += door.controlWrite(memoryWrite(0), written, 5) != 64;
                faults += door.controlRead(memoryRead(0), read, 5) != 64 || read != written;
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(faults, 0);
}

} // namespace
