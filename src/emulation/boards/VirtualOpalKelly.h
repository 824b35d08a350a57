#pragma once
// An emulated Opal Kelly board, as a script or test plugs it in.

#include <cstdint>
#include <memory>
#include <vector>

#include "emulation/boards/AdcModule.h"
#include "emulation/boards/OpalKellyBoard.h"
#include "emulation/boards/OpalKellyOptions.h"
#include "emulation/boards/VirtualBoard.h"

namespace emulation {

/// An Opal Kelly board, with an ADC (module 1) and a DAC (module 3) beside its chip, wired to one another.
class VirtualOpalKelly final : public VirtualBoard {
public:
    explicit VirtualOpalKelly(const OpalKellyOptions& options);
    ~VirtualOpalKelly() override;

    std::uint32_t wireIn(std::int32_t address) const { return fpga->wireIn(address); }
    void setWireOut(std::int32_t address, std::uint32_t value) { fpga->setWireOut(address, value); }
    std::uint64_t wireUpdates() const { return fpga->wireUpdates(); }
    std::vector<std::uint16_t> analogCodes() const;
    bool isAdcRunning() const { return adc->isRunning(); }
    std::uint16_t adcDivider() const { return adc->divider(); }
    std::uint64_t adcSampleCount() const { return adc->sampleCount(); }
    std::uint64_t adcLostCount() const { return adc->lostCount(); }

private:
    VirtualOpalKelly(ChipKind chip, std::shared_ptr<OpalKellyBoard> plain);
    const std::shared_ptr<FaultyWire>& wire() const override { return boardWire; }

    const std::shared_ptr<OpalKellyBoard> fpga;
    const std::shared_ptr<AnalogWires> wires = std::make_shared<AnalogWires>();
    const std::shared_ptr<AdcModule> adc = std::make_shared<AdcModule>(wires);
    const std::shared_ptr<FaultyWire> boardWire;
};

} // namespace emulation

template <>
struct trovi::RegisterBase<emulation::VirtualOpalKelly> {
    using type = emulation::VirtualBoard;
};

template <>
constexpr auto trovi::registerMemberFunctions<emulation::VirtualOpalKelly>()
{
    using emulation::VirtualOpalKelly;
    return functions(
        function("wireIn", &VirtualOpalKelly::wireIn,
                 "What the host last set, addresses 0 to 31. IndexError for others.", "address"),
        function("setWireOut", &VirtualOpalKelly::setWireOut,
                 "What the host reads at its next update, addresses 32 to 63. IndexError for others.",
                 "address, value"),
        function("wireUpdates", &VirtualOpalKelly::wireUpdates, "How often the host has updated the wire-ins."),
        function("analogCodes", &VirtualOpalKelly::analogCodes,
                 "What the DAC puts on the eight inputs of the ADC, as codes: 0 to 65535."),
        function("isAdcRunning", &VirtualOpalKelly::isAdcRunning, "True while the ADC samples by itself."),
        function("adcDivider", &VirtualOpalKelly::adcDivider, "What divides the ADC's 100 MHz to its rate."),
        function("adcSampleCount", &VirtualOpalKelly::adcSampleCount, "Samples that the ADC has sent."),
        function("adcLostCount", &VirtualOpalKelly::adcLostCount, "Samples lost since the host read too little."));
}

template <>
constexpr const char* trovi::registerDoc<emulation::VirtualOpalKelly>()
{
    return "An emulated Opal Kelly board, with a chip, an ADC and a DAC behind its pipes.";
}
