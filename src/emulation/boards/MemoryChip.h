#pragma once
// A chip without behaviour: it stores what the host writes to registers and memories, and answers reads with it.

#include <cstdint>
#include <map>
#include <tuple>
#include <vector>

#include "emulation/boards/Module.h"
#include "trovi/Reflect.h"
#include "util/Mutex.h"

namespace emulation {

/// Answers come in the order of the reads, as many in a packet as there were in the packet of reads or as fit. What was
/// never written reads as 0. Spikes and other events are counted and dropped.
///
/// Threads: thread-safe; reset() and receive() are the board's.
class MemoryChip final : public Module {
public:
    /// The memories of a layer that are written and read by words of the event path.
    enum class Memory : std::uint8_t { neuron = 0, weight = 2, bias = 3 };

    std::uint32_t registerValue(std::uint8_t layer, std::uint8_t index) const;
    std::uint32_t memoryValue(std::uint8_t layer, std::uint16_t address) const;
    // The value in bits 0 to 15 (a weight: 0 to 7), its kill bit above.
    std::uint32_t neuronValue(std::uint8_t layer, std::uint32_t address) const;
    std::uint32_t weightValue(std::uint8_t layer, std::uint32_t address) const;
    std::uint32_t biasValue(std::uint8_t layer, std::uint32_t address) const;
    std::uint16_t moduleRegister(std::uint16_t address) const; ///< written by configuration packets
    std::vector<std::uint16_t> route() const;                  ///< of the last packet that sets it
    std::uint64_t commandCount(std::uint16_t code) const;
    std::uint64_t spikeCount() const;

    void receive(const Packet& packet, PacketSink& out) override;
    void reset() override;

private:
    class Answers;
    using Place = std::tuple<Memory, std::uint8_t, std::uint32_t>; // memory, layer, address

    void receiveRaw(const Packet& packet, PacketSink& out) VORNA_REQUIRES(mutex);
    void command(const Packet& packet) VORNA_REQUIRES(mutex);
    void write(const Packet& packet) VORNA_REQUIRES(mutex);
    void answer(const Packet& packet, PacketSink& out) VORNA_REQUIRES(mutex);
    void layerAccess(std::uint64_t word, Answers& answers) VORNA_REQUIRES(mutex);
    std::uint32_t layerValue(Memory memory, std::uint8_t layer, std::uint32_t address) const VORNA_EXCLUDES(mutex);

    mutable util::Mutex mutex; // inner to the board's; only the board's sink is called while it is held
    std::map<std::uint32_t, std::uint16_t>
        registers VORNA_GUARDED_BY(mutex);                                   // by layer and index, as the word has them
    std::map<std::uint32_t, std::uint16_t> memories VORNA_GUARDED_BY(mutex); // by layer and address
    std::map<Place, std::uint32_t> layerMemories VORNA_GUARDED_BY(mutex);
    std::map<std::uint16_t, std::uint16_t> configuration VORNA_GUARDED_BY(mutex);
    std::map<std::uint16_t, std::uint64_t> commands VORNA_GUARDED_BY(mutex);
    std::vector<std::uint16_t> routing VORNA_GUARDED_BY(mutex);
    std::uint64_t spikes VORNA_GUARDED_BY(mutex) = 0;
};

} // namespace emulation

template <>
constexpr auto trovi::registerMemberFunctions<emulation::MemoryChip>()
{
    using emulation::MemoryChip;
    return functions(
        function("registerValue", &MemoryChip::registerValue,
                 "What the host wrote to a register of the chip, 16 bits; 0 if nothing.", "layer, index"),
        function("memoryValue", &MemoryChip::memoryValue,
                 "What the host wrote to a word of a layer's memory, 9 bits; 0 if nothing.", "layer, address"),
        function("neuronValue", &MemoryChip::neuronValue,
                 "What the host wrote to a neuron: 16 bits, and its kill bit above.", "layer, address"),
        function("weightValue", &MemoryChip::weightValue,
                 "What the host wrote to a weight: 8 bits, and its kill bit above.", "layer, address"),
        function("biasValue", &MemoryChip::biasValue, "What the host wrote to a bias: 16 bits, and its kill bit above.",
                 "layer, address"),
        function("moduleRegister", &MemoryChip::moduleRegister,
                 "What the host wrote to a register of the chip's module.", "address"),
        function("route", &MemoryChip::route, "The words of the last routing packet."),
        function("commandCount", &MemoryChip::commandCount, "How often a command's 16-bit code has come.", "code"),
        function("spikeCount", &MemoryChip::spikeCount, "Spikes and other events that the chip has received."));
}

template <>
constexpr const char* trovi::registerDoc<emulation::MemoryChip>()
{
    return "The chip of an emulated board: it stores what the host writes, and answers reads with it.";
}
