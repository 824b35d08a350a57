#include "keplin/BlockDecoder.h"

#include <functional>
#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Packets.h"
#include "keplin/PacketDelivery.h"
#include "keplin/io/KeplinReaderWriter.h"
#include "keplin/io/OkReaderWriter.h"

using namespace packets;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// The packets that reads of these words give.
std::vector<Words> decode(const std::vector<Bytes>& reads, std::int32_t* credit = nullptr)
{
    BlockDecoder decoder;
    PacketDelivery::Memory memory;
    PacketQueue queue;
    for (const Bytes& read : reads) {
        PacketDelivery delivery(nullptr, queue, memory);
        const std::int32_t last = decoder.decode(read, -7, delivery);
        if (credit)
            *credit = last;
    }
    return drain(queue);
}

/// A packet as a board sends it: any header that is not zero, any words.
Words someWords(std::mt19937& random, std::uint32_t length)
{
    Words words{header::length.put(length - 1) | header::moduleId.put(static_cast<std::uint32_t>(random() % 48 + 1)) |
                static_cast<std::uint32_t>(random() % 2 ? PktFmt::Ev32 : PktFmt::Raw)};
    while (words.size() < wordsOfSize(length))
        words.push_back(static_cast<std::uint32_t>(random()));
    return words;
}

/// A stream of packets, cut into blocks; now and then a block ends before it is full.
struct Stream {
    explicit Stream(unsigned seed)
    {
        std::mt19937 random(seed);
        Words block{static_cast<std::uint32_t>(random())};
        const auto finishBlock = [&] {
            block.resize(BlockWords);
            blocks.push_back(bytesOf(block));
            block = {0};
        };
        for (int i = 0; i < 3'000; ++i) {
            const std::uint32_t kind = static_cast<std::uint32_t>(random() % 4);
            packets.push_back(
                someWords(random, kind == 0 ? 256 : static_cast<std::uint32_t>(random() % (kind == 1 ? 256 : 12) + 1)));
            for (const std::uint32_t word : packets.back()) {
                if (block.size() == BlockWords)
                    finishBlock();
                block.push_back(word);
            }
            if (random() % 50 == 0)
                finishBlock(); // the rest of it is zero
        }
        finishBlock();
    }

    std::vector<Words> packets;
    std::vector<Bytes> blocks;
};

Bytes join(std::span<const Bytes> blocks)
{
    Bytes result;
    for (const Bytes& block : blocks)
        result.insert(result.end(), block.begin(), block.end());
    return result;
}

} // namespace

