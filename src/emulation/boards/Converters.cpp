#include "emulation/boards/Converters.h"

#include <algorithm>
#include <utility>

namespace emulation {
namespace {

namespace channel_word { // what sets a channel of the DAC, 32 bits
constexpr BitRange code{4, 16}, channel{20, 4}, operation{24, 8};
constexpr std::uint64_t setAtOnce = 3;
} // namespace channel_word

enum Extension : std::uint8_t { commandCodes = 0, channelWords = 3, samples = 7 };
enum Command : std::uint16_t { powerUpCommand = 0x1000, singleShot = 0x2000 };
constexpr std::size_t sampleWords = 1 + 1 + AnalogWires::count / 2; // header, number, codes
enum Address : std::uint16_t { settlingRegister = 0x0000, runRegister = 0x2000, dividerRegister = 0x2001 };

bool isCommand(const Packet& packet) { return packet.format == PacketFormat::raw && packet.extension == commandCodes; }

} // namespace

void AnalogWires::set(std::size_t wire, std::uint16_t code)
{
    const std::lock_guard lock(mutex);
    levels.at(wire) = code;
}

std::array<std::uint16_t, AnalogWires::count> AnalogWires::codes() const
{
    const std::lock_guard lock(mutex);
    return levels;
}

DacModule::DacModule(std::shared_ptr<AnalogWires> outputs) : wires(std::move(outputs)) {}

void DacModule::receive(const Packet& packet, PacketSink&)
{
    if (isCommand(packet)) {
        for (std::size_t at = 0; at + 2 <= packet.size; at += 2)
            if (packet.value(at, 2) == powerUpCommand)
                reset();
        return;
    }
    if (packet.format != PacketFormat::raw || packet.extension != channelWords)
        return;
    for (std::size_t at = 0; at + 4 <= packet.size; at += 4) {
        const std::uint64_t word = packet.value(at, 4);
        const std::uint64_t channel = channel_word::channel.get(word);
        if (channel >= AnalogWires::count || channel_word::operation.get(word) != channel_word::setAtOnce) {
            const std::lock_guard lock(mutex);
            ++bad;
            continue;
        }
        wires->set(channel, static_cast<std::uint16_t>(channel_word::code.get(word)));
    }
}

void DacModule::reset()
{
    for (std::size_t wire = 0; wire < AnalogWires::count; ++wire)
        wires->set(wire, 0);
}

std::uint64_t DacModule::badWords() const
{
    const std::lock_guard lock(mutex);
    return bad;
}

AdcModule::AdcModule(std::shared_ptr<const AnalogWires> inputs) : wires(std::move(inputs)) {}

void AdcModule::receive(const Packet& packet, PacketSink& out)
{
    const std::lock_guard lock(mutex);
    ownModule = packet.module;
    if (packet.format == PacketFormat::config) {
        for (std::size_t at = 0; at + 4 <= packet.size; at += 4)
            write(static_cast<std::uint16_t>(packet.value(at + 2, 2)), static_cast<std::uint16_t>(packet.value(at, 2)));
        return;
    }
    if (!isCommand(packet))
        return;
    for (std::size_t at = 0; at + 2 <= packet.size; at += 2) {
        const std::uint64_t code = packet.value(at, 2);
        if (code == powerUpCommand)
            powerUp();
        if (code == singleShot)
            sample(packet.module, out);
    }
}

void AdcModule::write(std::uint16_t address, std::uint16_t value)
{
    switch (address) {
    case settlingRegister:
        settling = value;
        break;
    case dividerRegister:
        rateDivider = value;
        break;
    case runRegister:
        running = (value & 1U) != 0;
        lastTime.reset();
        break;
    default:
        break;
    }
}

void AdcModule::advance(Time now, PacketSink& out)
{
    const std::lock_guard lock(mutex);
    if (!running)
        return;
    if (!lastTime)
        lastTime = now;
    const auto period = std::chrono::nanoseconds(1'000'000'000 / clockHz * (rateDivider == 0 ? 65'536 : rateDivider));
    const std::int64_t due = (now - *lastTime) / period;
    if (due <= 0)
        return;
    *lastTime += due * period;
    const auto kept = static_cast<std::int64_t>(out.freeWords() / sampleWords);
    const std::int64_t skipped = std::max<std::int64_t>(due - kept, 0);
    nextNumber += static_cast<std::uint32_t>(skipped);
    lost += static_cast<std::uint64_t>(skipped);
    for (std::int64_t i = skipped; i < due; ++i)
        sample(ownModule, out);
}

void AdcModule::sample(std::uint8_t module, PacketSink& out)
{
    Packet packet;
    packet.module = module;
    packet.format = PacketFormat::raw;
    packet.extension = samples;
    packet.push(nextNumber++, 4);
    for (const std::uint16_t code : wires->codes())
        packet.push(code, 2);
    out.send(packet);
    ++sent;
}

void AdcModule::powerUp()
{
    running = false;
    rateDivider = defaultDivider;
    settling = defaultSettlingSteps;
    nextNumber = 0;
    lastTime.reset();
}

void AdcModule::reset()
{
    const std::lock_guard lock(mutex);
    powerUp();
}

bool AdcModule::isRunning() const
{
    const std::lock_guard lock(mutex);
    return running;
}

std::uint16_t AdcModule::divider() const
{
    const std::lock_guard lock(mutex);
    return rateDivider;
}

std::uint16_t AdcModule::settlingSteps() const
{
    const std::lock_guard lock(mutex);
    return settling;
}

std::uint64_t AdcModule::sampleCount() const
{
    const std::lock_guard lock(mutex);
    return sent;
}

std::uint64_t AdcModule::lostCount() const
{
    const std::lock_guard lock(mutex);
    return lost;
}

} // namespace emulation
