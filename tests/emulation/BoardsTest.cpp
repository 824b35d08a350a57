// The boards by themselves: called as a port calls them, by a clock that the test moves.

#include <cerrno>
#include <chrono>

#include <gmock/gmock.h>

#include "Plugged.h"
#include "emulation/boards/AdcModule.h"
#include "emulation/boards/DacModule.h"
#include "emulation/boards/DevKit.h"
#include "emulation/boards/FaultyWire.h"
#include "emulation/boards/Fx3BootDevice.h"
#include "emulation/boards/LoopbackChip.h"
#include "emulation/boards/MemoryChip.h"
#include "emulation/boards/OpalKellyBoard.h"
#include "util/LittleEndian.h"

namespace {

using namespace emulation;
using namespace std::chrono_literals;
using BoardSetup = ::emulation::Setup; // not the test class's own
using Words = std::vector<std::uint32_t>;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using usb_tests::Bytes;
using usb_tests::pattern;
using usb_tests::slice;
using util::readLittleEndian;
using util::writeLittleEndian;

struct HandClock {
    Board::Time now{1h};
    Board::Clock clock()
    {
        return [this] { return now; };
    }
};

Bytes littleEndian(const Words& words)
{
    Bytes bytes(words.size() * 4);
    for (std::size_t i = 0; i < words.size(); ++i)
        writeLittleEndian(std::span(bytes), 4 * i, words[i]);
    return bytes;
}

// What a host writes: words, and zeros up to whole blocks.
Bytes blocksOf(const Words& words)
{
    Bytes bytes = littleEndian(words);
    bytes.resize((bytes.size() + 1023) / 1024 * 1024);
    return bytes;
}

BoardSetup write(std::uint8_t request, std::uint16_t value, std::uint16_t index = 0, std::size_t length = 0)
{
    return {0x40, request, value, index, static_cast<std::uint16_t>(length)};
}
BoardSetup read(std::uint8_t request, std::uint16_t value, std::uint16_t index = 0, std::size_t length = 0)
{
    return {0xC0, request, value, index, static_cast<std::uint16_t>(length)};
}

int send(Device& device, BoardSetup setup, Bytes data = {})
{
    setup.wLength = static_cast<std::uint16_t>(data.size());
    return device.controlTransfer(setup, data);
}

// Header and payload words, as the text of the protocol has them, with no help of the board's own classes.
Words packet(std::uint32_t module, std::uint32_t format, std::uint32_t extension, const Bytes& payload)
{
    const auto length = static_cast<std::uint32_t>(payload.size() - 1);
    Words words{length | module << 8 | format};
    if (format == 0x4000)
        words[0] |= length << 16 | extension << 24;
    Bytes padded = payload;
    padded.resize((payload.size() + 3) / 4 * 4);
    for (std::size_t at = 0; at < padded.size(); at += 4)
        words.push_back(readLittleEndian<std::uint32_t>(padded, at));
    return words;
}

struct Received {
    std::uint32_t credit = 0;
    Words packets; // all words of packets, one after another
};

// Takes packet words out of blocks; `missing` are the words of a packet that a read before ended in.
Received unpack(const Bytes& blocks, std::size_t& missing)
{
    Received received;
    for (std::size_t block = 0; block < blocks.size(); block += 1024) {
        received.credit = readLittleEndian<std::uint32_t>(blocks, block);
        for (std::size_t at = block + 4; at < block + 1024; at += 4) {
            const auto word = readLittleEndian<std::uint32_t>(blocks, at);
            if (missing == 0) {
                if (word == 0)
                    break;
                missing = ((word & 0xFF) + 4) / 4 + 1;
            }
            --missing;
            received.packets.push_back(word);
        }
    }
    return received;
}

Received unpack(const Bytes& blocks)
{
    std::size_t missing = 0;
    return unpack(blocks, missing);
}

// ---- FX3 in its boot state

TEST(Fx3BootDevice, HasRamWhereAnFx3HasIt)
{
    const struct {
        const char* what;
        std::uint32_t address;
        std::size_t size;
        bool good;
    } rows[] = {
        {"first instruction", 0x00000000, 4, true},  {"last of them", 0x00003FFF, 1, true},
        {"beyond them", 0x00003FFF, 2, false},       {"data", 0x10000000, 2048, true},
        {"end of data", 0x10001FFE, 2, true},        {"beyond data", 0x10002000, 1, false},
        {"system", 0x40000000, 2048, true},          {"end of system", 0x4007F800, 2048, true},
        {"across its end", 0x4007F801, 2048, false}, {"the last address", 0xFFFFFFFF, 2, false},
        {"below system", 0x3FFFFFFF, 2, false},
    };
    for (const auto& row : rows) {
        Fx3BootDevice device("A");
        const Bytes data = pattern(row.size);
        const auto low = static_cast<std::uint16_t>(row.address), high = static_cast<std::uint16_t>(row.address >> 16);
        EXPECT_EQ(send(device, write(0xA0, low, high), data), row.good ? int(row.size) : -EPIPE) << row.what;
        Bytes back(row.size);
        EXPECT_EQ(device.controlTransfer(read(0xA0, low, high, row.size), back), row.good ? int(row.size) : -EPIPE);
        EXPECT_EQ(back == data, row.good) << row.what;
        EXPECT_EQ(device.problems().size(), row.good ? 0U : 2U) << row.what;
    }
}

TEST(Fx3BootDevice, StartsOnlyAnImageThatCameWhole)
{
    const BoardSetup toRam = write(0xA0, 0x1000, 0x4000);
    const struct {
        const char* what;
        std::function<void(Fx3BootDevice&)> load;
        std::uint16_t entry;
        bool starts;
        const char* problem;
    } rows[] = {
        {"entry at the beginning", [&](auto& d) { send(d, toRam, Bytes(16)); }, 0x1000, true, ""},
        {"entry in the middle", [&](auto& d) { send(d, toRam, Bytes(16)); }, 0x100C, true, ""},
        {"entry half behind", [&](auto& d) { send(d, toRam, Bytes(16)); }, 0x100E, false, "nothing was written"},
        {"nothing written", [](auto&) {}, 0x1000, false, "nothing was written"},
        {"a write that was refused",
         [&](auto& d) {
             send(d, toRam, Bytes(16));
             send(d, write(0xA0, 0, 0x5000), Bytes(16));
         },
         0x1000, false, "didn't come whole"},
        {"a write that was cut",
         [&](auto& d) {
             BoardSetup cut = toRam;
             cut.wLength = 32;
             Bytes data(16);
             EXPECT_EQ(d.controlTransfer(cut, data), 16);
         },
         0x1000, false, "didn't come whole"},
    };
    for (const auto& row : rows) {
        Fx3BootDevice device("A");
        std::vector<std::uint32_t> entries;
        device.setOnStart([&](std::uint32_t entry) { entries.push_back(entry); });
        row.load(device);
        EXPECT_EQ(send(device, write(0xA0, row.entry, 0x4000)), row.starts ? 0 : -EPIPE) << row.what;
        EXPECT_EQ(device.isStarted(), row.starts) << row.what;
        EXPECT_EQ(entries.size(), row.starts ? 1U : 0U);
        if (row.starts) {
            EXPECT_EQ(entries[0], 0x40000000U + row.entry);
        } else {
            EXPECT_THAT(device.problems().back(), HasSubstr(row.problem)) << row.what;
        }
    }
}

// ---- dev kit: flash and FPGA

Bytes sizeAndAddress(std::uint32_t size, std::uint32_t address) { return littleEndian({size, address}); }

TEST(DevKit, RefusesWhatTheFirmwareDoesNotKnow)
{
    const std::uint32_t end = DevKit::flashSize;
    const struct {
        const char* what;
        BoardSetup setup;
        Bytes data;
        bool taken;
    } rows[] = {
        {"last sector", write(0xB0, 1, 255), {}, true},
        {"beyond it", write(0xB0, 1, 256), {}, false},
        {"erase with data", write(0xB0, 1, 0), {1}, false},
        {"erase with value 0", write(0xB0, 0, 0), {}, false},
        {"flash write to the end", write(0xB1, 1), sizeAndAddress(16, end - 16), true},
        {"flash write beyond", write(0xB1, 1), sizeAndAddress(17, end - 16), false},
        {"size that wraps", write(0xB1, 1), sizeAndAddress(0xFFFFFFFF, 2), false},
        {"empty flash write", write(0xB1, 1), sizeAndAddress(0, end), true},
        {"announcement of 7 bytes", write(0xB1, 1), Bytes(7), false},
        {"data never announced", write(0xB1, 0), Bytes(1), false},
        {"flash read beyond", write(0xB2, 1), sizeAndAddress(1, end), false},
        {"two sizes", write(0xC0, 1), sizeAndAddress(8, 9), false},
        {"no bitstream", write(0xC0, 1), sizeAndAddress(0, 0), false},
        {"huge bitstream", write(0xC0, 1), sizeAndAddress(0xFFFFFFFF, 0xFFFFFFFF), false},
        {"bitstream never announced", write(0xC0, 0), Bytes(1), false},
        {"from flash beyond its end", write(0xC1, 1), sizeAndAddress(16, end - 15), false},
        {"reset", write(0xC3, 1), {}, true},
        {"no such request", write(0xC4, 1), {}, false},
    };
    for (const auto& row : rows) {
        DevKit kit("A");
        EXPECT_EQ(send(kit, row.setup, row.data), row.taken ? int(row.data.size()) : -EPIPE) << row.what;
        EXPECT_EQ(kit.problems().size(), row.taken ? 0U : 1U) << row.what;
        EXPECT_EQ(kit.counters().refusedTransfers, row.taken ? 0U : 1U) << row.what;
    }
}

TEST(DevKit, NotesWhatWasAnnouncedAndNeverCame)
{
    DevKit kit("A");
    send(kit, write(0xB1, 1), sizeAndAddress(100, 0));
    send(kit, write(0xB1, 0), Bytes(60));
    send(kit, write(0xC0, 1), sizeAndAddress(50, 50));
    EXPECT_THAT(kit.problems(), ElementsAre("a flash write ended 40 bytes early"));
    EXPECT_FALSE(kit.isConfigured());
    send(kit, write(0xB2, 1), sizeAndAddress(1, 0));
    EXPECT_THAT(kit.problems().back(), HasSubstr("a bitstream ended 50 bytes early"));
    Bytes chunk(2), status(8);
    EXPECT_EQ(kit.controlTransfer(read(0xB2, 0, 0, 2), chunk), 2) << "one more than announced";
    EXPECT_EQ(kit.controlTransfer(read(0xB2, 0, 0, 2), chunk), -EPIPE) << "all that was announced is read";
    send(kit, write(0xC0, 1), sizeAndAddress(64, 64));
    for (const std::uint32_t configured : {0U, 1U}) {
        EXPECT_EQ(kit.controlTransfer(read(0xC2, 1, 0, 8), status), 8);
        EXPECT_EQ(status, littleEndian({configured, configured * 64}));
        send(kit, write(0xC0, 0), Bytes(64));
    }
}

// ---- the block stream

struct LoopKit {
    HandClock time;
    DevKit kit{"A", true, time.clock()};
    std::size_t missing = 0;

