#pragma once
// A pool of threads to which a graph can hand its nodes.

#include <atomic>
#include <cstddef>
#include <memory>
#include <thread>
#include <vector>

#include <concurrentqueue/blockingconcurrentqueue.h>

#include "ondra/NodeInterface.h"

namespace ondra {

/// The constructor starts the threads, the destructor joins them and drops what is still queued. A thread never sleeps:
/// it polls for work at full speed, so that it can end at once. An exception out of a node ends the process.
///
/// The nodes run without the lock of their graph: a graph must not be changed meanwhile. The order of the queue is that
/// of the nodes given, but several threads run them in no fixed order, and may have one node twice.
class GraphExecutor {
public:
    /// @param threadCount  zero is allowed: such an executor runs nothing
    explicit GraphExecutor(std::size_t threadCount);
    GraphExecutor(const GraphExecutor&) = delete;
    GraphExecutor& operator=(const GraphExecutor&) = delete;
    ~GraphExecutor();

    /// Queues all of `nodes` and returns without waiting. Threads: thread-safe.
    void execute(const std::vector<std::shared_ptr<NodeInterface>>& nodes);

private:
    void task() noexcept;
    void stop();

    moodycamel::BlockingConcurrentQueue<std::shared_ptr<NodeInterface>> queue;
    std::atomic<bool> running = true;
    std::vector<std::thread> threads; // last: they use the other two
};

} // namespace ondra
