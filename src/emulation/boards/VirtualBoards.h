#pragma once
// Boards that exist in software. One call plugs a board in; it is then found, opened, flashed and streamed to through
// the real libusb, as a board on USB is.
//
//   auto kit = emulation::plugVirtualDevKit({.chip = emulation::ChipKind::loopback});
//   usb::getDevicesWithVidPid(usb::VendorId::Cypress, usb::ProductId::DevKit);   // finds it
//   kit->injectFault({.kind = emulation::FaultKind::stall, .endpoint = 0x81});
//   kit->unplug();                                                               // as pulling its cable
//
// The modules of a board: the chip as module 2 and 5 (as a loop: as every module that isn't another); on an Opal Kelly
// board an ADC as module 1 and a DAC as module 3, wired to one another.

#include <memory>
#include <vector>

#include "emulation/boards/VirtualDevKit.h"
#include "emulation/boards/VirtualOpalKelly.h"

namespace emulation {

/// Plugs a board in; the first one puts emulation under the process's libusb, see emulation/attach.
/// @throws std::runtime_error, with a remedy, where that can't be done
/// @throws std::invalid_argument for a serial number that no descriptor can hold
std::shared_ptr<VirtualDevKit> plugVirtualDevKit(const DevKitOptions& options = {});
std::shared_ptr<VirtualOpalKelly> plugVirtualOpalKelly(const OpalKellyOptions& options = {});

/// All that are plugged in, in the order of plugging.
std::vector<std::shared_ptr<VirtualBoard>> virtualBoards();
void unplugAllVirtualBoards();

} // namespace emulation
