#pragma once
// A locked first-in, first-out queue of packets. It is unbounded and notifies nobody: consumers poll.

#include <atomic>
#include <optional>
#include <utility>

#include "keplin/PacketBuffer.h"
#include "keplin/PacketRing.h"
#include "util/Mutex.h"

namespace keplin {

/// Locks: its own mutex, and inside it the pool's, in clear() alone.
/// Threads: thread-safe, except peekUnsafe().
class PacketQueue {
public:
    PacketQueue() = default;
    /// What is left goes back to the pool.
    ~PacketQueue() { clear(); }
    PacketQueue(const PacketQueue&) = delete;
    PacketQueue& operator=(const PacketQueue&) = delete;

    /// An empty pointer is ignored.
    void enqueue(PacketPtr packet) VORNA_EXCLUDES(mutex);
    /// Moves all of `run` in, in its order and under one lock.
    void enqueueAll(PacketRing& run) VORNA_EXCLUDES(mutex);

    /// Empty when the queue is; does not wait.
    std::optional<PacketPtr> dequeue() VORNA_EXCLUDES(mutex);
    /// Moves everything to the end of `run`, under one lock.
    void dequeueAll(PacketRing& run) VORNA_EXCLUDES(mutex);
    /// Moves packets to the end of `run` while fits(next packet) is true, under one lock.
    template <class Fits>
    void dequeueWhile(Fits&& fits, PacketRing& run) VORNA_EXCLUDES(mutex)
    {
        const util::Lock lock(mutex);
        std::size_t number = 0;
        while (number < packets.size() && fits(std::as_const(packets[number])))
            ++number;
        packets.moveFrontTo(run, number);
        updateFirst();
    }

    /// The first packet, or null, without a lock. Only for the one thread that takes packets out; for any other the
    /// packet may be gone at once. A packet that is being put in meanwhile may be missed.
    PacketBuffer* peekUnsafe() const { return first.load(std::memory_order_acquire); }

    /// Empties the queue into the pool.
    void clear() VORNA_EXCLUDES(mutex);

private:
    void updateFirst() VORNA_REQUIRES(mutex)
    {
        first.store(packets.empty() ? nullptr : &packets[0], std::memory_order_release);
    }

    util::Mutex mutex;
    PacketRing packets VORNA_GUARDED_BY(mutex);
    std::atomic<PacketBuffer*> first{nullptr}; // read without the mutex, written with it
};

} // namespace keplin
