#pragma once
// The mutex of a node's settings and results.

#include <mutex>

namespace graph::nodes::detail {

/// A graph's thread takes a node's mutex again as soon as it has let go of it, and may hold it for 10 ms each time.
/// With a plain mutex a script that asks for a result would hardly ever win. Whoever waits here keeps the turn
/// meanwhile, so it gets the mutex when the holder lets go. Lockable. Threads: thread-safe; not recursive.
class TurnMutex {
public:
    void lock()
    {
        const std::lock_guard waiting(turn);
        mutex.lock();
    }
    void unlock() { mutex.unlock(); }

private:
    std::mutex turn; // taken first, held only while waiting for `mutex`
    std::mutex mutex;
};

} // namespace graph::nodes::detail
