#pragma once
// A lock of one byte for sections that are short or rarely contended.

#include <atomic>
#include <cstdint>

namespace ondra {

/// Lockable, for std::lock_guard and std::unique_lock. Not recursive.
/// Threads: thread-safe. A waiting thread spins at full speed: no pause, no yield, no order among those who wait.
class SpinLock {
public:
    void lock() noexcept
    {
        while (held.exchange(1, std::memory_order_acquire) != 0)
            ;
    }
    /// One attempt. True when the lock is now the caller's.
    bool try_lock() noexcept { return held.exchange(1, std::memory_order_acquire) == 0; }
    void unlock() noexcept { held.store(0, std::memory_order_release); }

private:
    std::atomic<std::uint8_t> held = 0;
};

} // namespace ondra
