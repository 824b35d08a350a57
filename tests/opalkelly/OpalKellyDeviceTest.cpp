#include "opalkelly/OpalKellyDevice.h"

#include <cerrno>
#include <climits>
#include <future>
#include <stdexcept>

#include <gmock/gmock.h>

#include "Interposed.h"
#include "LogCapture.h"
#include "ScriptedBoard.h"
#include "TemporaryFile.h"

namespace {

using namespace usb_tests;
using namespace std::chrono_literals;
using opalkelly::OpalKellyDevice;
using testing::ElementsAre;
using testing::IsEmpty;

struct Board : Scripted {
    Board() : Scripted(0x151F, 0x012B, Bytes{0x01, 0x02, 0x82}) {}
    OpalKellyDevice driver() const { return {open(), ""}; }
};

// The 32 bytes that precede each chunk, written out.
Bytes pipeSetup(int length, int blockSize, int pipe)
{
    const auto byte = [](int value) { return static_cast<std::uint8_t>(value & 0xFF); };
    // clang-format off
    return {byte(length), byte(length >> 8), 0, 0, byte(blockSize), byte(blockSize >> 8), 12, 0,
            0, 0, 1, 0, 0, 0, byte(pipe), 0,
            0, 0, 0, 1, 0, 0, 0, 0,
            1, 0, 0, 0, 0, 0, 0, 0};
    // clang-format on
}

const std::string writeSetup = "40 c6 0000 0000 32";
const std::string readSetup = "40 c6 0001 0000 32";

TEST(OpalKelly, WireInsTravelTogetherWhenUpdated)
{
    const Board board;
    auto driver = board.driver();
    driver.wireInWrite(0, 0x01020304);
    driver.wireInWrite(31, 0xFFEEDDCC);
    for (const int nowhere : {-1, 32, 63, 64, INT_MIN, INT_MAX})
        driver.wireInWrite(nowhere, 0x55555555);
    EXPECT_THAT(board.board->transfers(), IsEmpty());
    EXPECT_TRUE(driver.updateWireIns());
    Bytes expected(128);
    const Bytes first{4, 3, 2, 1}, last{0xCC, 0xDD, 0xEE, 0xFF};
    std::copy(first.begin(), first.end(), expected.begin());
    std::copy(last.begin(), last.end(), expected.end() - 4);
    EXPECT_THAT(board.board->transfers(), ElementsAre(Transfer{"40 c2 0000 0000 128", expected}));
}

TEST(OpalKelly, WireOutsAreFetchedTogether)
{
    const Board board;
    auto driver = board.driver();
    EXPECT_EQ(driver.wireOutRead(32) | driver.wireOutRead(63), 0U);
    interposed::takeTimeouts();
    EXPECT_TRUE(driver.updateWireOuts());
    EXPECT_THAT(interposed::takeTimeouts(), ElementsAre(2000U));
    EXPECT_THAT(board.board->heads(), ElementsAre("c0 c3 0000 0000 128"));
    const auto word = [](std::size_t at) {
        std::uint32_t value = 0;
        for (std::size_t i = 0; i < 4; ++i)
            value |= std::uint32_t{ScriptedBoard::readByte(0, at * 4 + i)} << (8 * i);
        return value;
    };
    EXPECT_EQ(driver.wireOutRead(32), word(0));
    EXPECT_EQ(driver.wireOutRead(63), word(31));
    for (const int nowhere : {-1, 0, 31, 64, INT_MIN, INT_MAX})
        EXPECT_EQ(driver.wireOutRead(nowhere), 0U) << nowhere;
}

TEST(OpalKelly, AnUpdateIsTrueWhenDataMoved)
{
    const struct {
        int answer;
        bool moved;
    } rows[] = {{128, true}, {4, true}, {0, false}, {-EPIPE, false}, {-EPROTO, false}};
    for (const auto& row : rows) {
        const Board board;
        auto driver = board.driver();
        board.board->answer(0, row.answer);
        board.board->answer(1, row.answer);
        EXPECT_EQ(driver.updateWireIns(), row.moved) << row.answer;
        EXPECT_EQ(driver.updateWireOuts(), row.moved) << row.answer;
        if (!row.moved) {
            EXPECT_EQ(driver.wireOutRead(32), 0U) << row.answer;
        }
    }
}

TEST(OpalKelly, APipeWriteGoesInChunksOf1024)
{
    const struct {
        int blockSize;
        std::size_t size;
    } rows[] = {{1024, 1024}, {1024, 4096}, {16, 16}, {16, 2064}, {1000, 3000}, {1, 1025}};
    for (const auto& row : rows) {
        const Board board;
        const Bytes data = pattern(row.size);
        auto driver = board.driver();
        interposed::takeTimeouts();
        EXPECT_TRUE(driver.writeToBlockPipeIn(0x9F, row.blockSize, data));
        EXPECT_THAT(interposed::takeTimeouts(), ElementsAre(2000U));
        std::vector<Transfer> expected;
        for (std::size_t at = 0; at < data.size(); at += 1024) {
            const std::size_t size = std::min<std::size_t>(1024, data.size() - at);
            expected.push_back({writeSetup, pipeSetup(static_cast<int>(size), row.blockSize, 0x9F)});
            expected.push_back({"out 02 " + std::to_string(size), slice(data, at, size)});
        }
        EXPECT_EQ(board.board->transfers(), expected) << row.blockSize << ' ' << row.size;
    }
}

TEST(OpalKelly, APipeReadGoesInChunksOf16384)
{
    const struct {
        int blockSize, length, blockSizeSent;
    } rows[] = {
        {1024, 16384, 1024},   {1024, 1024, 1024},      {16384, 49152, 16384},     {4, 16388, 4},
        {-1024, 2048, 0xFC00}, {-32768, 32768, 0x8000}, {-65536 + 512, 1024, 512}, // its low 16 bits are what the board
                                                                                   // gets
    };
    for (const auto& row : rows) {
        const Board board;
        auto driver = board.driver();
        interposed::takeTimeouts();
        const Bytes data = driver.readFromBlockPipeOut(0xA0, row.blockSize, row.length);
        EXPECT_THAT(interposed::takeTimeouts(), ElementsAre(2000U));
        std::vector<Transfer> expected;
        Bytes expectedData;
        for (int at = 0; at < row.length; at += 16384) {
            const int size = std::min(16384, row.length - at);
            expected.push_back({readSetup, pipeSetup(size, row.blockSizeSent, 0xA0)});
            expected.push_back({"in 82 " + std::to_string(size), {}});
            for (std::size_t i = 0; i < static_cast<std::size_t>(size); ++i)
                expectedData.push_back(ScriptedBoard::readByte(expected.size() - 1, i));
        }
        EXPECT_EQ(board.board->transfers(), expected) << row.blockSize << ' ' << row.length;
        EXPECT_EQ(data, expectedData) << row.blockSize << ' ' << row.length;
    }
}

TEST(OpalKelly, PipeArgumentsOutOfRangeSendNothing)
{
    const Board board;
    const auto driver = board.driver();
    const struct {
        const char* description;
        int pipe, blockSize;
        std::size_t size;
        bool result;
    } writes[] = {
        {"pipe below", 0x7F, 1024, 1024, false},      {"pipe above", 0xA0, 1024, 1024, false},
        {"block too large", 0x80, 1025, 1025, false}, {"no multiple", 0x80, 1024, 1025, false},
        {"blocks of nothing", 0x80, 0, 1024, false},  {"nothing in blocks of nothing", 0x80, 0, 0, false},
        {"negative block", 0x80, -1024, 1024, false}, {"least block", 0x80, INT_MIN, 1024, false},
        {"nothing to write", 0x80, 1024, 0, true},    {"nothing, and a wrong pipe", 0x10, 1024, 0, false},
    };
    for (const auto& row : writes)
        EXPECT_EQ(driver.writeToBlockPipeIn(static_cast<std::uint8_t>(row.pipe), row.blockSize, pattern(row.size)),
                  row.result)
            << row.description;
    const struct {
        const char* description;
        int pipe, blockSize, length;
    } reads[] = {
        {"pipe below", 0x9F, 1024, 1024},           {"pipe above", 0xC0, 1024, 1024},
        {"pipe far off", 0x1A0, 1024, 1024},        {"block too large", 0xA0, 16385, 16385},
        {"no multiple", 0xA0, 1024, 1025},          {"blocks of nothing", 0xA0, 0, 1024},
        {"16 bits of nothing", 0xA0, -65536, 1024}, {"least block", 0xA0, INT_MIN, 1024},
        {"nothing to read", 0xA0, 1024, 0},         {"negative length, wrong pipe", 0x80, 1024, -1024},
    };
    for (const auto& row : reads)
        EXPECT_THAT(driver.readFromBlockPipeOut(row.pipe, row.blockSize, row.length), IsEmpty()) << row.description;
    for (const int length : {-1024, -1, INT_MIN})
        EXPECT_THROW(driver.readFromBlockPipeOut(0xA0, 1024, length), std::length_error) << length;
    EXPECT_THAT(board.board->transfers(), IsEmpty());
}

TEST(OpalKelly, AShortOrFailedTransferEndsAPipeCall)
{
    for (const std::size_t failing : {0U, 1U, 2U, 3U}) { // setup, data, setup, data
        for (const int answer : {0, 31, -EPIPE, -EPROTO}) {
            const Board writing, reading;
            writing.board->answer(failing, answer);
            EXPECT_FALSE(writing.driver().writeToBlockPipeIn(0x80, 1024, pattern(3072))) << failing << ' ' << answer;
            EXPECT_EQ(writing.board->transfers().size(), failing + 1);
            reading.board->answer(failing, answer);
            EXPECT_THAT(reading.driver().readFromBlockPipeOut(0xA0, 1024, 49152), IsEmpty())
                << failing << ' ' << answer;
            EXPECT_EQ(reading.board->transfers().size(), failing + 1);
        }
    }
}

TEST(OpalKelly, AnUnplugEndsACallThatWaits)
{
    const struct {
        const char* description;
        std::size_t waitsIn; // number of the transfer that the board never answers
        bool (*succeeds)(OpalKellyDevice& driver);
    } rows[] = {
        {"wire-ins", 0, [](auto& driver) { return driver.updateWireIns(); }},
        {"wire-outs", 0, [](auto& driver) { return driver.updateWireOuts(); }},
        {"pipe write, setup", 2, [](auto& driver) { return driver.writeToBlockPipeIn(0x80, 1024, Bytes(4096)); }},
        {"pipe write, data", 3, [](auto& driver) { return driver.writeToBlockPipeIn(0x80, 1024, Bytes(4096)); }},
        {"pipe read, setup", 0, [](auto& driver) { return !driver.readFromBlockPipeOut(0xA0, 4, 32).empty(); }},
        {"pipe read, data", 1, [](auto& driver) { return !driver.readFromBlockPipeOut(0xA0, 4, 32).empty(); }},
    };
    for (const auto& row : rows) {
        Board board;
        auto driver = board.driver();
        board.board->hold(row.waitsIn);
        auto result = std::async(std::launch::async, [&] { return row.succeeds(driver); });
        board.board->waitFor(row.waitsIn + 1);
        board.handle.unplug();
        EXPECT_FALSE(result.get()) << row.description;
        EXPECT_FALSE(row.succeeds(driver)) << row.description << ", after the unplug";
    }
}

TEST(OpalKelly, WithoutADeviceEveryTransferFails)
{
    LogCapture log;
    OpalKellyDevice driver(nullptr, "");
    EXPECT_FALSE(driver.updateWireIns());
    EXPECT_FALSE(driver.updateWireOuts());
    EXPECT_FALSE(driver.writeToBlockPipeIn(0x80, 4, Bytes(4)));
    EXPECT_THAT(driver.readFromBlockPipeOut(0xA0, 4, 4), IsEmpty());
    EXPECT_EQ(driver.configure("/nonexistent/logic.bit"), 0);
}

std::vector<std::chrono::milliseconds> waits;
ScriptedBoard* waitingFor = nullptr;
std::vector<std::size_t> transfersAtWaits;
void noteWait(std::chrono::milliseconds time)
{
    waits.push_back(time);
    transfersAtWaits.push_back(waitingFor->transfers().size());
}

Bytes flashSetup(std::uint32_t size)
{
    Bytes block(4096);
    const Bytes mark{0x3D, 0x7C, 0x09, 0xBE};
    std::copy(mark.begin(), mark.end(), block.begin());
    for (std::size_t i = 0; i < 4; ++i)
        block[8 + i] = static_cast<std::uint8_t>(size >> (8 * i));
    return block;
}

TEST(OpalKelly, AConfigurationIsAnnouncedAndWrittenInChunksBetweenWaits)
{
    EXPECT_EQ(opalkelly::generateFlashSetupBytes(0x12345678), flashSetup(0x12345678));
    for (const std::size_t size : {0U, 4U, 16384U, 40000U}) {
        const Board board;
        waits.clear();
        transfersAtWaits.clear();
        waitingFor = board.board.get();
        const Bytes bytes = pattern(size);
        const auto device = board.open();
        interposed::takeTimeouts();
        EXPECT_NE(opalkelly::opkFlashDevice(*device, bytes, &noteWait), 0);
        EXPECT_THAT(interposed::takeTimeouts(), ElementsAre(2000U));
        std::vector<Transfer> expected{{"40 c0 0001 0000 4096", flashSetup(static_cast<std::uint32_t>(size))}};
        for (std::size_t at = 0; at < size; at += 16384) {
            const std::size_t chunk = std::min<std::size_t>(16384, size - at);
            expected.push_back({"out 01 " + std::to_string(chunk), slice(bytes, at, chunk)});
        }
        EXPECT_EQ(board.board->transfers(), expected) << size;
        EXPECT_THAT(waits, ElementsAre(500ms, 500ms));
        EXPECT_THAT(transfersAtWaits, ElementsAre(0U, 1U));
    }
}

TEST(OpalKelly, AConfigurationFailsOnlyWhenAWriteMovesNothing)
{
    const struct {
        const char* description;
        std::size_t transfer;
        int answer, result;
        std::size_t transfers;
    } rows[] = {
        {"the announcement stalls", 0, -EPIPE, 1, 4}, {"the announcement moves nothing", 0, 0, 1, 4},
        {"a chunk moves nothing", 2, 0, 0, 3},        {"a chunk falls short", 2, 17, 1, 4},
        {"a chunk fails", 2, -EPROTO, 1, 4},
    };
    for (const auto& row : rows) {
        const Board board;
        waitingFor = board.board.get();
        board.board->answer(row.transfer, row.answer);
        EXPECT_EQ(opalkelly::opkFlashDevice(*board.open(), Bytes(40000), &noteWait), row.result) << row.description;
        EXPECT_EQ(board.board->transfers().size(), row.transfers) << row.description;
    }
}

TEST(OpalKelly, BlocksThatNeverEndAreNotWritten)
{
    const Board board;
    const auto device = board.open();
    const Bytes bytes = pattern(5), nothing;
    for (const int blockSize : {0, -1, INT_MIN}) {
        EXPECT_EQ(opalkelly::usbBlockWrite(*device, 2, bytes.begin(), bytes.end(), blockSize), 0) << blockSize;
        EXPECT_NE(opalkelly::usbBlockWrite(*device, 2, nothing.begin(), nothing.end(), blockSize), 0) << blockSize;
    }
    EXPECT_THAT(board.board->transfers(), IsEmpty());
    EXPECT_NE(opalkelly::usbBlockWrite(*device, 2, bytes.begin(), bytes.end(), 2), 0);
    EXPECT_THAT(board.board->heads(), ElementsAre("out 02 2", "out 02 2", "out 02 1"));
}

// With the real waits: a second each.
TEST(OpalKelly, TheConstructorConfiguresFromAFileThatIsNamed)
{
    LogCapture log;
    const TemporaryFile file({0x00, 0x09, 0xFF, 0x77});
    const Board board, unread;
    const auto begin = std::chrono::steady_clock::now();
    const OpalKellyDevice driver(board.open(), file.path());
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 1s);
    EXPECT_THAT(board.board->transfers(), ElementsAre(Transfer{"40 c0 0001 0000 4096", flashSetup(8)},
                                                      Transfer{"out 01 8", {0, 0xFF, 0, 0, 0, 0x77, 0, 0}}));
    EXPECT_NE(unread.driver().configure("/nonexistent/logic.bit"), 0) << "announces nothing, and logs it";
    EXPECT_THAT(unread.board->transfers(), ElementsAre(Transfer{"40 c0 0001 0000 4096", flashSetup(0)}));
    EXPECT_EQ(log.lines().size(), 1U);
}

} // namespace
