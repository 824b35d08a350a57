// The driver against a board in software, which was written from the other end of the cable and checks each byte.

#include <gmock/gmock.h>

#include "LogCapture.h"
#include "TemporaryFile.h"
#include "emulation/attach/Attach.h"
#include "emulation/boards/LoopbackChip.h"
#include "emulation/boards/OpalKellyBoard.h"
#include "opalkelly/OpalKellyDevice.h"

namespace {

using opalkelly::OpalKellyDevice;
using testing::ElementsAre;
using testing::IsEmpty;
using Bytes = std::vector<std::uint8_t>;

struct Plugged {
    explicit Plugged(bool running)
        : board(std::make_shared<emulation::OpalKellyBoard>("A1", running)), handle(emulation::plug(board))
    {}
    std::unique_ptr<usb::LibUSBDevice> open() const
    {
        return std::make_unique<usb::LibUSBDevice>(static_cast<std::uint16_t>(handle.bus()),
                                                   static_cast<std::uint16_t>(handle.address()));
    }
    std::shared_ptr<emulation::OpalKellyBoard> board;
    emulation::PluggedDevice handle;
};

void doNotWait(std::chrono::milliseconds) {}

TEST(OpalKellyWithBoard, ABitFileConfiguresTheFpga)
{
    Bytes file{0x00, 0x09, 0x0F, 0xF0};
    Bytes bitstream(20'000, 0xAA);
    bitstream[0] = 0xFF;
    file.insert(file.end(), bitstream.begin(), bitstream.end());
    const TemporaryFile stored(file);
    const Plugged plugged(false);
    OpalKellyDevice driver(plugged.open(), "");
    EXPECT_FALSE(driver.updateWireIns()) << "nothing is there to take them";
    EXPECT_NE(driver.configure(stored.path()), 0);
    EXPECT_TRUE(plugged.board->isConfigured());
    EXPECT_EQ(plugged.board->bitstream(), bitstream);
    EXPECT_TRUE(driver.updateWireIns());
}

TEST(OpalKellyWithBoard, AnEmptyConfigurationLeavesItWithoutOne)
{
    const Plugged plugged(true);
    EXPECT_NE(opalkelly::opkFlashDevice(*plugged.open(), {}, &doNotWait), 0);
    EXPECT_FALSE(plugged.board->isConfigured());
    EXPECT_THAT(plugged.board->problems(), ElementsAre("a configuration of no bytes"));
}

TEST(OpalKellyWithBoard, WiresArriveAtTheirAddresses)
{
    const Plugged plugged(true);
    OpalKellyDevice driver(plugged.open(), "");
    for (int wire = 0; wire < 32; ++wire) {
        driver.wireInWrite(wire, static_cast<std::uint32_t>(wire) * 0x01020304U + 1);
        plugged.board->setWireOut(32 + wire, static_cast<std::uint32_t>(wire) * 0x0F0E0D0CU + 7);
    }
    EXPECT_TRUE(driver.updateWireIns());
    EXPECT_TRUE(driver.updateWireOuts());
    for (int wire = 0; wire < 32; ++wire) {
        EXPECT_EQ(plugged.board->wireIn(wire), static_cast<std::uint32_t>(wire) * 0x01020304U + 1) << wire;
        EXPECT_EQ(driver.wireOutRead(32 + wire), static_cast<std::uint32_t>(wire) * 0x0F0E0D0CU + 7) << wire;
    }
    EXPECT_THAT(plugged.board->problems(), IsEmpty());
}

TEST(OpalKellyWithBoard, PacketsComeBackThroughThePipes)
{
    const Plugged plugged(true);
    plugged.board->setModule(5, std::make_shared<emulation::LoopbackChip>());
    const OpalKellyDevice driver(plugged.open(), "");
    ASSERT_EQ(driver.readFromBlockPipeOut(0xA0, 1024, 16384).size(), 16384U); // credit

    Bytes written, expected;
    for (int i = 0; i < 40; ++i) { // packets of 65 words: some lie across blocks
        emulation::Packet packet;
        packet.module = 5;
        for (std::uint64_t k = 0; k < 32; ++k)
            packet.push(k * 0x0101010101010101U + static_cast<std::uint64_t>(i), 8);
        const std::uint32_t header = packet.header();
        for (int shift = 0; shift < 32; shift += 8)
            written.push_back(static_cast<std::uint8_t>(header >> shift));
        written.insert(written.end(), packet.bytes.begin(), packet.bytes.begin() + packet.size);
    }
    expected = written;
    written.resize((written.size() + 1023) / 1024 * 1024);
    EXPECT_TRUE(driver.writeToBlockPipeIn(0x80, 1024, written));
    const Bytes blocks = driver.readFromBlockPipeOut(0xA0, 1024, 16384);
    Bytes back;
    for (std::size_t at = 0; at < blocks.size(); at += 1024) // without the credit words
        back.insert(back.end(), blocks.begin() + static_cast<std::ptrdiff_t>(at + 4),
                    blocks.begin() + static_cast<std::ptrdiff_t>(at + 1024));
    back.resize(expected.size());
    EXPECT_EQ(back, expected);
    EXPECT_THAT(plugged.board->problems(), IsEmpty());
}

TEST(OpalKellyWithBoard, APipeThatTheBoardDoesNotHaveFails)
{
    const Plugged plugged(true);
    const OpalKellyDevice driver(plugged.open(), "");
    EXPECT_FALSE(driver.writeToBlockPipeIn(0x81, 1024, Bytes(1024)));
    EXPECT_THAT(driver.readFromBlockPipeOut(0xA1, 1024, 1024), IsEmpty());
    EXPECT_TRUE(driver.writeToBlockPipeIn(0x80, 1024, Bytes(1024)));
}

} // namespace
