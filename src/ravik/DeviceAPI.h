#pragma once
// What a ravik model needs to reach its chip. The driver of a board implements it, and so does a chip in memory.

#include <cstdint>
#include <vector>

#include "device/Drivers.h"
#include "ravik/event/Events.h"
#include "tessel/family/Names.h"

#pragma push_macro("VORNA_FAMILY")
#undef VORNA_FAMILY
#define VORNA_FAMILY ravik
#include "tessel/family/DeviceAPI.inc"
#pragma pop_macro("VORNA_FAMILY")

namespace ravik {

/// The control lines of the chip, beside its events. A device interface with these lines derives from
/// RavikDeviceAPIInterface and from this class; RavikModel::init() needs it.
class RavikChipControl {
public:
    RavikChipControl() = default;
    RavikChipControl(const RavikChipControl&) = delete;
    RavikChipControl& operator=(const RavikChipControl&) = delete;
    virtual ~RavikChipControl() = default;

    /// Brings the board's logic up. May take seconds.
    virtual void init() = 0;
    /// Two words for the configuration of the board's logic.
    virtual void writeConfig(std::uint16_t a, std::uint16_t b) = 0;
    virtual void deassertReset() = 0;
    virtual void resetRegisters() = 0;
};

} // namespace ravik
