#pragma once
// Holds the one PythonNode of the interpreter.

#include <memory>
#include <vector>

#include "trovi/python/PythonNode.h"

namespace trovi::python {

/// Threads: all functions need the interpreter lock, which guards the members. They release it while a node stops.
class PythonNodeSingleton {
public:
    /// @throws std::runtime_error "Local node not initialized! Please setup_local_node(...) first!" when there is none,
    ///         or when this process was forked off one that has one
    static std::shared_ptr<PythonNode> getInstance();

    /// Makes `made` the node; null: none. The node before it is stopped: calls that wait for an answer through it end.
    static void replace(std::shared_ptr<PythonNode> made);

    /// For the exit hook: stops every node, so that no thread waits for an answer any more and none asks for the
    /// interpreter lock. A node made later would outlive the interpreter.
    static void end();

    /// @throws std::runtime_error after end()
    static void requireInterpreter();

private:
    static void retire(std::shared_ptr<PythonNode> former);

    static std::shared_ptr<PythonNode> instance;
    // Replaced, and not stopped yet: a thread is stopping it, or its replacement came from inside its own turn, as by a
    // finalizer that an update ran.
    static std::vector<std::shared_ptr<PythonNode>> retired;
    static bool ended;
};

} // namespace trovi::python
