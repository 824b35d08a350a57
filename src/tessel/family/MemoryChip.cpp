// How a chip in memory works. Compiled once for each family.

#include "tessel/family/Family.h"
#include VORNA_FAMILY_HEADER(MemoryChip)

#include <stdexcept>
#include <utility>
#include <variant>

namespace VORNA_FAMILY {

namespace {

// of anything with a layer and an address of up to 32 bits
constexpr std::uint64_t key(std::uint8_t layer, std::uint32_t address) { return std::uint64_t{layer} << 32U | address; }

template <class Memory>
typename Memory::mapped_type valueAt(const Memory& memory, std::uint64_t at)
{
    const auto found = memory.find(at);
    return found != memory.end() ? found->second : typename Memory::mapped_type{};
}

} // namespace

void MemoryChip::Content::operator()(const event::WriteRegisterValue& e) { registers[key(e.layer, e.index)] = e.data; }

void MemoryChip::Content::operator()(const event::ReadRegisterValue& e)
{
    output.push_back(event::RegisterValue{e.layer, e.index, valueAt(registers, key(e.layer, e.index)), 0});
}

void MemoryChip::Content::operator()(const event::WriteMemoryValue& e) { rawMemory[key(e.layer, e.address)] = e.data; }

void MemoryChip::Content::operator()(const event::ReadMemoryValue& e)
{
    output.push_back(event::MemoryValue{e.layer, e.address, valueAt(rawMemory, key(e.layer, e.address)), 0});
}

void MemoryChip::Content::operator()(const event::WriteNeuronValue& e)
{
    neurons[key(e.layer, e.address)] = {e.kill, e.neuron_state};
}

void MemoryChip::Content::operator()(const event::ReadNeuronValue& e)
{
    const Word word = valueAt(neurons, key(e.layer, e.address));
    output.push_back(event::NeuronValue{e.monitor_tag, word.kill, word.value, 0});
}

void MemoryChip::Content::operator()(const event::WriteWeightValue& e)
{
    weights[key(e.layer, e.address)] = {e.kill, e.weight};
}

void MemoryChip::Content::operator()(const event::ReadWeightValue& e)
{
    const Word word = valueAt(weights, key(e.layer, e.address));
    output.push_back(event::WeightValue{e.monitor_tag, word.kill, static_cast<std::int8_t>(word.value), 0});
}

void MemoryChip::Content::operator()(const event::WriteBiasValue& e)
{
    biases[key(e.layer, e.address)] = {e.kill, e.bias};
}

void MemoryChip::Content::operator()(const event::ReadBiasValue& e)
{
    const Word word = valueAt(biases, key(e.layer, e.address));
    output.push_back(event::BiasValue{e.monitor_tag, word.kill, word.value, 0});
}

void MemoryChip::Content::operator()(const event::ReadProbe& e)
{
    output.push_back(event::ProbeValue{e.core, probes[e.core]});
}

void MemoryChip::Content::operator()(const event::Spike& e)
{
    if (loopBack)
        output.push_back(e);
}

void MemoryChip::Content::operator()(const event::RouterEvent& e)
{
    if (loopBack)
        output.push_back(event::Spike{e.layer, e.feature, e.y, e.x, 0});
}

std::vector<event::OutputEvent> MemoryChip::read()
{
    const util::Lock lock(mutex);
    return std::exchange(content.output, {});
}

void MemoryChip::write(const std::vector<event::InputEvent>& events)
{
    const util::Lock lock(mutex);
    writtenCount += events.size();
    if (recording)
        written.insert(written.end(), events.begin(), events.end());
    for (const auto& e : events)
        std::visit(content, e);
}

void MemoryChip::queueOutput(const std::vector<event::OutputEvent>& events)
{
    const util::Lock lock(mutex);
    content.output.insert(content.output.end(), events.begin(), events.end());
}

void MemoryChip::setProbe(std::uint8_t core, std::uint8_t value)
{
    const util::Lock lock(mutex);
    content.probes[core] = value;
}

void MemoryChip::setLoopBack(bool on)
{
    const util::Lock lock(mutex);
    content.loopBack = on;
}

bool MemoryChip::getLoopBack() const
{
    const util::Lock lock(mutex);
    return content.loopBack;
}

void MemoryChip::setRecording(bool on)
{
    const util::Lock lock(mutex);
    recording = on;
}

bool MemoryChip::getRecording() const
{
    const util::Lock lock(mutex);
    return recording;
}

std::vector<event::InputEvent> MemoryChip::takeWritten()
{
    const util::Lock lock(mutex);
    return std::exchange(written, {});
}

std::uint64_t MemoryChip::getWrittenCount() const
{
    const util::Lock lock(mutex);
    return writtenCount;
}

MemoryDeviceAPI::MemoryDeviceAPI(std::shared_ptr<MemoryChip> memoryChip) : chip(std::move(memoryChip))
{
    if (!chip)
        throw std::invalid_argument("A device interface in memory needs a chip.");
}

MemoryModel::MemoryModel(std::shared_ptr<MemoryChip> chip)
    : VORNA_FAMILY_NAME(Model)(std::make_unique<MemoryDeviceAPI>(std::move(chip)))
{}

} // namespace VORNA_FAMILY
