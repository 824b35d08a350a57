#pragma once
// Two ways to do the same work, timed in turn in one run, so that what else the machine does hits both. The best of
// many rounds counts: everything else is disturbance.

#include <algorithm>
#include <chrono>
#include <limits>

#include <benchmark/benchmark.h>

namespace bench {

template <class Work>
double secondsOf(Work&& work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// Counters: "ns" and "floor_ns" for one of `items`, and "ratio" of the two. The time shown is that of `subject`.
/// Needs UseManualTime().
template <class Subject, class Floor>
void sideBySide(benchmark::State& state, double items, Subject subject, Floor floor)
{
    double best = std::numeric_limits<double>::infinity(), bestFloor = best;
    for (auto _ : state) {
        bestFloor = std::min(bestFloor, secondsOf(floor));
        const double seconds = secondsOf(subject);
        best = std::min(best, seconds);
        state.SetIterationTime(seconds);
    }
    state.counters["ns"] = best / items * 1e9;
    state.counters["floor_ns"] = bestFloor / items * 1e9;
    state.counters["ratio"] = best / bestFloor;
}

} // namespace bench
