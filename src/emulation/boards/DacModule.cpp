#include "emulation/boards/DacModule.h"

#include <algorithm>
#include <utility>

namespace emulation {
namespace {

namespace channel_word { // what sets a channel, 32 bits
constexpr BitRange code{4, 16}, channel{20, 4}, operation{24, 8};
constexpr std::uint64_t setAtOnce = 3;
} // namespace channel_word

constexpr std::uint8_t channelWords = 3; // the extension of packets that hold them
constexpr std::uint64_t resetCommand = 0x1000;

} // namespace

DacModule::DacModule(std::shared_ptr<AnalogWires> outputs) : wires(std::move(outputs)) {}

void DacModule::receive(const Packet& packet, PacketSink&)
{
    if (std::ranges::count(packet.commands(), resetCommand) > 0)
        reset();
    if (packet.format != PacketFormat::raw || packet.extension != channelWords)
        return;
    for (const std::uint64_t word : packet.numbers(4)) {
        const std::uint64_t channel = channel_word::channel.get(word);
        if (channel < AnalogWires::count && channel_word::operation.get(word) == channel_word::setAtOnce)
            wires->set(channel, static_cast<std::uint16_t>(channel_word::code.get(word)));
    }
}

void DacModule::reset()
{
    for (std::size_t wire = 0; wire < AnalogWires::count; ++wire)
        wires->set(wire, 0);
}

} // namespace emulation
