#pragma once
// Some functions of libusb, defined by the test program: the linker takes its symbols first. Each passes the call on,
// unless a test says otherwise here.

#include <atomic>
#include <optional>
#include <set>

namespace interposed {

/// While set, the call returns this code and does nothing.
extern std::optional<int> initFails, listFails;

/// While true, this thread cannot cancel a transfer: as when it ends just then. (libusb itself cancels what times out,
/// on its event thread.)
extern thread_local bool cancelComesTooLate;

/// Contexts made and not yet released.
int openContexts();

/// While true, a transfer that isn't freed by its callback is freed late: other threads get their turn before.
extern std::atomic<bool> freeingIsSlow;
/// Transfers that were freed with no context left: libusb then uses one that is gone.
int lateFrees();

/// The different time-outs of the transfers submitted since the last call, in milliseconds.
std::set<unsigned> takeTimeouts();

/// Holds the next event thread, which has found that it is to keep running but is not in libusb yet, until libusb has
/// closed a device. The second function returns when a thread is held.
void holdEventThread();
void waitForHeldThread();

} // namespace interposed
