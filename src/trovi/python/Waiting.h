#pragma once
// Waiting from Python: with the interpreter lock released, and open to Ctrl-C.

#include <algorithm>
#include <chrono>
#include <future>
#include <stdexcept>

#include "trovi/python/GilRelease.h"

namespace trovi::python {

/// Waits for `future`, at most `limit`. Needs the interpreter lock, and releases it while it waits. Every 100 ms it
/// lets Python handle signals, so that Ctrl-C ends the wait with KeyboardInterrupt.
template <class T>
std::future_status waitWithSignals(const std::future<T>& future, std::chrono::milliseconds limit)
{
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds turn{100};
    const auto end = Clock::now() + limit;
    for (;;) {
        {
            const GilRelease release;
            if (future.wait_until(std::min(end, Clock::now() + turn)) == std::future_status::ready)
                return std::future_status::ready;
        }
        if (PyErr_CheckSignals() != 0)
            throw pybind11::error_already_set();
        if (Clock::now() >= end)
            return std::future_status::timeout;
    }
}

/// The value of a future that is ready.
/// @throws std::runtime_error when the local node was stopped before the answer came
template <class T>
T valueOf(std::future<T>& future)
{
    try {
        return future.get();
    } catch (const std::future_error&) {
        throw std::runtime_error("No answer: the local node of this call was replaced by another "
                                 "setup_local_node(...), or it ended with the interpreter.");
    }
}

} // namespace trovi::python
