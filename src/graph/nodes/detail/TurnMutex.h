#pragma once
// The mutex of a node's settings and results.

#include <atomic>
#include <mutex>

#include "util/Mutex.h"

namespace graph::nodes::detail {

/// A graph's thread locks a node's mutex again right after unlocking it, and may hold it for 10 ms each time. With a
/// plain mutex, a script that asks for a result would hardly ever get it. Here a waiting thread gets the mutex at the
/// next unlock. Lockable. Threads: thread-safe; not recursive.
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
