#pragma once
// A lock of one byte for sections that are short or rarely contended.

#include <atomic>
#include <cstdint>

#include "util/Mutex.h"

namespace ondra {

/// Lockable, for util::Lock and the standard's locks. Not recursive.
/// Threads: thread-safe. A waiting thread spins at full speed: no pause, no yield, no order among those who wait.
class VORNA_CAPABILITY("spin lock") SpinLock {
public:
    void lock() noexcept VORNA_ACQUIRE()
    {
        while (held.exchange(1, std::memory_order_acquire) != 0)
            ;
    }
    /// One attempt. True when the lock is now the caller's.
    bool try_lock() noexcept VORNA_TRY_ACQUIRE(true) { return held.exchange(1, std::memory_order_acquire) == 0; }
    void unlock() noexcept VORNA_RELEASE() { held.store(0, std::memory_order_release); }

private:
    std::atomic<std::uint8_t> held = 0;
};

} // namespace ondra
