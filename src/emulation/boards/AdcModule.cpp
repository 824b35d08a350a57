#include "emulation/boards/AdcModule.h"

#include <algorithm>
#include <utility>

namespace emulation {
namespace {

constexpr std::uint8_t samplesExtension = 7;
constexpr std::size_t sampleWords = 1 + 1 + AnalogWires::count / 2; // header, number, codes
constexpr std::uint64_t runRegister = 0x2000, dividerRegister = 0x2001;
constexpr std::uint64_t resetCommand = 0x1000, singleShotCommand = 0x2000;

namespace config_pair { // of a configuration packet
constexpr BitRange value{0, 16}, address{16, 16};
} // namespace config_pair

} // namespace

AdcModule::AdcModule(std::shared_ptr<const AnalogWires> inputs) : wires(std::move(inputs)) {}

void AdcModule::receive(const Packet& packet, PacketSink& out)
{
    const util::Lock lock(mutex);
    ownModule = packet.module;
    if (packet.format == PacketFormat::config)
        for (const std::uint64_t pair : packet.numbers(4))
            write(config_pair::address.get(pair), config_pair::value.get(pair));
    for (const std::uint64_t command : packet.commands()) {
        if (command == resetCommand)
            powerUp();
        if (command == singleShotCommand)
            sample(packet.module, out);
    }
}

void AdcModule::write(std::uint64_t address, std::uint64_t value)
{
    if (address == dividerRegister)
        rateDivider = static_cast<std::uint16_t>(value);
    if (address == runRegister) {
        running = (value & 1U) != 0;
        lastTime.reset();
    }
}

void AdcModule::advance(Time now, PacketSink& out)
{
    const util::Lock lock(mutex);
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
    packet.extension = samplesExtension;
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
    nextNumber = 0;
    lastTime.reset();
}

void AdcModule::reset()
{
    const util::Lock lock(mutex);
    powerUp();
}

bool AdcModule::isRunning() const
{
    const util::Lock lock(mutex);
    return running;
}

std::uint16_t AdcModule::divider() const
{
    const util::Lock lock(mutex);
    return rateDivider;
}

std::uint64_t AdcModule::sampleCount() const
{
    const util::Lock lock(mutex);
    return sent;
}

std::uint64_t AdcModule::lostCount() const
{
    const util::Lock lock(mutex);
    return lost;
}

} // namespace emulation
