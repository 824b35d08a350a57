#pragma once
// A typed, unbounded queue with many producers. Each node of a graph reads one, and so does a dispatcher.

#include <cstddef>
#include <memory>
#include <utility>

#include <concurrentqueue/blockingconcurrentqueue.h>

namespace ondra {

namespace detail {

/// An empty vector behind a shared pointer.
template <class T>
constexpr bool isEmptyBatch(const T& item)
{
    if constexpr (requires { item->empty(); })
        return item != nullptr && item->empty();
    else
        return false;
}

} // namespace detail

/// Always held by shared pointer; neither copied nor moved. Grows without bound while nobody reads it.
/// Threads: any number may enqueue; one at a time reads.
template <class T>
class Channel : public moodycamel::BlockingConcurrentQueue<T> {
public:
    Channel() = default;
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    /// From now on the channel drops empty batches. Sinks want this: a filter of a running graph sends one in each
    /// pass, and millions would pile up if nobody reads. Call it before the channel is shared.
    void leaveOutEmptyBatches() { leavesOutEmpty = true; }

    bool enqueue(const T& item) { return isLeftOut(item) || Queue::enqueue(item); }
    bool enqueue(T&& item) { return isLeftOut(item) || Queue::enqueue(std::move(item)); }

    template <class Iterator>
    bool enqueue_bulk(Iterator first, std::size_t count)
    {
        if (!leavesOutEmpty)
            return Queue::enqueue_bulk(first, count);
        bool all = true;
        for (; count > 0; --count, ++first)
            all &= enqueue(*first);
        return all;
    }

private:
    using Queue = moodycamel::BlockingConcurrentQueue<T>;

    bool isLeftOut(const T& item) const { return leavesOutEmpty && detail::isEmptyBatch(item); }

    bool leavesOutEmpty = false;
};

} // namespace ondra
