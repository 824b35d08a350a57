#include "emulation/cameras/VirtualCamera.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace emulation {

using davis::event::DvsEvent;
using namespace std::chrono_literals;

VirtualCamera::VirtualCamera(davis::caer::CameraKind kind, davis::caer::CameraInfo info,
                             std::unique_ptr<Content> shownContent, Pace pace)
    : kind_(kind), information(std::move(info)), pace(pace), content(std::move(shownContent))
{}

VirtualCamera::~VirtualCamera()
{
    if (shutdownThread.joinable())
        shutdownThread.join();
}

void VirtualCamera::unplug()
{
    const auto held = davis::caer::VirtualBus::instance().unplug(*this); // maybe the last owner: to the end of this
    const std::lock_guard lock(mutex);
    if (!plugged)
        return;
    plugged = false;
    if (delivering && onShutdown)
        shutdownThread = std::thread(std::exchange(onShutdown, nullptr));
    changed.notify_all();
}

bool VirtualCamera::isPlugged() const
{
    const std::lock_guard lock(mutex);
    return plugged;
}

bool VirtualCamera::isOpen() const
{
    const std::lock_guard lock(mutex);
    return opened;
}

bool VirtualCamera::isDelivering() const
{
    const std::lock_guard lock(mutex);
    return delivering;
}

bool VirtualCamera::isFinished() const
{
    const std::lock_guard lock(mutex);
    return finished;
}

bool VirtualCamera::waitUntilFinished(std::int64_t timeoutMs) const
{
    constexpr std::int64_t dayMs = 24 * 60 * 60 * 1000; // beyond which the sum with the clock could overflow
    std::unique_lock lock(mutex);
    changed.wait_for(lock, std::chrono::milliseconds(std::clamp<std::int64_t>(timeoutMs, 0, 365 * dayMs)),
                     [&] { return finished || !plugged; });
    return finished;
}

CameraCounters VirtualCamera::counters() const
{
    const std::lock_guard lock(mutex);
    return counts;
}

std::string VirtualCamera::damage() const
{
    const std::lock_guard lock(mutex);
    return damage_;
}

bool VirtualCamera::open()
{
    {
        const std::lock_guard lock(mutex);
        if (!plugged || opened)
            return false;
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
    std::thread last;
    {
        const std::lock_guard lock(mutex);
        last = std::move(shutdownThread);
    }
    if (last.joinable())
        last.join();
    const std::lock_guard lock(mutex);
    opened = false;
}

bool VirtualCamera::startStream(std::function<void()> shutdown)
{
    const std::lock_guard lock(mutex);
    if (!plugged || delivering)
        return false;
    delivering = true;
    onShutdown = std::move(shutdown);
    begin = Clock::now() - played;
    changed.notify_all();
    return true;
}

bool VirtualCamera::stopStream()
{
    const std::lock_guard lock(mutex);
    if (!delivering)
        return false;
    delivering = false;
    onShutdown = nullptr;
    played = Clock::now() - begin;
    changed.notify_all();
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
    const std::lock_guard lock(mutex);
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
    const std::lock_guard lock(mutex);
    damage_ = content->damage().value_or(""); // a loop goes on after it
    if (ended) {
        finished = true;
        changed.notify_all();
        return false;
    }
    if (!firstUs)
        firstUs = pending.front().timestamp;
    return true;
}

bool VirtualCamera::waitUntilDue(Clock::time_point giveUp)
{
    std::unique_lock lock(mutex);
    const Clock::time_point due = begin + sinceBegin(pending.back().timestamp);
    changed.wait_until(lock, std::min(due, giveUp), [&] { return !plugged; });
    return plugged && Clock::now() >= due;
}

bool VirtualCamera::waitForRoom(Clock::time_point giveUp, const std::function<std::size_t()>& backlog)
{
    // No channel tells when it is read, so this looks again and again: often enough that the graph need not wait,
    // seldom enough to leave it the processor.
    constexpr auto lookAgain = 200us;
    std::unique_lock lock(mutex);
    while (plugged) {
        lock.unlock(); // the graph's locks are none of ours
        const bool room = !backlog || backlog() < pace.maxBacklog;
        lock.lock();
        if (room)
            return plugged;
        if (Clock::now() >= giveUp)
            return false;
        changed.wait_for(lock, lookAgain, [&] { return !plugged; });
    }
    return false;
}

/// Waits as a camera does that has nothing more to tell.
void VirtualCamera::idleAtEnd(Clock::time_point giveUp)
{
    std::unique_lock lock(mutex);
    changed.wait_until(lock, giveUp, [&] { return !plugged; });
}

/// When an event is due. Under `mutex`.
VirtualCamera::Clock::duration VirtualCamera::sinceBegin(std::int64_t timestampUs) const
{
    constexpr double furthest = 1e9; // seconds; the clock reaches 9e9
    const double us = static_cast<double>(timestampUs) - static_cast<double>(*firstUs);
    const std::chrono::duration<double> seconds(std::clamp(us / 1e6 / pace.speed, 0.0, furthest));
    return std::chrono::duration_cast<Clock::duration>(seconds);
}

} // namespace emulation
