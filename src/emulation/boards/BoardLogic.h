#pragma once
// What the FPGA of a board does with blocks: takes packets out of what the host writes, hands them to modules by id,
// and puts the modules' packets into blocks for the host, each with its word of credit. Both kinds of board share it.

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "emulation/boards/BoardCounters.h"
#include "emulation/boards/Module.h"
#include "emulation/boards/Problems.h"

namespace emulation {

/// Credit is what is left of `creditRoom` words after those that wait for the host; so a host that reads too little is
/// held back. What a host sends beyond it is dropped, counted, and recorded as a problem.
///
/// Threads: guarded by the board that owns it.
class BoardLogic final : private PacketSink {
public:
    using Time = Module::Time;

    static constexpr std::size_t blockSize = 1024;
    static constexpr std::size_t blockWords = blockSize / 4;
    static constexpr std::uint32_t creditRoom = 16384;   ///< words: as much as a host writes at once
    static constexpr std::size_t mostWaiting = 1U << 20; ///< words towards the host; what comes then is lost

    /// `boardCounters` and `boardProblems` are the board's, and outlive this.
    BoardLogic(BoardCounters& boardCounters, Problems& boardProblems);

    /// A null module takes away the one that was there.
    /// @throws std::invalid_argument for an id above 63
    void setModule(int id, std::shared_ptr<Module> module);

    /// Announces no more than this many words, even if there is room for more; nothing: no limit but the room.
    void setCreditLimit(std::optional<std::uint32_t> limit);

    /// What the host wrote in one transfer: whole blocks. A packet cut off by their end continues in the next.
    void take(std::span<const std::uint8_t> blocks);

    /// True when the host should hear of packets, or of credit that has come back.
    bool hasNews() const { return creditReturned || !waiting().empty(); }

    /// Lets modules send what is due by now.
    void advance(Time now);

    /// Fills whole blocks with credit and packets; the rest is zero.
    void fill(std::span<std::uint8_t> blocks);

    /// Forgets all packets under way, and resets the modules.
    void reset();

private:
    void send(const Packet& packet) override;
    std::size_t freeWords() const override;
    std::size_t begin(std::uint32_t header);
    void finish();
    std::uint32_t credit() const;
    std::span<const std::uint32_t> waiting() const { return std::span(outgoing).subspan(sent); }

    BoardCounters& counters;
    Problems& problems;
    std::array<std::shared_ptr<Module>, Packet::modules> modules;

    Packet current;              // being taken
    std::size_t missing = 0;     // bytes of its payload and padding still to come
    std::size_t position = 0;    // bytes that have come
    bool dropping = false;       // the packet is beyond the credit
    std::int64_t granted = 0;    // words that the host may still send
    bool creditReturned = false; // the host has sent since its credit was last announced
    std::optional<std::uint32_t> creditLimit;

    std::vector<std::uint32_t> outgoing; // words for the host, from `sent` on
    std::size_t sent = 0;
};

} // namespace emulation
