#pragma once
// The mutex of a node's settings and results.

#include <atomic>
#include <mutex>

#include "util/Mutex.h"

namespace graph::nodes::detail {

/// A graph's thread takes a node's mutex again as soon as it has let go of it, and may hold it for 10 ms each time.
/// With a plain mutex a script that asks for a result would hardly ever win. Whoever waits here keeps the turn
/// meanwhile, so it gets the mutex when the holder lets go. Lockable. Threads: thread-safe; not recursive.
class VORNA_CAPABILITY("mutex") TurnMutex {
public:
    void lock() VORNA_ACQUIRE()
    {
        if (waiting == 0 && mutex.try_lock())
            return;
        ++waiting;
        {
            const std::lock_guard next(turn);
            mutex.lock();
        }
        --waiting;
    }
    void unlock() VORNA_RELEASE() { mutex.unlock(); }

private:
    std::atomic<int> waiting = 0; // while it isn't 0, newcomers line up at `turn`
    std::mutex turn;              // held by the first in the line
    std::mutex mutex;
};

} // namespace graph::nodes::detail
