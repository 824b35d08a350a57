#pragma once
// The way from a ravik model to its chip, and back: implemented by what drives a board, and by what stands in for one.

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

/// The lines around the chip, beside the stream of events. A device interface that has them is a
/// RavikDeviceAPIInterface and this as well; RavikModel::init() asks for it.
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
