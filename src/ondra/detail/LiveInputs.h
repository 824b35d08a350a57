#pragma once
// Which inputs of nodes are there. The address of one may come back from a script, or over the wire, long after its
// node is gone; here it is looked up before anything reads from it.

#include <any>
#include <unordered_set>

#include "util/Mutex.h"

namespace ondra::detail {

/// The inputs of all nodes of the process, by address. An address that a later node got again stands for that one.
/// Threads: thread-safe; `mutex` is the innermost lock.
class LiveInputs {
public:
    static LiveInputs& getInstance();

    void add(const std::any* input) VORNA_EXCLUDES(mutex);
    void remove(const std::any* input) VORNA_EXCLUDES(mutex);

    /// What `input` holds; empty when it is of no node that lives.
    std::any copyOf(const std::any* input) const VORNA_EXCLUDES(mutex);

private:
    LiveInputs() = default;

    mutable util::Mutex mutex;
    std::unordered_set<const std::any*> inputs VORNA_GUARDED_BY(mutex);
};

} // namespace ondra::detail
