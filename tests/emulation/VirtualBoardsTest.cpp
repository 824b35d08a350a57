// Boards as a host meets them: found by libusb, driven by the drivers, loops and modules that real boards are driven
// by.

#include "emulation/boards/VirtualBoards.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "Image.h"
#include "Plugged.h"
#include "TemporaryFile.h"
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
using fxtree_tests::Image;
using fxtree_tests::words;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using usb_tests::Bytes;
using usb_tests::pattern;

std::unique_ptr<usb::LibUSBDevice> open(const VirtualBoard& board)
{
    return usb_tests::openAt(board.busNumber(), board.deviceAddress());
}

std::vector<int> addressesOf(usb::VendorId vendor, usb::ProductId product)
{
    std::vector<int> addresses;
    for (const auto& info : usb::getDevicesWithVidPid(vendor, product))
        addresses.push_back(info.usb_device_address);
    return addresses;
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
                ElementsAre(board->deviceAddress()));
    EXPECT_EQ(virtualBoards(), (std::vector<std::shared_ptr<VirtualBoard>>{kit, board}));

    const int before = kit->deviceAddress();
    kit->replug();
    EXPECT_NE(kit->deviceAddress(), before);
    EXPECT_THAT(addressesOf(usb::VendorId::Cypress, usb::ProductId::DevKit), ElementsAre(kit->deviceAddress()));
    unplugAllVirtualBoards();
    EXPECT_THAT(virtualBoards(), IsEmpty());
    EXPECT_THAT(addressesOf(usb::VendorId::Cypress, usb::ProductId::DevKit), IsEmpty());
    EXPECT_FALSE(board->isPlugged());
}

TEST(VirtualBoards, StayPluggedInThoughNobodyKeepsThem)
{
    const int address = plugVirtualDevKit()->deviceAddress();
    EXPECT_THAT(addressesOf(usb::VendorId::Cypress, usb::ProductId::DevKit), ElementsAre(address));
    std::weak_ptr<VirtualBoard> lost = plugVirtualOpalKelly();
    lost.lock()->injectFault({.kind = FaultKind::unplug, .endpoint = 0});
    EXPECT_LT(open(*lost.lock())->controlWrite({0x40, 0xC2, 0, 0, 0}, Bytes(), 2000), 0);
    while (virtualBoards().size() > 1)
        std::this_thread::yield();
    ASSERT_FALSE(lost.expired()) << "listing releases none";
    unplugAllVirtualBoards();
    EXPECT_TRUE(lost.expired());
    EXPECT_THAT(addressesOf(usb::VendorId::Cypress, usb::ProductId::DevKit), IsEmpty());
    EXPECT_THROW(plugVirtualDevKit({.serialNumber = std::string(127, 'x')}), std::invalid_argument);
    EXPECT_THAT(virtualBoards(), IsEmpty());
}

int bootSilently(const VirtualBoard& board, const std::string& path)
{
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int result = fxtree::Fx3Boot(open(board)).configure(path);
    testing::internal::GetCapturedStdout();
    testing::internal::GetCapturedStderr();
    return result;
}

