// Traffic on several devices at once, for as long as one likes: usb_soak [--seconds N]
//
// Two devices carry numbered bytes both ways and memory requests; a third stalls again and again; a fourth is opened,
// kept busy with each kind of transfer and pulled out. A dev kit and an Opal Kelly board send numbered packets round a
// loop, as fast as their credit allows, while their flash is written and read and their wires are set. Every byte is
// compared. After each round all threads rest, and memory in use, open files and threads are compared with those after
// the first. Exit code 0: nothing was lost, nothing grew.

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <malloc.h>
#include <optional>
#include <random>
#include <string>
#include <thread>

#include "Plugged.h"
#include "emulation/boards/DevKit.h"
#include "emulation/boards/LoopbackChip.h"
#include "emulation/boards/OpalKellyBoard.h"
#include "fxtree/FxTreeDevice.h"
#include "keplin/Keplin.h"
#include "keplin/io/KeplinReaderWriter.h"
#include "keplin/io/OkReaderWriter.h"
#include "opalkelly/OpalKellyDevice.h"

namespace {

using namespace usb_tests;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

std::atomic<int> faults = 0;

template <class... Values>
void fault(const char* format, Values... values)
{
    if (++faults < 20) { // the first ones say enough
        std::fprintf(stderr, format, values...);
        std::fputc('\n', stderr);
    }
}

/// The byte at a place of an endless stream.
std::uint8_t streamByte(std::uint64_t place)
{
    return static_cast<std::uint8_t>(place * 37 + (place >> 8) * 11 + (place >> 20));
}

/// A board in steady use.
class Busy {
public:
    explicit Busy(const char* serial) : plugged(serial), door(plugged.open()) {}

    void start(Clock::time_point end)
    {
        threads.emplace_back([this, end] { write(end); });
        threads.emplace_back([this] { read(); });
        threads.emplace_back([this, end] { accessMemory(end); });
    }
    void finish()
    {
        for (std::thread& thread : threads)
            thread.join();
        threads.clear();
        total = unknown;
        const auto sent = plugged.device.counters(out).bytes, received = plugged.device.counters(in).bytes;
        if (sent != written || received != written)
            fault("the host wrote %llu bytes, the board took %llu and gave %llu",
                  static_cast<unsigned long long>(written), static_cast<unsigned long long>(sent),
                  static_cast<unsigned long long>(received));
    }
    std::uint64_t bytes() const { return written; }
    std::uint64_t requests() const { return accesses; }

private:
    static constexpr std::uint64_t mostAhead = 1 << 20; // bytes in the board; else it would fill the memory
    static constexpr std::uint64_t unknown = ~std::uint64_t{0};

    void write(Clock::time_point end)
    {
        std::minstd_rand random(static_cast<unsigned>(written));
        for (bool last = false; !last;) {
            for (std::uint64_t back = readBack; written - back > mostAhead; back = readBack)
                readBack.wait(back);
            last = Clock::now() >= end;
            Bytes block(1 + random() % 16384);
            for (std::size_t i = 0; i < block.size(); ++i)
                block[i] = streamByte(written + i);
            written += block.size();
            if (last)
                total = written;
            if (const int moved = door->bulkWrite(out, block, 2000); moved != static_cast<int>(block.size())) {
                fault("bulkWrite of %zu bytes gave %d", block.size(), moved);
                std::exit(1); // the reader would wait for ever
            }
        }
    }
    void read()
    {
        std::minstd_rand random(static_cast<unsigned>(readBack.load()));
        for (std::uint64_t back = readBack; back != total;) {
            Bytes block(1 + random() % 20000);
            const int moved = door->bulkRead(in, block, 2000);
            if (moved <= 0) {
                fault("bulkRead gave %d", moved);
                std::exit(1);
            }
            for (std::size_t i = 0; i < static_cast<std::size_t>(moved); ++i)
                if (block[i] != streamByte(back + i))
                    fault("byte %llu of the stream is wrong", static_cast<unsigned long long>(back + i));
            back += static_cast<std::uint64_t>(moved);
            readBack = back;
            readBack.notify_one();
        }
    }
    void accessMemory(Clock::time_point end)
    {
        std::minstd_rand random(static_cast<unsigned>(accesses));
        while (Clock::now() < end) {
            const std::size_t size = random() % 4097;
            const auto at = static_cast<std::uint16_t>(random() % 60000);
            const Bytes bytes = pattern(size, static_cast<int>(random() % 256));
            Bytes back(size);
            const int moved = door->controlWrite(memoryWrite(at), bytes, 2000);
            const int given = door->controlRead(memoryRead(at), back, 2000);
            if (moved != static_cast<int>(size) || given != static_cast<int>(size) || back != bytes)
                fault("a memory of %zu bytes: wrote %d, read %d", size, moved, given);
            accesses += 2;
        }
    }

