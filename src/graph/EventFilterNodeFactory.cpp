#include "graph/EventFilterNodeFactory.h"

#include <utility>

#include "graph/Filters.h"

namespace graph {
namespace {

// In this file, so that whatever links the factory also links its names.
const Filters filters;

} // namespace

EventFilterNodeFactory& EventFilterNodeFactory::getInstance()
{
    static EventFilterNodeFactory instance;
    return instance;
}

bool EventFilterNodeFactory::registerNodeBuilder(const std::string& name, Builder builder)
{
    const util::Lock lock(mutex);
    return builders.insert_or_assign(name, std::move(builder)).second;
}

std::unique_ptr<ondra::NodeInterface> EventFilterNodeFactory::buildEventFilterNode(const std::string& name) const
{
    Builder builder;
    {
        const util::Lock lock(mutex);
        const auto entry = builders.find(name);
        if (entry == builders.end())
            return nullptr;
        builder = entry->second;
    }
    return builder();
}

std::vector<std::string> EventFilterNodeFactory::names() const
{
    const util::Lock lock(mutex);
    std::vector<std::string> all;
    for (const auto& [name, builder] : builders)
        all.push_back(name);
    return all;
}

} // namespace graph