TEST(BlockDecoder, FindsPacketsInBlocks)
{
    std::mt19937 random(1);
    const Words two = someWords(random, 4), three = someWords(random, 8), twenty = someWords(random, 76),
                full = someWords(random, 256);
    ASSERT_EQ(twenty.size(), 20U);
    // packets that fill the words of a block up to the given one
    const std::vector<Words> upTo247{full, full, full, someWords(random, 4 * 51)},
        upTo249{two, full, full, full, upTo247[3]}, upTo255{full, full, full, someWords(random, 4 * 59)};
    const auto joined = [](const std::vector<Words>& packets) {
        Words words;
        for (const Words& packet : packets)
            words = words + packet;
        return words;
    };
    const auto head = [](const Words& words, std::ptrdiff_t n) { return Words(words.begin(), words.begin() + n); };
    const auto tail = [](const Words& words, std::ptrdiff_t n) { return Words(words.begin() + n, words.end()); };
    const auto with = [](std::vector<Words> packets, const std::vector<Words>& more) {
        packets.insert(packets.end(), more.begin(), more.end());
        return packets;
    };
    ASSERT_EQ(joined(upTo247).size(), 247U);
    ASSERT_EQ(joined(upTo255).size(), 255U);
    const struct {
        const char* what;
        std::vector<Bytes> reads;
        std::vector<Words> packets;
        std::int32_t credit;
    } rows[] = {
        {"all zeros", {bytesOf(block(0, {}))}, {}, 0},
        {"nothing read leaves the credit", {{}}, {}, -7},
        {"the last block's credit counts, and is signed", {bytesOf(block(5, {}) + block(0xFFFF'FFFF, {}))}, {}, -1},
        {"a zero ends the block", {bytesOf(block(1, two + three + Words{0} + twenty))}, {two, three}, 1},
        {"the next block begins anew", {bytesOf(block(1, two + Words{0} + two) + block(2, three))}, {two, three}, 2},
        {"a full block, and a credit that could be a header",
         {bytesOf(block(1, joined(upTo255)) + block(0x203, two))},
         with(upTo255, {two}),
         0x203},
        {"from word 250: 6 words here, 14 there",
         {bytesOf(block(0, joined(upTo249) + head(twenty, 6)) + block(0, tail(twenty, 6) + two))},
         with(upTo249, {twenty, two}),
         0},
        {"a header alone at the end",
         {bytesOf(block(0, joined(upTo247) + two + two + three + head(full, 1)) + block(9, tail(full, 1) + two))},
         with(upTo247, {two, two, three, full, two}),
         9},
        {"across two reads, whole after the second",
         {bytesOf(block(0, joined(upTo247) + head(twenty, 8))), bytesOf(block(0, tail(twenty, 8) + two))},
         with(upTo247, {twenty, two}),
         0},
        {"not finished", {bytesOf(block(0, joined(upTo247) + head(twenty, 8)))}, upTo247, 0},
        {"a read that is cut short ends in zeros", {Bytes{1, 0, 0, 0, 4, 2, 0, 0, 0xAA}}, {Words{0x204, 0xAA, 0}}, 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        std::int32_t credit = 0;
        EXPECT_EQ(decode(row.reads, &credit), row.packets);
        EXPECT_EQ(credit, row.credit);
    }
}

// The place where a read is cut is no matter of the packets.
TEST(BlockDecoder, GivesTheSamePacketsHoweverReadsAreCut)
{
    for (unsigned seed = 1; seed <= 4; ++seed) {
        const Stream stream(seed);
        std::mt19937 random(seed);
        std::vector<Bytes> reads;
        for (std::size_t at = 0; at < stream.blocks.size();) {
            const std::size_t number = std::min<std::size_t>(random() % 9, stream.blocks.size() - at);
            reads.push_back(join(std::span(stream.blocks).subspan(at, number)));
            at += number;
        }
        EXPECT_EQ(decode(reads), stream.packets) << "seed " << seed;
    }
}

namespace {

/// The packets in these blocks, found a word at a time.
std::vector<Words> wordByWord(const std::vector<Words>& blocks)
{
    std::vector<Words> packets;
    Words current;
    std::uint32_t missing = 0;
    for (const Words& block : blocks)
        for (std::size_t i = 1; i < block.size(); ++i) {
            if (missing == 0) {
                if (block[i] == 0)
                    break;
                current.clear();
                missing = (((block[i] & 0xFF) + 4) >> 2) + 1;
            }
            current.push_back(block[i]);
            if (--missing == 0)
                packets.push_back(current);
        }
    return packets;
}

} // namespace

// A board may send anything: each word that is not zero is a header to somebody.
TEST(BlockDecoder, MakesPacketsOfAnyWords)
{
    std::mt19937 random(2);
    const auto next = [&] { return static_cast<std::uint32_t>(random()); };
    const struct {
        const char* what;
        std::function<std::uint32_t()> word;
    } rows[] = {
        {"noise", next},
        {"short packets, many ends", [&] { return next() % 4 ? next() & 0xFFFF'FF03 : 0; }},
        {"long packets, few ends", [&] { return next() % 50 ? next() | 0xF0 : 0; }},
        {"all bits", [] { return 0xFFFF'FFFFU; }},
        {"headers of the shortest packet alone", [] { return 0x100U; }},
    };
    for (const auto& row : rows)
        for (int round = 0; round < 40; ++round) {
            std::vector<Words> blocks(1 + next() % 12, Words(BlockWords));
            std::vector<Bytes> reads(1);
            for (Words& block : blocks) {
                std::generate(block.begin(), block.end(), row.word);
                const Bytes bytes = bytesOf(block);
                if (next() % 3 == 0)
                    reads.emplace_back();
                reads.back().insert(reads.back().end(), bytes.begin(), bytes.end());
            }
            std::int32_t credit = 0;
            ASSERT_EQ(decode(reads, &credit), wordByWord(blocks)) << row.what;
            EXPECT_EQ(credit, static_cast<std::int32_t>(blocks.back()[0]));
        }
}

namespace {

struct Endpoint : KeplinEndpoint {
    std::function<Bytes(int)> read;
    Bytes readKeplinEndpoint(int blocks) override { return read(blocks); }
    bool writeKeplinEndpoint(const Bytes&) override { return true; }
};

struct Device {
    std::function<Bytes()> read;
    Bytes readFromBlockPipeOut(int, int, int) const { return read(); }
    bool writeToBlockPipeIn(std::uint8_t, int, const Bytes&) const { return true; }
};

} // namespace

// Both reader/writers, by dispatcher and by queue, with clients that keep, queue and ignore packets.
TEST(BlockDecoder, ServesBothReaderWritersAlike)
{
    const Stream stream(5);
    std::size_t next = 0;
    std::mt19937 random(5);
    const auto nextRead = [&] {
        const std::size_t number = std::min<std::size_t>(random() % 17, stream.blocks.size() - next);
        next += number;
        return join(std::span(stream.blocks).subspan(next - number, number));
    };
    const auto idOf = [](const Words& words) { return header::moduleId.get(words[0]); };
    std::vector<Words> expectedKept, expectedQueued;
    for (const Words& words : stream.packets)
        if (idOf(words) <= 20)
            expectedKept.push_back(words);
        else if (idOf(words) <= 40)
            expectedQueued.push_back(words);

    for (const bool dispatched : {false, true})
        for (const bool opalKelly : {false, true}) {
            SCOPED_TRACE(testing::Message()
                         << (dispatched ? "dispatched, " : "queued, ") << (opalKelly ? "Opal Kelly" : "dev kit"));
            const PoolStats before = poolStats();
            next = 0;
            PacketQueue transmit, receive, client;
            std::vector<Words> kept;
            std::shared_ptr<PacketDispatcher> dispatcher;
            if (dispatched) {
                dispatcher = std::make_shared<PacketDispatcher>();
                for (std::uint8_t id = 1; id <= 20; ++id) {
                    const auto keep = [&](PacketPtr packet) {
                        kept.push_back(wireOf(*packet));
                        Keplin::putPacketBuffer(std::move(packet));
                    };
                    dispatcher->setDispatchEntryEv32(id, keep);
                    dispatcher->setDispatchEntryRaw(id, keep);
                    dispatcher->setDispatchEntryEv32(static_cast<std::uint8_t>(20 + id), enqueueInto(client));
                    dispatcher->setDispatchEntryRaw(static_cast<std::uint8_t>(20 + id), enqueueInto(client));
                }
            }
            const auto run = [&](auto& readerWriter) {
                ASSERT_TRUE(readerWriter.setPacketDispatcher(dispatcher));
                while (next < stream.blocks.size())
                    readerWriter.singleShotReadWrite();
            };
            if (opalKelly) {
                Device device{[&] { return nextRead(); }};
                OkReaderWriter<Device> readerWriter(&device, transmit, receive);
                run(readerWriter);
            } else {
                Endpoint endpoint;
                endpoint.read = [&](int blocks) {
                    EXPECT_EQ(blocks, 8);
                    return nextRead();
                };
                KeplinReaderWriter readerWriter(endpoint, transmit, receive);
                run(readerWriter);
            }
            if (dispatched) {
                EXPECT_EQ(kept, expectedKept);
                EXPECT_EQ(drain(client), expectedQueued);
                EXPECT_THAT(drain(receive), IsEmpty());
            } else {
                EXPECT_EQ(drain(receive), stream.packets);
            }
            EXPECT_EQ(poolStats().inCirculation - poolStats().inPool, before.inCirculation - before.inPool);
        }
}
