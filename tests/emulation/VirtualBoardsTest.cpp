// Boards as a host meets them: found by libusb, driven by the drivers, loops and modules that real boards are driven
// by.

#include "emulation/boards/VirtualBoards.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>

#include "fxtree/Fx3Boot.h"
#include "fxtree/FxTreeDevice.h"
#include "keplin/Keplin.h"
#include "keplin/io/KeplinReaderWriter.h"
#include "keplin/io/OkReaderWriter.h"
#include "keplin/modules/Adc.h"
#include "keplin/modules/Dac.h"
#include "opalkelly/OpalKellyDevice.h"
#include "usb/DeviceList.h"
#include "usb/LibUSBDevice.h"

namespace {

using namespace emulation;
using namespace std::chrono_literals;
using Bytes = std::vector<std::uint8_t>;
using ::testing::IsEmpty;

std::unique_ptr<usb::LibUSBDevice> open(const VirtualBoard& board)
{
    return std::make_unique<usb::LibUSBDevice>(static_cast<std::uint16_t>(board.busNumber()),
                                               static_cast<std::uint16_t>(board.deviceAddress()));
}

std::vector<int> addressesOf(usb::VendorId vendor, usb::ProductId product)
{
    std::vector<int> addresses;
    for (const auto& info : usb::getDevicesWithVidPid(vendor, product))
        addresses.push_back(info.usb_device_address);
    return addresses;
}

Bytes pattern(std::size_t size, int seed = 1)
{
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<std::uint8_t>(i * 7 + i / 251 + static_cast<std::size_t>(seed));
    return bytes;
}

class Endpoint final : public keplin::KeplinEndpoint {
public:
    explicit Endpoint(std::unique_ptr<usb::LibUSBDevice> door) : device(std::move(door)) {}
    Bytes readKeplinEndpoint(int blocks) override { return device.readGpif(blocks << 10); }
    bool writeKeplinEndpoint(const Bytes& data) override { return device.writeGpif(data); }

private:
    fxtree::FxTreeDevice device;
};

// What a packet is, apart from its buffer: header word and payload.
struct Content {
    std::uint32_t header;
    Bytes payload;
    friend bool operator==(const Content&, const Content&) = default;
};

// Collects what comes, and lets a test wait for so many.
class Inbox {
public:
    keplin::pktfunc taker()
    {
        return [this](keplin::PacketPtr packet) {
            const std::lock_guard lock(mutex);
            contents.push_back({packet->header, Bytes(packet->data.begin(), packet->data.begin() + packet->size)});
            keplin::Keplin::putPacketBuffer(std::move(packet));
            changed.notify_all();
        };
    }
    bool waitFor(std::size_t count)
    {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, 50s, [&] { return contents.size() >= count; });
    }
    std::vector<Content> taken()
    {
        const std::lock_guard lock(mutex);
        return std::move(contents);
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<Content> contents;
};

// A host's loop on a dev kit.
struct Loop {
    keplin::Keplin core;
    Endpoint endpoint;
    keplin::KeplinReaderWriter readerWriter{endpoint, core.transmitQueue(), core.receiveQueue()};
    Inbox inbox;

    explicit Loop(const VirtualBoard& board) : endpoint(open(board))
    {
        for (std::uint8_t id = 0; id < keplin::MaxModules; ++id) {
            readerWriter.getPacketDispatcher()->setDispatchEntryEv32(id, inbox.taker());
            readerWriter.getPacketDispatcher()->setDispatchEntryRaw(id, inbox.taker());
        }
    }
    ~Loop() { readerWriter.stop(); }

