#pragma once
// Waiting from Python: with the interpreter lock released, and open to Ctrl-C.

#include <algorithm>
#include <chrono>
#include <future>
#include <stdexcept>
#include <string>

#include "trovi/python/GilRelease.h"

namespace trovi::python {

/// Waits for `future`, at most `limit`. Needs the interpreter lock, and gives it up while it waits; every 100 ms it
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
/// @throws std::runtime_error with `lost` when nobody will give one any more: the node was stopped meanwhile
template <class T>
T valueOf(std::future<T>& future, const std::string& lost)
{
    try {
        return future.get();
    } catch (const std::future_error&) {
        throw std::runtime_error(lost);
    }
}

} // namespace trovi::python
