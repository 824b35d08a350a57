#include "graph/EventFilterGraph.h"

#include <stdexcept>
#include <utility>

#include "graph/EventFilterNodeFactory.h"
#include "graph/nodes/detail/BoxedInput.h"

namespace graph {

using std::to_string;

EventFilterGraph::~EventFilterGraph() { stop(); }

std::optional<std::uint64_t> EventFilterGraph::addFilterNode(const std::string& name)
{
    const util::Lock guard(lifecycle);
    if (running)
        return std::nullopt;
    std::shared_ptr<ondra::NodeInterface> node = EventFilterNodeFactory::getInstance().buildEventFilterNode(name);
    if (!node || !Graph::add(nextNodeId, std::move(node)))
        return std::nullopt;
    return nextNodeId++;
}

bool EventFilterGraph::remove(std::uint64_t id) noexcept { return !running && Graph::remove(id); }

bool EventFilterGraph::connect(std::uint64_t source, std::uint64_t destination) noexcept
{
    return !running && Graph::connect(source, destination);
}

bool EventFilterGraph::disconnect(std::uint64_t source, std::uint64_t destination) noexcept
{
    return !running && Graph::disconnect(source, destination);
}

bool EventFilterGraph::addDestination(std::uint64_t id, const trovi::BoxedPtr& boxed)
{
    const std::any input = nodes::detail::unboxInput(boxed);
    return !running && Graph::addDestination(id, &input);
}

bool EventFilterGraph::removeDestination(std::uint64_t id, const trovi::BoxedPtr& boxed)
{
    const std::any input = nodes::detail::unboxInput(boxed);
    return !running && Graph::removeDestination(id, &input);
}

trovi::BoxedPtr EventFilterGraph::getNodeInput(std::uint64_t id) const
{
    return trovi::BoxedPtr::of(getTypeErasedNodeInputChannel(id));
}

bool EventFilterGraph::start()
{
    const util::Lock guard(lifecycle);
    if (running)
        return false;
    running = true;
    try {
        thread = std::thread([this]() noexcept {
            while (running)
                Graph::compute();
        });
    } catch (...) { // no thread can be created
        running = false;
        throw;
    }
    return true;
}

bool EventFilterGraph::stop()
{
    const util::Lock guard(lifecycle);
    if (!running)
        return false;
    running = false;
    thread.join();
    return true;
}

bool EventFilterGraph::orThrow(bool done, const std::string& whatWhileRunning,
                               const std::string& textWhileStopped) const
{
    if (!done)
        throw std::invalid_argument(isRunning() ? "Cannot " + whatWhileRunning + " while graph is running!"
                                                : textWhileStopped);
    return true;
}

std::uint64_t EventFilterGraph::addFilterNodeOrThrow(const std::string& name)
{
    const auto id = addFilterNode(name);
    orThrow(id.has_value(), "add node", "Unknown type: " + name);
    return *id;
}

trovi::BoxedPtr EventFilterGraph::getNodeInputOrThrow(std::uint64_t id) const
{
    auto input = getNodeInput(id);
    if (!input.isValid())
        throw std::invalid_argument("Node " + to_string(id) + " doesn't exist!");
    return input;
}

bool EventFilterGraph::connectOrThrow(std::uint64_t source, std::uint64_t destination)
{
    return orThrow(connect(source, destination), "connect nodes",
                   "Cannot create connection " + to_string(source) + " -> " + to_string(destination));
}

bool EventFilterGraph::removeOrThrow(std::uint64_t id)
{
    return orThrow(remove(id), "remove node", "Cannot remove node " + to_string(id));
}

bool EventFilterGraph::disconnectOrThrow(std::uint64_t source, std::uint64_t destination)
{
    return orThrow(disconnect(source, destination), "disconnect nodes",
                   "Cannot disconnect " + to_string(source) + " -> " + to_string(destination));
}

bool EventFilterGraph::addDestinationOrThrow(std::uint64_t id, const trovi::BoxedPtr& boxed)
{
    return orThrow(addDestination(id, boxed), "add destination to node", "Cannot add destination!");
}

bool EventFilterGraph::removeDestinationOrThrow(std::uint64_t id, const trovi::BoxedPtr& boxed)
{
    return orThrow(removeDestination(id, boxed), "remove destination to node", "Cannot remove destination!");
}

} // namespace graph
