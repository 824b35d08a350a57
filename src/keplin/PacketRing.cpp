#include "keplin/PacketRing.h"

#include <algorithm>
#include <bit>

namespace keplin {

void PacketRing::clear()
{
    while (!empty())
        pop_front();
}

void PacketRing::append(PacketRing& ring)
{
    if (empty())
        swap(ring); // the usual case between a read and its client: nothing is touched
    else
        ring.moveFrontTo(*this, ring.size());
}

void PacketRing::moveFrontTo(PacketRing& ring, std::size_t number)
{
    if (number == count && ring.empty())
        return swap(ring);
    copyTo(ring, 0, number);
    if (capacity != 0)
        first = (first + number) & (capacity - 1);
    count -= number;
}

void PacketRing::moveBackTo(PacketRing& ring, std::size_t number)
{
    copyTo(ring, count - number, number);
    count -= number;
}

void PacketRing::copyTo(PacketRing& ring, std::size_t from, std::size_t number) const
{
    if (ring.count + number > ring.capacity)
        ring.grow(ring.count + number);
    for (std::size_t i = 0; i < number; ++i)
        ring.slots[(ring.first + ring.count + i) & (ring.capacity - 1)] = slots[(first + from + i) & (capacity - 1)];
    ring.count += number;
}

void PacketRing::grow(std::size_t needed)
{
    constexpr std::size_t smallest = 64;
    const std::size_t larger = std::bit_ceil(std::max(needed, smallest));
    auto moved = std::make_unique<PacketBuffer*[]>(larger);
    for (std::size_t i = 0; i < count; ++i)
        moved[i] = &(*this)[i];
    slots = std::move(moved);
    capacity = larger;
    first = 0;
}

void PacketRing::swap(PacketRing& other) noexcept
{
    std::swap(slots, other.slots);
    std::swap(capacity, other.capacity);
    std::swap(first, other.first);
    std::swap(count, other.count);
}

} // namespace keplin
