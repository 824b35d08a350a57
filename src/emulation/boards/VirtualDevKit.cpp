#include "emulation/boards/VirtualDevKit.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace emulation {

VirtualDevKit::VirtualDevKit(const DevKitOptions& options)
    : VirtualDevKit(options, std::make_shared<DevKit>(serialOr(options.serialNumber), options.configured))
{}

VirtualDevKit::VirtualDevKit(const DevKitOptions& options, std::shared_ptr<DevKit> withFirmware)
    : VirtualBoard(withFirmware, options.chip), hasFirmware(options.firmware), running(options.firmware),
      kit(std::move(withFirmware)), boot(std::make_shared<Fx3BootDevice>(serial)),
      bootWire(std::make_shared<FaultyWire>(boot, [this] { order(Task::unplug); })),
      kitWire(std::make_shared<FaultyWire>(kit, [this] { order(Task::unplug); }))
{
    boot->setOnStart([this](std::uint32_t) { order(Task::start); });
}

VirtualDevKit::~VirtualDevKit() { end(); }

void VirtualDevKit::powerUp()
{
    kit->powerUp();
    boot->powerUp();
    running = hasFirmware;
}

void VirtualDevKit::started()
{
    running = true;
    kitWire->plugIn();
}

bool VirtualDevKit::isRunning() const
{
    const util::Lock lock(mutex);
    return in && running;
}

bool VirtualDevKit::waitUntilRunning(std::int64_t timeoutMs) const
{
    const std::chrono::milliseconds time(std::clamp<std::int64_t>(timeoutMs, 0, 1'000'000'000));
    const util::Lock lock(mutex);
    return changed.waitFor(mutex, time, [this]() VORNA_REQUIRES(mutex) { return in && running; });
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

} // namespace emulation
