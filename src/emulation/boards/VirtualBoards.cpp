#include "emulation/boards/VirtualBoards.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <pthread.h>
#include <stdexcept>
#include <utility>

#include "emulation/boards/LoopbackChip.h"

namespace emulation {
namespace {

// Ids of modules behind the boards.
constexpr int adcModule = 1, dacModule = 3;
constexpr int chipModules[] = {2, 5}; // the chip's own path, and that of its self-test

// Boards stay plugged in though nobody keeps them. `mutex` is outer to the boards'.
struct Registry {
    std::mutex mutex;
    std::vector<std::shared_ptr<VirtualBoard>> boards;

    static Registry& instance()
    {
        static auto* const registry = new Registry; // ports may be asked until the process ends
        return *registry;
    }
    void add(const std::shared_ptr<VirtualBoard>& board)
    {
        const std::lock_guard lock(mutex);
        if (std::find(boards.begin(), boards.end(), board) == boards.end())
            boards.push_back(board);
    }
    void remove(const VirtualBoard* board)
    {
        std::shared_ptr<VirtualBoard> last; // goes without the lock
        const std::lock_guard lock(mutex);
        const auto found = std::find_if(boards.begin(), boards.end(), [&](const auto& b) { return b.get() == board; });
        if (found == boards.end())
            return;
        last = std::move(*found);
        boards.erase(found);
    }
};

std::string serialOr(const std::string& given)
{
    static std::atomic<unsigned> made = 0;
    if (!given.empty())
        return given;
    const std::string number = std::to_string(++made);
    return "EMUL" + std::string(4 - std::min<std::size_t>(number.size(), 4), '0') + number;
}

std::shared_ptr<Module> chipOf(ChipKind kind)
{
    switch (kind) {
    case ChipKind::memory:
        return std::make_shared<MemoryChip>();
    case ChipKind::loopback:
        return std::make_shared<LoopbackChip>();
    case ChipKind::none:
        break;
    }
    return nullptr;
}

std::optional<std::uint32_t> limitOf(std::int64_t words)
{
    if (words < -1 || words > BoardLogic::creditRoom)
        throw std::invalid_argument("a credit limit is -1 (none) to " + std::to_string(BoardLogic::creditRoom) +
                                    ", got " + std::to_string(words));
    return words < 0 ? std::nullopt : std::optional(static_cast<std::uint32_t>(words));
}

} // namespace

VirtualBoard::VirtualBoard(std::string serialNumber, ChipKind kind)
    : serial(std::move(serialNumber)), chipKind(kind), chip(chipOf(kind)), worker([this] { work(); })
{}

VirtualBoard::~VirtualBoard() { end(); }

void VirtualBoard::unplug()
{
    const auto self = weak_from_this().lock(); // may be kept by the registry alone
    {
        const std::lock_guard lock(mutex);
        pullOut();
    }
    Registry::instance().remove(this);
}

void VirtualBoard::pullOut()
{
    in = false;
    plugged.unplug();
    changed.notify_all();
}

void VirtualBoard::replug()
{
    {
        const std::lock_guard lock(mutex);
        pullOut();
        powerUp();
        wire()->plugIn();
        plugged = plug(wire());
        in = true;
        changed.notify_all();
    }
    Registry::instance().add(shared_from_this());
}

bool VirtualBoard::isPlugged() const
{
    const std::lock_guard lock(mutex);
    return in;
}

int VirtualBoard::busNumber() const { return Bus::number; }

int VirtualBoard::deviceAddress() const
{
    const std::lock_guard lock(mutex);
    return plugged.address();
}

void VirtualBoard::injectFault(const WireFault& fault)
{
    const std::lock_guard lock(mutex);
    wire()->add(fault);
}

void VirtualBoard::clearFaults()
{
    const std::lock_guard lock(mutex);
    wire()->clear();
}

std::uint64_t VirtualBoard::faultCount() const
{
    const std::lock_guard lock(mutex);
    return wire()->appliedCount();
}

void VirtualBoard::setKernelFaults(std::int64_t open, std::int64_t claim, std::int64_t submit,
                                   const std::string& kernelDriver)
{
    const auto code = [](std::int64_t number) {
        constexpr std::int64_t highest = 4095; // what the kernel takes for an errno
        if (number < 0 || number > highest)
            throw std::invalid_argument("an errno is 0 (none) to 4095, got " + std::to_string(number));
        return static_cast<int>(number);
    };
    Port::Faults faults{code(open), code(claim), kernelDriver, {}};
    if (const int submitCode = code(submit); submitCode != 0)
        faults.submit = [submitCode](std::uint8_t) { return submitCode; };
    const std::lock_guard lock(mutex);
    plugged.setFaults(std::move(faults));
}

const MemoryChip& VirtualBoard::memory() const
{
    if (chipKind != ChipKind::memory)
        throw std::logic_error("this board has no memory chip to look into");
    return static_cast<const MemoryChip&>(*chip);
}

// The loop answers for every id, others are put over it.
void VirtualBoard::putChip(Board& board) const
{
    if (chipKind == ChipKind::loopback)
        for (int id = 0; id < Packet::modules; ++id)
            board.setModule(id, chip);
    for (const int id : chipModules)
        board.setModule(id, chip);
}

void VirtualBoard::order(Task newTask)
{
    {
        const std::lock_guard lock(taskMutex);
        task = newTask;
    }
    ordered.notify_one();
}

void VirtualBoard::end()
{
    if (!worker.joinable())
        return;
    {
        const std::lock_guard lock(mutex);
        pullOut();
    }
    {
        const std::lock_guard lock(taskMutex);
        stopping = true;
    }
    ordered.notify_one();
    worker.join();
}

void VirtualBoard::work()
{
    sigset_t all; // signals are for the program's own threads
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
    for (;;) {
        Task now = Task::none;
        {
            std::unique_lock lock(taskMutex);
            ordered.wait(lock, [this] { return stopping || task != Task::none; });
            if (stopping)
                return;
            now = std::exchange(task, Task::none);
        }
        const std::lock_guard lock(mutex);
        const bool stillDue = now == Task::start ? isStarted() : wire()->isGone();
        if (!in || !stillDue) // the board has been put in anew meanwhile
            continue;
        pullOut();
        if (now != Task::start)
            continue;
        started();
        plugged = plug(wire());
        in = true;
        changed.notify_all();
    }
}

VirtualDevKit::VirtualDevKit(const DevKitOptions& kitOptions)
    : VirtualBoard(serialOr(kitOptions.serialNumber), kitOptions.chip),
      kit(std::make_shared<DevKit>(serial, kitOptions.configured)), options(kitOptions), running(kitOptions.firmware),
      boot(std::make_shared<Fx3BootDevice>(serial)),
      bootWire(std::make_shared<FaultyWire>(boot, [this] { order(Task::unplug); })),
      kitWire(std::make_shared<FaultyWire>(kit, [this] { order(Task::unplug); }))
{
    putChip(*kit);
    boot->setOnStart([this](std::uint32_t) { order(Task::start); });
}

VirtualDevKit::~VirtualDevKit() { end(); }

void VirtualDevKit::powerUp()
{
    kit->powerUp();
    boot->powerUp();
    running = options.firmware;
}

void VirtualDevKit::started()
{
    running = true;
    kitWire->plugIn();
}

bool VirtualDevKit::isRunning() const
{
    const std::lock_guard lock(mutex);
    return in && running;
}

bool VirtualDevKit::waitUntilRunning(std::int64_t timeoutMs) const
{
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, std::chrono::milliseconds(std::clamp<std::int64_t>(timeoutMs, 0, 1'000'000'000)),
                            [this] { return in && running; });
}

BoardCounters VirtualDevKit::counters() const
{
    BoardCounters both = kit->counters();
    const BoardCounters inBootState = boot->counters();
    both.controlTransfers += inBootState.controlTransfers;
    both.refusedTransfers += inBootState.refusedTransfers;
    both.problems += inBootState.problems;
    return both;
}

std::vector<std::string> VirtualDevKit::problems() const
{
    std::vector<std::string> both = boot->problems();
    const std::vector<std::string> withFirmware = kit->problems();
    both.insert(both.end(), withFirmware.begin(), withFirmware.end());
    return both;
}

std::vector<std::uint8_t> VirtualDevKit::ramBytes(std::uint32_t address, std::uint32_t size) const
{
    return boot->ram(address, size);
}

std::vector<std::uint8_t> VirtualDevKit::flashBytes(std::uint32_t address, std::uint32_t size) const
{
    return kit->flash(address, size);
}

void VirtualDevKit::setFlashBytes(std::uint32_t address, const std::vector<std::uint8_t>& bytes)
{
    kit->setFlash(address, bytes);
}

void VirtualDevKit::setCreditLimit(std::int64_t words) { kit->setCreditLimit(limitOf(words)); }

VirtualOpalKelly::VirtualOpalKelly(const OpalKellyOptions& boardOptions)
    : VirtualBoard(serialOr(boardOptions.serialNumber), boardOptions.chip),
      board(std::make_shared<OpalKellyBoard>(serial, boardOptions.configured)), options(boardOptions),
      boardWire(std::make_shared<FaultyWire>(board, [this] { order(Task::unplug); }))
{
    putChip(*board);
    board->setModule(adcModule, adc);
    board->setModule(dacModule, std::make_shared<DacModule>(wires));
}

VirtualOpalKelly::~VirtualOpalKelly() { end(); }

void VirtualOpalKelly::powerUp() { board->powerUp(); }

std::vector<std::uint16_t> VirtualOpalKelly::analogCodes() const
{
    const auto codes = wires->codes();
    return {codes.begin(), codes.end()};
}

void VirtualOpalKelly::setCreditLimit(std::int64_t words) { board->setCreditLimit(limitOf(words)); }

std::shared_ptr<VirtualDevKit> plugVirtualDevKit(const DevKitOptions& options)
{
    auto kit = std::make_shared<VirtualDevKit>(options);
    kit->replug();
    return kit;
}

std::shared_ptr<VirtualOpalKelly> plugVirtualOpalKelly(const OpalKellyOptions& options)
{
    auto board = std::make_shared<VirtualOpalKelly>(options);
    board->replug();
    return board;
}

std::vector<std::shared_ptr<VirtualBoard>> virtualBoards()
{
    std::vector<std::shared_ptr<VirtualBoard>> all, result;
    {
        Registry& registry = Registry::instance();
        const std::lock_guard lock(registry.mutex);
        all = registry.boards;
    }
    for (const auto& board : all) {
        if (board->isPlugged())
            result.push_back(board);
        else
            Registry::instance().remove(board.get()); // pulled out by a fault
    }
    return result;
}

void unplugAllVirtualBoards()
{
    for (const auto& board : virtualBoards())
        board->unplug();
}

} // namespace emulation
