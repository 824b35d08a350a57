#pragma once
// Which callback gets the packets of which module: one table for event words, one for raw packets.
//
//   dispatcher.setDispatchEntryEv32(2, keplin::enqueueInto(received)); // a queue, filled under one lock per read
//   dispatcher.setDispatchEntryRaw(2, [&](keplin::PacketPtr packet) { ... });

#include <array>
#include <cstdint>
#include <functional>

#include "keplin/Keplin.h"
#include "keplin/PacketBuffer.h"
#include "keplin/PacketQueue.h"
#include "util/Mutex.h"

namespace keplin {

/// Takes ownership of the packet. Runs on the thread of the reader/writer, under the dispatcher's lock: it must not
/// call the dispatcher, and it delays all reading.
using pktfunc = std::function<void(PacketPtr)>;

/// The callback that puts the packet into `queue`, which must outlive it. A dispatcher recognises it and enqueues
/// consecutive packets of one read under one lock.
pktfunc enqueueInto(PacketQueue& queue);

/// Locks: its own, shared while it dispatches and exclusive in the setters. A callback's locks come inside it.
/// Threads: thread-safe. A setter waits until no callback runs.
class PacketDispatcher {
public:
    /// What every entry starts as: a packet that nobody asked for goes back to the pool.
    static constexpr auto defaultPktFunc = &Keplin::putPacketBuffer;

    PacketDispatcher();

    /// End the process with a line on standard error when `moduleId` is not below MaxModules or `f` is empty.
    void setDispatchEntryEv32(std::uint8_t moduleId, pktfunc f) VORNA_EXCLUDES(mutex);
    void setDispatchEntryRaw(std::uint8_t moduleId, pktfunc f) VORNA_EXCLUDES(mutex);

    /// A copy of the entry. End the process with a line on standard error when `moduleId` is not below MaxModules.
    pktfunc getDispatchEntryEv32(std::uint8_t moduleId) const VORNA_EXCLUDES(mutex);
    pktfunc getDispatchEntryRaw(std::uint8_t moduleId) const VORNA_EXCLUDES(mutex);

    /// Hands the packet to the callback of its module and format. A module id not below MaxModules and a format other
    /// than Ev32 and Raw end the process with a line on standard error. An empty pointer is ignored.
    void dispatch(PacketPtr packet) const VORNA_EXCLUDES(mutex);

private:
    friend class PacketDelivery;

    struct Entry {
        pktfunc function;
        PacketQueue* queue; // where `function` is enqueueInto()
        bool pools;         // where it is the default
    };
    using Table = std::array<Entry, MaxModules>;
    struct Tables {
        Table ev32;
        Table raw;
    };

    void set(Table Tables::*table, std::uint8_t moduleId, pktfunc f) VORNA_EXCLUDES(mutex);
    pktfunc get(Table Tables::*table, std::uint8_t moduleId) const VORNA_EXCLUDES(mutex);
    const Entry& entryFor(const PacketBuffer& packet) const VORNA_REQUIRES_SHARED(mutex);

    mutable util::SharedMutex mutex;
    Tables tables VORNA_GUARDED_BY(mutex);
};

} // namespace keplin
