#pragma once
// The functions that take the place of those that libusb calls.

#include <span>

namespace emulation::detail {

struct Redirection {
    const char* name;    ///< the symbol that libusb refers to
    void* function;      ///< what it is to call
    const char* purpose; ///< redirections of one purpose are alternatives: libusb must refer to one of them
};

/// @throws std::runtime_error when the process has no libudev
std::span<const Redirection> redirections();

/// True once a libusb has listed devices through them.
bool haveBeenCalled();

} // namespace emulation::detail
