#include "ondra/Graph.h"

#include <stdexcept>
#include <utility>

#include "ondra/GraphExecutor.h"

namespace ondra {

// Holds the lock of a graph. No new pass begins while it waits: a thread that runs pass after pass would otherwise
// leave the lock free too briefly for others.
class VORNA_SCOPED_CAPABILITY Graph::Guard {
public:
    explicit Guard(const Graph& graph) VORNA_ACQUIRE(graph.lock) : lock(graph.lock)
    {
        ++graph.waiting;
        lock.lock();
        --graph.waiting;
    }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;
    ~Guard() VORNA_RELEASE() { lock.unlock(); }

private:
    SpinLock& lock;
};

void Graph::compute()
{
    if (waiting != 0)
        return;
    if (!lock.try_lock())
        return; // someone changes the graph: the next pass sees it whole
    const util::Lock guard(lock, std::adopt_lock);
    for (const auto id : dag.order())
        nodeAt(id)->apply();
}

void Graph::compute(GraphExecutor& executor)
{
    const Guard guard(*this);
    validateExecutorCache();
    executor.execute(cache);
}

void Graph::validateExecutorCache()
{
    if (cacheValid)
        return;
    cache.clear();
    for (const auto id : dag.order())
        cache.push_back(nodeAt(id));
    cacheValid = true;
}

const std::shared_ptr<NodeInterface>& Graph::nodeAt(std::uint64_t id) const
{
    const auto entry = nodes.find(id);
    if (entry == nodes.end())
        throw std::out_of_range("_Map_base::at"); // scripts see this text; the library's own differs by version
    return entry->second;
}

NodeInterface& Graph::getNode(std::uint64_t id) const { return *shareNode(id); }

std::shared_ptr<NodeInterface> Graph::shareNode(std::uint64_t id) const
{
    const Guard guard(*this);
    return nodeAt(id);
}

bool Graph::add(std::uint64_t id, std::shared_ptr<NodeInterface> node) noexcept
{
    if (!node)
        return false;
    const Guard guard(*this);
    cacheValid = false;
    const auto [entry, isNew] = nodes.try_emplace(id);
    if (!isNew)
        return false;
    entry->second = std::move(node);
    return dag.addNode(id);
}

bool Graph::remove(std::uint64_t id) noexcept
{
    std::shared_ptr<NodeInterface> removed; // these two are destroyed after the lock is released
    std::vector<std::shared_ptr<NodeInterface>> staleCache;
    const Guard guard(*this);
    cacheValid = false;
    staleCache.swap(cache); // it would keep the node alive
    const auto entry = nodes.find(id);
    if (entry == nodes.end())
        return false;
    removed = std::move(entry->second);
    nodes.erase(entry);
    return dag.removeNode(id);
}

bool Graph::hasNode(std::uint64_t id) const noexcept
{
    const Guard guard(*this);
    return isNode(id);
}

bool Graph::connect(std::uint64_t source, std::uint64_t destination) noexcept
{
    const Guard guard(*this);
    if (source == destination || !isNode(source) || !isNode(destination))
        return false;
    dag.addEdge(source, destination);
    if (dag.order().empty() || !nodeAt(source)->connectTo(*nodeAt(destination))) {
        dag.removeEdge(source, destination);
        return false;
    }
    cacheValid = false;
    return true;
}

bool Graph::disconnect(std::uint64_t source, std::uint64_t destination) noexcept
{
    const Guard guard(*this);
    if (!isNode(source) || !isNode(destination) || !dag.hasEdge(source, destination))
        return false;
    cacheValid = false;
    return nodeAt(source)->disconnectFrom(*nodeAt(destination)) && dag.removeEdge(source, destination);
}

bool Graph::addDestination(std::uint64_t id, const std::any* channel) noexcept
{
    const Guard guard(*this);
    return isNode(id) && nodeAt(id)->addDestination(channel);
}

bool Graph::removeDestination(std::uint64_t id, const std::any* channel) noexcept
{
    const Guard guard(*this);
    return isNode(id) && nodeAt(id)->removeDestination(channel);
}

const std::any* Graph::getTypeErasedNodeInputChannel(std::uint64_t id) const noexcept
{
    const Guard guard(*this);
    return isNode(id) ? nodeAt(id)->getInputChannel() : nullptr;
}

} // namespace ondra
