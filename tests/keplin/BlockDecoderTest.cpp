#include "keplin/BlockDecoder.h"

#include <algorithm>
#include <functional>
#include <random>

#include <gtest/gtest.h>

#include "Packets.h"
#include "keplin/PacketDelivery.h"

using namespace packets;

namespace {

/// The packets that reads of these words give.
std::vector<Words> decode(const std::vector<Bytes>& reads, std::int32_t& credit)
{
    BlockDecoder decoder;
    PacketDelivery::Memory memory;
    PacketQueue queue;
    for (const Bytes& read : reads) {
        PacketDelivery delivery(nullptr, queue, memory);
        credit = decoder.decode(read, -7, delivery);
    }
    return drain(queue);
}

/// A packet for module 2 of `size` words, each of its own value.
Words words(std::uint32_t size)
{
    static std::uint32_t value = 0;
    Words result{0x0000'0200U | (4 * size - 5)};
    while (result.size() < size)
        result.push_back(++value);
    return result;
}

} // namespace

TEST(BlockDecoder, FindsPacketsInBlocks)
{
    const Words two = words(2), three = words(3), twenty = words(20), full = words(65), three65 = full + full + full;
    const Words upTo249 = words(54) + three65, upTo255 = words(60) + three65;
    const auto head = [](const Words& all, std::ptrdiff_t n) { return Words(all.begin(), all.begin() + n); };
    const auto tail = [](const Words& all, std::ptrdiff_t n) { return Words(all.begin() + n, all.end()); };
    const struct {
        const char* what;
        std::vector<Words> reads;
        Words packets; // one after another
        std::int32_t credit;
    } rows[] = {
        {"nothing read leaves the credit", {{}}, {}, -7},
        {"the last block's credit counts, and is signed", {block(5, {}) + block(0xFFFF'FFFF, {})}, {}, -1},
        {"a zero ends the block", {block(1, two + Words{0} + two) + block(2, three)}, two + three, 2},
        {"a credit is no header", {block(1, upTo255) + block(0x203, two)}, upTo255 + two, 0x203},
        {"from word 250: 6 words here, 14 there, in the next read",
         {block(0, upTo249 + head(twenty, 6)), block(0, tail(twenty, 6) + two)},
         upTo249 + twenty + two,
         0},
        {"not finished", {block(0, upTo249 + head(twenty, 6))}, upTo249, 0},
        {"a read that is cut short ends in zeros", {{1, 0x204, 0xAA}}, {0x204, 0xAA, 0}, 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        std::vector<Bytes> reads;
        for (const Words& read : row.reads)
            reads.push_back(bytesOf(read));
        std::int32_t credit = 0;
        Words found;
        for (const Words& packet : decode(reads, credit))
            found = found + packet;
        EXPECT_EQ(found, row.packets);
        EXPECT_EQ(credit, row.credit);
    }
}

// A board may send anything: each word that is not zero may be read as a header. The place where a read ends does not
// matter.
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
        for (int round = 0; round < 60; ++round) {
            Words blocks((1 + next() % 12) * BlockWords);
            std::generate(blocks.begin(), blocks.end(), row.word);
            std::vector<Bytes> reads(1);
            for (std::size_t at = 0; at < blocks.size(); at += BlockWords) {
                if (next() % 3 == 0)
                    reads.emplace_back();
                const auto from = blocks.begin() + static_cast<std::ptrdiff_t>(at);
                const Bytes bytes = bytesOf({from, from + BlockWords});
                reads.back().insert(reads.back().end(), bytes.begin(), bytes.end());
            }
            std::int32_t credit = 0;
            ASSERT_EQ(decode(reads, credit), packetsIn(blocks)) << row.what;
            EXPECT_EQ(credit, static_cast<std::int32_t>(blocks[blocks.size() - BlockWords]));
        }
}
