#include "emulation/cameras/VirtualCamera.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace emulation {

using davis::event::DvsEvent;
using namespace std::chrono_literals;

VirtualCamera::VirtualCamera(davis::driver::CameraKind kind, davis::driver::CameraInfo info,
                             std::unique_ptr<Content> shownContent, Pace pace)
    : kind_(kind), information(std::move(info)), pace(pace), content(std::move(shownContent))
{}

VirtualCamera::~VirtualCamera() = default;

void VirtualCamera::unplug()
{
    const auto held =
        davis::driver::VirtualBus::instance().unplug(*this); // maybe the last owner: kept until this returns
    const util::Lock lock(mutex);
    if (!plugged)
        return;
    plugged = false;
    postShutdown();
    changed.notifyAll();
}

void VirtualCamera::failTransfers()
{
    const util::Lock lock(mutex);
    if (!delivering)
        return;
    failed = true;
    postShutdown();
    changed.notifyAll();
}

/// Has the callback called, once a stream.
void VirtualCamera::postShutdown()
{
    if (!delivering)
        return;
    transfers->post([this] {
        util::Lock guard(mutex);
        const std::function<void()> shutdown = std::exchange(onShutdown, nullptr);
        guard.unlock();
        if (shutdown) // else stopStream() came first
            shutdown();
    });
}

bool VirtualCamera::isPlugged() const
{
    const util::Lock lock(mutex);
    return plugged;
}

bool VirtualCamera::isOpen() const
{
    const util::Lock lock(mutex);
    return opened;
}

bool VirtualCamera::isDelivering() const
{
    const util::Lock lock(mutex);
    return delivering;
}

bool VirtualCamera::isFinished() const
{
    const util::Lock lock(mutex);
    return finished;
}

bool VirtualCamera::waitUntilFinished(std::int64_t timeoutMs) const
{
    constexpr std::int64_t dayMs = 24 * 60 * 60 * 1000; // a limit, since the sum with the clock could overflow
    util::Lock lock(mutex);
    changed.waitFor(mutex, std::chrono::milliseconds(std::clamp<std::int64_t>(timeoutMs, 0, 365 * dayMs)),
                    [this]() VORNA_REQUIRES(mutex) { return finished || !plugged; });
    return finished;
}

CameraCounters VirtualCamera::counters() const
{
    const util::Lock lock(mutex);
    return counts;
}

std::string VirtualCamera::damage() const
{
    const util::Lock lock(mutex);
    return damage_;
}

bool VirtualCamera::open()
{
    {
        const util::Lock lock(mutex);
        if (!plugged || opened)
            return false;
        transfers = std::make_unique<TransferThread>();
        opened = true;
        finished = false;
        counts = {};
        damage_.clear();
        firstUs.reset();
        played = {};
    }
    pending.clear();
    ended = false;
    try {
        content->rewind();
    } catch (...) {
        close();
        throw;
    }
    return true;
}

void VirtualCamera::close()
{
    std::unique_ptr<TransferThread> last;
    {
        const util::Lock lock(mutex);
        last = std::move(transfers);
    }
    last.reset(); // joins it; the callback may take `mutex`
    const util::Lock lock(mutex);
    opened = false;
}

bool VirtualCamera::controlTransfer()
{
    TransferThread* thread = nullptr;
    std::uint64_t number = 0;
    {
        const util::Lock lock(mutex);
        if (!plugged)
            return false;
        thread = transfers.get();
        number = thread->post({});
    }
    thread->waitFor(number); // it stays until close(), which the caller's driver calls later
    return true;
}

bool VirtualCamera::startStream(std::function<void()> shutdown)
{
    if (!controlTransfer())
        return false;
    const util::Lock lock(mutex);
    if (!plugged || delivering)
        return false;
    delivering = true;
    failed = false;
    onShutdown = std::move(shutdown);
    begin = Clock::now() - played;
    changed.notifyAll();
    return true;
}

bool VirtualCamera::stopStream()
{
    {
        const util::Lock lock(mutex);
        if (!delivering)
            return false;
        delivering = false;
        onShutdown = nullptr;
        played = Clock::now() - begin;
        changed.notifyAll();
    }
    controlTransfer(); // completed behind a callback that is under way
    return true;
}

bool VirtualCamera::next(std::vector<DvsEvent>& events, int waitMs, const std::function<std::size_t()>& backlog)
{
    const Clock::time_point giveUp = Clock::now() + std::chrono::milliseconds(waitMs);
    if (!fillPending()) {
        idleAtEnd(giveUp);
        return false;
    }
    if (pace.realtime ? !waitUntilDue(giveUp) : !waitForRoom(giveUp, backlog))
        return false;
    events.swap(pending);
    pending.clear();
    const util::Lock lock(mutex);
    counts.events += events.size();
    ++counts.batches;
    return true;
}

bool VirtualCamera::fillPending()
{
    if (!pending.empty())
        return true;
    if (ended)
        return false;
    ended = !content->next(pending);
    const util::Lock lock(mutex);
    damage_ = content->damage().value_or(""); // a loop goes on after it
    if (ended) {
        finished = true;
        changed.notifyAll();
        return false;
    }
    if (!firstUs)
        firstUs = pending.front().timestamp;
    return true;
}

bool VirtualCamera::waitUntilDue(Clock::time_point giveUp)
{
    util::Lock lock(mutex);
    const Clock::time_point due = begin + sinceBegin(pending.back().timestamp);
    changed.waitUntil(mutex, std::min(due, giveUp), [this]() VORNA_REQUIRES(mutex) { return silent(); });
    return !silent() && Clock::now() >= due;
}

bool VirtualCamera::waitForRoom(Clock::time_point giveUp, const std::function<std::size_t()>& backlog)
{
    // A channel gives no signal when it is read, so this polls: often enough that the graph need not wait, seldom
    // enough to leave it the processor.
    constexpr auto pollInterval = 200us;
    util::Lock lock(mutex);
    while (!silent()) {
        lock.unlock(); // the graph takes locks of its own
        const bool room = !backlog || backlog() < pace.maxBacklog;
        lock.lock();
        if (room)
            return !silent();
        if (Clock::now() >= giveUp)
            return false;
        changed.waitFor(mutex, pollInterval, [this]() VORNA_REQUIRES(mutex) { return silent(); });
    }
    return false;
}

/// Waits as a read of a camera without events does.
void VirtualCamera::idleAtEnd(Clock::time_point giveUp)
{
    util::Lock lock(mutex);
    changed.waitUntil(mutex, giveUp, [this]() VORNA_REQUIRES(mutex) { return silent(); });
}

/// When an event is due.
VirtualCamera::Clock::duration VirtualCamera::sinceBegin(std::int64_t timestampUs) const
{
    constexpr double furthest = 1e9; // seconds; the clock reaches 9e9
    const double us = static_cast<double>(timestampUs) - static_cast<double>(*firstUs);
    const std::chrono::duration<double> seconds(std::clamp(us / 1e6 / pace.speed, 0.0, furthest));
    return std::chrono::duration_cast<Clock::duration>(seconds);
}

} // namespace emulation