TEST(VirtualBoards, AnFx3WithoutFirmwareComesBackAsADevKit)
{
    const Image image = Image().record(0x40003000, words(1000, 1)).record(0x100, words(7, 2)).end(0x40003010);
    const TemporaryFile good(image.bytes);
    const auto kit = plugVirtualDevKit({.firmware = false});
    EXPECT_THAT(addressesOf(usb::VendorId::Cypress, usb::ProductId::Fx3Boot), ElementsAre(kit->deviceAddress()));
    for (int round = 0; round < 10; ++round) {
        EXPECT_FALSE(kit->isRunning());
        EXPECT_EQ(bootSilently(*kit, good.path()), 0);
        ASSERT_TRUE(kit->waitUntilRunning(30'000));
        EXPECT_EQ(kit->ramBytes(0x40003000, 4000), usb_tests::slice(image.bytes, 12, 4000));
        EXPECT_EQ(kit->ramBytes(0x100, 28), usb_tests::slice(image.bytes, 4020, 28));
        EXPECT_THAT(addressesOf(usb::VendorId::Cypress, usb::ProductId::Fx3Boot), IsEmpty());
        EXPECT_THAT(addressesOf(usb::VendorId::Cypress, usb::ProductId::DevKit), ElementsAre(kit->deviceAddress()));
        fxtree::FxTreeDevice(open(*kit)).resetFpgaFromPc();
        EXPECT_THAT(kit->problems(), IsEmpty());
        kit->replug(); // power goes: the firmware was in RAM
    }
    EXPECT_EQ(kit->ramBytes(0x40003004, 4), Bytes(4));

    const BoardCounters before = kit->counters();
    const struct {
        const char* what;
        Bytes image;
        int result;
        const char* problem;
    } rows[] = {
        {"a jump into nothing", Image().record(0x100, {7}).end(0x40000000).bytes, 0, "0x40000000, where nothing"},
        {"a wrong checksum", Image().record(0x100, {7}).end(0x100, 1).bytes, -4, "0x40000000, where nothing"},
        {"no RAM", Image().record(0x20000000, {7}).end(0x100).bytes, -3, "no RAM for 4 bytes at 0x20000000"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(bootSilently(*kit, TemporaryFile(row.image).path()), row.result) << row.what;
        EXPECT_FALSE(kit->waitUntilRunning(0));
        EXPECT_THAT(kit->problems().back(), HasSubstr(row.problem)) << row.what;
    }
    kit->replug();
    kit->injectFault({.kind = FaultKind::stall, .endpoint = 0});
    EXPECT_EQ(bootSilently(*kit, good.path()), -3);
    EXPECT_EQ(bootSilently(*kit, good.path()), 0);
    ASSERT_TRUE(kit->waitUntilRunning(30'000));
    EXPECT_EQ(kit->problems().size(), 2U) << "the boot state's are kept";
    EXPECT_EQ(kit->counters().problems, 2U);
    EXPECT_GT(kit->counters().controlTransfers, before.controlTransfers);
    kit->unplug();
}

TEST(VirtualBoards, AKitKeepsItsFlashAndIsConfiguredByItsDriver)
{
    const auto kit = plugVirtualDevKit({.configured = false});
    fxtree::FxTreeDevice driver(open(*kit));
    const int end = 1 << 24;
    const struct {
        int address, size;
    } rows[] = {{0, 1}, {0x10000, 2048}, {0x2FFFF, 2049}, {0x3FFFFB, 13}, {0x400100, 100'000}, {end - 65536, 65536}};
    for (const auto& [address, size] : rows) {
        const Bytes data = pattern(static_cast<std::size_t>(size), address);
        for (int sector = address >> 16; sector <= (address + size - 1) >> 16; ++sector)
            driver.eraseSpiFlash(sector);
        driver.writeSpiFlash(data, address);
        EXPECT_EQ(kit->flashBytes(static_cast<std::uint32_t>(address), static_cast<std::uint32_t>(size)), data);
        EXPECT_EQ(driver.readSpiFlash(size, address), data) << address;
    }
    EXPECT_EQ(driver.readSpiFlash(2100, end - 3000).size(), 2100U) << "the driver asks for whole chunks";
    EXPECT_EQ(kit->erasedSectors(), 9U);
    EXPECT_THAT(kit->problems(), IsEmpty());

    kit->setFlashBytes(0xFFFE, {0x0F, 0xF0, 0x12, 0x34}); // across two sectors
    driver.writeSpiFlash({0x33, 0xF0, 0x10, 0xFF}, 0xFFFE);
    EXPECT_EQ(kit->flashBytes(0xFFFE, 4), (Bytes{0x03, 0xF0, 0x10, 0x34})) << "bits are only cleared";
    EXPECT_EQ(kit->spoiledBytes(), 2U);
    EXPECT_THAT(kit->problems(), ElementsAre(HasSubstr("isn't erased spoiled 2 of 4 bytes at 65534")));
    driver.eraseSpiFlash(1);
    EXPECT_EQ(kit->flashBytes(0xFFFE, 4), (Bytes{0x03, 0xF0, 0xFF, 0xFF})) << "sector 1 alone";
    EXPECT_THROW(driver.readSpiFlash(1, end), std::runtime_error);
    EXPECT_THROW(driver.writeSpiFlash(Bytes(2), end - 1), std::runtime_error);
    EXPECT_THROW(driver.eraseSpiFlash(256), std::runtime_error);
    EXPECT_THROW(kit->flashBytes(1 << 24, 1), std::out_of_range);
    EXPECT_THROW(kit->setFlashBytes((1 << 24) - 1, Bytes(2)), std::out_of_range);

    EXPECT_FALSE(kit->isConfigured());
    driver.programFpgaPc(pattern(10'000));
    EXPECT_EQ(kit->bitstream(), pattern(10'000));
    driver.configFpgaFromFlash(64, 0x500000 - 5); // the driver adds 5
    EXPECT_FALSE(kit->isConfigured()) << "the flash is erased there";
    kit->setFlashBytes(0x500000, pattern(64));
    driver.configFpgaFromFlash(64, 0x500000 - 5);
    EXPECT_TRUE(kit->isConfigured());
    EXPECT_EQ(kit->bitstream(), pattern(64));
    kit->unplug();
    EXPECT_EQ(driver.readGpif(1024), Bytes(1024));
}

// Packets of every size and kind, on two boards at once, as fast as their credit allows.
TEST(VirtualBoards, ALoopGetsBackAllThatItSendsInOrder)
{
    constexpr std::size_t count = 10'000;
    const auto bringsAllBack = [](const VirtualBoard& board, unsigned seed) {
        Loop loop(board);
        loop.readerWriter.start();
        std::mt19937 random(seed);
        const auto number = [&](int low, int high) { return std::uniform_int_distribution(low, high)(random); };
        std::vector<Content> sent;
        for (std::size_t i = 0; i < count; ++i)
            sent.push_back(loop.send(static_cast<std::uint8_t>(number(1, 48)), number(0, 1) == 1,
                                     static_cast<std::uint8_t>(number(0, 255)),
                                     pattern(static_cast<std::size_t>(number(1, i % 10 == 0 ? 256 : 16)), int(i))));
        return loop.inbox.waitFor(count) && loop.inbox.taken() == sent;
    };
    const auto kit = plugVirtualDevKit({.chip = ChipKind::loopback});
    const auto other = plugVirtualDevKit({.chip = ChipKind::loopback});
    auto second = std::async(std::launch::async, bringsAllBack, std::cref(*other), 100U);
    EXPECT_TRUE(bringsAllBack(*kit, 7));
    EXPECT_TRUE(second.get());
    for (const auto& board : {kit, other}) {
        EXPECT_THAT(board->problems(), IsEmpty());
        EXPECT_EQ(board->counters().packetsFromHost, count);
        EXPECT_EQ(board->counters().packetsToHost, count);
        EXPECT_EQ(board->counters().wordsToHost, board->counters().wordsFromHost);
        board->unplug();
    }
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
        kit->injectFault({.kind = FaultKind::shortTransfer, .endpoint = 0x81, .amount = 100});
        EXPECT_EQ(bulkRead(), 100);
        kit->injectFault({.kind = FaultKind::drop, .endpoint = 0x81, .times = 3});
        EXPECT_EQ(bulkRead(), 1024) << "the fourth answer";
        kit->injectFault({.kind = FaultKind::delay, .endpoint = 0x81, .amount = 20'000});
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_EQ(bulkRead(), 1024);
        EXPECT_GE(std::chrono::steady_clock::now() - begin, 20ms);
        EXPECT_EQ(kit->faultCount(), 5U);
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
        Bytes bitstream = pattern(9000);
        bitstream[0] = 0xFF;
        Bytes file{0, 9};
        file.insert(file.end(), bitstream.begin(), bitstream.end());
        EXPECT_NE(host.device.configure(TemporaryFile(file).path()), 0);
        EXPECT_TRUE(board->isConfigured());
        EXPECT_EQ(board->bitstream(), bitstream);
        for (int wire = 1; wire < 32; ++wire) {
            host.device.wireInWrite(wire, static_cast<std::uint32_t>(wire) * 0x01020304U);
            board->setWireOut(32 + wire, static_cast<std::uint32_t>(wire) * 0x0F0E0D0CU);
        }
        EXPECT_TRUE(host.device.updateWireIns());
        EXPECT_TRUE(host.device.updateWireOuts());
        EXPECT_EQ(board->wireUpdates(), 1U);
        EXPECT_EQ(board->wireIn(0), 1U);
        for (int wire = 1; wire < 32; ++wire) {
            EXPECT_EQ(board->wireIn(wire), static_cast<std::uint32_t>(wire) * 0x01020304U) << wire;
            EXPECT_EQ(host.device.wireOutRead(32 + wire), static_cast<std::uint32_t>(wire) * 0x0F0E0D0CU) << wire;
        }
        EXPECT_FALSE(host.device.writeToBlockPipeIn(0x81, 1024, Bytes(1024))) << "no such pipe";
        EXPECT_EQ(host.device.readFromBlockPipeOut(0xA0, 1024, 16384).size(), 16384U);
    }
    board->unplug();
}

} // namespace
