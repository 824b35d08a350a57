#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Packets.h"
#include "keplin/io/KeplinReaderWriter.h"
#include "keplin/io/LoopThread.h"
#include "keplin/io/OkReaderWriter.h"

using namespace packets;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

/// What both transports have in common: reads that are given beforehand, and then one that is the same for ever.
struct Board {
    Bytes nextRead()
    {
        const std::lock_guard lock(mutex);
        ++readCount;
        changed.notify_all();
        if (reads.empty())
            return idle;
        Bytes read = std::move(reads.front());
        reads.pop_front();
        return read;
    }
    void noteWrite(const Bytes& data)
    {
        const std::lock_guard lock(mutex);
        writes.push_back(data);
        changed.notify_all();
    }
    template <class Condition>
    void waitFor(Condition condition)
    {
        std::unique_lock lock(mutex);
        changed.wait(lock, condition);
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Bytes> reads;
    Bytes idle;
    std::vector<Bytes> writes;
    int readCount = 0;
};

struct Endpoint : Board, KeplinEndpoint {
    Bytes readKeplinEndpoint(int blocks) override
    {
        EXPECT_EQ(blocks, 8);
        return nextRead();
    }
    bool writeKeplinEndpoint(const Bytes& data) override
    {
        noteWrite(data);
        return false; // which nobody asks for
    }
};

struct Device : Board {
    Bytes readFromBlockPipeOut(int pipe, int blockSize, int length)
    {
        EXPECT_EQ(pipe, 0xA0);
        EXPECT_EQ(blockSize, 1024);
        EXPECT_EQ(length, 16'384);
        return nextRead();
    }
    bool writeToBlockPipeIn(std::uint8_t pipe, int blockSize, const Bytes& data)
    {
        EXPECT_EQ(pipe, 0x80);
        EXPECT_EQ(blockSize, 1024);
        noteWrite(data);
        return false;
    }
};

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

// One set of tests for both: `make` gives a reader/writer on a board.
struct DevKit {
    using Transport = Endpoint;
    using ReaderWriter = KeplinReaderWriter;
    static constexpr std::size_t mostWords = 4096;
    static constexpr bool sendsEmptyPackets = true;
    static ReaderWriter make(Transport& board, PacketQueue& transmit, PacketQueue& receive)
    {
        return {board, transmit, receive};
    }
};
struct OpalKelly {
    using Transport = Device;
    using ReaderWriter = OkReaderWriter<Device>;
    static constexpr std::size_t mostWords = 16'384;
    static constexpr bool sendsEmptyPackets = false;
    static ReaderWriter make(Transport& board, PacketQueue& transmit, PacketQueue& receive)
    {
        return {&board, transmit, receive};
    }
};

template <class Kind>
struct ReaderWriter : testing::Test {
    typename Kind::Transport board;
    PacketQueue transmit, receive;
    typename Kind::ReaderWriter readerWriter = Kind::make(board, transmit, receive);
};
using Kinds = testing::Types<DevKit, OpalKelly>;
TYPED_TEST_SUITE(ReaderWriter, Kinds);

} // namespace

TYPED_TEST(ReaderWriter, SendsWhatTheCreditAllows)
{
    const Words a = wireOf(*packet(2, PktFmt::Ev32, {1, 2, 3, 4})),
                full = wireOf(*packet(2, PktFmt::Raw, Bytes(256, 7)));
    const auto filled = [](Words words) {
        words.resize((words.size() + 255) / 256 * 256);
        return words;
    };
    const auto times = [](std::size_t n, const Words& words) {
        Words all;
        for (std::size_t i = 0; i < n; ++i)
            all = all + words;
        return all;
    };
    const std::size_t most = (TypeParam::mostWords - a.size()) / full.size();
    const struct {
        const char* what;
        std::uint32_t credit;
        std::size_t fullPackets; // after `a`
        std::vector<Words> writes;
        std::size_t left;
    } rows[] = {
        {"none", 0, 0, {}, 1},
        {"too little for the first", 1, 0, {}, 1},
        {"below zero", 0xFFFF'FF00, 0, {}, 1},
        {"most negative", 0x8000'0000, 0, {}, 1},
        {"exact", 2, 0, {filled(a)}, 0},
        {"the second waits", 66, 1, {filled(a)}, 1},
        {"one block", 255, 3, {filled(a + times(3, full))}, 0},
        {"two blocks", 262, 4, {filled(a + times(4, full))}, 0},
        {"more than one write takes", 100'000, 300, {filled(a + times(most, full))}, 300 - most},
        {"most positive", 0x7FFF'FFFF, 1, {filled(a + full)}, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        this->transmit.enqueue(packet(2, PktFmt::Ev32, {1, 2, 3, 4}));
        for (std::size_t i = 0; i < row.fullPackets; ++i)
            this->transmit.enqueue(packet(2, PktFmt::Raw, Bytes(256, 7)));
        this->board.reads = {bytesOf(block(50, {}) + block(row.credit, {}))};
        this->readerWriter.singleShotReadWrite();
        std::vector<Words> writes;
        for (const Bytes& write : this->board.writes)
            writes.push_back(wordsOf(write));
        EXPECT_EQ(writes, row.writes);
        EXPECT_EQ(sizeOf(this->transmit), row.left);
        this->board.writes.clear();
        this->transmit.clear();
    }
    this->board.reads = {bytesOf(block(1000, {}))};
    this->readerWriter.singleShotReadWrite();
    EXPECT_THAT(this->board.writes, IsEmpty()) << "nothing to send";
}

TYPED_TEST(ReaderWriter, SendsAPacketWithoutPayloadAsTheBoardTakesIt)
{
    for (const std::size_t size : {0, 4, 0})
        this->transmit.enqueue(packet(2, PktFmt::Raw, Bytes(size, 7)));
    const PoolStats before = poolStats();
    this->board.reads = {bytesOf(block(100, {}))};
    this->readerWriter.singleShotReadWrite();
    ASSERT_THAT(this->board.writes, SizeIs(1));
    Words words = wordsOf(this->board.writes[0]);
    EXPECT_THAT(words, SizeIs(256));
    words.resize(5);
    if (TypeParam::sendsEmptyPackets)
        EXPECT_THAT(words, ElementsAre(0xFFFF'FFFF, 0x0003'4203, 0x0707'0707, 0xFFFF'FFFF, 0));
    else
        EXPECT_THAT(words, ElementsAre(0x0003'4203, 0x0707'0707, 0, 0, 0));
    EXPECT_EQ(poolStats(), (PoolStats{before.inCirculation, before.inPool + 3}));

    this->transmit.enqueue(packet(2, PktFmt::Raw, {}));
    this->board.reads = {bytesOf(block(100, {}))};
    this->readerWriter.singleShotReadWrite();
    EXPECT_THAT(this->board.writes, SizeIs(TypeParam::sendsEmptyPackets ? 2 : 1));
    EXPECT_EQ(this->transmit.peekUnsafe(), nullptr);
}

TEST(KeplinReaderWriterCredit, LastsUntilTheNextBlock)
{
    Endpoint board;
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
    const Words head(whole.begin(), whole.begin() + 5), tail(whole.begin() + 5, whole.end());
    Words first = block(0, {});
    std::copy(head.begin(), head.end(), first.end() - 5);
    std::fill(first.begin() + 1, first.end() - 5, 0x0000'0203U); // 125 packets of two words
    ASSERT_TRUE(this->readerWriter.setPacketDispatcher(nullptr));
    this->readerWriter.stop();
    this->board.reads = {bytesOf(first)};
    this->readerWriter.start();
    this->readerWriter.start();
    EXPECT_FALSE(this->readerWriter.setPacketDispatcher(std::make_shared<PacketDispatcher>()));
    this->board.waitFor([&] { return this->board.readCount >= 3; });
    this->readerWriter.stop();
    EXPECT_EQ(drain(this->receive), std::vector<Words>(125, Words{0x203, 0x203}));

    this->board.reads = {bytesOf(block(10, tail))};
    this->transmit.enqueue(packet(3, PktFmt::Raw, {1}));
    this->readerWriter.start();
    this->board.waitFor([&] { return !this->board.writes.empty(); });
    this->readerWriter.stop();
    EXPECT_EQ(drain(this->receive), std::vector<Words>{whole});
    EXPECT_TRUE(this->readerWriter.setPacketDispatcher(std::make_shared<PacketDispatcher>()));
    EXPECT_EQ(this->board.writes.size(), 1U);
}

TYPED_TEST(ReaderWriter, StartsUnderLoadAndStopsAHundredTimes)
{
    Words full(1, 77);
    while (full.size() < 256)
        full = full + Words{0x0000'0203, 1, 0x0000'4303, 2, 0x0000'0407, 3, 4};
    full.resize(256);
    this->board.idle = bytesOf(full + full);
    const auto dispatcher = std::make_shared<PacketDispatcher>();
    PacketQueue client;
    std::atomic<int> called = 0;
    dispatcher->setDispatchEntryEv32(2, enqueueInto(client));
    ASSERT_TRUE(this->readerWriter.setPacketDispatcher(dispatcher));
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
        this->readerWriter.start();
        const int before = [&] {
            const std::lock_guard lock(this->board.mutex);
            return this->board.readCount;
        }();
        this->board.waitFor([&] { return this->board.readCount > before; });
        this->readerWriter.stop();
        const std::lock_guard lock(this->board.mutex);
        this->board.writes.clear();
    }
    done = true;
    user.join();
    EXPECT_GT(called, 0);
}

TYPED_TEST(ReaderWriter, ACallbackMayEndTheLoop)
{
    const auto dispatcher = std::make_shared<PacketDispatcher>();
    std::atomic<int> calls = 0;
    dispatcher->setDispatchEntryRaw(2, [&](PacketPtr packet) {
        Keplin::putPacketBuffer(std::move(packet));
        this->readerWriter.stop();
        ++calls;
        calls.notify_all();
    });
    ASSERT_TRUE(this->readerWriter.setPacketDispatcher(dispatcher));
    for (int turn = 1; turn <= 3; ++turn) {
        this->board.reads = {bytesOf(block(0, {0x0000'4203, 1}))};
        this->readerWriter.start();
        calls.wait(turn - 1);
        EXPECT_TRUE(this->readerWriter.setPacketDispatcher(dispatcher)) << "it waits for the loop's end";
        EXPECT_EQ(calls, turn);
    }
}

// While another thread waits for the loop's end, and after the loop has ended itself.
TEST(LoopThreadTest, TheLoopItselfCanNeitherStartItNorChangeThings)
{
    LoopThread loop;
    for (const bool endsItself : {false, true}) {
        std::atomic<bool> entered = false, changed = false;
        loop.start([&] {
            entered = true;
            entered.notify_all();
            if (endsItself)
                loop.stop();
            while (loop.running())
                std::this_thread::yield();
            loop.start([] {});
            EXPECT_FALSE(loop.whileStopped([&] { changed = true; }));
        });
        entered.wait(false);
        loop.stop();
        EXPECT_FALSE(changed);
        EXPECT_TRUE(loop.whileStopped([&] { changed = true; }));
        EXPECT_TRUE(changed);
    }
}

// A start() that waits for the last loop's end holds the mutex; the stop() that comes meanwhile must end the new loop.
// Which of the two is first is not in our hands, so it is tried often.
TEST(LoopThreadTest, AStopEndsALoopThatIsJustBeingStarted)
{
    constexpr int rounds = 100;
    std::atomic<bool> forgotten = false; // a loop that nobody stopped
    for (int round = 0; round < rounds && !forgotten; ++round) {
        LoopThread loop;
        std::atomic<bool> mayEnd = false;
        std::atomic<int> calling = 0;
        loop.start([&] {
            loop.stop();
            mayEnd.wait(false);
        });
        while (loop.running())
            std::this_thread::yield();
        const auto call = [&](const auto& function) {
            return std::thread([&calling, function] {
                ++calling;
                function();
            });
        };
        const auto letThemWait = [&](int number) {
            for (int turns = 0; calling < number || turns < 20; ++turns)
                std::this_thread::yield();
        };
        std::thread starter = call([&] {
            loop.start([&] {
                const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
                while (loop.running() && !forgotten)
                    forgotten = std::chrono::steady_clock::now() > end;
            });
        });
        letThemWait(1);
        std::thread stopper = call([&] { loop.stop(); });
        letThemWait(2);
        mayEnd = true;
        mayEnd.notify_all();
        stopper.join();
        starter.join();
        loop.stop();
    }
    EXPECT_FALSE(forgotten);
}

TEST(OkReaderWriterTest, WithoutADeviceThereIsNothingToStart)
{
    PacketQueue transmit, receive;
    OkReaderWriter<Device> readerWriter(nullptr, transmit, receive);
    readerWriter.start();
    EXPECT_TRUE(readerWriter.setPacketDispatcher(nullptr)) << "it did not start";
    readerWriter.singleShotReadWrite();
    readerWriter.stop();
}

TEST(OkReaderWriterTest, IsStoppedByItsEnd)
{
    Device board;
    PacketQueue transmit, receive;
    const PoolStats before = poolStats();
    Words cut = block(0, {});
    std::fill(cut.begin() + 1, cut.end(), 0x0000'02FFU); // 3 packets of 65 words, and 60 words of another
    {
        OkReaderWriter<Device> readerWriter(&board, transmit, receive);
        board.reads = {bytesOf(cut), {}};
        readerWriter.start();
        board.waitFor([&] { return board.readCount >= 2; });
    }
    EXPECT_THAT(drain(receive), SizeIs(3));
    EXPECT_EQ(poolStats().inCirculation - poolStats().inPool, before.inCirculation - before.inPool);
}

TEST(KeplinReaderWriterDeathTest, MustBeStoppedBeforeItsEnd)
{
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    const auto forget = [] {
        Endpoint board;
        PacketQueue transmit;
        PacketQueue receive;
        KeplinReaderWriter readerWriter(board, transmit, receive);
        readerWriter.start();
    };
    EXPECT_DEATH(forget(), "");
}