    PluggedLoop plugged;
    std::unique_ptr<usb::LibUSBDevice> door;
    std::vector<std::thread> threads;
    std::uint64_t written = 0;
    std::atomic<std::uint64_t> readBack = 0;
    std::atomic<std::uint64_t> total = unknown; // where this round's stream ends
    std::uint64_t accesses = 0;
};

/// Transfers that stall between others that don't.
void stall(const PluggedLoop& plugged, usb::LibUSBDevice& door, Clock::time_point end)
{
    while (Clock::now() < end) {
        for (const auto& call : allCalls) {
            plugged.device.answerNext(call.endpoint, -EPIPE);
            plugged.device.answerNext(call.endpoint, 64);
            Bytes bytes(64);
            const int first = call.run(door, bytes, 2000), second = call.run(door, bytes, 2000);
            if (first != -1 || second != 64)
                fault("%s gave %d for a stall, then %d", call.name, first, second);
        }
    }
}

/// A board that is pulled out in the middle of each kind of transfer.
void unplugAndReplug(Clock::time_point end, std::uint64_t& rounds)
{
    while (Clock::now() < end) {
        for (const auto& interrupted : allCalls) {
            PluggedLoop plugged("pulled");
            const auto door = plugged.open();
            plugged.device.mute(interrupted.endpoint);
            std::vector<std::future<int>> results;
            for (const auto& call : allCalls)
                results.push_back(std::async(std::launch::async, [&] {
                    Bytes bytes(256);
                    int moved = 0;
                    while ((moved = call.run(*door, bytes, 5)) >= 0) { // renewed while muted
                    }
                    return moved;
                }));
            plugged.submissions.waitFor(interrupted.endpoint, 2);
            plugged.handle.unplug();
            for (auto& result : results)
                if (const int moved = result.get(); moved >= 0)
                    fault("a call on a board that is gone gave %d", moved);
            ++rounds;
        }
    }
}

/// Numbered packets to a module that sends them back, through the loop that a driver runs.
class PacketLoop {
public:
    static constexpr std::uint8_t module = 2;

    explicit PacketLoop(keplin::PacketQueue& transmitQueue) : queue(transmitQueue) {}

    /// For the dispatcher: compares a packet with what was sent.
    void take(keplin::PacketPtr packet)
    {
        const auto expected = numbered(received++);
        if (packet->header != expected->header ||
            !std::equal(packet->data.begin(), packet->data.begin() + packet->size, expected->data.begin()))
            fault("packet %llu came back changed", static_cast<unsigned long long>(received - 1));
        keplin::Keplin::putPacketBuffer(std::move(packet));
    }
    /// Turns until the end, and on until all is back.
    template <class ReaderWriter>
    void run(ReaderWriter& readerWriter, Clock::time_point end)
    {
        constexpr std::uint64_t mostUnderWay = 2000;
        while (Clock::now() < end || received != sent) {
            while (Clock::now() < end && sent - received < mostUnderWay)
                queue.enqueue(numbered(sent++));
            readerWriter.singleShotReadWrite();
        }
    }
    std::uint64_t packets() const { return received; }

private:
    static keplin::PacketPtr numbered(std::uint64_t number)
    {
        auto packet = keplin::Keplin::getRawPacketBuffer(module, keplin::HdrExtFmt{1}, keplin::PktFmt::Raw);
        const std::size_t size = 1 + number * 7919 % 256;
        for (std::size_t i = 0; i < size; ++i)
            packet->push_back(streamByte(number * 256 + i), 1);
        packet->prepToSend();
        return packet;
    }

    keplin::PacketQueue& queue;
    std::uint64_t sent = 0, received = 0;
};

/// A board in a loop of packets, while `also` is called on a second thread again and again.
template <class Board, class Driver, class ReaderWriter>
class LoopingBoard {
public:
    std::uint64_t packets() const { return loop.packets(); }

protected:
    template <class MakeDriver, class MakeReaderWriter>
    LoopingBoard(const char* serial, MakeDriver makeDriver, MakeReaderWriter makeReaderWriter)
        : plugged(serial, true), driver(makeDriver(plugged.open())), readerWriter(makeReaderWriter(driver, core))
    {
        plugged.board->setModule(PacketLoop::module, std::make_shared<emulation::LoopbackChip>());
        auto dispatcher = std::make_shared<keplin::PacketDispatcher>();
        dispatcher->setDispatchEntryRaw(PacketLoop::module,
                                        [this](keplin::PacketPtr packet) { loop.take(std::move(packet)); });
        readerWriter->setPacketDispatcher(std::move(dispatcher));
    }
    template <class Also>
    void run(Clock::time_point end, Also also)
    {
        std::thread second([&] {
            while (Clock::now() < end)
                also();
        });
        loop.run(*readerWriter, end);
        second.join();
        for (const std::string& problem : plugged.board->problems())
            fault("the board complains of %s", problem.c_str());
    }

