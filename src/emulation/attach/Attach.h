#pragma once
// Puts emulated USB devices where the process's libusb finds them, beside any real ones.
//
//   auto device = std::make_shared<emulation::LoopbackDevice>("A1");
//   emulation::PluggedDevice plugged = emulation::plug(device);
//   usb::LibUSBDevice door(plugged.bus(), plugged.address());
//
// The loaded libusb-1.0.so.0 runs unchanged, but its own calls to open, ioctl, close and seven functions of libudev are
// redirected, by its relocation table. Nothing else in the process is touched, and neither privileges nor environment
// variables are needed. There are no hot-plug events: a libusb context made before a plug or unplug doesn't see it.

#include <memory>

#include "emulation/usb/Bus.h"

namespace emulation {

/// Redirects libusb's calls; a second call does nothing. Best called before other threads use libusb.
/// @throws std::runtime_error, with a remedy, when the loaded libusb cannot be redirected, or isn't the one that this
///         program calls
/// Threads: thread-safe.
void attachToLibusb();

/// Attaches on first use and plugs the device in.
/// @throws as attachToLibusb() and Bus::plug()
PluggedDevice plug(std::shared_ptr<Device> device);

} // namespace emulation
