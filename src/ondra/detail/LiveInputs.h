#pragma once
// Which inputs of nodes are there. The address of one may come back from a script, or over the wire, long after its
// node is gone; here it is looked up before anything reads from it.

#include <any>
#include <mutex>
#include <unordered_set>

namespace ondra::detail {

/// The inputs of all nodes of the process, by address. An address that a later node got again stands for that one.
/// Threads: thread-safe; `mutex` is the innermost lock.
class LiveInputs {
public:
    static LiveInputs& getInstance();

    void add(const std::any* input);
    void remove(const std::any* input);

    /// What `input` holds; empty when it is of no node that lives.
    std::any copyOf(const std::any* input) const;

private:
    LiveInputs() = default;

    mutable std::mutex mutex; // guards what follows
    std::unordered_set<const std::any*> inputs;
};

} // namespace ondra::detail
