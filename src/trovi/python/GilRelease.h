#pragma once
// Releases the interpreter lock for a scope, safely even when the interpreter ends meanwhile.

#include <pybind11/pybind11.h>

namespace trovi::python {

/// Use this, never pybind11's gil_scoped_release. The interpreter does not give its lock back once it finalises: it
/// ends the thread that asks, by unwinding the stack. In a destructor that ends the process with std::terminate, and
/// anywhere else it would release Python objects without the lock. Here such a thread sleeps until the process exits.
/// So a scope must not hold what the exiting thread waits for: take locks inside the scope, not around it.
///
/// Threads: the constructor needs the interpreter lock; the destructor takes it back.
class GilRelease {
public:
    GilRelease() : GilRelease(true) {}
    /// Does nothing when not `releases`.
    explicit GilRelease(bool releases) : state(releases ? PyEval_SaveThread() : nullptr) {}
    GilRelease(const GilRelease&) = delete;
    GilRelease& operator=(const GilRelease&) = delete;
    ~GilRelease();

private:
    PyThreadState* state;
};

} // namespace trovi::python
