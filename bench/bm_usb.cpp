// Transfers through usb::LibUSBDevice to an emulated device that answers at once. The floor is the least that such a
// call can cost: a promise handed to a second thread, fulfilled there and waited for. Both are measured in turns in the
// same run; `ratio` is the call's time over the floor's, of each the best turn.

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <future>
#include <limits>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

#include "emulation/attach/Attach.h"
#include "emulation/boards/LoopbackDevice.h"
#include "fxtree/FxTreeDevice.h"
#include "usb/LibUSBDevice.h"

namespace {

using emulation::LoopbackDevice;
using Clock = std::chrono::steady_clock;

class Floor {
public:
    Floor() : worker([this] { work(); }) {}
    ~Floor()
    {
        hand(nullptr);
        worker.join();
    }
    int roundTrip()
    {
        std::promise<int> promise;
        auto result = promise.get_future();
        hand(&promise);
        return result.get();
    }

private:
    void hand(std::promise<int>* promise)
    {
        {
            const std::lock_guard lock(mutex);
            handed = promise;
            full = true;
        }
        changed.notify_one();
    }
    void work()
    {
        for (;;) {
            std::unique_lock lock(mutex);
            changed.wait(lock, [this] { return full; });
            full = false;
            if (handed == nullptr)
                return;
            std::promise<int> promise = std::move(*handed);
            lock.unlock();
            promise.set_value(1);
        }
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::promise<int>* handed = nullptr;
    bool full = false;
    std::thread worker;
};

double secondsOf(const std::function<void()>& turn)
{
    const auto begin = Clock::now();
    turn();
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

using Transfer = int (*)(usb::LibUSBDevice&, std::vector<std::uint8_t>&);

void BM_Door(benchmark::State& state, Transfer transfer)
{
    constexpr int turn = 500;
    const auto device = std::make_shared<LoopbackDevice>("bench");
    device->setFreeRunning(true);
    const auto plugged = emulation::plug(device);
    usb::LibUSBDevice door(static_cast<std::uint16_t>(plugged.bus()), static_cast<std::uint16_t>(plugged.address()));
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(state.range(0)));
    Floor floor;
    double doorBest = std::numeric_limits<double>::max(), floorBest = doorBest;
    for (auto _ : state) {
        const double seconds = secondsOf([&] {
            for (int i = 0; i < turn; ++i)
                if (transfer(door, bytes) != static_cast<int>(bytes.size()))
                    state.SkipWithError("a transfer failed");
        });
        state.SetIterationTime(seconds);
        doorBest = std::min(doorBest, seconds);
        floorBest = std::min(floorBest, secondsOf([&] {
                                 for (int i = 0; i < turn; ++i)
                                     benchmark::DoNotOptimize(floor.roundTrip());
                             }));
    }
    state.SetItemsProcessed(state.iterations() * turn);
    state.SetBytesProcessed(state.iterations() * turn * state.range(0));
    state.counters["door_us"] = doorBest / turn * 1e6;
    state.counters["floor_us"] = floorBest / turn * 1e6;
    state.counters["ratio"] = doorBest / floorBest;
}

BENCHMARK_CAPTURE(BM_Door, bulkRead,
                  [](usb::LibUSBDevice& door, std::vector<std::uint8_t>& bytes) {
                      return door.bulkRead(LoopbackDevice::readEndpoint, bytes, 2000);
                  })
    ->Arg(1024)
    ->Arg(8192)
    ->Arg(16384)
    ->UseManualTime();
BENCHMARK_CAPTURE(BM_Door, bulkWrite,
                  [](usb::LibUSBDevice& door, std::vector<std::uint8_t>& bytes) {
                      return door.bulkWrite(LoopbackDevice::writeEndpoint, bytes, 2000);
                  })
    ->Arg(8192)
    ->UseManualTime();
BENCHMARK_CAPTURE(BM_Door, controlRead,
                  [](usb::LibUSBDevice& door, std::vector<std::uint8_t>& bytes) {
                      return door.controlRead({0xC0, LoopbackDevice::memoryRequest, 0, 0, 0}, bytes, 2000);
                  })
    ->Arg(8)
    ->UseManualTime();

// What the driver of a dev kit adds: the vector that a read returns. Here the floor is usb::LibUSBDevice itself.
void BM_ReadGpif(benchmark::State& state)
{
    constexpr int turn = 500;
    const auto device = std::make_shared<LoopbackDevice>("bench"); // has the endpoints of a dev kit
    device->setFreeRunning(true);
    const auto plugged = emulation::plug(device);
    auto opened = std::make_unique<usb::LibUSBDevice>(static_cast<std::uint16_t>(plugged.bus()),
                                                      static_cast<std::uint16_t>(plugged.address()));
    usb::LibUSBDevice& door = *opened;
    fxtree::FxTreeDevice kit(std::move(opened));
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(state.range(0)));
    double kitBest = std::numeric_limits<double>::max(), doorBest = kitBest;
    for (auto _ : state) {
        const double seconds = secondsOf([&] {
            for (int i = 0; i < turn; ++i)
                benchmark::DoNotOptimize(kit.readGpif(static_cast<int>(bytes.size())));
        });
        state.SetIterationTime(seconds);
        kitBest = std::min(kitBest, seconds);
        doorBest = std::min(doorBest, secondsOf([&] {
                                for (int i = 0; i < turn; ++i)
                                    benchmark::DoNotOptimize(door.bulkRead(LoopbackDevice::readEndpoint, bytes, 2000));
                            }));
    }
    state.SetBytesProcessed(state.iterations() * turn * state.range(0));
    state.counters["kit_us"] = kitBest / turn * 1e6;
    state.counters["floor_us"] = doorBest / turn * 1e6;
    state.counters["ratio"] = kitBest / doorBest;
}
BENCHMARK(BM_ReadGpif)->Arg(8192)->UseManualTime();

} // namespace
