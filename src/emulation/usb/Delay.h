#pragma once
// The time that a transfer waits before a device answers it.

#include <chrono>
#include <optional>

namespace emulation {

/// A transfer that the host gives up and begins again, as at a time-out, continues the same wait. When the time ends
/// while no transfer waits, the next one waits in full.
///
/// Threads: guarded by its owner.
class Delay {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// For each attempt at a transfer; the first one starts the wait. @return true when the transfer may go on
    bool isOver(Time now, std::chrono::microseconds length)
    {
        if (!due || (!awaited && now >= *due))
            due = now + length;
        over = now >= *due;
        awaited = true;
        return over;
    }
    /// The transfer was given up.
    void cancel() { awaited = false; }
    /// The transfer has gone on, or there is nothing to wait for any more.
    void reset() { due.reset(); }

    /// When the waiting transfer may go on. Nothing while none waits, or after it was allowed to go on: it may then
    /// wait for something else.
    std::optional<Time> end() const { return awaited && !over ? due : std::nullopt; }

private:
    std::optional<Time> due;
    bool awaited = false; ///< a transfer waits for `due`
    bool over = false;    ///< at the last attempt
};

} // namespace emulation
