#pragma once
// Packets in a row, owned. The pool keeps its buffers in one; queues and clients use PacketRun.
//
// Not std::deque: that frees a node whenever one runs empty and allocates a new one right after, so a steady stream of
// packets would allocate for ever.

#include <cstddef>
#include <memory>
#include <utility>

#include "keplin/PacketBuffer.h"

namespace keplin {

/// A double-ended queue. Functions that move packets in have the strong guarantee.
/// Threads: reentrant.
class PacketRing {
public:
    constexpr PacketRing() noexcept = default;
    /// Frees what is left.
    ~PacketRing() { clear(); }
    PacketRing(const PacketRing&) = delete;
    PacketRing& operator=(const PacketRing&) = delete;

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

    /// These need at least one packet.
    PacketPtr pop_front()
    {
        PacketPtr packet(slots[first]);
        first = (first + 1) & (capacity - 1);
        --count;
        return packet;
    }
    PacketPtr pop_back() { return PacketPtr(slots[(first + --count) & (capacity - 1)]); }

    /// Frees all packets, behind the pool's back.
    void clear();

    /// Moves all of `ring` to the end, and leaves it empty.
    void append(PacketRing& ring);
    /// Moves the first `number` packets to the end of `ring`, in order.
    void moveFrontTo(PacketRing& ring, std::size_t number);
    /// Moves the last `number` packets to the end of `ring`, in order.
    void moveBackTo(PacketRing& ring, std::size_t number);

private:
    void grow(std::size_t needed);
    /// Copies the pointers of `number` packets from position `from` on to the end of `ring`.
    void copyTo(PacketRing& ring, std::size_t from, std::size_t number) const;
    void swap(PacketRing& other) noexcept;

    std::unique_ptr<PacketBuffer*[]> slots; // owned are those in [first, first + count), around the end
    std::size_t capacity = 0;               // 0 or a power of 2
    std::size_t first = 0;
    std::size_t count = 0;
};

} // namespace keplin
