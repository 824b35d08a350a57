#pragma once
// What nodes with an output (sources and filters) add to the interfaces of ondra.

#include <any>
#include <utility>

#include "graph/nodes/detail/BoxedInput.h"
#include "trovi/BoxedPtr.h"
#include "util/Mutex.h"

namespace graph::nodes::detail {

/// Interface is an ondra interface with an output. Adds destinations in their boxed form, and a lock: a script may add
/// or remove destinations while a graph, a camera or another script's thread sends.
///
/// Lock order: a node's own mutex, then `destinationsMutex`. Nothing is taken under the latter.
template <class Interface>
class GuardedOutput : public Interface {
public:
    using BoxedSignature = bool (GuardedOutput::*)(const trovi::BoxedPtr&);

    bool addDestination(const std::any* channel) override
    {
        const util::Lock lock(destinationsMutex);
        return Interface::addDestination(channel);
    }
    bool removeDestination(const std::any* channel) override
    {
        const util::Lock lock(destinationsMutex);
        return Interface::removeDestination(channel);
    }

    /// @return false, and nothing is changed, also when `boxed` holds no input of a living node of this process
    bool addDestination(const trovi::BoxedPtr& boxed)
    {
        const std::any input = unboxInput(boxed);
        return this->addDestination(&input);
    }
    bool removeDestination(const trovi::BoxedPtr& boxed)
    {
        const std::any input = unboxInput(boxed);
        return this->removeDestination(&input);
    }

protected:
    /// forwardResult() under the lock, once for each batch.
    template <class Result>
    void send(Result&& result)
    {
        const util::Lock lock(destinationsMutex);
        this->forwardResult(std::forward<Result>(result));
    }

    util::Mutex destinationsMutex; // of the base's list
};

} // namespace graph::nodes::detail
