#pragma once
// The names by which a script asks for nodes.

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "ondra/NodeInterface.h"
#include "util/Mutex.h"

namespace graph {

/// One for the process. It has the names of Filters.h from the start. Threads: thread-safe.
class EventFilterNodeFactory {
public:
    using Builder = std::function<std::unique_ptr<ondra::NodeInterface>()>;

    static EventFilterNodeFactory& getInstance();

    /// @return false when the name had a builder already; the new one takes its place
    bool registerNodeBuilder(const std::string& name, Builder builder) VORNA_EXCLUDES(mutex);

    /// A new node; null when the name is unknown.
    std::unique_ptr<ondra::NodeInterface> buildEventFilterNode(const std::string& name) const VORNA_EXCLUDES(mutex);

    /// All names, in alphabetical order.
    std::vector<std::string> names() const VORNA_EXCLUDES(mutex);

private:
    EventFilterNodeFactory() = default;

    mutable util::Mutex mutex; // not held while a builder runs
    std::map<std::string, Builder> builders VORNA_GUARDED_BY(mutex);
};

} // namespace graph
