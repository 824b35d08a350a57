#include "emulation/boards/VirtualBoard.h"

#include <algorithm>
#include <atomic>
#include <stdexcept>
#include <utility>

#include "emulation/attach/Attach.h"
#include "emulation/boards/BoardRegistry.h"
#include "emulation/boards/LoopbackChip.h"
#include "util/SignalBlock.h"

namespace emulation {
namespace {

constexpr int chipModules[] = {2, 5}; // the chip's own path, and that of its self-test

int errnoOf(std::int64_t number)
{
    constexpr std::int64_t highest = 4095; // what the kernel takes for an errno
    if (number < 0 || number > highest)
        throw std::invalid_argument("an errno is 0 (none) to 4095, got " + std::to_string(number));
    return static_cast<int>(number);
}

} // namespace

VirtualBoard::VirtualBoard(std::shared_ptr<Board> boardWithFirmware, ChipKind kind)
    : serial(boardWithFirmware->text(3)), board(std::move(boardWithFirmware)),
      memory(kind == ChipKind::memory ? std::make_shared<MemoryChip>() : nullptr)
{
    std::shared_ptr<Module> module = memory;
    if (kind == ChipKind::loopback) { // answers for every id; others are put over it
        module = std::make_shared<LoopbackChip>();
        for (int id = 0; id < Packet::modules; ++id)
            board->setModule(id, module);
    }
    for (const int id : chipModules)
        board->setModule(id, module);
    const util::SignalBlock signals; // signals are for the program's own threads
    worker = std::thread([this] { work(); });
}

VirtualBoard::~VirtualBoard() { end(); }

std::string VirtualBoard::serialOr(const std::string& given)
{
    static std::atomic<unsigned> made = 0;
    if (!given.empty())
        return given;
    const std::string number = std::to_string(++made);
    return "EMUL" + std::string(4 - std::min<std::size_t>(number.size(), 4), '0') + number;
}

void VirtualBoard::unplug()
{
    const auto self = weak_from_this().lock(); // may be kept by the registry alone
    {
        const util::Lock lock(mutex);
        pullOut();
    }
    BoardRegistry::instance().remove(this);
}

void VirtualBoard::replug()
{
    {
        const util::Lock lock(mutex);
        pullOut();
        powerUp();
        wire()->plugIn();
        plugIn();
    }
    BoardRegistry::instance().add(shared_from_this());
}

void VirtualBoard::plugIn()
{
    plugged = plug(wire());
    in = true;
    changed.notifyAll();
}

void VirtualBoard::pullOut()
{
    in = false;
    plugged.unplug();
    changed.notifyAll();
}

bool VirtualBoard::isPlugged() const
{
    const util::Lock lock(mutex);
    return in;
}

int VirtualBoard::deviceAddress() const
{
    const util::Lock lock(mutex);
    return plugged.address();
}

void VirtualBoard::injectFault(const WireFault& fault)
{
    const util::Lock lock(mutex);
    wire()->add(fault);
}

void VirtualBoard::clearFaults()
{
    const util::Lock lock(mutex);
    wire()->clear();
}

std::uint64_t VirtualBoard::faultCount() const
{
    const util::Lock lock(mutex);
    return wire()->appliedCount();
}

void VirtualBoard::setKernelFaults(std::int64_t open, std::int64_t claim, std::int64_t submit,
                                   const std::string& kernelDriver)
{
    Port::Faults faults{errnoOf(open), errnoOf(claim), kernelDriver, {}};
    if (const int code = errnoOf(submit); code != 0)
        faults.submit = [code](std::uint8_t) { return code; };
    const util::Lock lock(mutex);
    plugged.setFaults(std::move(faults));
}

std::shared_ptr<MemoryChip> VirtualBoard::chip() const
{
    if (!memory)
        throw std::logic_error("this board has no memory chip");
    return memory;
}

void VirtualBoard::order(Task newTask)
{
    {
        const util::Lock lock(taskMutex);
        task = newTask;
    }
    ordered.notifyOne();
}

void VirtualBoard::end()
{
    if (!worker.joinable())
        return;
    {
        const util::Lock lock(mutex);
        pullOut();
    }
    {
        const util::Lock lock(taskMutex);
        stopping = true;
    }
    ordered.notifyOne();
    worker.join();
}

void VirtualBoard::work()
{
    for (;;) {
        Task now = Task::none;
        {
            const util::Lock lock(taskMutex);
            while (!stopping && task == Task::none)
                ordered.wait(taskMutex);
            if (stopping)
                return;
            now = std::exchange(task, Task::none);
        }
        carryOut(now);
    }
}

void VirtualBoard::carryOut(Task now)
{
    const util::Lock lock(mutex);
    const bool stillDue = now == Task::start ? isStarted() : wire()->isGone();
    if (!in || !stillDue) // the board has been put in anew meanwhile
        return;
    pullOut();
    if (now == Task::start) {
        started();
        plugIn();
    }
}

} // namespace emulation
