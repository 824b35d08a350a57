#pragma once
// The inputs of all living nodes. A script or a peer may pass an input's address long after its node is gone, so the
// address is looked up here before anything reads from it.

#include <any>
#include <unordered_set>

#include "util/Mutex.h"

namespace ondra::detail {

/// The inputs of all nodes of the process, by address. If a later node gets the same address, it refers to that node.
/// Threads: thread-safe; `mutex` is the innermost lock.
class LiveInputs {
public:
    static LiveInputs& getInstance();

    void add(const std::any* input) VORNA_EXCLUDES(mutex);
    void remove(const std::any* input) VORNA_EXCLUDES(mutex);

    /// A copy of what `input` holds; empty when no living node has this input.
    std::any copyOf(const std::any* input) const VORNA_EXCLUDES(mutex);

private:
    LiveInputs() = default;

    mutable util::Mutex mutex;
    std::unordered_set<const std::any*> inputs VORNA_GUARDED_BY(mutex);
};

} // namespace ondra::detail
