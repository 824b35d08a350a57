#pragma once
// Objects that must be stopped while Python is alive: those that own threads, such as a node or a running graph. Python
// may still reference one when the interpreter exits. Its threads can't be joined later: with the interpreter lock held
// that hangs, and static destruction is too late. So each is registered here from its construction to its destruction.
// The module's exit hook stops those that are left, newest first, with the interpreter lock released.
//
// Threads: all functions need the interpreter lock, which also guards the list.

#include <functional>

namespace trovi::python {

class LiveObjects {
public:
    static void remember(void* object, std::function<void()> stop);

    /// @return false in a process that was forked off after the object was made: its threads don't exist there, and it
    ///         must be neither stopped nor destroyed
    static bool forget(void* object);

    /// @throws std::runtime_error in a process that was forked off after the object was made
    static void requireOwnProcess(const void* object);

    /// Runs every `stop`, newest first. The objects stay alive and registered.
    static void stopAll();
};

} // namespace trovi::python
