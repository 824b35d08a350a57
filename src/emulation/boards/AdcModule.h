#pragma once
// The ADC of a board.

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>

#include "emulation/boards/AnalogWires.h"
#include "emulation/boards/Module.h"
#include "util/Mutex.h"

namespace emulation {

/// Samples all eight wires at its own clock of 100 MHz, divided by a divider. Register 0x2000: bit 0 runs it; 0x2001:
/// the divider, 10,000 at power-up, 0 means 65,536. Others are ignored. Commands: 0x2000 one sample at once; 0x1000
/// back to power-up. A sample is a raw packet with extension 7: its number since power-up in 32 bits, then eight codes
/// of 16 bits. What comes due and finds no room, since the host reads too little, is lost; the numbers show the gap.
class AdcModule final : public Module {
public:
    static constexpr std::int64_t clockHz = 100'000'000;
    static constexpr std::uint16_t defaultDivider = 10'000;

    explicit AdcModule(std::shared_ptr<const AnalogWires> inputs);

    bool isRunning() const;
    std::uint16_t divider() const;
    std::uint64_t sampleCount() const; ///< sent
    std::uint64_t lostCount() const;

    void receive(const Packet& packet, PacketSink& out) override;
    void advance(Time now, PacketSink& out) override;
    void reset() override;

private:
    void write(std::uint64_t address, std::uint64_t value) VORNA_REQUIRES(mutex);
    void powerUp() VORNA_REQUIRES(mutex);
    void sample(std::uint8_t module, PacketSink& out) VORNA_REQUIRES(mutex);

    const std::shared_ptr<const AnalogWires> wires;
    mutable util::Mutex mutex; // inner to the board's; outer to that of the wires
    bool running VORNA_GUARDED_BY(mutex) = false;
    std::uint16_t rateDivider VORNA_GUARDED_BY(mutex) = defaultDivider;
    std::uint32_t nextNumber VORNA_GUARDED_BY(mutex) = 0;
    std::uint8_t ownModule VORNA_GUARDED_BY(mutex) = 0; // the id under which the host last spoke to it
    // Of the sample before the next one; none: it starts at the next advance().
    std::optional<Time> lastTime VORNA_GUARDED_BY(mutex);
    std::uint64_t sent VORNA_GUARDED_BY(mutex) = 0;
    std::uint64_t lost VORNA_GUARDED_BY(mutex) = 0;
};

} // namespace emulation