    LoopKit()
    {
        const auto loop = std::make_shared<LoopbackChip>();
        for (int id = 0; id < Packet::modules; ++id)
            kit.setModule(id, loop);
    }
    // Without waiting: by moving the clock when nothing else is to come.
    Received readBlocks(std::size_t count = 8)
    {
        Bytes blocks(count * 1024);
        if (kit.bulkIn(0x81, blocks) == pending) {
            time.now += 1ms;
            EXPECT_EQ(kit.bulkIn(0x81, blocks), int(blocks.size()));
        }
        return unpack(blocks, missing);
    }
    void sendWords(const Words& words)
    {
        const Bytes blocks = blocksOf(words);
        EXPECT_EQ(kit.bulkOut(0x01, blocks), int(blocks.size()));
    }
};

TEST(BlockStream, AnswersAtOnceWithNewsAndElseOnATick)
{
    LoopKit host;
    Bytes blocks(1024);
    ASSERT_EQ(host.kit.bulkIn(0x81, blocks), 1024) << "nothing was answered in the last millisecond";
    EXPECT_EQ(host.kit.pollAfter(), std::nullopt);
    EXPECT_EQ(host.kit.bulkIn(0x81, blocks), pending);
    EXPECT_EQ(host.kit.pollAfter(), host.time.now + 1ms);
    host.time.now += 999us;
    EXPECT_EQ(host.kit.bulkIn(0x81, blocks), pending);
    host.time.now += 1us;
    EXPECT_EQ(host.kit.bulkIn(0x81, blocks), 1024);

    host.sendWords(packet(2, 0x0000, 0, Bytes(8, 1)));
    EXPECT_EQ(host.kit.bulkIn(0x81, blocks), 1024) << "a packet waits";
    EXPECT_EQ(unpack(blocks).packets, packet(2, 0x0000, 0, Bytes(8, 1)));
    host.sendWords(packet(2, 0xC000, 0, Bytes(4)));
    EXPECT_EQ(host.kit.bulkIn(0x81, blocks), 1024) << "the chip is silent, but credit has come back";
    EXPECT_EQ(host.kit.bulkIn(0x81, blocks), pending);
    host.kit.cancelled(0x81);
    EXPECT_EQ(host.kit.pollAfter(), std::nullopt) << "nobody waits";
    for (const std::size_t size : {0U, 1U, 1023U, 1025U}) { // not whole blocks
        Bytes data(size);
        EXPECT_EQ(host.kit.bulkIn(0x81, data), -EOVERFLOW) << size;
    }
}

TEST(BlockStream, CountsWhatAHostDoesWrong)
{
    const Words good = packet(2, 0x4000, 1, {1, 2, 3});
    const auto with = [&](const Words& words) {
        Words result = words;
        result.insert(result.end(), good.begin(), good.end());
        return result;
    };
    const struct {
        const char* what;
        Words words;
        std::uint64_t BoardCounters::*counter;
        std::uint64_t count;
        bool problem, goodArrives;
    } rows[] = {
        {"an empty packet, one word", with({0xFFFFFFFF}), &BoardCounters::emptyPackets, 1, false, true},
        {"three of them", with({0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF}), &BoardCounters::emptyPackets, 3, false, true},
        {"second length in an event packet", with({0x00030203}), &BoardCounters::malformedPackets, 1, true, false},
        {"extension in a config packet", with({0x0100C203}), &BoardCounters::malformedPackets, 1, true, false},
        {"two lengths in a raw packet", with({0x00034204}), &BoardCounters::malformedPackets, 1, true, false},
        {"no such module", with(packet(7, 0x0000, 0, {1})), &BoardCounters::unclaimedPackets, 1, true, true},
        {"a zero ends the block", with({0}), &BoardCounters::packetsFromHost, 0, false, false},
    };
    for (const auto& row : rows) {
        LoopKit host;
        host.kit.setModule(7, nullptr);
        host.readBlocks();
        host.sendWords(row.words);
        EXPECT_EQ(host.kit.counters().*row.counter, row.count) << row.what;
        EXPECT_EQ(!host.kit.problems().empty(), row.problem) << row.what;
        EXPECT_EQ(host.readBlocks().packets, row.goodArrives ? good : Words{}) << row.what;
        host.sendWords(good);
        EXPECT_EQ(host.readBlocks().packets, good) << "the next block is well again after: " << row.what;
    }
}

TEST(BlockStream, CountsAndDropsWhatGoesBeyondTheCredit)
{
    LoopKit host;
    const Words two = packet(2, 0x0000, 0, Bytes(4, 9));
    host.sendWords(two); // no credit was ever announced
    EXPECT_EQ(host.kit.counters().wordsBeyondCredit, 2U);

    host.kit.setCreditLimit(5);
    EXPECT_EQ(host.readBlocks().credit, 5U);
    Words three = two;
    three.insert(three.end(), two.begin(), two.end());
    three.insert(three.end(), two.begin(), two.end());
    host.sendWords(three);
    EXPECT_EQ(host.kit.counters().wordsBeyondCredit, 4U);
    EXPECT_EQ(host.kit.counters().packetsFromHost, 2U);
    EXPECT_THAT(host.kit.problems().back(), "a packet of 2 words goes beyond the credit, of which 1 are left");
    EXPECT_EQ(host.readBlocks().packets.size(), 4U);

    for (const std::int64_t limit : {-2, 16385})
        EXPECT_THROW(host.kit.setCreditLimit(limit), std::invalid_argument);
    host.kit.setCreditLimit(0);
    EXPECT_EQ(host.readBlocks().credit, 0U);
    host.kit.setCreditLimit(-1);
    EXPECT_EQ(host.readBlocks().credit, BoardLogic::creditRoom);
}

TEST(BlockStream, CarriesNothingWithoutAConfigurationOrAfterAReset)
{
    LoopKit host;
    host.readBlocks();
    host.sendWords(packet(2, 0x0000, 0, {1, 2}));
    send(host.kit, write(0xC0, 1), sizeAndAddress(4, 4)); // takes the configuration away
    EXPECT_EQ(host.readBlocks().packets, Words{});
    EXPECT_EQ(host.readBlocks().credit, 0U);
    host.sendWords(packet(2, 0x0000, 0, {1, 2}));
    EXPECT_THAT(host.kit.problems().back(), HasSubstr("an FPGA that isn't running"));
    send(host.kit, write(0xC0, 0), Bytes(4, 1));
    EXPECT_EQ(host.readBlocks().credit, BoardLogic::creditRoom);
    EXPECT_EQ(host.kit.counters().packetsFromHost, 1U);

    host.sendWords(packet(2, 0x0000, 0, {1, 2}));
    send(host.kit, write(0xC3, 1));
    EXPECT_EQ(host.kit.fpgaResets(), 1U);
    const auto received = host.readBlocks();
    EXPECT_EQ(received.packets, Words{}) << "a reset empties the stream";
    EXPECT_EQ(received.credit, BoardLogic::creditRoom) << "still configured";
}

// ---- Opal Kelly board

Bytes pipeBlock(std::uint8_t pipe, std::size_t length, std::size_t blockSize)
{
    Bytes block(32);
    writeLittleEndian(block, 0, static_cast<std::uint16_t>(length));
    writeLittleEndian(block, 4, static_cast<std::uint16_t>(blockSize));
    block[6] = 12;
    block[14] = pipe;
    block[10] = block[19] = block[24] = 1;
    return block;
}

Bytes configurationBlock(std::uint32_t size)
{
    Bytes block(4096);
    writeLittleEndian(std::span(block), 0, 0xBE097C3DU);
    writeLittleEndian(std::span(block), 8, size);
    return block;
}

Bytes padded(const Bytes& bitstream)
{
    Bytes result;
    for (const std::uint8_t byte : bitstream)
        result.insert(result.end(), {0, byte, 0, 0});
    return result;
}

TEST(OpalKellyBoard, ChecksThePipesSetupToTheByte)
{
    const auto changed = [](std::size_t at) {
        Bytes block = pipeBlock(0xA0, 1024, 1024);
        block[at] ^= 1;
        return block;
    };
    const struct {
        const char* what;
        std::uint16_t value; // 0 write, 1 read
        Bytes block;
        bool taken;
    } rows[] = {
        {"a read", 1, pipeBlock(0xA0, 16384, 1024), true},
        {"a read in one block", 1, pipeBlock(0xA0, 16384, 16384), true},
        {"a write", 0, pipeBlock(0x80, 1024, 1024), true},
        {"a read of the write pipe", 1, pipeBlock(0x80, 1024, 1024), false},
        {"a write to the read pipe", 0, pipeBlock(0xA0, 1024, 1024), false},
        {"a pipe that isn't there", 1, pipeBlock(0xA1, 1024, 1024), false},
        {"a long write", 0, pipeBlock(0x80, 2048, 1024), false},
        {"a long read", 1, pipeBlock(0xA0, 17408, 1024), false},
        {"no length", 1, pipeBlock(0xA0, 0, 1024), false},
        {"no block size", 1, pipeBlock(0xA0, 1024, 0), false},
        {"half a block", 1, pipeBlock(0xA0, 1536, 1024), false},
        {"31 bytes", 1, Bytes(31), false},
        {"byte 2", 1, changed(2), false},
        {"byte 6", 1, changed(6), false},
        {"byte 10", 1, changed(10), false},
        {"byte 19", 1, changed(19), false},
        {"byte 24", 1, changed(24), false},
        {"byte 31", 1, changed(31), false},
    };
    for (const auto& row : rows) {
        OpalKellyBoard board("A", true);
        EXPECT_EQ(send(board, write(0xC6, row.value), row.block), row.taken ? int(row.block.size()) : -EPIPE)
            << row.what;
        EXPECT_EQ(board.problems().size(), row.taken ? 0U : 1U) << row.what;
    }
}

TEST(OpalKellyBoard, MovesExactlyWhatThePipesSetupAnnounced)
{
    HandClock time;
    OpalKellyBoard board("A", true, time.clock());
    board.setModule(2, std::make_shared<LoopbackChip>());
    Bytes large(4096);
    EXPECT_EQ(board.bulkIn(0x82, large), -EPIPE) << "no setup";
    send(board, write(0xC6, 1), pipeBlock(0xA0, 2048, 1024));
    EXPECT_EQ(board.bulkIn(0x82, large), 2048);
    EXPECT_EQ(unpack(Bytes(large.begin(), large.begin() + 2048)).credit, BoardLogic::creditRoom);
    EXPECT_EQ(board.bulkIn(0x82, large), -EPIPE) << "used up";

    send(board, write(0xC6, 0), pipeBlock(0x80, 1024, 1024));
    EXPECT_EQ(board.bulkOut(0x02, Bytes(1023)), -EPIPE) << "other than announced";
    send(board, write(0xC6, 0), pipeBlock(0x80, 1024, 1024));
    EXPECT_EQ(board.bulkOut(0x02, blocksOf(packet(2, 0x0000, 0, {1, 2, 3}))), 1024);
    send(board, write(0xC6, 1), pipeBlock(0xA0, 1024, 1024));
    Bytes block(1024);
    EXPECT_EQ(board.bulkIn(0x82, block), 1024);
    EXPECT_EQ(unpack(block).packets, packet(2, 0x0000, 0, {1, 2, 3}));

    send(board, write(0xC6, 1), pipeBlock(0xA0, 1024, 1024));
    EXPECT_EQ(board.bulkIn(0x82, block), pending) << "idle";
    time.now += 1ms;
    EXPECT_EQ(board.bulkIn(0x82, block), 1024);
    EXPECT_EQ(send(board, write(0xC6, 1), pipeBlock(0xA0, 2048, 1024)), 32);
    EXPECT_EQ(board.bulkIn(0x82, block), -EOVERFLOW) << "less room than announced";
}

TEST(OpalKellyBoard, TakesAConfigurationCutAnywhereAndThenRunsByWire0)
{
    OpalKellyBoard board("A");
    EXPECT_EQ(send(board, write(0xC2, 0), Bytes(128)), -EPIPE) << "wires need a configuration";
    EXPECT_EQ(send(board, write(0xC0, 1), configurationBlock(24)), 4096);
    const Bytes all = padded({0xFF, 1, 2, 0xFF, 0, 9});
    EXPECT_EQ(board.bulkOut(0x01, slice(all, 0, 7)), 7);
    EXPECT_FALSE(board.isConfigured());
    EXPECT_EQ(board.bulkOut(0x01, slice(all, 7, 17)), 17);
    EXPECT_EQ(board.bitstream(), (Bytes{0xFF, 1, 2, 0xFF, 0, 9}));
    EXPECT_EQ(board.bulkOut(0x01, Bytes(1)), -EPIPE) << "more than announced";

    Bytes block(1024, 7);
    send(board, write(0xC6, 1), pipeBlock(0xA0, 1024, 1024));
    EXPECT_EQ(board.bulkIn(0x82, block), 1024);
    EXPECT_EQ(block, Bytes(1024)) << "held in reset";
    for (const int address : {-1, 32})
        EXPECT_THROW(board.wireIn(address), std::out_of_range);
    for (const int address : {31, 64})
        EXPECT_THROW(board.setWireOut(address, 1), std::out_of_range);
}

TEST(OpalKellyBoard, TakesNoConfigurationThatIsNone)
{
    const auto changed = [](std::size_t at) {
        Bytes block = configurationBlock(8);
        block[at] ^= 1;
        return block;
    };
    const struct {
        const char* what;
        Bytes block, data;
        bool setupTaken;
        const char* problem;
    } rows[] = {
        {"another magic number", changed(0), {}, false, "other bytes"},
        {"a byte between", changed(4), {}, false, "other bytes"},
        {"the last byte", changed(4095), {}, false, "other bytes"},
        {"4095 bytes", Bytes(4095), {}, false, "4095"},
        {"a size that isn't fourfold", configurationBlock(7), {}, false, "7 bytes"},
        {"a huge size", configurationBlock(0xFFFFFFFC), {}, false, "4294967292"},
        {"no bytes", configurationBlock(0), {}, true, "no bytes"},
        {"no padding", configurationBlock(8), Bytes(8, 0xFF), true, "isn't one"},
        {"another first byte", configurationBlock(8), padded({1, 0xFF}), true, "isn't one"},
    };
    for (const auto& row : rows) {
        OpalKellyBoard board("A", true);
        EXPECT_EQ(send(board, write(0xC0, 1), row.block), row.setupTaken ? 4096 : -EPIPE) << row.what;
        if (!row.data.empty()) {
            EXPECT_EQ(board.bulkOut(0x01, row.data), int(row.data.size())) << row.what;
        }
        EXPECT_EQ(board.isConfigured(), !row.setupTaken) << row.what << ": a refused setup changes nothing";
        EXPECT_THAT(board.problems().back(), HasSubstr(row.problem)) << row.what;
    }
}

// ---- modules

struct Outbox final : PacketSink {
    std::vector<Packet> packets;
    std::size_t room = 1'000'000;
    void send(const Packet& packet) override { packets.push_back(packet); }
    std::size_t freeWords() const override { return room; }
};

Packet packetOf(std::uint8_t module, PacketFormat format, std::uint8_t extension,
                const std::vector<std::uint64_t>& values, std::size_t bytes)
{
    Packet packet;
    packet.module = module;
    packet.format = format;
    packet.extension = extension;
    for (const std::uint64_t value : values)
        EXPECT_TRUE(packet.push(value, bytes));
    return packet;
}

TEST(MemoryChip, AnswersReadsWithWhatWasWritten)
{
    const struct {
        const char* what;
        std::uint8_t writeExtension;
        std::uint64_t written;
        std::size_t writeBytes;
        std::uint8_t readExtension;
        std::uint64_t asked;
        std::size_t readBytes;
        PacketFormat format;
        std::uint8_t answerExtension;
        std::uint64_t answer;
        std::size_t answerBytes;
    } rows[] = {
        {"register 63 of layer 13", 3, 13U << 22 | 63U << 16 | 0xAB, 4, 4, 13U << 6 | 63U, 2, PacketFormat::raw, 8,
         13U << 22 | 63U << 16 | 0xAB, 4},
        {"memory word 8191 of layer 8", 5, 8U << 22 | 8191U << 9 | 0x1F0, 4, 6, 8U << 13 | 8191U, 4, PacketFormat::raw,
         9, 8U << 22 | 8191U << 9 | 0x1F0, 4},
        {"probe", 3, 0, 4, 10, 9, 2, PacketFormat::raw, 11, 9U << 5, 4},
        {"neuron 5 of layer 3", 1, 0x1'8001 | 5ULL << 17 | 3ULL << 37, 6, 1, 7 | 5ULL << 17 | 1ULL << 35 | 3ULL << 37,
         6, PacketFormat::events, 0, 1U << 27 | 5U << 24 | 7U << 17 | 0x1'8001, 8},
        {"weight 2097151 of layer 1", 1, 0x1FE | 0x1FFFFFULL << 9 | 1ULL << 36 | 1ULL << 37, 6, 1,
         0xFF | 0x1FFFFFULL << 9 | 1ULL << 30 | 1ULL << 36 | 1ULL << 37, 6, PacketFormat::events, 0,
         1U << 27 | 7U << 24 | 0xFFU << 9 | 0x1FE, 8},
        {"bias 1 of layer 0", 1, 0x0'7FFF | 1ULL << 17 | 3ULL << 35, 6, 1, 2 | 1ULL << 17 | 1ULL << 27 | 3ULL << 35, 6,
         PacketFormat::events, 0, 1U << 27 | 6U << 24 | 2U << 17 | 0x7FFF, 8},
    };
    for (const auto& row : rows) {
        MemoryChip chip;
        Outbox out;
        chip.receive(packetOf(2, PacketFormat::raw, row.writeExtension, {row.written}, row.writeBytes), out);
        EXPECT_TRUE(out.packets.empty()) << row.what;
        chip.receive(packetOf(2, PacketFormat::raw, row.readExtension, {row.asked}, row.readBytes), out);
        ASSERT_EQ(out.packets.size(), 1U) << row.what;
        const Packet& answer = out.packets[0];
        EXPECT_EQ(answer.module, 2) << row.what;
        EXPECT_EQ(answer.format, row.format) << row.what;
        EXPECT_EQ(answer.extension, row.answerExtension) << row.what;
        EXPECT_EQ(answer.size, row.answerBytes) << row.what;
        EXPECT_EQ(answer.value(0, 8), row.answer) << row.what;
    }
}

TEST(MemoryChip, SplitsAnswersThatDoNotFitOnePacket)
{
    MemoryChip chip;
    Outbox out;
    std::vector<std::uint64_t> writes, reads;
    for (std::uint64_t index = 0; index < 64; ++index)
        writes.push_back(index << 16 | (index + 1));
    for (std::uint64_t index = 0; index < 128; ++index)
        reads.push_back(index % 64);
    chip.receive(packetOf(2, PacketFormat::raw, 3, writes, 4), out);
    chip.receive(packetOf(2, PacketFormat::raw, 4, reads, 2), out);
    ASSERT_EQ(out.packets.size(), 2U);
    for (std::size_t i = 0; i < 128; ++i)
        ASSERT_EQ(out.packets[i / 64].value(i % 64 * 4, 4), (i % 64) << 16 | (i % 64 + 1)) << i;
}

TEST(MemoryChip, KeepsRoutesConfigurationAndCommands)
{
    MemoryChip chip;
    Outbox out;
    chip.receive(packetOf(5, PacketFormat::route, 0, {0x0040, 0x0101}, 2), out);
    chip.receive(packetOf(2, PacketFormat::config, 0, {9, 31, 0xA001, 2}, 2), out);
    chip.receive(packetOf(2, PacketFormat::raw, 3, {5}, 4), out);
    EXPECT_THAT(chip.route(), ElementsAre(0x0040, 0x0101));
    EXPECT_EQ(chip.moduleRegister(31), 9);
    EXPECT_EQ(chip.moduleRegister(2), 0xA001);
    EXPECT_EQ(chip.registerValue(0, 0), 5U);
    chip.receive(packetOf(2, PacketFormat::raw, 0, {2}, 2), out);
    EXPECT_EQ(chip.commandCount(2), 1U);
    EXPECT_EQ(chip.registerValue(0, 0), 0U) << "command 2 clears the registers";
    chip.receive(packetOf(2, PacketFormat::events, 0, {1, 2, 3}, 8), out);
    EXPECT_EQ(chip.spikeCount(), 3U);
    EXPECT_TRUE(out.packets.empty());
}

TEST(ConverterModules, SamplesComeAtTheirRate)
{
    const auto wires = std::make_shared<AnalogWires>();
    AdcModule adc(wires);
    DacModule dac(wires);
    Outbox out;
    AdcModule::Time now{1h};
    const auto configure = [&](const std::vector<std::uint64_t>& words) {
        adc.receive(packetOf(1, PacketFormat::config, 0, words, 2), out);
    };
    const auto numbersAfter = [&](std::chrono::microseconds time) {
        now += time;
        adc.advance(now, out);
        std::vector<std::uint64_t> result;
        for (const Packet& packet : std::exchange(out.packets, {}))
            result.push_back(packet.value(0, 4));
        return result;
    };
    EXPECT_THAT(numbersAfter(0us), IsEmpty()) << "not started";
    configure({1, 0, 1000, 0x2001, 1, 0x2000}); // 100 kHz, and run
    EXPECT_THAT(numbersAfter(0us), IsEmpty());
    EXPECT_THAT(numbersAfter(25us), ElementsAre(0, 1));
    EXPECT_THAT(numbersAfter(5us), ElementsAre(2)) << "with the rest of before: one more";
    out.room = 12; // two samples of six words
    EXPECT_THAT(numbersAfter(1ms), ElementsAre(101, 102)) << "the newest";
    EXPECT_EQ(adc.lostCount(), 98U);
    configure({0, 0x2000});
    EXPECT_THAT(numbersAfter(1s), IsEmpty()) << "stopped";
    adc.receive(packetOf(1, PacketFormat::raw, 0, {0x1000, 0x2000}, 2), out);
    EXPECT_EQ(adc.divider(), AdcModule::defaultDivider);
    EXPECT_THAT(numbersAfter(0us), ElementsAre(0)) << "counted anew, and one sample at once";

    // an operation that isn't 3, a channel that isn't there, a good one
    dac.receive(packetOf(3, PacketFormat::raw, 3, {0x02000010, 0x03800010, 0x03700010}, 4), out);
    EXPECT_EQ(wires->codes(), (std::array<std::uint16_t, 8>{0, 0, 0, 0, 0, 0, 0, 1}));
    dac.receive(packetOf(3, PacketFormat::raw, 0, {0x1000}, 2), out);
    EXPECT_EQ(wires->codes(), (std::array<std::uint16_t, 8>{}));
}

// ---- faults of the wire

struct Faulty {
    std::shared_ptr<LoopbackDevice> device = std::make_shared<LoopbackDevice>("A");
    int unplugs = 0;
    FaultyWire wire{device, [this] { ++unplugs; }};
};

TEST(FaultyWire, LetsWritesGoWrong)
{
    const struct {
        FaultKind kind;
        std::uint32_t amount;
        int result;
        Bytes arrives;
    } rows[] = {
        {FaultKind::drop, 0, 4, {}},
        {FaultKind::shortTransfer, 3, 3, {1, 2, 3}},
        {FaultKind::shortTransfer, 9, 4, {1, 2, 3, 4}},
        {FaultKind::stall, 0, -EPIPE, {}},
        {FaultKind::corrupt, 1, 4, {1, 0xFD, 3, 4}},
        {FaultKind::corrupt, 4, 4, {1, 2, 3, 4}},
        {FaultKind::delay, 0, 4, {1, 2, 3, 4}},
        {FaultKind::unplug, 0, -ESHUTDOWN, {}},
    };
    for (const auto& row : rows) {
        Faulty host;
        host.wire.add({.kind = row.kind, .endpoint = 0x01, .amount = row.amount});
        const Bytes data{1, 2, 3, 4};
        EXPECT_EQ(host.wire.bulkOut(0x01, data), row.result) << int(row.kind);
        EXPECT_EQ(data, (Bytes{1, 2, 3, 4})) << "the host's own bytes";
        Bytes back(8);
        const int arrived = host.device->bulkIn(0x81, back);
        back.resize(static_cast<std::size_t>(std::max(arrived, 0)));
        EXPECT_EQ(back, row.arrives) << int(row.kind);
        EXPECT_EQ(host.wire.appliedCount(), 1U);
        EXPECT_EQ(host.unplugs, row.kind == FaultKind::unplug ? 1 : 0);
        host.wire.plugIn();
        EXPECT_EQ(host.wire.bulkOut(0x01, data), 4) << "well again";
    }
}

TEST(FaultyWire, LetsReadsGoWrong)
{
    const struct {
        FaultKind kind;
        std::uint32_t amount;
        int result;
        Bytes seen, left; // left: what the next read gets
    } rows[] = {
        {FaultKind::drop, 0, pending, {}, {}},           {FaultKind::shortTransfer, 3, 3, {1, 2, 3}, {}},
        {FaultKind::stall, 0, -EPIPE, {}, {1, 2, 3, 4}}, {FaultKind::corrupt, 0, 4, {0xFE, 2, 3, 4}, {}},
        {FaultKind::corrupt, 7, 4, {1, 2, 3, 4}, {}},
    };
    for (const auto& row : rows) {
        Faulty host;
        host.wire.add({.kind = row.kind, .endpoint = 0x81, .amount = row.amount});
        host.device->send(Bytes{1, 2, 3, 4});
        Bytes back(8);
        EXPECT_EQ(host.wire.bulkIn(0x81, back), row.result) << int(row.kind);
        if (row.result > 0) {
            EXPECT_EQ(Bytes(back.begin(), back.begin() + row.result), row.seen) << int(row.kind);
        }
        const int next = host.wire.bulkIn(0x81, back);
        back.resize(static_cast<std::size_t>(std::max(next, 0)));
        EXPECT_EQ(back, row.left) << int(row.kind);
    }
}

TEST(FaultyWire, CountsTransfersOfEachEndpoint)
{
    Faulty host;
    host.wire.add({.kind = FaultKind::stall, .endpoint = 0x01, .after = 2, .times = 2});
    host.wire.add({.kind = FaultKind::shortTransfer, .endpoint = 0x01, .after = 1, .amount = 1});
    std::vector<int> results;
    for (int i = 0; i < 7; ++i) {
        results.push_back(host.wire.bulkOut(0x01, Bytes(2)));
        EXPECT_EQ(send(host.wire, write(LoopbackDevice::memoryRequest, 0), Bytes(2)), 2) << "another endpoint";
    }
    EXPECT_THAT(results, ElementsAre(2, 2, -EPIPE, -EPIPE, 2, 1, 2));
    EXPECT_THROW(host.wire.add({.endpoint = 0x05}), std::invalid_argument);
    EXPECT_THROW(host.wire.add({.endpoint = 0x01, .times = 0}), std::invalid_argument);
}

TEST(FaultyWire, ReportsTheEndOfADelayWhileATransferWaits)
{
    Faulty host;
    const auto addDelay = [&] {
        host.wire.add({.kind = FaultKind::delay, .endpoint = 0x01, .amount = 3'600'000'000});
        const auto earliest = std::chrono::steady_clock::now() + 1h;
        EXPECT_EQ(host.wire.bulkOut(0x01, Bytes(2)), pending);
        EXPECT_GE(host.wire.pollAfter(), earliest);
        return host.wire.pollAfter();
    };
    EXPECT_EQ(host.wire.pollAfter(), std::nullopt);
    const auto end = addDelay();
    host.wire.cancelled(0x01);
    EXPECT_EQ(host.wire.pollAfter(), std::nullopt);
    EXPECT_EQ(host.wire.bulkOut(0x01, Bytes(2)), pending);
    EXPECT_EQ(host.wire.pollAfter(), end) << "a transfer that is begun again goes on waiting";
    host.wire.clear();
    EXPECT_EQ(host.wire.bulkOut(0x01, Bytes(2)), 2);
    EXPECT_EQ(host.wire.pollAfter(), std::nullopt);
    addDelay();
    host.wire.plugIn();
    EXPECT_EQ(host.wire.pollAfter(), std::nullopt);
    EXPECT_EQ(host.wire.bulkOut(0x01, Bytes(2)), pending) << "in full";
}

TEST(FaultyWire, ADelayThatIsOverIsNotReportedWhileTheDeviceHasNoData)
{
    Faulty host;
    Bytes back(2);
    host.wire.add({.kind = FaultKind::delay, .endpoint = 0x81, .amount = 1});
    ASSERT_EQ(host.wire.bulkIn(0x81, back), pending);
    for (const auto end = host.wire.pollAfter().value(); std::chrono::steady_clock::now() < end;) {
    }
    EXPECT_EQ(host.wire.bulkIn(0x81, back), pending);
    EXPECT_EQ(host.wire.pollAfter(), std::nullopt) << "else the worker of the port would spin";
    host.device->send(Bytes{1, 2});
    EXPECT_EQ(host.wire.bulkIn(0x81, back), 2);
}

} // namespace
