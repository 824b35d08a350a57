#pragma once
// The answers to the standard requests of USB.

#include <cstdint>
#include <span>
#include <vector>

#include "emulation/usb/Device.h"

namespace emulation {

/// The device descriptor (18 bytes), then the one configuration with its one interface and bulk endpoints: the bytes of
/// /sys/bus/usb/devices/*/descriptors.
/// @throws std::invalid_argument for a device with more than 30 endpoints or a text that no descriptor can hold
std::vector<std::uint8_t> descriptors(const Device& device);

/// Answers a standard request that reaches the device: GET_DESCRIPTOR in all its kinds; others without data are
/// accepted, others with data stall.
int standardRequest(const Device& device, const Setup& setup, std::span<std::uint8_t> data);

} // namespace emulation
