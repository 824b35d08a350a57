#pragma once
// Gives each destination a view of its own on the same events.

#include <any>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "graph/nodes/Batch.h"
#include "graph/nodes/FilterNode.h"
#include "graph/nodes/NodeReflection.h"
#include "util/Mutex.h"

namespace graph::nodes {

/// A destination is added with the name of a function over batches, and gets what the function returns. The functions
/// come from a derived class; without one there are none. The node keeps the channels of its destinations alive.
/// Threads: all of it is thread-safe.
template <class Event>
class SplittingNode : public FilterNode<Batch<Event>, Batch<Event>> {
public:
    /// Gathers all waiting batches in one and sends each destination what its function makes of it; a destination that
    /// was added without a name gets nothing.
    void apply() override
    {
        auto gathered = std::make_shared<std::vector<Event>>();
        detail::appendWaiting(*this->inputChannel, *gathered);
        const util::Lock lock(this->destinationsMutex);
        for (const auto& destination : this->destinations) {
            const auto channel = destination.lock();
            const auto name = names.find(channel);
            if (name != names.end())
                channel->enqueue(callables.at(name->second)(gathered));
        }
        this->removeExpiredDestinations();
    }

    using FilterNode<Batch<Event>, Batch<Event>>::addDestination;
    /// @return false when there is no function of that name, and as FilterInterface's
    /// @throws std::runtime_error when `boxed` holds no input of a node of this process
    bool addDestination(const std::string& name, const trovi::BoxedPtr& boxed)
    {
        const std::any input = detail::unboxInputOrThrow(boxed);
        const auto channel = this->parseDestinationChannel(&input).lock();
        if (!callables.contains(name) || !channel)
            return false;
        {
            const util::Lock lock(this->destinationsMutex);
            names[channel] = name;
        }
        return addDestination(&input);
    }

    using FilterNode<Batch<Event>, Batch<Event>>::removeDestination;
    bool removeDestination(const std::any* channel) override
    {
        const bool removed = FilterNode<Batch<Event>, Batch<Event>>::removeDestination(channel);
        const util::Lock lock(this->destinationsMutex);
        names.erase(this->parseDestinationChannel(channel).lock());
        return removed;
    }

protected:
    using Callable = std::function<Batch<Event>(const Batch<Event>&)>;

    std::unordered_map<std::string, Callable> callables; ///< filled by the constructor of a derived class

private:
    std::unordered_map<std::shared_ptr<ondra::Channel<Batch<Event>>>, std::string>
        names VORNA_GUARDED_BY(this->destinationsMutex);
};

} // namespace graph::nodes

template <class Event>
struct trovi::RegisterImplementation<graph::nodes::SplittingNode<Event>> {
    using Node = graph::nodes::SplittingNode<Event>;

    static std::string registerName() { return graph::nodes::detail::nodeName<Event>("SplittingNode_"); }
    static constexpr auto registerMemberFunctions()
    {
        constexpr auto addNamed =
            static_cast<bool (Node::*)(const std::string&, const BoxedPtr&)>(&Node::addDestination);
        return functions(
            blockingFunction("addDestination", addNamed,
                             "Sends what the function of this name makes of the events to this input too.\n"
                             "False, and nothing is changed, when there is no such function or the input\n"
                             "takes other events. Raises RuntimeError when it is of another process.",
                             "name, input"),
            graph::nodes::detail::removeDestinationFunction<Node>(), graph::nodes::detail::inputFunction<Node>());
    }
    static constexpr const char* registerDoc()
    {
        return "Sends each destination what a named function makes of the events.";
    }
};
