#pragma once
// What must be stopped while Python is alive. An object that owns threads, such as a node or a running graph, may still
// be referenced when the interpreter exits; joined later, with the interpreter lock held or from static destruction, it
// would hang or end the process badly. So each is remembered here from its making to its destruction, and the module's
// exit hook stops those that are left, newest first, with the interpreter lock released.
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

    /// @throws std::runtime_error in such a process
    static void requireOwnProcess(const void* object);

    /// Runs every `stop`, newest first. The objects stay alive and remembered.
    static void stopAll();
};

} // namespace trovi::python
