#include "ondra/GraphExecutor.h"

namespace ondra {

GraphExecutor::GraphExecutor(std::size_t threadCount)
{
    threads.reserve(threadCount);
    try {
        for (std::size_t i = 0; i < threadCount; ++i)
            threads.emplace_back([this] { task(); });
    } catch (...) { // no more threads can be created
        stop();
        throw;
    }
}

GraphExecutor::~GraphExecutor() { stop(); }

void GraphExecutor::stop()
{
    running = false;
    for (auto& thread : threads)
        thread.join();
}

void GraphExecutor::execute(const std::vector<std::shared_ptr<NodeInterface>>& nodes)
{
    queue.enqueue_bulk(nodes.begin(), nodes.size());
}

void GraphExecutor::task() noexcept
{
    std::shared_ptr<NodeInterface> node;
    while (running)
        if (queue.try_dequeue(node)) {
            node->apply();
            node.reset();
        }
}

} // namespace ondra
