#include "emulation/boards/VirtualOpalKelly.h"

#include <utility>

#include "emulation/boards/DacModule.h"

namespace emulation {

VirtualOpalKelly::VirtualOpalKelly(const OpalKellyOptions& options)
    : VirtualOpalKelly(options.chip,
                       std::make_shared<OpalKellyBoard>(serialOr(options.serialNumber), options.configured))
{}

VirtualOpalKelly::VirtualOpalKelly(ChipKind chip, std::shared_ptr<OpalKellyBoard> plain)
    : VirtualBoard(plain, chip), fpga(std::move(plain)),
      boardWire(std::make_shared<FaultyWire>(fpga, [this] { order(Task::unplug); }))
{
    constexpr int adcModule = 1, dacModule = 3;
    fpga->setModule(adcModule, adc);
    fpga->setModule(dacModule, std::make_shared<DacModule>(wires));
}

VirtualOpalKelly::~VirtualOpalKelly() { end(); }

std::vector<std::uint16_t> VirtualOpalKelly::analogCodes() const
{
    const auto codes = wires->codes();
    return {codes.begin(), codes.end()};
}

} // namespace emulation
