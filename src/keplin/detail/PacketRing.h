#pragma once
// A double-ended queue of packets that keeps its memory: std::deque gives a node back whenever one runs empty, and
// takes a new one right after, so a steady stream of packets would allocate for ever.

#include <bit>
#include <cstddef>
#include <memory>
#include <span>
#include <utility>

#include "keplin/PacketBuffer.h"

namespace keplin::detail {

class PacketRing {
public:
    constexpr PacketRing() noexcept = default;

    std::size_t size() const { return count; }
    bool empty() const { return count == 0; }

    PacketPtr& front() { return slots[first]; }

    void push_back(PacketPtr&& packet)
    {
        if (count == capacity)
            grow(count + 1);
        slots[(first + count++) & (capacity - 1)] = std::move(packet);
    }
    /// Moves all of `packets` to the end. Strong guarantee.
    void append(std::span<PacketPtr> packets)
    {
        if (count + packets.size() > capacity)
            grow(count + packets.size());
        for (PacketPtr& packet : packets)
            slots[(first + count++) & (capacity - 1)] = std::move(packet);
    }

    PacketPtr pop_front()
    {
        PacketPtr packet = std::move(slots[first]);
        first = (first + 1) & (capacity - 1);
        --count;
        return packet;
    }
    PacketPtr pop_back() { return std::move(slots[(first + --count) & (capacity - 1)]); }

private:
    static constexpr std::size_t smallest = 64;

    void grow(std::size_t needed)
    {
        const std::size_t larger = std::bit_ceil(needed < smallest ? smallest : needed);
        auto moved = std::make_unique<PacketPtr[]>(larger);
        for (std::size_t i = 0; i < count; ++i)
            moved[i] = std::move(slots[(first + i) & (capacity - 1)]);
        slots = std::move(moved);
        capacity = larger;
        first = 0;
    }

    std::unique_ptr<PacketPtr[]> slots; // those outside [first, first + count), around the end, are empty
    std::size_t capacity = 0;           // 0 or a power of 2
    std::size_t first = 0;
    std::size_t count = 0;
};

} // namespace keplin::detail
