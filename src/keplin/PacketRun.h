#pragma once
// Packets in a row, owned: what a queue and the pool hold, and what travels between them.
//
//   keplin::PacketRun run; // kept from turn to turn: it keeps its memory
//   queue.dequeueAll(run);
//   for (std::size_t i = 0; i < run.size(); ++i)
//       decode(run[i]);
//   keplin::Keplin::putPacketBuffers(run);
//
// Not std::deque: that gives a node back whenever one runs empty and takes a new one right after, so a steady stream of
// packets would allocate for ever.

#include <algorithm>
#include <cstddef>
#include <memory>
#include <utility>

#include "keplin/PacketBuffer.h"

namespace keplin {

/// A double-ended queue. Functions that move packets in have the strong guarantee.
/// Threads: reentrant.
class PacketRun {
public:
    constexpr PacketRun() noexcept = default;
    /// What is left goes back to the pool.
    ~PacketRun();
    PacketRun(const PacketRun&) = delete;
    PacketRun& operator=(const PacketRun&) = delete;

    std::size_t size() const { return count; }
    bool empty() const { return count == 0; }

    /// @param i  below size(); 0 is the front
    PacketBuffer& operator[](std::size_t i) const { return *slots[(first + i) & (capacity - 1)]; }

    /// `packet` must not be empty.
    void push_back(PacketPtr&& packet)
    {
        if (count == capacity) [[unlikely]]
            grow(count + 1);
        slots[(first + count++) & (capacity - 1)] = packet.release();
    }

    /// These need a packet.
    PacketPtr pop_front()
    {
        PacketPtr packet(slots[first]);
        first = (first + 1) & (capacity - 1);
        --count;
        return packet;
    }
    PacketPtr pop_back() { return PacketPtr(slots[(first + --count) & (capacity - 1)]); }

    /// Moves all of `run` to the end, and leaves it empty.
    void append(PacketRun& run);
    /// Moves the first `number` packets to the end of `run`, in order.
    void moveFrontTo(PacketRun& run, std::size_t number);
    /// Moves the last `number` packets to the end of `run`, in order.
    void moveBackTo(PacketRun& run, std::size_t number);

private:
    void grow(std::size_t needed);
    /// Copies the pointers of `number` packets from position `from` on to the end of `run`.
    void copyTo(PacketRun& run, std::size_t from, std::size_t number) const;
    void swap(PacketRun& other) noexcept;

    std::unique_ptr<PacketBuffer*[]> slots; // owned are those in [first, first + count), around the end
    std::size_t capacity = 0;               // 0 or a power of 2
    std::size_t first = 0;
    std::size_t count = 0;
};

} // namespace keplin
