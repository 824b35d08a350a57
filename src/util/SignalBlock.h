#pragma once
// Keeps signals away from threads that this program starts.

#include <csignal>
#include <pthread.h>

namespace util {

/// Blocks all signals but those of faults on the calling thread while it lives, so that a thread started meanwhile has
/// them blocked for good: Ctrl-C then goes to the program's main thread, and interrupts no wait of ours.
class SignalBlock {
public:
    SignalBlock()
    {
        sigset_t all;
        sigfillset(&all);
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP})
            sigdelset(&all, fault);
        pthread_sigmask(SIG_SETMASK, &all, &before);
    }
    SignalBlock(const SignalBlock&) = delete;
    SignalBlock& operator=(const SignalBlock&) = delete;
    ~SignalBlock() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }

private:
    sigset_t before;
};

} // namespace util
