#include "trovi/python/PythonNodeSingleton.h"

#include <stdexcept>
#include <utility>

#include "trovi/python/GilRelease.h"

namespace trovi::python {

std::shared_ptr<PythonNode> PythonNodeSingleton::instance;
std::vector<std::shared_ptr<PythonNode>> PythonNodeSingleton::retired;
bool PythonNodeSingleton::ended = false;

void PythonNodeSingleton::end()
{
    ended = true;
    replace(nullptr);
    for (auto& former : std::exchange(retired, {}))
        retire(std::move(former));
}

void PythonNodeSingleton::requireInterpreter()
{
    if (ended)
        throw std::runtime_error("The interpreter is exiting: no node can be set up any more.");
}

std::shared_ptr<PythonNode> PythonNodeSingleton::getInstance()
{
    if (!instance || !instance->channel().isOfThisProcess())
        throw std::runtime_error("Local node not initialized! Please setup_local_node(...) first!");
    return instance;
}

void PythonNodeSingleton::replace(std::shared_ptr<PythonNode> made)
{
    if (auto former = std::exchange(instance, std::move(made)))
        retire(std::move(former));
}

void PythonNodeSingleton::retire(std::shared_ptr<PythonNode> former)
{
    if (!former->channel().isOfThisProcess()) {
        new std::shared_ptr<PythonNode>(std::move(former)); // its threads are the parent's: never to be joined here
        return;
    }
    retired.push_back(former); // for end(), should the interpreter exit while this thread waits
    if (former->channel().isMyTurn())
        return;
    {
        const GilRelease release;
        former->stop();
    }
    std::erase(retired, former);
}

} // namespace trovi::python
