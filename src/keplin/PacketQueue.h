#pragma once
// A locked first-in, first-out queue of packets, without bound and without wake-up: who consumes it polls.

#include <atomic>
#include <mutex>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "keplin/PacketBuffer.h"
#include "keplin/detail/PacketRing.h"

namespace keplin {

/// Locks: its own mutex, and inside it the pool's, in clear() alone.
/// Threads: thread-safe, but for peekUnsafe().
class PacketQueue {
public:
    PacketQueue() = default;
    /// What is left goes back to the pool.
    ~PacketQueue() { clear(); }
    PacketQueue(const PacketQueue&) = delete;
    PacketQueue& operator=(const PacketQueue&) = delete;

    /// An empty pointer is ignored.
    void enqueue(PacketPtr packet);
    /// The same for many, none of them empty, in their order and under one lock; leaves empty pointers behind.
    void enqueueAll(std::span<PacketPtr> run);

    /// Empty when the queue is; does not wait.
    std::optional<PacketPtr> dequeue();
    /// Appends everything to `run`, under one lock.
    void dequeueAll(std::vector<PacketPtr>& run)
    {
        dequeueWhile([](const PacketBuffer&) { return true; }, run);
    }
    /// Appends packets to `run` for as long as `fits` says so of the next one, under one lock.
    template <class Fits>
    void dequeueWhile(Fits&& fits, std::vector<PacketPtr>& run)
    {
        const std::lock_guard lock(mutex);
        while (!packets.empty() && fits(std::as_const(*packets.front())))
            run.push_back(packets.pop_front());
        noteFirst();
    }

    /// The first packet, or null, without a lock. Only for the one thread that takes packets out: for others it may be
    /// gone by the time they look. A packet that is just being put in may be missed.
    PacketBuffer* peekUnsafe() const { return first.load(std::memory_order_acquire); }

    /// Empties the queue into the pool.
    void clear();

private:
    void noteFirst() { first.store(packets.empty() ? nullptr : packets.front().get(), std::memory_order_release); }

    detail::PacketRing packets;
    std::mutex mutex;
    std::atomic<PacketBuffer*> first{
        nullptr}; // what peekUnsafe() may see while others enqueue; written under the mutex
};

} // namespace keplin
