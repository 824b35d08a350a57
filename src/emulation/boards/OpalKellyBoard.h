#pragma once
// An Opal Kelly FPGA board: configuration over USB, 32 wires each way, and block pipes with modules behind them.

#include <array>
#include <cstdint>

#include "emulation/boards/Board.h"

namespace emulation {

/// What the host sends is checked to the byte: the setup blocks of pipes and of the configuration, lengths, pipe
/// addresses, and the padding of the bitstream. What is wrong stalls and is recorded as a problem.
///
/// The FPGA has no configuration at power-up; until it gets one, wires and pipes stall. Bit 0 of wire-in 0 runs the
/// logic: while it is 0, pipe 0xA0 carries no credit and no packets, and what the host writes to pipe 0x80 is dropped.
/// Other pipes don't exist.
///
/// A pipe's setup announces a length; exactly that many bytes are then answered on 0x82 or taken on 0x02.
class OpalKellyBoard final : public Board {
public:
    static constexpr std::uint8_t configurationEndpoint = 0x01;
    static constexpr std::uint8_t writeEndpoint = 0x02;
    static constexpr std::uint8_t readEndpoint = 0x82;
    static constexpr std::uint8_t writePipe = 0x80;
    static constexpr std::uint8_t readPipe = 0xA0;
    static constexpr std::size_t wires = 32; ///< each way
    static constexpr int firstWireOut = 32;
    static constexpr std::size_t largestConfiguration = 128U << 20U; ///< bytes on the wire, 4 for each of the file

    /// @param running  configured, and wire-in 0 set to 1, as after a host's initialisation
    explicit OpalKellyBoard(std::string serialNumber, bool running = false,
                            Clock boardClock = std::chrono::steady_clock::now);

    /// What the host last set. @throws std::out_of_range for an address above 31
    std::uint32_t wireIn(int address) const;
    /// What the host reads at its next update. @throws std::out_of_range for an address other than 32 to 63
    void setWireOut(int address, std::uint32_t value);
    std::uint64_t wireUpdates() const; ///< of wire-ins

    std::uint16_t vendorId() const override { return 0x151F; }
    std::uint16_t productId() const override { return 0x012B; }
    std::vector<std::uint8_t> endpoints() const override
    {
        return {configurationEndpoint, writeEndpoint, readEndpoint};
    }
    int controlTransfer(const Setup& setup, std::span<std::uint8_t> data) override;
    int bulkOut(std::uint8_t endpoint, std::span<const std::uint8_t> data) override;
    int bulkIn(std::uint8_t endpoint, std::span<std::uint8_t> data) override;

private:
    void forget() VORNA_REQUIRES(mutex) override;
    int perform(const Setup& setup, std::span<std::uint8_t> data) VORNA_REQUIRES(mutex);
    int updateWireIns(std::span<const std::uint8_t> data) VORNA_REQUIRES(mutex);
    int tellWireOuts(std::span<std::uint8_t> data) const VORNA_REQUIRES(mutex);
    int setUpPipe(std::span<const std::uint8_t> data, bool reads) VORNA_REQUIRES(mutex);
    int beginConfiguration(std::span<const std::uint8_t> data) VORNA_REQUIRES(mutex);
    int takeConfiguration(std::span<const std::uint8_t> data) VORNA_REQUIRES(mutex);
    int takePipe(std::span<const std::uint8_t> data) VORNA_REQUIRES(mutex);
    int stall(std::string problem) VORNA_REQUIRES(mutex);
    bool isRunning() const VORNA_REQUIRES(mutex);

    std::array<std::uint32_t, wires> wireIns VORNA_GUARDED_BY(mutex){};
    std::array<std::uint32_t, wires> wireOuts VORNA_GUARDED_BY(mutex){};
    std::uint64_t updates VORNA_GUARDED_BY(mutex) = 0;
    std::size_t announcedRead VORNA_GUARDED_BY(mutex) = 0; // bytes of a pipe, 0: none
    std::size_t announcedWrite VORNA_GUARDED_BY(mutex) = 0;
    std::vector<std::uint8_t> incoming VORNA_GUARDED_BY(mutex); // of a configuration, without padding
    std::size_t incomingSize VORNA_GUARDED_BY(mutex) = 0, incomingTaken VORNA_GUARDED_BY(mutex) = 0;
    bool incomingGood VORNA_GUARDED_BY(mutex) = true;
};

} // namespace emulation
