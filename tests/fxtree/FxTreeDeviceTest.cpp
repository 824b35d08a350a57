#include "fxtree/FxTreeDevice.h"

#include <cerrno>
#include <climits>
#include <functional>
#include <future>
#include <stdexcept>

#include <gmock/gmock.h>

#include "Interposed.h"
#include "ScriptedBoard.h"

namespace {

using namespace usb_tests;
using fxtree::FxTreeDevice;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::ThrowsMessage;

struct Board : Scripted {
    Board() : Scripted(0x04B4, 0x5BC1, Bytes{0x01, 0x81}) {}
    FxTreeDevice driver() const { return FxTreeDevice(open()); }
};

TEST(FxTree, EachCallIsTheseRequests)
{
    const Bytes data = pattern(4100);
    const Bytes chunks[] = {slice(data, 0, 2048), slice(data, 2048, 2048), slice(data, 4096, 4)};
    const struct {
        const char* description;
        std::function<void(FxTreeDevice&)> run;
        std::vector<Transfer> transfers;
    } rows[] = {
        {"write flash",
         [&](auto& kit) { kit.writeSpiFlash(data, 0x00400100); },
         {{"40 b1 0001 0000 8", {0x04, 0x10, 0, 0, 0x00, 0x01, 0x40, 0x00}},
          {"40 b1 0000 0000 2048", chunks[0]},
          {"40 b1 0000 0000 2048", chunks[1]},
          {"40 b1 0000 0000 4", chunks[2]}}},
        {"write nothing to flash",
         [](auto& kit) { kit.writeSpiFlash({}, -2); },
         {{"40 b1 0001 0000 8", {0, 0, 0, 0, 0xFE, 0xFF, 0xFF, 0xFF}}}},
        {"read flash",
         [](auto& kit) { kit.readSpiFlash(4097, 0x003FFFFB); },
         {{"40 b2 0001 0000 8", {0x01, 0x10, 0, 0, 0xFB, 0xFF, 0x3F, 0x00}},
          {"c0 b2 0000 0000 2048", {}},
          {"c0 b2 0000 0000 2048", {}},
          {"c0 b2 0000 0000 2048", {}}}},
        {"read nothing from flash",
         [](auto& kit) { EXPECT_THAT(kit.readSpiFlash(0, 16), IsEmpty()); },
         {{"40 b2 0001 0000 8", {0, 0, 0, 0, 16, 0, 0, 0}}}},
        {"erase", [](auto& kit) { kit.eraseSpiFlash(63); }, {{"40 b0 0001 003f 0", {}}}},
        {"erase a sector beyond 16 bits", [](auto& kit) { kit.eraseSpiFlash(0x12345); }, {{"40 b0 0001 2345 0", {}}}},
        {"erase a negative sector", [](auto& kit) { kit.eraseSpiFlash(-1); }, {{"40 b0 0001 ffff 0", {}}}},
        {"program the FPGA",
         [&](auto& kit) { kit.programFpgaPc(data); },
         {{"40 c0 0001 0000 8", {0x04, 0x10, 0, 0, 0x04, 0x10, 0, 0}},
          {"40 c0 0000 0000 2048", chunks[0]},
          {"40 c0 0000 0000 2048", chunks[1]},
          {"40 c0 0000 0000 4", chunks[2]}}},
        {"program the FPGA with nothing",
         [](auto& kit) { kit.programFpgaPc({}); },
         {{"40 c0 0001 0000 8", {0, 0, 0, 0, 0, 0, 0, 0}}}},
        {"configure from flash",
         [](auto& kit) { kit.configFpgaFromFlash(0x01020304, 0x0A0B0CFC); },
         {{"40 c1 0001 0000 8", {4, 3, 2, 1, 0x01, 0x0D, 0x0B, 0x0A}}, {"c0 c2 0001 0000 8", {}}}},
        {"configure from flash, at the end of numbers",
         [](auto& kit) { kit.configFpgaFromFlash(-1, INT_MAX); },
         {{"40 c1 0001 0000 8", {0xFF, 0xFF, 0xFF, 0xFF, 0x04, 0x00, 0x00, 0x80}}, {"c0 c2 0001 0000 8", {}}}},
        {"reset the FPGA", [](auto& kit) { kit.resetFpgaFromPc(); }, {{"40 c3 0001 0000 0", {}}}},
        {"write to the FPGA", [&](auto& kit) { EXPECT_TRUE(kit.writeGpif(data)); }, {{"out 01 4100", data}}},
        {"read from the FPGA", [](auto& kit) { kit.readGpif(8192); }, {{"in 81 8192", {}}}},
    };
    for (const auto& row : rows) {
        const Board board;
        auto kit = board.driver();
        interposed::takeTimeouts();
        row.run(kit);
        EXPECT_THAT(interposed::takeTimeouts(), ElementsAre(2000U)) << row.description;
        EXPECT_EQ(board.board->transfers(), row.transfers) << row.description;
    }
}

TEST(FxTree, AFlashReadGivesWhatWasAskedForAndZerosForWhatFallsShort)
{
    for (const int size : {1, 2047, 2048, 2049, 6000}) {
        const Board board;
        Bytes expected;
        for (std::size_t i = 0; i < static_cast<std::size_t>(size); ++i)
            expected.push_back(ScriptedBoard::readByte(1 + i / 2048, i % 2048));
        std::fill(expected.begin() + std::min(size, 3), expected.begin() + std::min(size, 2048), std::uint8_t{0});
        board.board->answer(1, 3); // the first chunk
        EXPECT_EQ(board.driver().readSpiFlash(size, 0), expected) << size;
    }
}

// The transfers that may fail, with the text that this raises.
struct Step {
    const char* description;
    std::size_t transfer;
    std::function<void(FxTreeDevice&)> run;
    const char* text;
};

std::vector<Step> steps()
{
    const auto writeFlash = [](auto& kit) { kit.writeSpiFlash(Bytes(5000), 0); };
    const auto readFlash = [](auto& kit) { kit.readSpiFlash(5000, 0); };
    const auto program = [](auto& kit) { kit.programFpgaPc(Bytes(5000)); };
    return {
        {"announce a flash write", 0, writeFlash,
         "Program Flash failed 1 : impossibile to send write control transfer"},
        {"write flash", 1, writeFlash, "Program Flash failed 2: impossibile to send write control transfer"},
        {"write flash, last chunk", 3, writeFlash,
         "Program Flash failed 2: impossibile to send write control transfer"},
        {"announce a flash read", 0, readFlash, "Read Flash failed: impossibile to send write control transfer"},
        {"read flash", 1, readFlash, "Program Flash failed: impossibile to send read control transfer"},
        {"read flash, last chunk", 3, readFlash, "Program Flash failed: impossibile to send read control transfer"},
        {"erase", 0, [](auto& kit) { kit.eraseSpiFlash(1); },
         "Erase Flash failed: impossible to send write control transfer"},
        {"announce a bitstream", 0, program, "FPGA PROGRAM: impossible to send write control transfer"},
        {"write a bitstream", 2, program, "Program FPGA failed: impossible to send write control transfer"},
        {"configure from flash", 0, [](auto& kit) { kit.configFpgaFromFlash(1, 2); },
         "FPGA FLASH: impossible to send write control transfer"},
        {"reset", 0, [](auto& kit) { kit.resetFpgaFromPc(); },
         "Reset FPGA failed: impossible to send write control transfer"},
    };
}

TEST(FxTree, AFailedTransferIsRaisedAndEndsTheCall)
{
    for (const auto& step : steps()) {
        for (const int error : {-EPIPE, -EPROTO}) {
            const Board board;
            board.board->answer(step.transfer, error);
            auto kit = board.driver();
            EXPECT_THAT([&] { step.run(kit); }, ThrowsMessage<std::runtime_error>(step.text)) << step.description;
            EXPECT_EQ(board.board->transfers().size(), step.transfer + 1) << step.description;
        }
    }
}

TEST(FxTree, AnUnplugIsRaisedByTheCallThatWaitsAndByNoneAfterIt)
{
    for (const auto& step : steps()) {
        Board board;
        board.board->hold(step.transfer);
        auto kit = board.driver();
        auto done = std::async(std::launch::async, [&] { step.run(kit); });
        board.board->waitFor(step.transfer + 1);
        board.handle.unplug();
        EXPECT_THAT([&] { done.get(); }, ThrowsMessage<std::runtime_error>(step.text)) << step.description;
        EXPECT_NO_THROW(step.run(kit)) << step.description; // -4, which passes as success
    }
}

TEST(FxTree, OnlyMinusOneIsAFailure)
{
    for (const int answer : {-EPIPE, 0, 3}) { // to the status behind a configuration from flash, which is ignored
        const Board board;
        board.board->answer(1, answer);
        auto kit = board.driver();
        EXPECT_NO_THROW(kit.configFpgaFromFlash(1, 2));
        EXPECT_EQ(board.board->transfers().size(), 2U);
    }
    for (const auto& step : steps()) {
        Board board;
        auto kit = board.driver();
        board.board->answer(step.transfer, 0); // nothing moved
        EXPECT_NO_THROW(step.run(kit)) << step.description;
        board.failSubmissions(ENODEV); // -4
        EXPECT_NO_THROW(step.run(kit)) << step.description;
    }
}

TEST(FxTree, ThePipeTellsNothingOfFailures)
{
    const struct {
        int answer;
        bool written;
    } rows[] = {{4, true}, {1, true}, {0, false}, {-EPIPE, true}, {-EPROTO, true}};
    for (const auto& row : rows) {
        const Board board;
        board.board->answer(0, row.answer);
        EXPECT_EQ(board.driver().writeGpif(Bytes(4)), row.written) << row.answer;
    }
    Board board;
    auto kit = board.driver();
    board.board->answer(0, -EPIPE);
    EXPECT_EQ(kit.readGpif(4), Bytes(4));
    board.board->answer(1, 2);
    EXPECT_EQ(kit.readGpif(4), (Bytes{ScriptedBoard::readByte(1, 0), ScriptedBoard::readByte(1, 1), 0, 0}));
    board.board->hold(2);
    auto read = std::async(std::launch::async, [&] { return kit.readGpif(4); });
    board.board->waitFor(3);
    board.handle.unplug();
    EXPECT_EQ(read.get(), Bytes(4));
    EXPECT_EQ(kit.readGpif(4), Bytes(4));
    EXPECT_TRUE(kit.writeGpif(Bytes(4)));
}

TEST(FxTree, NegativeSizesSendNothingAndWithoutADeviceEveryTransferFails)
{
    const Board board;
    auto kit = board.driver();
    for (const int size : {-1, INT_MIN}) {
        const std::string text = ": negative size " + std::to_string(size);
        EXPECT_THAT([&] { kit.readSpiFlash(size, 0); }, ThrowsMessage<std::length_error>("readSpiFlash" + text));
        EXPECT_THAT([&] { kit.readGpif(size); }, ThrowsMessage<std::length_error>("readGpif" + text));
    }
    EXPECT_THAT(board.board->transfers(), IsEmpty());
    FxTreeDevice none(nullptr);
    for (const auto& step : steps())
        EXPECT_THROW(step.run(none), std::runtime_error) << step.description;
    EXPECT_EQ(none.readGpif(4), Bytes(4));
    EXPECT_TRUE(none.writeGpif(Bytes(4)));
}

} // namespace
