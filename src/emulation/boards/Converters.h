#pragma once
// A DAC and an ADC with a wire from each output to the input of the same number: what is set comes back as samples.

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>

#include "emulation/boards/Module.h"

namespace emulation {

/// The wires between the two, as 16-bit converter codes: 0 to 65535 for the whole range. Threads: thread-safe.
class AnalogWires {
public:
    static constexpr std::size_t count = 8;

    void set(std::size_t wire, std::uint16_t code);
    std::array<std::uint16_t, count> codes() const;

private:
    mutable std::mutex mutex;
    std::array<std::uint16_t, count> levels{};
};

/// Sets wires: raw packets with extension 3 hold 32-bit words of a code (bits 4 to 19), a channel (20 to 23) and the
/// operation 3 (24 to 31), which sets a channel at once. Other words are counted as bad. Command 0x1000: all to 0.
class DacModule final : public Module {
public:
    explicit DacModule(std::shared_ptr<AnalogWires> outputs);

    std::uint64_t badWords() const;

    void receive(const Packet& packet, PacketSink& out) override;
    void reset() override;

private:
    const std::shared_ptr<AnalogWires> wires;
    mutable std::mutex mutex; // guards the counter
    std::uint64_t bad = 0;
};

/// Samples all eight wires at a rate of its own clock of 100 MHz by a divider. Register 0x2000: bit 0 runs it; 0x2001:
/// the divider, 10,000 at power-up, 0 stands for 65,536; 0x0000: settling steps, stored only. Commands: 0x2000 one
/// sample at once; 0x1000 back to power-up. A sample is a raw packet with extension 7: its number since power-up in 32
/// bits, then eight codes of 16 bits. What comes due and finds no room, since the host reads too little, is lost; the
/// numbers tell the gap.
class AdcModule final : public Module {
public:
    static constexpr std::int64_t clockHz = 100'000'000;
    static constexpr std::uint16_t defaultDivider = 10'000;
    static constexpr std::uint16_t defaultSettlingSteps = 200;

    explicit AdcModule(std::shared_ptr<const AnalogWires> inputs);

    bool isRunning() const;
    std::uint16_t divider() const;
    std::uint16_t settlingSteps() const;
    std::uint64_t sampleCount() const; ///< sent
    std::uint64_t lostCount() const;

    void receive(const Packet& packet, PacketSink& out) override;
    void advance(Time now, PacketSink& out) override;
    void reset() override;

private:
    void write(std::uint16_t address, std::uint16_t value);
    void powerUp();
    void sample(std::uint8_t module, PacketSink& out);

    const std::shared_ptr<const AnalogWires> wires;
    mutable std::mutex mutex; // guards all below; nothing but the sink and the wires is called with it held
    bool running = false;
    std::uint16_t rateDivider = defaultDivider;
    std::uint16_t settling = defaultSettlingSteps;
    std::uint32_t nextNumber = 0;
    std::uint8_t ownModule = 0;   // the id under which the host last spoke to it
    std::optional<Time> lastTime; // of the sample before the next one; none: it starts at the next advance()
    std::uint64_t sent = 0;
    std::uint64_t lost = 0;
};

} // namespace emulation
