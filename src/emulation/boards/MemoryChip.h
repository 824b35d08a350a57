#pragma once
// A chip without behaviour: it stores what the host writes to registers and memories, and answers reads with it.

#include <array>
#include <cstdint>
#include <map>
#include <mutex>
#include <tuple>
#include <vector>

#include "emulation/boards/Module.h"

namespace emulation {

/// Answers come in the order of the reads, as many in a packet as there were in the packet of reads or as fit. What was
/// never written reads as 0. Spikes and other events are counted and dropped.
///
/// Threads: reset() and receive() by the board; the functions that look are thread-safe. `mutex` guards all data, and
/// nothing is called with it held but the board's sink.
class MemoryChip final : public Module {
public:
    /// The memories of a layer that are written and read by words of the event path.
    enum class Memory : std::uint8_t { neuron = 0, weight = 2, bias = 3 };

    std::uint32_t registerValue(std::uint8_t layer, std::uint8_t index) const;
    std::uint32_t memoryValue(std::uint8_t layer, std::uint16_t address) const;
    /// The value in bits 0 to 15 (a weight: 0 to 7), its kill bit above.
    std::uint32_t layerValue(Memory memory, std::uint8_t layer, std::uint32_t address) const;
    std::uint16_t moduleRegister(std::uint16_t address) const; ///< written by configuration packets
    std::vector<std::uint16_t> route() const;                  ///< of the last packet that sets it
    std::uint64_t commandCount(std::uint16_t code) const;
    std::uint64_t spikeCount() const;

    void receive(const Packet& packet, PacketSink& out) override;
    void reset() override;

private:
    class Answers;
    using Place = std::tuple<std::uint8_t, std::uint8_t, std::uint32_t>; // memory, layer, address

    void command(const Packet& packet);
    void layerAccess(std::uint64_t word, Answers& answers);

    mutable std::mutex mutex;
    std::map<std::uint32_t, std::uint16_t> registers; // by layer and index, as the word has them
    std::map<std::uint32_t, std::uint16_t> memories;  // by layer and address
    std::map<Place, std::uint32_t> layerMemories;
    std::map<std::uint16_t, std::uint16_t> configuration;
    std::map<std::uint16_t, std::uint64_t> commands;
    std::vector<std::uint16_t> routing;
    std::uint64_t spikes = 0;
};

} // namespace emulation
