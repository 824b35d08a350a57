#pragma once
// The buffers that nobody uses at the moment, for all boards of the process. Clients reach the pool through Keplin.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "keplin/PacketBuffer.h"
#include "keplin/PacketRing.h"
#include "util/Mutex.h"

namespace keplin {

/// One for the process. It is there before any static object is made and after the last one is gone.
/// Locks: its own mutex, innermost.
/// Threads: thread-safe.
class PacketPool {
public:
    /// The pool keeps no more buffers than this and frees what comes back beyond.
    static constexpr std::size_t MaxPooledBuffers = 0xF0EF + 1;

    static PacketPool& getInstance();

    /// A buffer of size 0: the one that came back last, or a new one. One from the pool keeps its old header and bytes.
    PacketPtr getEmptyPacketBuffer() VORNA_EXCLUDES(bufferPoolMutex);

    /// As getEmptyPacketBuffer(), with the header set.
    /// @throws std::out_of_range "Bad target ID" when `moduleId` is above 63; the pool is not touched then
    PacketPtr getRawPacketBuffer(std::uint8_t moduleId, HdrExtFmt hdrExt, PktFmt pktFmt)
        VORNA_EXCLUDES(bufferPoolMutex);

    /// Takes the buffer back. An empty pointer is ignored.
    void putPacketBuffer(PacketPtr buffer) VORNA_EXCLUDES(bufferPoolMutex);
    /// Takes all of `buffers` back, in their order and under one lock; leaves it empty.
    void putPacketBuffers(PacketRing& buffers) VORNA_EXCLUDES(bufferPoolMutex);

    /// @param inCirculation  all buffers that were made and not freed by the pool
    /// @param inPool         those that nobody uses, the ones in a PacketStash with them
    void getBufferPoolStats(std::uint32_t& inCirculation, std::uint32_t& inPool) const VORNA_EXCLUDES(bufferPoolMutex);

private:
    friend class PacketStash;

    constexpr PacketPool() = default;
    ~PacketPool() = default;

    /// Leaves those for which there is no room in `buffers`, and no longer counts them.
    void putLocked(PacketRing& buffers) VORNA_REQUIRES(bufferPoolMutex);
    std::size_t pooled() const VORNA_REQUIRES_SHARED(bufferPoolMutex);

    union Everlasting;
    static Everlasting everlasting;

    mutable util::SharedMutex bufferPoolMutex;
    PacketRing bufferPool VORNA_GUARDED_BY(bufferPoolMutex); // used as a stack: what came last is the warmest
    std::uint32_t packetsInCirculation VORNA_GUARDED_BY(bufferPoolMutex) = 0;
    // How many buffers each stash holds.
    std::vector<const std::atomic<std::uint32_t>*> stashed VORNA_GUARDED_BY(bufferPoolMutex);
};

/// Never destroyed, so that static objects may give buffers back at exit in any order.
union PacketPool::Everlasting {
    constexpr Everlasting() : pool() {}
    ~Everlasting() {}
    PacketPool pool;
};

inline PacketPool& PacketPool::getInstance() { return everlasting.pool; }

} // namespace keplin