    Content send(std::uint8_t module, bool raw, std::uint8_t extension, const Bytes& payload)
    {
        auto packet = keplin::Keplin::getRawPacketBuffer(module, static_cast<keplin::HdrExtFmt>(extension),
                                                         raw ? keplin::PktFmt::Raw : keplin::PktFmt::Ev32);
        for (const std::uint8_t byte : payload)
            packet->push_back(byte, 1);
        packet->prepToSend();
        Content content{packet->header, payload};
        core.transmitQueue().enqueue(std::move(packet));
        return content;
    }
};

TEST(VirtualBoards, AreFoundUntilTheyAreUnplugged)
{
    const auto kit = plugVirtualDevKit({.serialNumber = "K1"});
    const auto board = plugVirtualOpalKelly({.serialNumber = "O1"});
    const auto kits = usb::getDevicesWithVidPid(usb::VendorId::Cypress, usb::ProductId::DevKit);
    ASSERT_EQ(kits.size(), 1U);
    EXPECT_EQ(kits[0].serial_number, "K1");
    EXPECT_EQ(kits[0].usb_bus_number, kit->busNumber());
    EXPECT_EQ(kits[0].usb_device_address, kit->deviceAddress());
    EXPECT_THAT(addressesOf(usb::VendorId::OpalKelly, usb::ProductId::OpalKellyFpga),
                ::testing::ElementsAre(board->deviceAddress()));
    EXPECT_EQ(virtualBoards(), (std::vector<std::shared_ptr<VirtualBoard>>{kit, board}));

    const int before = kit->deviceAddress();
    kit->replug();
    EXPECT_NE(kit->deviceAddress(), before);
    EXPECT_THAT(addressesOf(usb::VendorId::Cypress, usb::ProductId::DevKit),
                ::testing::ElementsAre(kit->deviceAddress()));
    unplugAllVirtualBoards();
    EXPECT_THAT(virtualBoards(), IsEmpty());
    EXPECT_THAT(addressesOf(usb::VendorId::Cypress, usb::ProductId::DevKit), IsEmpty());
    EXPECT_FALSE(board->isPlugged());
}

TEST(VirtualBoards, StayPluggedInThoughNobodyKeepsThem)
{
    const int address = plugVirtualDevKit()->deviceAddress();
    EXPECT_THAT(addressesOf(usb::VendorId::Cypress, usb::ProductId::DevKit), ::testing::ElementsAre(address));
    unplugAllVirtualBoards();
    EXPECT_THAT(addressesOf(usb::VendorId::Cypress, usb::ProductId::DevKit), IsEmpty());
    EXPECT_THROW(plugVirtualDevKit({.serialNumber = std::string(127, 'x')}), std::invalid_argument);
    EXPECT_THAT(virtualBoards(), IsEmpty());
}

// An image with one record at the system RAM's beginning.
std::string writeImage(const std::string& name, std::uint32_t entry)
{
    const std::string path = ::testing::TempDir() + std::to_string(getpid()) + name;
    std::ofstream file(path, std::ios::binary);
    const auto word = [&](std::uint32_t value) {
        for (int shift = 0; shift < 32; shift += 8)
            file.put(static_cast<char>(value >> shift));
    };
    file << "CY" << '\0' << static_cast<char>(0xB0);
    std::uint32_t sum = 0;
    word(1000);
    word(0x40003000);
    for (std::uint32_t i = 0; i < 1000; ++i) {
        word(i % 256 * 0x01010101);
        sum += i % 256 * 0x01010101;
    }
    word(0);
    word(entry);
    word(sum);
    return path;
}

TEST(VirtualBoards, AnFx3WithoutFirmwareComesBackAsADevKit)
{
    const std::string image = writeImage("good.img", 0x40003010);
    const auto kit = plugVirtualDevKit({.firmware = false});
    EXPECT_FALSE(kit->isRunning());
    EXPECT_THAT(addressesOf(usb::VendorId::Cypress, usb::ProductId::Fx3Boot),
                ::testing::ElementsAre(kit->deviceAddress()));
    for (int round = 0; round < 20; ++round) {
        EXPECT_EQ(fxtree::Fx3Boot(open(*kit)).configure(image), 0);
        ASSERT_TRUE(kit->waitUntilRunning(30'000));
        EXPECT_EQ(kit->ramBytes(0x40003000 + 4 * 999, 4), Bytes(4, 999 % 256));
        EXPECT_THAT(addressesOf(usb::VendorId::Cypress, usb::ProductId::Fx3Boot), IsEmpty());
        EXPECT_THAT(addressesOf(usb::VendorId::Cypress, usb::ProductId::DevKit),
                    ::testing::ElementsAre(kit->deviceAddress()));
        fxtree::FxTreeDevice device(open(*kit));
        device.eraseSpiFlash(3);
        device.writeSpiFlash(pattern(5000, round), 0x30000);
        EXPECT_EQ(device.readSpiFlash(5000, 0x30000), pattern(5000, round));
        device.programFpgaPc(pattern(10'000, round));
        EXPECT_EQ(kit->bitstream(), pattern(10'000, round));
        EXPECT_THAT(kit->problems(), IsEmpty());
        kit->replug(); // power goes: the firmware was in RAM
        EXPECT_FALSE(kit->isRunning());
    }
    kit->unplug();
}

TEST(VirtualBoards, AnFx3StaysInItsBootStateAfterAJumpIntoNothing)
{
    const auto kit = plugVirtualDevKit({.firmware = false});
    EXPECT_EQ(fxtree::Fx3Boot(open(*kit)).configure(writeImage("bad.img", 0x40000000)), 0) << "a jump's end isn't told";
    EXPECT_FALSE(kit->waitUntilRunning(0));
    EXPECT_THAT(kit->problems(), ::testing::ElementsAre("a jump to 0x40000000, where nothing was written"));
    kit->unplug();
}

TEST(VirtualBoards, AKitKeepsWhatItCountedInItsBootState)
{
    const auto kit = plugVirtualDevKit({.firmware = false});
    EXPECT_EQ(fxtree::Fx3Boot(open(*kit)).configure(writeImage("bad.img", 0x40000000)), 0);
    const BoardCounters before = kit->counters();
    EXPECT_EQ(before.problems, 1U);
    kit->injectFault({.kind = FaultKind::stall, .endpoint = 0});
    kit->replug();
    EXPECT_EQ(kit->counters(), before);
    EXPECT_EQ(kit->ramBytes(0x40003000 + 4, 4), Bytes(4)) << "power was gone";

    const std::string image = writeImage("good.img", 0x40003000);
    EXPECT_EQ(fxtree::Fx3Boot(open(*kit)).configure(image), -3) << "the fault stayed";
    EXPECT_EQ(fxtree::Fx3Boot(open(*kit)).configure(image), 0);
    ASSERT_TRUE(kit->waitUntilRunning(30'000));
    EXPECT_THAT(kit->problems(), ::testing::ElementsAre("a jump to 0x40000000, where nothing was written"));
    const BoardCounters booted = kit->counters();
    EXPECT_GT(booted.controlTransfers, before.controlTransfers);
    fxtree::FxTreeDevice(open(*kit)).resetFpgaFromPc();
    EXPECT_EQ(kit->counters().controlTransfers, booted.controlTransfers + 1);
    kit->unplug();
}

TEST(VirtualBoards, ALoopGetsBackAllThatItSendsInOrder)
{
    const auto kit = plugVirtualDevKit({.chip = ChipKind::loopback});
    {
        Loop loop(*kit);
        loop.readerWriter.start();
        std::mt19937 random(7);
        const auto number = [&](int low, int high) { return std::uniform_int_distribution(low, high)(random); };
        std::vector<Content> sent;
        for (int i = 0; i < 20'000; ++i)
            sent.push_back(loop.send(static_cast<std::uint8_t>(number(1, 48)), number(0, 1) == 1,
                                     static_cast<std::uint8_t>(number(0, 255)),
                                     pattern(static_cast<std::size_t>(number(1, i % 10 == 0 ? 256 : 16)), i)));
        ASSERT_TRUE(loop.inbox.waitFor(sent.size()));
        loop.readerWriter.stop();
        EXPECT_TRUE(loop.inbox.taken() == sent);
    }
    EXPECT_THAT(kit->problems(), IsEmpty());
    EXPECT_EQ(kit->counters().packetsFromHost, 20'000U);
    EXPECT_EQ(kit->counters().wordsBeyondCredit, 0U);
    kit->unplug();
}

TEST(VirtualBoards, AStarvedLoopSendsNothingUntilThereIsCredit)
{
    const auto kit = plugVirtualDevKit({.chip = ChipKind::loopback});
    kit->setCreditLimit(0);
    Loop loop(*kit);
    const auto sent = loop.send(2, true, 1, {1, 2, 3});
    for (int turn = 0; turn < 20; ++turn)
        loop.readerWriter.singleShotReadWrite();
    EXPECT_EQ(kit->counters().packetsFromHost, 0U);
    EXPECT_NE(loop.core.transmitQueue().peekUnsafe(), nullptr);
    kit->setCreditLimit(-1);
    loop.readerWriter.singleShotReadWrite(); // reads the credit, then writes
    loop.readerWriter.singleShotReadWrite();
    EXPECT_EQ(loop.inbox.taken(), std::vector{sent});
    EXPECT_THROW(kit->setCreditLimit(-2), std::invalid_argument);
    kit->unplug();
}

TEST(VirtualBoards, ALoopOutlivesAnUnplugAndGoesOnWithTheBoardThatComesBack)
{
    const auto kit = plugVirtualDevKit({.chip = ChipKind::loopback});
    for (int round = 0; round < 10; ++round) {
        {
            Loop loop(*kit);
            loop.readerWriter.start();
            for (int i = 0; i < 200; ++i)
                loop.send(2, true, 1, pattern(64, i));
            ASSERT_TRUE(loop.inbox.waitFor(static_cast<std::size_t>(round * 20)));
            if (round % 2 == 0)
                kit->unplug();
            else
                kit->injectFault({.kind = FaultKind::unplug, .endpoint = 0x81});
            while (kit->isPlugged())
                std::this_thread::yield();
            loop.readerWriter.stop();
        }
        kit->replug();
        Loop loop(*kit);
        const auto sent = loop.send(3, false, 0, {1});
        loop.readerWriter.start();
        ASSERT_TRUE(loop.inbox.waitFor(1));
        EXPECT_EQ(loop.inbox.taken(), std::vector{sent});
    }
    kit->unplug();
}

// The thread that pulls a board out may come to it only when a quick host has put the cable in again.
TEST(VirtualBoards, AReplugIsNotUndoneByTheUnplugBeforeIt)
{
    const auto kit = plugVirtualDevKit();
    for (int round = 0; round < 300; ++round) {
        ASSERT_TRUE(kit->isPlugged()) << round;
        const auto door = open(*kit);
        kit->injectFault({.kind = FaultKind::unplug, .endpoint = 0});
        ASSERT_LT(door->controlWrite(fxtree::resetFpga.setup(), Bytes(), 2000), 0);
        kit->replug();
    }
    EXPECT_EQ(kit->fpgaResets(), 0U);
    kit->unplug();
}

TEST(VirtualBoards, FaultsReachTheHost)
{
    const auto kit = plugVirtualDevKit();
    {
        const auto door = open(*kit);
        Bytes blocks(1024);
        const auto bulkRead = [&] { return door->bulkRead(0x81, blocks.begin(), blocks.end(), 2000); };
        EXPECT_EQ(bulkRead(), 1024);
        kit->injectFault({.kind = FaultKind::stall, .endpoint = 0x81});
        EXPECT_EQ(bulkRead(), -1);
        kit->injectFault({.kind = FaultKind::shortTransfer, .endpoint = 0x81, .amount = 100});
        EXPECT_EQ(bulkRead(), 100);
        kit->injectFault({.kind = FaultKind::drop, .endpoint = 0x81, .times = 3});
        EXPECT_EQ(bulkRead(), 1024) << "the fourth answer";
        kit->injectFault({.kind = FaultKind::delay, .endpoint = 0x81, .amount = 20'000});
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_EQ(bulkRead(), 1024);
        EXPECT_GE(std::chrono::steady_clock::now() - begin, 20ms);
        kit->injectFault({.kind = FaultKind::corrupt, .endpoint = 0x81, .amount = 3});
        EXPECT_EQ(bulkRead(), 1024);
        EXPECT_EQ(blocks[3], 0xFF) << "the credit's highest byte";
        EXPECT_EQ(kit->faultCount(), 7U);
        EXPECT_THROW(kit->injectFault({.endpoint = 0x82}), std::invalid_argument);
    }
    kit->setKernelFaults(EACCES, 0, 0, "");
    EXPECT_THROW(open(*kit), std::runtime_error);
    kit->setKernelFaults(0, EBUSY, 0, "");
    EXPECT_THROW(open(*kit), std::runtime_error);
    kit->setKernelFaults(0, 0, 0, "somedriver");
    EXPECT_NO_THROW(open(*kit)) << "the driver is detached";
    {
        const auto door = open(*kit);
        kit->setKernelFaults(0, 0, ENOMEM, "");
        Bytes blocks(1024);
        EXPECT_LT(door->bulkRead(0x81, blocks.begin(), blocks.end(), 2000), 0);
    }
    kit->unplug();
}

// ---- Opal Kelly board

struct OkHost {
    opalkelly::OpalKellyDevice device;
    keplin::Keplin core;
    keplin::PacketQueue samples;
    keplin::OkReaderWriter<opalkelly::OpalKellyDevice> readerWriter{&device, core.transmitQueue(), core.receiveQueue()};

    explicit OkHost(const VirtualBoard& board) : device(open(board), "") { core.setDispatchEntry(1, samples); }
    ~OkHost()
    {
        readerWriter.stop();
        samples.clear();
    }
};

TEST(VirtualBoards, TheAdcReadsBackWhatTheDacSets)
{
    const auto board = plugVirtualOpalKelly({.configured = true});
    {
        OkHost host(*board);
        const auto& specs = keplin::modules::dac::specsOf2500mV;
        keplin::modules::dac::Dac dac({specs.begin(), specs.end()}, host.core.transmitQueue(), 3);
        keplin::modules::adc::Adc adc(1, host.core.transmitQueue(), host.samples);
        adc.reset();
        for (std::uint64_t channel = 0; channel < 8; ++channel)
            dac.setChannelValue(channel, 0.25F * static_cast<float>(channel));
        dac.setChannelValue(7, 3.0F); // beyond its range
        dac.updateChannelValues();
        adc.singleShot();
        std::vector<keplin::modules::adc::AdcSample> samples;
        while (samples.empty()) { // the test's time limit ends what never comes
            host.readerWriter.singleShotReadWrite();
            host.core.dispatchPackets();
            samples = adc.getSamples();
        }
        ASSERT_EQ(samples.size(), 1U);
        EXPECT_EQ(samples[0].sampleNumber, 0U);
        for (std::size_t channel = 0; channel < 7; ++channel)
            EXPECT_EQ(samples[0].channelValues[channel],
                      static_cast<std::uint32_t>(0.25F * static_cast<float>(channel) / 2.5F * 65535.0F));
        EXPECT_EQ(samples[0].channelValues[7], 65535U);

        EXPECT_EQ(adc.setSampleRate(20'000), 20'000);
        adc.updateSampleRate();
        adc.start();
        host.readerWriter.start();
        samples.clear();
        while (samples.size() < 2000) {
            host.core.dispatchPackets();
            const auto more = adc.getSamples();
            samples.insert(samples.end(), more.begin(), more.end());
            std::this_thread::yield();
        }
        EXPECT_EQ(board->adcDivider(), 5000);
        EXPECT_EQ(board->adcLostCount(), 0U);
        for (std::size_t i = 0; i < samples.size(); ++i)
            ASSERT_EQ(samples[i].sampleNumber, i + 1) << "none is missing";
        adc.stop();
        while (board->isAdcRunning())
            std::this_thread::yield();
    }
    EXPECT_THAT(board->problems(), IsEmpty());
    board->unplug();
}

TEST(VirtualBoards, AnOpalKellyBoardWantsItsConfigurationFirst)
{
    const auto board = plugVirtualOpalKelly();
    {
        OkHost host(*board);
        host.device.wireInWrite(0, 1);
        EXPECT_FALSE(host.device.updateWireIns());
        EXPECT_THAT(host.device.readFromBlockPipeOut(0xA0, 1024, 16384), IsEmpty());
        EXPECT_EQ(board->problems().size(), 2U);
        const std::string path = ::testing::TempDir() + std::to_string(getpid()) + "top.bit";
        {
            std::ofstream file(path, std::ios::binary);
            file << "header" << '\xFF' << "body" << std::string(9000, '\x5A');
        }
        EXPECT_NE(host.device.configure(path), 0);
        EXPECT_TRUE(board->isConfigured());
        EXPECT_EQ(board->bitstream().size(), 9005U);
        EXPECT_TRUE(host.device.updateWireIns());
        EXPECT_EQ(board->wireIn(0), 1U);
        board->setWireOut(40, 77);
        EXPECT_TRUE(host.device.updateWireOuts());
        EXPECT_EQ(host.device.wireOutRead(40), 77U);
        EXPECT_EQ(host.device.readFromBlockPipeOut(0xA0, 1024, 16384).size(), 16384U);
    }
    board->unplug();
}

TEST(VirtualBoards, TwoBoardsWorkAtOnce)
{
    const auto kit = plugVirtualDevKit({.chip = ChipKind::loopback});
    const auto other = plugVirtualDevKit({.chip = ChipKind::loopback});
    const auto work = [](const VirtualBoard& board, int seed) {
        Loop loop(board);
        loop.readerWriter.start();
        std::vector<Content> sent;
        for (int i = 0; i < 3000; ++i)
            sent.push_back(loop.send(4, true, 9, pattern(40, seed + i)));
        return loop.inbox.waitFor(sent.size()) && loop.inbox.taken() == sent;
    };
    auto first = std::async(std::launch::async, work, std::cref(*kit), 1);
    auto second = std::async(std::launch::async, work, std::cref(*other), 100);
    EXPECT_TRUE(first.get());
    EXPECT_TRUE(second.get());
    unplugAllVirtualBoards();
}

} // namespace
