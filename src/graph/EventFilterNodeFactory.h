#pragma once
// The names by which a script asks for nodes.

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include "ondra/NodeInterface.h"

namespace graph {

/// One for the process. It has the names of Filters.h from the start. Threads: thread-safe.
class EventFilterNodeFactory {
public:
    using Builder = std::function<std::unique_ptr<ondra::NodeInterface>()>;

    static EventFilterNodeFactory& getInstance();

    /// @return false when the name had a builder already; the new one takes its place
    bool registerNodeBuilder(const std::string& name, Builder builder);

    /// A new node; null when the name is unknown.
    std::unique_ptr<ondra::NodeInterface> buildEventFilterNode(const std::string& name) const;

private:
    EventFilterNodeFactory() = default;

    mutable std::mutex mutex; // guards what follows; not held while a builder runs
    std::unordered_map<std::string, Builder> builders;
};

} // namespace graph