    Plugged<Board> plugged;
    Driver driver;
    keplin::Keplin core;
    std::unique_ptr<ReaderWriter> readerWriter;
    PacketLoop loop{core.transmitQueue()};
};

struct KitDriver final : fxtree::FxTreeDevice, keplin::KeplinEndpoint {
    using FxTreeDevice::FxTreeDevice;
    Bytes readKeplinEndpoint(int blocks) override { return readGpif(blocks << 10); }
    bool writeKeplinEndpoint(const Bytes& data) override { return writeGpif(data); }
};

class BusyDevKit : public LoopingBoard<emulation::DevKit, KitDriver, keplin::KeplinReaderWriter> {
public:
    BusyDevKit()
        : LoopingBoard(
              "kit", [](auto door) { return KitDriver(std::move(door)); },
              [](auto& endpoint, auto& core) {
                  return std::make_unique<keplin::KeplinReaderWriter>(endpoint, core.transmitQueue(),
                                                                      core.receiveQueue());
              })
    {}
    void run(Clock::time_point end)
    {
        std::minstd_rand random(static_cast<unsigned>(packets()));
        LoopingBoard::run(end, [&] {
            const int sector = static_cast<int>(random() % 256);
            const Bytes bytes = pattern(1 + random() % 65536, sector);
            driver.eraseSpiFlash(sector);
            driver.writeSpiFlash(bytes, sector << 16);
            if (driver.readSpiFlash(static_cast<int>(bytes.size()), sector << 16) != bytes)
                fault("sector %d of the flash reads otherwise than written", sector);
        });
    }
};

using OkLoop = keplin::OkReaderWriter<opalkelly::OpalKellyDevice>;

class BusyOpalKelly : public LoopingBoard<emulation::OpalKellyBoard, opalkelly::OpalKellyDevice, OkLoop> {
public:
    BusyOpalKelly()
        : LoopingBoard(
              "opal", [](auto door) { return opalkelly::OpalKellyDevice(std::move(door), ""); },
              [](auto& device, auto& core) {
                  return std::make_unique<OkLoop>(&device, core.transmitQueue(), core.receiveQueue());
              })
    {
        driver.wireInWrite(0, 1); // runs the logic
    }
    void run(Clock::time_point end)
    {
        std::uint32_t value = 0;
        LoopingBoard::run(end, [&] {
            const int wire = 1 + static_cast<int>(++value % 31);
            driver.wireInWrite(wire, value);
            plugged.board->setWireOut(32 + wire, ~value);
            if (!driver.updateWireIns() || !driver.updateWireOuts() || plugged.board->wireIn(wire) != value ||
                driver.wireOutRead(32 + wire) != ~value)
                fault("wire %d is wrong", wire);
        });
    }
};

struct Holdings {
    std::size_t heap;
    std::ptrdiff_t files, threads;
};

Holdings holdings()
{
    const auto entries = [](const char* folder) {
        return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator());
    };
    const struct mallinfo2 info = mallinfo2();
    return {info.uordblks + info.hblkhd, entries("/proc/self/fd"), entries("/proc/self/task")};
}

int run(std::chrono::duration<double> time)
{
    constexpr int rounds = 6;
    Busy boards[] = {Busy("one"), Busy("two")};
    const PluggedLoop stalling("stalling");
    const auto stallingDoor = stalling.open();
    BusyDevKit kit;
    BusyOpalKelly opalKelly;
    std::uint64_t unplugs = 0;
    std::optional<Holdings> first;
    for (int round = 0; round < rounds; ++round) {
        const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(time / rounds);
        for (Busy& board : boards)
            board.start(end);
        std::thread stalls([&] { stall(stalling, *stallingDoor, end); });
        std::thread pulls([&] { unplugAndReplug(end, unplugs); });
        std::thread kitLoop([&] { kit.run(end); });
        std::thread opalLoop([&] { opalKelly.run(end); });
        kitLoop.join();
        opalLoop.join();
        stalls.join();
        pulls.join();
        for (Busy& board : boards)
            board.finish();
        const Holdings now = holdings();
        std::printf("round %d: %llu and %llu bytes each way, %llu requests, %llu unplugs, %llu and %llu packets; %zu "
                    "bytes in use, %td files, "
                    "%td threads\n",
                    round, static_cast<unsigned long long>(boards[0].bytes()),
                    static_cast<unsigned long long>(boards[1].bytes()),
                    static_cast<unsigned long long>(boards[0].requests() + boards[1].requests()),
                    static_cast<unsigned long long>(unplugs), static_cast<unsigned long long>(kit.packets()),
                    static_cast<unsigned long long>(opalKelly.packets()), now.heap, now.files, now.threads);
        std::fflush(stdout);
        if (!first)
            first = now;
        // what queues grow to at most is reached late; a minute's transfers at one byte each would be more than this
        if (now.heap > first->heap + (1 << 20) || now.files != first->files || now.threads != first->threads)
            fault("the process has grown");
    }
    std::printf("%d faults\n", faults.load());
    return faults == 0 ? 0 : 1;
}

} // namespace

int main(int count, char** arguments)
{
    double seconds = 3;
    for (int i = 1; i + 1 < count; ++i)
        if (std::string(arguments[i]) == "--seconds")
            seconds = std::strtod(arguments[i + 1], nullptr);
    return run(std::chrono::duration<double>(seconds));
}
