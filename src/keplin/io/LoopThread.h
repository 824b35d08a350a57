#pragma once
// The thread of a loop that can be started and stopped again and again.

#include <atomic>
#include <functional>
#include <mutex>
#include <thread>

namespace keplin {

/// Stopped, then running from start() until stop(). Its owner must stop() it: a thread that still runs when this is
/// destroyed ends the process.
/// Locks: its mutex, while it starts the thread and while it waits for its end.
/// Threads: thread-safe. From the loop itself stop() only makes it end, start() does nothing, and whileStopped() is
/// false.
class LoopThread {
public:
    /// Runs `body`, which returns soon after running() turned false. Does nothing if already running.
    /// @throws std::system_error when there is no thread to be had; stopped then
    void start(std::function<void()> body);

    void stop();

    /// What the loop looks at.
    bool running() const { return run.load(std::memory_order_relaxed); }

    /// Calls `change` if there is no thread, and says if so.
    bool whileStopped(const std::function<void()>& change);

private:
    bool isLoop() const;
    void join();

    std::mutex mutex; // of `thread`
    std::atomic<bool> run{false};
    std::atomic<std::thread::id> loop{}; // who runs the body
    std::thread thread;
};

} // namespace keplin
