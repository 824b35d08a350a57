#pragma once
// The DAC of a board.

#include <memory>

#include "emulation/boards/AnalogWires.h"
#include "emulation/boards/Module.h"

namespace emulation {

/// Sets wires: raw packets with extension 3 hold 32-bit words of a code (bits 4 to 19), a channel (20 to 23) and the
/// operation 3 (24 to 31), which sets a channel at once. Other words change nothing. Command 0x1000: all to 0.
class DacModule final : public Module {
public:
    explicit DacModule(std::shared_ptr<AnalogWires> outputs);

    void receive(const Packet& packet, PacketSink& out) override;
    void reset() override;

private:
    const std::shared_ptr<AnalogWires> wires;
};

} // namespace emulation
