#include "emulation/boards/MemoryChip.h"

namespace emulation {
namespace {

// Extensions of raw packets: what the payload is.
enum Extension : std::uint8_t {
    commandCodes = 0,
    layerWords = 1,
    registerWrites = 3,
    registerReads = 4,
    memoryWrites = 5,
    memoryReads = 6,
    registerAnswers = 8,
    memoryAnswers = 9,
    probeReads = 10,
    probeAnswers = 11,
};
constexpr std::uint16_t clearRegisters = 2; // a command code

// Words of the host, and those of the chip.
namespace config_pair { // 32 bits
constexpr BitRange value{0, 16}, address{16, 16};
}
namespace register_write { // 32 bits
constexpr BitRange data{0, 16}, index{16, 6}, layer{22, 4};
}
namespace register_read { // 16 bits
constexpr BitRange index{0, 6}, layer{6, 4};
}
namespace register_answer { // 32 bits
constexpr BitRange data{0, 9}, index{16, 6}, layer{22, 4};
}
namespace memory_write { // 32 bits
constexpr BitRange data{0, 9}, address{9, 13}, layer{22, 4};
}
namespace memory_read { // 32 bits
constexpr BitRange address{0, 13}, layer{13, 4};
}
namespace memory_answer { // 32 bits
constexpr BitRange data{0, 9}, address{9, 13}, layer{22, 4};
}
namespace probe_read { // 16 bits
constexpr BitRange core{0, 4};
}
namespace probe_answer { // 32 bits
constexpr BitRange value{0, 5}, core{5, 4};
}

// The 48-bit words of the event path that reach into a layer. Bits 39 and 40 both set: an event, no access.
namespace layer_word {
constexpr BitRange event{39, 2}, layer{37, 4}, kind{35, 2};
constexpr std::uint64_t isEvent = 3, neuronRead = 1;
} // namespace layer_word

struct AccessRow {
    MemoryChip::Memory memory;
    std::uint64_t kind;    // bits 35 and 36
    BitRange value;        // of a write, kill bit on top
    BitRange address, tag; // the tag is that of a read
    BitRange read;         // set in a read
    std::uint64_t answer;  // kind code of the answer
    BitRange answerTag;
};
constexpr AccessRow accesses[] = {
    // memory                    kind  value    address   tag     read     answer
    {MemoryChip::Memory::neuron, 0, {0, 17}, {17, 18}, {0, 5}, {35, 1}, 5, {17, 5}},
    {MemoryChip::Memory::neuron, 1, {0, 17}, {17, 18}, {0, 5}, {35, 1}, 5, {17, 5}},
    {MemoryChip::Memory::weight, 2, {0, 9}, {9, 21}, {0, 8}, {30, 1}, 7, {9, 8}},
    {MemoryChip::Memory::bias, 3, {0, 17}, {17, 10}, {0, 5}, {27, 1}, 6, {17, 5}},
};
namespace event_answer { // 64 bits
constexpr BitRange kind{24, 3}, special{27, 1};
}

std::uint32_t placeOf(std::uint64_t layer, std::uint64_t address)
{
    return static_cast<std::uint32_t>(layer << 16 | address);
}

template <class Map, class Key>
typename Map::mapped_type valueAt(const Map& map, const Key& key)
{
    const auto found = map.find(key);
    return found == map.end() ? typename Map::mapped_type{} : found->second;
}

} // namespace

// Collects answers of one kind into packets.
class MemoryChip::Answers {
public:
    Answers(std::uint8_t module, PacketFormat format, std::uint8_t extension, PacketSink& sink) : out(sink)
    {
        packet.module = module;
        packet.format = format;
        packet.extension = extension;
    }
    void add(std::uint64_t word, std::size_t bytes)
    {
        if (packet.push(word, bytes))
            return;
        flush();
        packet.push(word, bytes);
    }
    void flush()
    {
        if (packet.size > 0)
            out.send(packet);
        packet.size = 0;
    }

private:
    PacketSink& out;
    Packet packet;
};

void MemoryChip::receive(const Packet& packet, PacketSink& out)
{
    const util::Lock lock(mutex);
    switch (packet.format) {
    case PacketFormat::events:
        spikes += packet.numbers(8).size();
        break;
    case PacketFormat::route:
        routing.clear();
        for (const std::uint64_t word : packet.numbers(2))
            routing.push_back(static_cast<std::uint16_t>(word));
        break;
    case PacketFormat::config:
        for (const std::uint64_t pair : packet.numbers(4))
            configuration[static_cast<std::uint16_t>(config_pair::address.get(pair))] =
                static_cast<std::uint16_t>(config_pair::value.get(pair));
        break;
    case PacketFormat::raw:
        receiveRaw(packet, out);
        break;
    }
}

void MemoryChip::receiveRaw(const Packet& packet, PacketSink& out)
{
    switch (packet.extension) {
    case commandCodes:
        command(packet);
        break;
    case layerWords: {
        Answers answers(packet.module, PacketFormat::events, 0, out);
        for (const std::uint64_t word : packet.numbers(6))
            layerAccess(word, answers);
        answers.flush();
        break;
    }
    case registerWrites:
    case memoryWrites:
        write(packet);
        break;
    case registerReads:
    case memoryReads:
    case probeReads:
        answer(packet, out);
        break;
    default:
        break;
    }
}

void MemoryChip::write(const Packet& packet)
{
    for (const std::uint64_t word : packet.numbers(4)) {
        if (packet.extension == registerWrites) {
            using namespace register_write;
            registers[placeOf(layer.get(word), index.get(word))] = static_cast<std::uint16_t>(data.get(word));
        } else {
            using namespace memory_write;
            memories[placeOf(layer.get(word), address.get(word))] = static_cast<std::uint16_t>(data.get(word));
        }
    }
}

void MemoryChip::answer(const Packet& packet, PacketSink& out)
{
    const bool ofMemory = packet.extension == memoryReads, ofRegister = packet.extension == registerReads;
    const std::uint8_t extension = ofMemory ? memoryAnswers : ofRegister ? registerAnswers : probeAnswers;
    Answers answers(packet.module, PacketFormat::raw, extension, out);
    for (const std::uint64_t word : packet.numbers(ofMemory ? 4 : 2)) {
        if (ofMemory) {
            const std::uint64_t layer = memory_read::layer.get(word), address = memory_read::address.get(word);
            answers.add(memory_answer::data.put(valueAt(memories, placeOf(layer, address))) |
                            memory_answer::address.put(address) | memory_answer::layer.put(layer),
                        4);
        } else if (ofRegister) {
            const std::uint64_t layer = register_read::layer.get(word), index = register_read::index.get(word);
            answers.add(register_answer::data.put(valueAt(registers, placeOf(layer, index))) |
                            register_answer::index.put(index) | register_answer::layer.put(layer),
                        4);
        } else { // nothing to probe: 0
            answers.add(probe_answer::value.put(0) | probe_answer::core.put(probe_read::core.get(word)), 4);
        }
    }
    answers.flush();
}

void MemoryChip::command(const Packet& packet)
{
    for (const std::uint64_t code : packet.commands()) {
        ++commands[static_cast<std::uint16_t>(code)];
        if (code == clearRegisters)
            registers.clear();
    }
}

void MemoryChip::layerAccess(std::uint64_t word, Answers& answers)
{
    if (layer_word::event.get(word) == layer_word::isEvent) {
        ++spikes;
        return;
    }
    for (const AccessRow& row : accesses) {
        if (layer_word::kind.get(word) != row.kind)
            continue;
        const Place place{row.memory, static_cast<std::uint8_t>(layer_word::layer.get(word)),
                          static_cast<std::uint32_t>(row.address.get(word))};
        if (!row.read.isSet(word)) {
            layerMemories[place] = static_cast<std::uint32_t>(row.value.get(word));
            return;
        }
        answers.add(event_answer::special.put(1) | event_answer::kind.put(row.answer) |
                        row.answerTag.put(row.tag.get(word)) | valueAt(layerMemories, place),
                    8);
        return;
    }
}

void MemoryChip::reset()
{
    const util::Lock lock(mutex);
    registers.clear();
    memories.clear();
    layerMemories.clear();
    configuration.clear();
    routing.clear();
}

std::uint32_t MemoryChip::registerValue(std::uint8_t layer, std::uint8_t index) const
{
    const util::Lock lock(mutex);
    return valueAt(registers, placeOf(layer, index));
}

std::uint32_t MemoryChip::memoryValue(std::uint8_t layer, std::uint16_t address) const
{
    const util::Lock lock(mutex);
    return valueAt(memories, placeOf(layer, address));
}

std::uint32_t MemoryChip::layerValue(Memory memory, std::uint8_t layer, std::uint32_t address) const
{
    const util::Lock lock(mutex);
    return valueAt(layerMemories, Place{memory, layer, address});
}

std::uint32_t MemoryChip::neuronValue(std::uint8_t layer, std::uint32_t address) const
{
    return layerValue(Memory::neuron, layer, address);
}

std::uint32_t MemoryChip::weightValue(std::uint8_t layer, std::uint32_t address) const
{
    return layerValue(Memory::weight, layer, address);
}

std::uint32_t MemoryChip::biasValue(std::uint8_t layer, std::uint32_t address) const
{
    return layerValue(Memory::bias, layer, address);
}

std::uint16_t MemoryChip::moduleRegister(std::uint16_t address) const
{
    const util::Lock lock(mutex);
    return valueAt(configuration, address);
}

std::vector<std::uint16_t> MemoryChip::route() const
{
    const util::Lock lock(mutex);
    return routing;
}

std::uint64_t MemoryChip::commandCount(std::uint16_t code) const
{
    const util::Lock lock(mutex);
    return valueAt(commands, code);
}

std::uint64_t MemoryChip::spikeCount() const
{
    const util::Lock lock(mutex);
    return spikes;
}

} // namespace emulation
