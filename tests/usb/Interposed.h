#pragma once
// The test's own libusb_init, libusb_exit, libusb_get_device_list, libusb_close and libusb_handle_events stand before
// libusb's (the linker takes the program's symbols first) and pass every call on, unless a test says otherwise here.

#include <optional>

namespace interposed {

/// While set, the call returns this code and does nothing.
extern std::optional<int> initFails;
extern std::optional<int> listFails;

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
