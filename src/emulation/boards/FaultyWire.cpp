#include "emulation/boards/FaultyWire.h"

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <utility>

namespace emulation {

FaultyWire::FaultyWire(std::shared_ptr<Device> innerDevice, std::function<void()> unplugger)
    : inner(std::move(innerDevice)), unplug(std::move(unplugger))
{
    inner->setWaker([this] { wake(); });
}

FaultyWire::~FaultyWire() { inner->setWaker({}); }

void FaultyWire::add(const WireFault& fault)
{
    if (fault.times == 0)
        throw std::invalid_argument("a fault has to happen once at least");
    const auto known = inner->endpoints();
    if (fault.endpoint != 0 && std::find(known.begin(), known.end(), fault.endpoint) == known.end())
        throw std::invalid_argument("the device has no endpoint " + std::to_string(fault.endpoint));
    const util::Lock lock(mutex);
    queues[fault.endpoint].faults.push_back(fault);
}

void FaultyWire::clear()
{
    {
        const util::Lock lock(mutex);
        queues.clear();
    }
    wake();
}

std::uint64_t FaultyWire::appliedCount() const
{
    const util::Lock lock(mutex);
    return applied;
}

// The fault that this transfer meets, if any.
std::optional<WireFault> FaultyWire::current(std::uint8_t endpoint) const
{
    const util::Lock lock(mutex);
    const auto found = queues.find(endpoint);
    if (found == queues.end() || found->second.faults.empty() || found->second.faults.front().after > 0)
        return std::nullopt;
    return found->second.faults.front();
}

void FaultyWire::plugIn()
{
    const util::Lock lock(mutex);
    gone = false;
    for (auto& [endpoint, queue] : queues)
        queue.delay.reset();
}

bool FaultyWire::isGone() const
{
    const util::Lock lock(mutex);
    return gone;
}

void FaultyWire::goAway()
{
    {
        const util::Lock lock(mutex);
        gone = true;
    }
    if (unplug)
        unplug();
}

bool FaultyWire::mustWait(const WireFault& fault)
{
    const util::Lock lock(mutex);
    const auto found = queues.find(fault.endpoint);
    return found != queues.end() // else cleared meanwhile
           && !found->second.delay.isOver(std::chrono::steady_clock::now(), std::chrono::microseconds(fault.amount));
}

// A transfer is over: the next fault comes closer, or the present one has had one of its times.
void FaultyWire::done(std::uint8_t endpoint, bool faulty)
{
    const util::Lock lock(mutex);
    const auto found = queues.find(endpoint);
    if (found == queues.end() || found->second.faults.empty())
        return;
    Queue& queue = found->second;
    queue.delay.reset();
    WireFault& fault = queue.faults.front();
    applied += faulty ? 1 : 0;
    if (!faulty && fault.after > 0)
        --fault.after;
    else if (faulty && --fault.times == 0)
        queue.faults.pop_front();
}

int FaultyWire::carry(std::uint8_t endpoint, bool reads, std::span<std::uint8_t> data,
                      const std::function<int(std::span<std::uint8_t>)>& transfer)
{
    if (isGone())
        return -ESHUTDOWN;
    const auto fault = current(endpoint);
    if (fault && fault->kind == FaultKind::delay && mustWait(*fault))
        return pending;
    int result = 0;
    switch (fault ? fault->kind : FaultKind::delay) {
    case FaultKind::stall:
        result = -EPIPE;
        break;
    case FaultKind::unplug:
        goAway();
        result = -ESHUTDOWN;
        break;
    case FaultKind::drop:
        result = reads ? transfer(data) : static_cast<int>(data.size());
        if (reads && result >= 0) {
            done(endpoint, true);
            wake(); // so that what comes next is asked for
            return pending;
        }
        break;
    case FaultKind::shortTransfer: {
        const auto most = std::min<std::size_t>(fault->amount, data.size());
        if (reads) {
            std::vector<std::uint8_t> all(data.size()); // the device gives what it would
            result = transfer(all);
            if (result > 0) {
                result = static_cast<int>(std::min<std::size_t>(most, static_cast<std::size_t>(result)));
                std::copy_n(all.begin(), result, data.begin());
            }
        } else {
            result = transfer(data.first(most));
        }
        break;
    }
    case FaultKind::corrupt:
        if (!reads && fault->amount < data.size())
            data[fault->amount] ^= 0xFF;
        result = transfer(data);
        if (reads && result > 0 && fault->amount < static_cast<std::size_t>(result))
            data[fault->amount] ^= 0xFF;
        break;
    case FaultKind::delay:
        result = transfer(data);
        break;
    }
    if (result != pending)
        done(endpoint, fault.has_value());
    return result;
}

int FaultyWire::controlTransfer(const Setup& setup, std::span<std::uint8_t> data)
{
    std::vector<std::uint8_t> copy(data.begin(), data.end()); // a corrupted write isn't the host's to see
    const bool reads = (setup.bmRequestType & 0x80) != 0;
    return carry(0, reads, reads ? data : std::span(copy),
                 [&](std::span<std::uint8_t> bytes) { return inner->controlTransfer(setup, bytes); });
}

int FaultyWire::bulkOut(std::uint8_t endpoint, std::span<const std::uint8_t> data)
{
    if (!isGone() && !current(endpoint)) {
        const int result = inner->bulkOut(endpoint, data);
        if (result != pending)
            done(endpoint, false);
        return result;
    }
    std::vector<std::uint8_t> copy(data.begin(), data.end());
    return carry(endpoint, false, copy, [&](std::span<std::uint8_t> bytes) { return inner->bulkOut(endpoint, bytes); });
}

int FaultyWire::bulkIn(std::uint8_t endpoint, std::span<std::uint8_t> data)
{
    return carry(endpoint, true, data, [&](std::span<std::uint8_t> bytes) { return inner->bulkIn(endpoint, bytes); });
}

std::optional<std::chrono::steady_clock::time_point> FaultyWire::pollAfter() const
{
    auto earliest = inner->pollAfter();
    const util::Lock lock(mutex);
    for (const auto& [endpoint, queue] : queues)
        if (const auto end = queue.delay.end(); end && (!earliest || *end < *earliest))
            earliest = end;
    return earliest;
}

void FaultyWire::cancelled(std::uint8_t endpoint)
{
    inner->cancelled(endpoint);
    const util::Lock lock(mutex);
    if (const auto found = queues.find(endpoint); found != queues.end())
        found->second.delay.cancel();
}

} // namespace emulation
