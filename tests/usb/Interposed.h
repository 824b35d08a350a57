#pragma once
// The test's own libusb_init, libusb_exit, libusb_get_device_list, libusb_close, libusb_handle_events and
// libusb_cancel_transfer stand before libusb's (the linker takes the program's symbols first) and pass every call on,
// unless a test says otherwise here.

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

/// Holds one event thread, which has found that it is to keep running but is not in libusb yet, until libusb has closed
/// a device.
class EventThreadGate {
public:
    EventThreadGate();
    ~EventThreadGate();
    void waitUntilReached();
};

} // namespace interposed
