#include <atomic>
#include <random>
#include <thread>

#include <gmock/gmock.h>

#include "Boards.h"

using namespace packets;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

Words wordsOf(const Bytes& bytes)
{
    Words words(bytes.size() / 4);
    std::memcpy(words.data(), bytes.data(), 4 * words.size());
    return words;
}

std::size_t sizeOf(PacketQueue& queue)
{
    PacketRun run;
    queue.dequeueAll(run);
    const std::size_t size = run.size();
    queue.enqueueAll(run);
    return size;
}

// One set of tests for both kinds of boards.
template <class Kind>
struct ReaderWriter : testing::Test {
    Kind board;
    PacketQueue transmit, receive;
    typename Kind::ReaderWriter readerWriter = board.connect(transmit, receive);
};
using Kinds = testing::Types<DevKit, OpalKelly>;
TYPED_TEST_SUITE(ReaderWriter, Kinds);

} // namespace

// By dispatcher and by queue, with clients that keep, queue and ignore packets.
TYPED_TEST(ReaderWriter, HandsPacketsToTheirClients)
{
    std::mt19937 random(5);
    Words blocks;
    while (blocks.size() < 200 * BlockWords) // ids up to 15, Ev32 and Raw
        blocks.push_back(random() % 30 ? static_cast<std::uint32_t>(random()) & 0xFFFF'4FFF : 0);
    blocks.resize(201 * BlockWords); // where the last packet may end
    const std::vector<Words> sent = packetsIn(blocks);
    std::vector<Words> expectedKept, expectedQueued, kept;
    for (const Words& words : sent)
        if (const auto id = header::moduleId.get(words[0]); id < 10)
            (id < 5 ? expectedKept : expectedQueued).push_back(words);
    PacketQueue client;
    const auto dispatcher = std::make_shared<PacketDispatcher>();
    const pktfunc keep = [&](PacketPtr packet) {
        kept.push_back(wireOf(*packet));
        Keplin::putPacketBuffer(std::move(packet));
    };
    for (std::uint8_t id = 0; id < 10; ++id) {
        dispatcher->setDispatchEntryEv32(id, id < 5 ? keep : enqueueInto(client));
        dispatcher->setDispatchEntryRaw(id, id < 5 ? keep : enqueueInto(client));
    }
    const PoolStats before = poolStats();
    for (const bool dispatched : {false, true}) {
        ASSERT_TRUE(this->readerWriter.setPacketDispatcher(dispatched ? dispatcher : nullptr));
        for (auto from = blocks.begin(); from != blocks.end();) {
            const auto number = std::min(static_cast<std::ptrdiff_t>(random() % 17 * BlockWords), blocks.end() - from);
            this->board.reads = {bytesOf({from, from + number})};
            this->readerWriter.singleShotReadWrite();
            from += number;
        }
        if (dispatched) {
            EXPECT_EQ(kept, expectedKept);
            EXPECT_EQ(drain(client), expectedQueued);
            EXPECT_THAT(drain(this->receive), IsEmpty());
        } else {
            EXPECT_EQ(drain(this->receive), sent);
        }
        EXPECT_EQ(poolStats().inUse(), before.inUse());
    }
}

TYPED_TEST(ReaderWriter, SendsWhatTheCreditAllows)
{
    const Words small = wireOf(*packet(2, PktFmt::Ev32, {1, 2, 3, 4})),
                full = wireOf(*packet(2, PktFmt::Raw, Bytes(256, 7)));
    const std::size_t most = 1 + (TypeParam::mostWords - small.size()) / full.size();
    const struct {
        const char* what;
        std::uint32_t credit;
        std::size_t waiting, sent; // packets: a small one, then full ones
    } rows[] = {
        {"none", 0, 1, 0},
        {"too little for the first", 1, 1, 0},
        {"below zero", 0xFFFF'FF00, 1, 0},
        {"most negative", 0x8000'0000, 1, 0},
        {"exact", 2, 1, 1},
        {"the second waits", 66, 2, 1},
        {"one block", 255, 4, 4},
        {"two blocks", 262, 5, 5},
        {"more than one write takes", 100'000, 300, most},
        {"most positive", 0x7FFF'FFFF, 2, 2},
        {"nothing to send", 1'000, 0, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        Words expected;
        for (std::size_t i = 0; i < row.waiting; ++i) {
            this->transmit.enqueue(i == 0 ? packet(2, PktFmt::Ev32, {1, 2, 3, 4})
                                          : packet(2, PktFmt::Raw, Bytes(256, 7)));
            if (i < row.sent)
                expected = expected + (i == 0 ? small : full);
        }
        expected.resize((expected.size() + BlockWords - 1) / BlockWords * BlockWords);
        this->board.reads = {bytesOf(block(50, {}) + block(row.credit, {}))};
        this->readerWriter.singleShotReadWrite();
        ASSERT_THAT(this->board.writes, SizeIs(row.sent > 0 ? 1 : 0));
        EXPECT_EQ(row.sent > 0 ? wordsOf(this->board.writes[0]) : Words(), expected);
        EXPECT_EQ(sizeOf(this->transmit), row.waiting - row.sent);
        this->board.writes.clear();
        this->transmit.clear();
    }
}

TYPED_TEST(ReaderWriter, SendsAPacketWithoutPayloadAsTheBoardTakesIt)
{
    for (const std::size_t size : {0, 4, 0})
        this->transmit.enqueue(packet(2, PktFmt::Raw, Bytes(size, 7)));
    const PoolStats before = poolStats();
    this->board.reads = {bytesOf(block(100, {})), bytesOf(block(100, {}))};
    this->readerWriter.singleShotReadWrite();
    ASSERT_THAT(this->board.writes, SizeIs(1));
    const Words expected = TypeParam::sendsEmptyPackets ? Words{0xFFFF'FFFF, 0x0003'4203, 0x0707'0707, 0xFFFF'FFFF}
                                                        : Words{0x0003'4203, 0x0707'0707};
    EXPECT_EQ(block(0, wordsOf(this->board.writes[0])), block(0, expected)) << "and zeros behind";
    EXPECT_EQ(poolStats(), (PoolStats{before.inCirculation, before.inPool + 3}));

    this->transmit.enqueue(packet(2, PktFmt::Raw, {}));
    this->readerWriter.singleShotReadWrite();
    EXPECT_THAT(this->board.writes, SizeIs(TypeParam::sendsEmptyPackets ? 2 : 1));
    EXPECT_EQ(this->transmit.peekUnsafe(), nullptr);
}

TEST(KeplinReaderWriterCredit, LastsUntilTheNextBlock)
{
    DevKit board;
    PacketQueue transmit, receive;
    KeplinReaderWriter readerWriter(board, transmit, receive);
    board.reads = {bytesOf(block(5, {}))};
    for (int i = 0; i < 3; ++i)
        transmit.enqueue(packet(2, PktFmt::Raw, {1}));
    readerWriter.singleShotReadWrite(); // sends two of them; 1 word is left
    readerWriter.singleShotReadWrite(); // a read without any block
    EXPECT_EQ(sizeOf(transmit), 1U);
    transmit.clear();
    transmit.enqueue(packet(2, PktFmt::Raw, {})); // 1 word
    readerWriter.singleShotReadWrite();
    EXPECT_EQ(sizeOf(transmit), 0U);
    EXPECT_THAT(board.writes, SizeIs(2));
}

TYPED_TEST(ReaderWriter, StartsStopsAndKeepsThePacketThatWasCut)
{
    const Words whole = wireOf(*packet(2, PktFmt::Raw, Bytes(256, 9)));
    Words first = block(0, Words(250, 0x0000'0203U)); // 125 packets of two words
    std::copy_n(whole.begin(), 5, first.end() - 5);
    ASSERT_TRUE(this->readerWriter.setPacketDispatcher(nullptr));
    this->readerWriter.stop();
    this->board.reads = {bytesOf(first)};
    this->readerWriter.start();
    this->readerWriter.start();
    EXPECT_FALSE(this->readerWriter.setPacketDispatcher(std::make_shared<PacketDispatcher>()));
    this->board.waitFor([&] { return this->board.readCount >= 3; });
    this->readerWriter.stop();
    EXPECT_EQ(drain(this->receive), std::vector<Words>(125, Words{0x203, 0x203}));

    this->board.reads = {bytesOf(block(10, {whole.begin() + 5, whole.end()}))};
    this->transmit.enqueue(packet(3, PktFmt::Raw, {1}));
    this->readerWriter.start();
    this->board.waitFor([&] { return !this->board.writes.empty(); });
    this->readerWriter.stop();
    EXPECT_EQ(drain(this->receive), std::vector<Words>{whole});
    EXPECT_TRUE(this->readerWriter.setPacketDispatcher(std::make_shared<PacketDispatcher>()));
    EXPECT_EQ(this->board.writeCount, 1);
}

TYPED_TEST(ReaderWriter, StartsUnderLoadAndStopsAHundredTimes)
{
    Words full(1, 77);
    while (full.size() < BlockWords - 7)
        full = full + Words{0x0000'0203, 1, 0x0000'4303, 2, 0x0000'0407, 3, 4};
    full.resize(BlockWords);
    this->board.idle = bytesOf(full + full);
    this->board.keepsWrites = false;
    const auto dispatcher = std::make_shared<PacketDispatcher>();
    PacketQueue client;
    std::atomic<int> called = 0;
    dispatcher->setDispatchEntryEv32(2, enqueueInto(client));
    ASSERT_TRUE(this->readerWriter.setPacketDispatcher(dispatcher));
    const std::uint32_t inUse = poolStats().inUse();
    std::atomic<bool> done = false;
    std::thread user([&] {
        while (!done) {
            this->transmit.enqueue(packet(2, PktFmt::Raw, {1, 2, 3}));
            client.clear();
            dispatcher->setDispatchEntryRaw(3, [&](PacketPtr packet) {
                ++called;
                Keplin::putPacketBuffer(std::move(packet));
            });
            poolStats();
        }
    });
    for (int i = 0; i < 100; ++i) {
        const int before = this->board.readCount; // nobody reads now
        this->readerWriter.start();
        this->board.waitFor([&] { return this->board.readCount > before; });
        this->readerWriter.stop();
    }
    done = true;
    user.join();
    EXPECT_GT(called, 0);
    client.clear();
    this->transmit.clear();
    EXPECT_EQ(poolStats().inUse(), inUse);
}

TEST(OkReaderWriterTest, IsStoppedByItsEndAndNeedsADeviceToStart)
{
    OpalKelly board;
    PacketQueue transmit, receive;
    const PoolStats before = poolStats();
    {
        OkReaderWriter<OpalKelly> readerWriter(&board, transmit, receive), idle(nullptr, transmit, receive);
        board.reads = {bytesOf(block(0, Words(255, 0x0000'02FFU)))}; // 3 packets of 65 words, 60 words of another
        readerWriter.start();
        idle.start();
        EXPECT_TRUE(idle.setPacketDispatcher(nullptr)) << "it did not start";
        idle.singleShotReadWrite();
        board.waitFor([&] { return board.readCount >= 2; });
    }
    EXPECT_THAT(drain(receive), SizeIs(3));
    EXPECT_EQ(poolStats().inUse(), before.inUse());
}

TEST(KeplinReaderWriterDeathTest, MustBeStoppedBeforeItsEnd)
{
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    const auto forget = [] {
        DevKit board;
        PacketQueue transmit, receive;
        KeplinReaderWriter readerWriter(board, transmit, receive);
        readerWriter.start();
    };
    EXPECT_DEATH(forget(), "");
}
