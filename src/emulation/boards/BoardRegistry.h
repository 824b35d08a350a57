#pragma once
// The emulated boards of this process.

#include <memory>
#include <vector>

#include "util/Mutex.h"

namespace emulation {

class VirtualBoard;

/// Keeps boards plugged in though nobody else keeps them. Threads: thread-safe.
class BoardRegistry {
public:
    /// Lives until the process ends, since ports may be used until then.
    static BoardRegistry& instance();

    /// Also drops boards that a fault has pulled out.
    void add(const std::shared_ptr<VirtualBoard>& board);
    void remove(const VirtualBoard* board);

    /// In the order of plugging.
    std::vector<std::shared_ptr<VirtualBoard>> boards() const;

private:
    mutable util::Mutex mutex; // outer to those of boards; no board is destroyed while it is held
    std::vector<std::shared_ptr<VirtualBoard>> kept VORNA_GUARDED_BY(mutex);
};

} // namespace emulation
