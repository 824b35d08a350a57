#pragma once
// The test's own libusb_init, libusb_exit, libusb_get_device_list, libusb_close, libusb_handle_events,
// libusb_cancel_transfer and libusb_free_transfer stand before libusb's (the linker takes the program's symbols first)
// and pass every call on, unless a test says otherwise here.

#include <atomic>
#include <optional>

namespace interposed {

/// While set, the call returns this code and does nothing.
extern std::optional<int> initFails;
extern std::optional<int> listFails;

/// While true, this thread cannot cancel a transfer: as when it ends just then. (libusb itself cancels what times out,
/// on its event thread.)
extern thread_local bool cancelComesTooLate;

/// Contexts made and not yet released.
int openContexts();

/// While true, a transfer that isn't freed by its callback is freed late: other threads get their turn before.
extern std::atomic<bool> freeingIsSlow;

/// Transfers that were freed with no context left: libusb then looks into one that is gone.
int lateFrees();

/// Holds one event thread, which has found that it is to keep running but is not in libusb yet, until libusb has closed
/// a device.
class EventThreadGate {
public:
    EventThreadGate();
    ~EventThreadGate();
    void waitUntilReached();
};

} // namespace interposed
