// The drivers against boards in software, which were written from the other end of the cable and check what they get.

#include <gmock/gmock.h>

#include "Image.h"
#include "TemporaryFile.h"
#include "emulation/attach/Attach.h"
#include "emulation/boards/DevKit.h"
#include "emulation/boards/Fx3BootDevice.h"
#include "emulation/boards/LoopbackChip.h"
#include "emulation/boards/VirtualBoards.h"
#include "fxtree/Fx3Boot.h"
#include "fxtree/FxTreeDevice.h"
#include "usb/DeviceList.h"

namespace {

using namespace fxtree_tests;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

template <class Board>
struct Plugged {
    template <class... Arguments>
    explicit Plugged(Arguments... arguments)
        : board(std::make_shared<Board>("A1", arguments...)), handle(emulation::plug(board))
    {}
    std::unique_ptr<usb::LibUSBDevice> open() const
    {
        return std::make_unique<usb::LibUSBDevice>(static_cast<std::uint16_t>(handle.bus()),
                                                   static_cast<std::uint16_t>(handle.address()));
    }
    std::shared_ptr<Board> board;
    emulation::PluggedDevice handle;
};

Bytes pattern(std::size_t size, int seed)
{
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<std::uint8_t>(i * 17 + i / 300 + static_cast<std::size_t>(seed));
    return bytes;
}

int configureSilently(fxtree::Fx3Boot& boot, const std::string& path)
{
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int result = boot.configure(path);
    testing::internal::GetCapturedStdout();
    testing::internal::GetCapturedStderr();
    return result;
}

TEST(Fx3BootWithBoard, TheImageIsInRamAndRuns)
{
    const Image image = Image().record(0x40003000, words(5000, 1)).record(0x100, words(7, 2)).end(0x40003000);
    const TemporaryFile file(image.bytes);
    const Plugged<emulation::Fx3BootDevice> fx3;
    std::uint32_t entry = 0;
    fx3.board->setOnStart([&](std::uint32_t address) { entry = address; });
    fxtree::Fx3Boot boot(fx3.open());
    EXPECT_EQ(configureSilently(boot, file.path()), 0);
    EXPECT_TRUE(fx3.board->isStarted());
    EXPECT_EQ(entry, 0x40003000U);
    EXPECT_EQ(fx3.board->ram(0x40003000, 20000), Bytes(image.bytes.begin() + 12, image.bytes.begin() + 20012));
    EXPECT_EQ(fx3.board->ram(0x100, 28), Bytes(image.bytes.begin() + 20020, image.bytes.begin() + 20048));
    EXPECT_EQ(fx3.board->bytesWritten(), 20028U);
    EXPECT_THAT(fx3.board->problems(), IsEmpty());
}

TEST(Fx3BootWithBoard, AWrongChecksumLeavesItWrittenAndNotStarted)
{
    const TemporaryFile file(Image().record(0x100, words(7, 2)).end(0x100, 1).bytes);
    const Plugged<emulation::Fx3BootDevice> fx3;
    fxtree::Fx3Boot boot(fx3.open());
    EXPECT_EQ(configureSilently(boot, file.path()), -4);
    EXPECT_EQ(fx3.board->bytesWritten(), 28U);
    EXPECT_FALSE(fx3.board->isStarted());
}

TEST(Fx3BootWithBoard, ARecordOutsideRamFails)
{
    const TemporaryFile file(Image().record(0x100, words(7, 2)).record(0x20000000, words(7, 2)).end(0x100).bytes);
    const Plugged<emulation::Fx3BootDevice> fx3;
    fxtree::Fx3Boot boot(fx3.open());
    EXPECT_EQ(configureSilently(boot, file.path()), -3);
    EXPECT_FALSE(fx3.board->isStarted());
    EXPECT_THAT(fx3.board->problems(), ElementsAre(HasSubstr("0x20000000")));
}

TEST(Fx3BootWithBoard, AKitWithoutFirmwareComesBackAsADevKit)
{
    const TemporaryFile file(Image().record(0x40003000, words(100, 1)).end(0x40003000).bytes);
    const auto kit = emulation::plugVirtualDevKit({.chip = emulation::ChipKind::loopback, .firmware = false});
    const auto open = [](usb::ProductId product) {
        const auto found = usb::getDevicesWithVidPid(usb::VendorId::Cypress, product);
        EXPECT_EQ(found.size(), 1U);
        return std::make_unique<usb::LibUSBDevice>(static_cast<std::uint16_t>(found.at(0).usb_bus_number),
                                                   static_cast<std::uint16_t>(found.at(0).usb_device_address));
    };
    EXPECT_THAT(usb::getDevicesWithVidPid(usb::VendorId::Cypress, usb::ProductId::DevKit), IsEmpty());
    fxtree::Fx3Boot boot(open(usb::ProductId::Fx3Boot));
    EXPECT_EQ(configureSilently(boot, file.path()), 0);
    ASSERT_TRUE(kit->waitUntilRunning(10'000));
    EXPECT_THAT(usb::getDevicesWithVidPid(usb::VendorId::Cypress, usb::ProductId::Fx3Boot), IsEmpty());

    fxtree::FxTreeDevice driver(open(usb::ProductId::DevKit));
    driver.eraseSpiFlash(3);
    EXPECT_EQ(kit->erasedSectors(), 1U);
    kit->unplug();
    EXPECT_EQ(driver.readGpif(1024), Bytes(1024));
}

TEST(FxTreeWithBoard, FlashKeepsWhatIsWrittenBetweenErasures)
{
    const Plugged<emulation::DevKit> kit;
    fxtree::FxTreeDevice driver(kit.open());
    const struct {
        int address, size;
    } rows[] = {{0, 1},        {0x10000, 2048},  {0x20001, 2049}, {0x3FFFFB, 13}, {0x400100, 100'000},
                {0xFFFFFF, 1}, {0xFF0000, 65536}};
    for (const auto& [address, size] : rows) {
        const Bytes data = pattern(static_cast<std::size_t>(size), address);
        for (int sector = address >> 16; sector <= (address + size - 1) >> 16; ++sector)
            driver.eraseSpiFlash(sector);
        driver.writeSpiFlash(data, address);
        EXPECT_EQ(kit.board->flash(static_cast<std::size_t>(address), data.size()), data) << address;
        EXPECT_EQ(driver.readSpiFlash(size, address), data) << address;
    }
    EXPECT_THAT(driver.readSpiFlash(0, 0), IsEmpty());
    driver.eraseSpiFlash(0x40);
    EXPECT_THAT(driver.readSpiFlash(4096, 0x400000), Each(0xFF));
    EXPECT_EQ(kit.board->flashCounters().spoiledBytes, 0U);
    EXPECT_THAT(kit.board->problems(), IsEmpty());
}

TEST(FxTreeWithBoard, WhatTheFlashDoesNotHaveIsRefused)
{
    const Plugged<emulation::DevKit> kit;
    fxtree::FxTreeDevice driver(kit.open());
    EXPECT_THROW(driver.readSpiFlash(1, 1 << 24), std::runtime_error);
    EXPECT_THROW(driver.writeSpiFlash(Bytes(2), (1 << 24) - 1), std::runtime_error);
    EXPECT_THROW(driver.writeSpiFlash(Bytes(2), -1), std::runtime_error);
    EXPECT_THROW(driver.eraseSpiFlash(256), std::runtime_error);
    EXPECT_NO_THROW(driver.eraseSpiFlash(255)); // and goes on working
}

TEST(FxTreeWithBoard, TheFpgaIsConfiguredEitherWay)
{
    const Plugged<emulation::DevKit> kit(false);
    fxtree::FxTreeDevice driver(kit.open());
    EXPECT_FALSE(kit.board->isConfigured());
    const Bytes bitstream = pattern(30'000, 1);
    driver.programFpgaPc(bitstream);
    EXPECT_TRUE(kit.board->isConfigured());
    EXPECT_EQ(kit.board->bitstream(), bitstream);

    const Bytes inFlash = pattern(5000, 2);
    kit.board->setFlash(0x400100, inFlash);
    driver.configFpgaFromFlash(5000, 0x400100 - 5); // the driver adds 5
    EXPECT_EQ(kit.board->bitstream(), inFlash);

    driver.resetFpgaFromPc();
    EXPECT_EQ(kit.board->fpgaResets(), 1U);
    EXPECT_THAT(kit.board->problems(), IsEmpty());
}

TEST(FxTreeWithBoard, BlocksGoThroughTheFpgaAndBack)
{
    const Plugged<emulation::DevKit> kit;
    kit.board->setModule(2, std::make_shared<emulation::LoopbackChip>());
    fxtree::FxTreeDevice driver(kit.open());
    const Bytes first = driver.readGpif(8192);
    EXPECT_NE(first[0] | first[1] | first[2] | first[3], 0) << "the board has credit to give";

    emulation::Packet packet;
    packet.module = 2;
    packet.push(0x1234567890ABCDEF, 8);
    Bytes block(1024);
    const std::uint32_t header = packet.header();
    for (std::size_t i = 0; i < 4; ++i)
        block[i] = static_cast<std::uint8_t>(header >> (8 * i));
    std::copy_n(packet.bytes.begin(), packet.size, block.begin() + 4);
    EXPECT_TRUE(driver.writeGpif(block));
    const Bytes back = driver.readGpif(1024);
    EXPECT_EQ(Bytes(back.begin() + 4, back.begin() + 16), Bytes(block.begin(), block.begin() + 12));
    EXPECT_THAT(kit.board->problems(), IsEmpty());
}

} // namespace
