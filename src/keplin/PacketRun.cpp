#include "keplin/PacketRun.h"

#include <bit>

#include "keplin/Keplin.h"

namespace keplin {

PacketRun::~PacketRun()
{
    if (!empty())
        Keplin::putPacketBuffers(*this);
}

void PacketRun::append(PacketRun& run)
{
    if (empty())
        swap(run); // the usual case between a read and its client: nothing is touched
    else
        run.moveFrontTo(*this, run.size());
}

void PacketRun::moveFrontTo(PacketRun& run, std::size_t number)
{
    if (number == count && run.empty())
        return swap(run);
    copyTo(run, 0, number);
    if (capacity != 0)
        first = (first + number) & (capacity - 1);
    count -= number;
}

void PacketRun::moveBackTo(PacketRun& run, std::size_t number)
{
    copyTo(run, count - number, number);
    count -= number;
}

void PacketRun::copyTo(PacketRun& run, std::size_t from, std::size_t number) const
{
    if (run.count + number > run.capacity)
        run.grow(run.count + number);
    for (std::size_t i = 0; i < number; ++i)
        run.slots[(run.first + run.count + i) & (run.capacity - 1)] = slots[(first + from + i) & (capacity - 1)];
    run.count += number;
}

void PacketRun::grow(std::size_t needed)
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

void PacketRun::swap(PacketRun& other) noexcept
{
    std::swap(slots, other.slots);
    std::swap(capacity, other.capacity);
    std::swap(first, other.first);
    std::swap(count, other.count);
}

} // namespace keplin
