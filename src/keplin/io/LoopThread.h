#pragma once
// The thread of a loop that can be started and stopped again and again.

#include <atomic>
#include <functional>
#include <thread>

#include "util/Mutex.h"

namespace keplin {

/// Stopped, then running from start() until stop(). Its owner must stop() it: a thread that still runs when this is
/// destroyed ends the process.
/// Locks: its mutex, while it starts the thread and while it waits for its end.
/// Threads: thread-safe. From the loop itself stop() only makes it end, start() does nothing, and whileStopped() is
/// false.
class LoopThread {
public:
    /// Runs `body`, which must return soon after running() turns false. Does nothing if already running.
    /// @throws std::system_error when no thread can be created; it is stopped then
    void start(std::function<void()> body) VORNA_EXCLUDES(mutex);

    void stop() VORNA_EXCLUDES(mutex);

    /// The loop's condition.
    bool running() const { return run.load(std::memory_order_relaxed); }

    /// Calls `change` if the loop is stopped.
    /// @return whether it was
    bool whileStopped(const std::function<void()>& change) VORNA_EXCLUDES(mutex);

private:
    bool isLoop() const;
    void join() VORNA_REQUIRES(mutex);

    util::Mutex mutex;
    std::atomic<bool> run{false};
    std::atomic<std::thread::id> loop{}; // the thread that runs the body
    std::thread thread VORNA_GUARDED_BY(mutex);
};

} // namespace keplin
