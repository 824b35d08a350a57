#pragma once
// A typed, unbounded queue with many producers: what nodes of a graph, and a node's dispatcher, are fed by.

#include <memory>

#include <concurrentqueue/blockingconcurrentqueue.h>

namespace ondra {

/// Always held by shared pointer; neither copied nor moved. Grows without bound while nobody reads it.
/// Threads: any number may enqueue; one at a time reads.
template <class T>
class Channel : public moodycamel::BlockingConcurrentQueue<T> {
public:
    Channel() = default;
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;
};

} // namespace ondra
