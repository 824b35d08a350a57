#pragma once
// Which callback gets the packets of which module: one table for event words, one for raw packets.
//
//   dispatcher.setDispatchEntryEv32(2, keplin::enqueueInto(received)); // a queue, filled under one lock a read
//   dispatcher.setDispatchEntryRaw(2, [&](keplin::PacketPtr packet) { ... });

#include <array>
#include <cstdint>
#include <functional>
#include <shared_mutex>

#include "keplin/Keplin.h"
#include "keplin/PacketBuffer.h"
#include "keplin/PacketQueue.h"

namespace keplin {

/// Takes the packet over. Runs on the thread of the reader/writer, under the dispatcher's lock: it must not touch the
/// dispatcher, and delays all reading.
using pktfunc = std::function<void(PacketPtr)>;

/// The callback that puts the packet into `queue`, which must outlive it. A dispatcher knows it, and hands over all
/// that one read brings in a row under one lock.
pktfunc enqueueInto(PacketQueue& queue);

/// Locks: its own, shared while it dispatches and exclusive in the setters. What a callback locks comes inside it.
/// Threads: thread-safe. A setter waits until no callback runs.
class PacketDispatcher {
public:
    /// What every entry starts as: a packet that nobody asked for goes back to the pool.
    static constexpr auto defaultPktFunc = &Keplin::putPacketBuffer;

    PacketDispatcher();

    /// End the process with a line on standard error when `moduleId` is not below MaxModules or `f` is empty.
    void setDispatchEntryEv32(std::uint8_t moduleId, pktfunc f);
    void setDispatchEntryRaw(std::uint8_t moduleId, pktfunc f);

    /// A copy of the entry. End the process with a line on standard error when `moduleId` is not below MaxModules.
    pktfunc getDispatchEntryEv32(std::uint8_t moduleId) const;
    pktfunc getDispatchEntryRaw(std::uint8_t moduleId) const;

    /// Hands the packet to the callback of its module and format. A module id not below MaxModules and a format other
    /// than Ev32 and Raw end the process with a line on standard error. An empty pointer is ignored.
    void dispatch(PacketPtr packet) const;

private:
    friend class PacketDelivery;

    struct Entry {
        pktfunc function;
        PacketQueue* queue; // where `function` is enqueueInto()
        bool pools;         // where it is the default
    };
    using Table = std::array<Entry, MaxModules>;

    void set(Table& table, std::uint8_t moduleId, pktfunc f);
    pktfunc get(const Table& table, std::uint8_t moduleId) const;
    /// Needs the lock.
    const Entry& entryFor(const PacketBuffer& packet) const;

    mutable std::shared_mutex mutex;
    Table ev32;
    Table raw;
};

} // namespace keplin
