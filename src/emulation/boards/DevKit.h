#pragma once
// A dev kit that runs its firmware: an FX3 with an SPI flash behind vendor requests, and an FPGA behind it.

#include <array>
#include <cstdint>

#include "emulation/boards/Board.h"

namespace emulation {

/// Vendor requests and bulk endpoints are those of the firmware. What they carry is checked: a request that the
/// firmware doesn't know, data that weren't announced or go beyond what was, an address outside the flash, all stall
/// and are recorded as problems.
///
/// Flash: 16 MiB, 0xFF where erased. Programming can only clear bits, so what is written to unerased flash comes out as
/// the AND of both; a byte that doesn't come out as written is counted.
///
/// FPGA: without a configuration its block stream carries no credit and no packets, and what the host writes is
/// dropped. Announcing a bitstream takes the old configuration away; the last byte of it brings the new one.
/// Configuring from flash takes two words, the size and the address (to which hosts add 5), and does nothing from
/// erased flash. A reset empties the stream and resets the modules, and keeps the configuration.
class DevKit final : public Board {
public:
    static constexpr std::uint8_t writeEndpoint = 0x01;
    static constexpr std::uint8_t readEndpoint = 0x81;
    static constexpr std::size_t flashSize = 16U << 20U;
    static constexpr std::size_t sectorSize = 64U << 10U;
    static constexpr std::size_t mostInRequest = 2048;
    static constexpr std::size_t largestBitstream = 64U << 20U;

    struct FlashCounters {
        std::uint64_t erasedSectors = 0;
        std::uint64_t programmedBytes = 0;
        std::uint64_t spoiledBytes = 0; ///< written where flash wasn't erased, and not come out as written
    };

    /// @param hasConfiguration  the FPGA has been configured at power-up, as on a kit that holds a bitstream
    explicit DevKit(std::string serialNumber, bool hasConfiguration = true,
                    Clock boardClock = std::chrono::steady_clock::now);

    /// @throws std::out_of_range beyond the flash
    std::vector<std::uint8_t> flash(std::size_t address, std::size_t size) const;
    /// Sets what flash holds, erased or not.
    void setFlash(std::size_t address, std::span<const std::uint8_t> bytes);
    FlashCounters flashCounters() const;
    std::uint64_t fpgaResets() const;

    std::uint16_t vendorId() const override { return 0x04B4; }
    std::uint16_t productId() const override { return 0x5BC1; }
    std::vector<std::uint8_t> endpoints() const override { return {writeEndpoint, readEndpoint}; }
    int controlTransfer(const Setup& setup, std::span<std::uint8_t> data) override;
    int bulkOut(std::uint8_t endpoint, std::span<const std::uint8_t> data) override;
    int bulkIn(std::uint8_t endpoint, std::span<std::uint8_t> data) override;

private:
    void forget() VORNA_REQUIRES(mutex) override;
    struct Announced {
        std::size_t address = 0;
        std::size_t left = 0;
    };
    struct Request;
    static const Request requests[];

    int perform(const Setup& setup, std::span<std::uint8_t> data) VORNA_REQUIRES(mutex);
    int eraseSector(const Setup& setup, std::span<std::uint8_t> data) VORNA_REQUIRES(mutex);
    int announceFlashWrite(const Setup& setup, std::span<std::uint8_t> data) VORNA_REQUIRES(mutex);
    int writeFlash(const Setup& setup, std::span<std::uint8_t> data) VORNA_REQUIRES(mutex);
    int announceFlashRead(const Setup& setup, std::span<std::uint8_t> data) VORNA_REQUIRES(mutex);
    int readFlash(const Setup& setup, std::span<std::uint8_t> data) VORNA_REQUIRES(mutex);
    int announceBitstream(const Setup& setup, std::span<std::uint8_t> data) VORNA_REQUIRES(mutex);
    int takeBitstream(const Setup& setup, std::span<std::uint8_t> data) VORNA_REQUIRES(mutex);
    int configureFromFlash(const Setup& setup, std::span<std::uint8_t> data) VORNA_REQUIRES(mutex);
    int tellConfiguration(const Setup& setup, std::span<std::uint8_t> data) VORNA_REQUIRES(mutex);
    int resetFpga(const Setup& setup, std::span<std::uint8_t> data) VORNA_REQUIRES(mutex);
    int stall(std::string problem) VORNA_REQUIRES(mutex);
    void noteUnfinished() VORNA_REQUIRES(mutex);

    std::vector<std::uint8_t> flashBytes VORNA_GUARDED_BY(mutex);
    FlashCounters flashCounted VORNA_GUARDED_BY(mutex);
    Announced flashWrite VORNA_GUARDED_BY(mutex), flashRead VORNA_GUARDED_BY(mutex);
    std::vector<std::uint8_t> incoming VORNA_GUARDED_BY(mutex); // of a bitstream
    std::size_t incomingLeft VORNA_GUARDED_BY(mutex) = 0;
    std::uint64_t resets VORNA_GUARDED_BY(mutex) = 0;
};

} // namespace emulation
