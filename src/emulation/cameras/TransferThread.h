#pragma once
// The USB thread of a virtual camera.

#include <cstdint>
#include <deque>
#include <functional>
#include <thread>

#include "util/Mutex.h"

namespace emulation {

/// Does what is posted, one after the other: it completes control transfers and calls the camera's shutdown callback,
/// as libcaer's thread does. So nothing is completed while that callback runs.
///
/// Threads: thread-safe; one thread from constructor to destructor. The destructor completes what was posted and joins
/// it. `mutex` is innermost and not held while work runs.
class TransferThread {
public:
    TransferThread();
    TransferThread(const TransferThread&) = delete;
    TransferThread& operator=(const TransferThread&) = delete;
    ~TransferThread();

    /// @param work  may be empty, as for a transfer without effect
    /// @return the number to wait for
    std::uint64_t post(std::function<void()> work) VORNA_EXCLUDES(mutex);
    /// Waits until what got this number is done. Not on the thread itself.
    void waitFor(std::uint64_t number) VORNA_EXCLUDES(mutex);

private:
    void run() VORNA_EXCLUDES(mutex);

    util::Mutex mutex;
    util::ConditionVariable changed;
    std::deque<std::function<void()>> queue VORNA_GUARDED_BY(mutex);
    std::uint64_t posted VORNA_GUARDED_BY(mutex) = 0;
    std::uint64_t done VORNA_GUARDED_BY(mutex) = 0;
    bool ending VORNA_GUARDED_BY(mutex) = false;
    std::thread thread; // last: it uses all of the above
};

} // namespace emulation
