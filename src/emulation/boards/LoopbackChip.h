#pragma once
// The simplest chip: what comes in goes out.

#include "emulation/boards/Module.h"

namespace emulation {

/// Sends event and raw packets back as they came. The two other formats go to boards only, so they end here.
class LoopbackChip final : public Module {
public:
    void receive(const Packet& packet, PacketSink& out) override
    {
        if (packet.format == PacketFormat::events || packet.format == PacketFormat::raw)
            out.send(packet);
    }
    void reset() override {}
};

} // namespace emulation
