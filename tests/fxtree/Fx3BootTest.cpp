#include "fxtree/Fx3Boot.h"

#include <cerrno>
#include <future>
#include <stdexcept>

#include <gmock/gmock.h>

#include "Image.h"
#include "Interposed.h"
#include "ScriptedBoard.h"
#include "TemporaryFile.h"

namespace {

using namespace fxtree_tests;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::ThrowsMessage;
using usb_tests::Scripted;
using usb_tests::slice;
using usb_tests::Transfer;

struct Board : Scripted {
    Board() : Scripted(0x04B4, 0x00F3, Bytes{}) {}
};

// What a call prints to both streams.
template <class Function>
std::pair<std::string, std::string> printedBy(Function function)
{
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    function();
    std::string out = testing::internal::GetCapturedStdout();
    return {std::move(out), testing::internal::GetCapturedStderr()};
}

TEST(Fx3RamWrite, GoesInChunksAndPrintsEach)
{
    const Board board;
    const auto device = board.open();
    const Bytes bytes = usb_tests::pattern(4100);
    const auto [out, error] =
        printedBy([&] { EXPECT_EQ(fxtree::fx3RamWrite(*device, bytes.begin(), bytes.end(), 0x4000FC00), 0); });
    EXPECT_EQ(out, "start = 0end = 2048 size = 2048\nr = 2048\n"
                   "start = 2048end = 4096 size = 2048\nr = 2048\n"
                   "start = 4096end = 4100 size = 4\nr = 4\n");
    EXPECT_EQ(error, "");
    EXPECT_THAT(board.board->transfers(),
                ElementsAre(Transfer{"40 a0 fc00 4000 2048", slice(bytes, 0, 2048)},
                            Transfer{"40 a0 0400 4001 2048", slice(bytes, 2048, 2048)}, // carried into the high half
                            Transfer{"40 a0 0c00 4001 4", slice(bytes, 4096, 4)}));
    const Board wrapping;
    const auto [none, noError] = printedBy([&] { fxtree::fx3RamWrite(*wrapping.open(), Bytes(), 5); });
    EXPECT_EQ(none + noError, "");
    printedBy([&] { EXPECT_EQ(fxtree::fx3RamWrite(*wrapping.open(), Bytes(2052), 0xFFFFFC00), 0); });
    EXPECT_THAT(wrapping.board->heads(), ElementsAre("40 a0 fc00 ffff 2048", "40 a0 0400 0000 4"));
}

TEST(Fx3RamWrite, StopsAtTheFirstRequestThatFallsShort)
{
    const struct {
        int answer;
        const char* printed;
    } rows[] = {{0, "r = 0\n"}, {2047, "r = 2047\n"}, {-EPIPE, "r = -1\n"}};
    for (const auto& row : rows) {
        const Board board;
        board.board->answer(1, row.answer);
        const auto device = board.open();
        const auto [out, error] = printedBy([&] { EXPECT_EQ(fxtree::fx3RamWrite(*device, Bytes(6000), 0), -1); });
        EXPECT_EQ(out, "start = 0end = 2048 size = 2048\nr = 2048\nstart = 2048end = 4096 size = 2048\n" +
                           std::string(row.printed));
        EXPECT_EQ(error, "Error: Vendor write to FX3 RAM failed\n");
        EXPECT_EQ(board.board->transfers().size(), 2U);
    }
}

TEST(Fx3Boot, LoadsTheRecordsInOrderAndJumps)
{
    const Image image = Image().record(0x40000000, words(3, 1)).record(0x40013000, words(600, 2)).end(0x40013ABC);
    const TemporaryFile file(image.bytes);
    const Board board;
    fxtree::Fx3Boot boot(board.open());
    const auto [out, error] = printedBy([&] { EXPECT_EQ(boot.configure(file.path()), 0); });
    EXPECT_EQ(out, "start = 0end = 12 size = 12\nr = 12\n"
                   "start = 0end = 2048 size = 2048\nr = 2048\nstart = 2048end = 2400 size = 352\nr = 352\n");
    EXPECT_EQ(error, "");
    EXPECT_THAT(board.board->transfers(), ElementsAre(Transfer{"40 a0 0000 4000 12", slice(image.bytes, 12, 12)},
                                                      Transfer{"40 a0 3000 4001 2048", slice(image.bytes, 32, 2048)},
                                                      Transfer{"40 a0 3800 4001 352", slice(image.bytes, 2080, 352)},
                                                      Transfer{"40 a0 3abc 4001 0", {}}));
    EXPECT_THAT([&] { boot.configure("/nonexistent"); },
                ThrowsMessage<std::runtime_error>("Error: Device has already been programmed"));
}

TEST(Fx3Boot, EndsAsTheImageDoes)
{
    const struct {
        const char* description;
        Image image;
        int result;
        std::vector<std::string> heads;
        const char* error;
    } rows[] = {
        {"no record", Image(), 0, {}, ""},
        {"no last record", Image().record(0x100, {7}), 0, {"40 a0 0100 0000 4"}, ""},
        {"nothing but a last record", Image().end(0x200), 0, {"40 a0 0200 0000 0"}, ""},
        {"bytes behind the last record", Image().end(0x200).word(77), 0, {"40 a0 0200 0000 0"}, ""},
        {"a wrong checksum: written, not started",
         Image().record(0x100, {7}).end(0x100, 1),
         -4,
         {"40 a0 0100 0000 4"},
         "Error: Checksum error in firmware binary\n"},
        {"a sum that wraps",
         Image().record(0x100, {0xFFFFFFFF, 3}).end(0x100),
         0,
         {"40 a0 0100 0000 8", "40 a0 0100 0000 0"},
         ""},
    };
    for (const auto& row : rows) {
        const TemporaryFile file(row.image.bytes);
        const Board board;
        fxtree::Fx3Boot boot(board.open());
        const auto [out, error] =
            printedBy([&] { EXPECT_EQ(boot.configure(file.path()), row.result) << row.description; });
        EXPECT_EQ(board.board->heads(), row.heads) << row.description;
        EXPECT_EQ(error, row.error) << row.description;
        // only a success uses the object up
        if (row.result == 0)
            EXPECT_THROW(boot.configure(file.path()), std::runtime_error) << row.description;
        else
            printedBy([&] { EXPECT_EQ(boot.configure(file.path()), row.result) << row.description; });
    }
}

TEST(Fx3Boot, AFailedWriteIsToldTwiceAndMayBeTriedAgain)
{
    const TemporaryFile file(Image().record(0x100, {7}).record(0x200, {8}).end(0x100).bytes);
    const Board board;
    board.board->answer(1, -EPIPE);
    fxtree::Fx3Boot boot(board.open());
    const auto [out, error] = printedBy([&] { EXPECT_EQ(boot.configure(file.path()), -3); });
    EXPECT_EQ(error, "Error: Vendor write to FX3 RAM failed\nError: Failed to download data to FX3 RAM\n");
    EXPECT_EQ(board.board->transfers().size(), 2U);
    printedBy([&] { EXPECT_EQ(boot.configure(file.path()), 0); });
    EXPECT_EQ(board.board->transfers().size(), 5U);
}

TEST(Fx3Boot, TheAnswerToTheJumpIsNeverAFailure)
{
    const TemporaryFile file(Image().record(0x100, {7}).end(0x100).bytes);
    for (const std::size_t leavesAt : {0U, 1U}) { // the write to RAM, the jump
        Board board;
        board.board->hold(leavesAt);
        fxtree::Fx3Boot boot(board.open());
        auto unplugging = std::async(std::launch::async, [&] {
            board.board->waitFor(leavesAt + 1);
            board.handle.unplug();
        });
        interposed::takeTimeouts();
        const auto [out, error] = printedBy([&] { EXPECT_EQ(boot.configure(file.path()), leavesAt == 0 ? -3 : 0); });
        if (leavesAt == 0)
            continue;
        EXPECT_THAT(interposed::takeTimeouts(), ElementsAre(2000U, 5000U));
        EXPECT_EQ(out, "start = 0end = 4 size = 4\nr = 4\nInfo: Ignored error in control transfer: -1\n");
        EXPECT_EQ(error, "");
        EXPECT_THROW(boot.configure(file.path()), std::runtime_error) << "the object is used up";
    }
}

TEST(Fx3Boot, ADamagedImageIsRefusedBeforeAnythingIsSent)
{
    const TemporaryFile file(Image().record(0x100, words(600, 1)).word(5).word(0x2000).word(1).bytes);
    const Board board;
    fxtree::Fx3Boot boot(board.open());
    const auto [out, error] = printedBy([&] {
        EXPECT_THAT([&] { boot.configure(file.path()); },
                    ThrowsMessage<std::invalid_argument>(HasSubstr(file.path() + " ends at offset 2424, expected 5 ")));
    });
    EXPECT_EQ(out + error, "");
    EXPECT_THAT(board.board->transfers(), IsEmpty());

    const TemporaryFile mended(Image().record(0x100, {7}).bytes), empty(Image().bytes);
    printedBy([&] { EXPECT_EQ(boot.configure(mended.path()), 0); });
    printedBy([&] { EXPECT_EQ(fxtree::Fx3Boot(nullptr).configure(mended.path()), -3); });
    EXPECT_EQ(fxtree::Fx3Boot(nullptr).configure(empty.path()), 0);
}

} // namespace
