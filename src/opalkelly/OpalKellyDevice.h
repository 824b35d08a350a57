#pragma once
// Drives an Opal Kelly FPGA board over USB by the board's own requests.
//
//   opalkelly::OpalKellyDevice board(std::make_unique<usb::LibUSBDevice>(bus, address), "logic.bit");
//   board.wireInWrite(0, 1);
//   board.updateWireIns();
//   const auto blocks = board.readFromBlockPipeOut(0xA0, 1024, 16384);
//
// Wires are 32 registers of 32 bits in each direction, kept in buffers here until updateWireIns() sends them all or
// updateWireOuts() fetches them all. Pipes carry blocks of bytes. Failures show in results; texts come from the layers
// above.

#include <chrono>
#include <cstdint>
#include <iterator>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "opalkelly/Requests.h"
#include "usb/LibUSBDevice.h"

namespace opalkelly {

/// Threads: pipes and wires may be used by different threads at once, since each transfer is complete in itself; the
/// wire buffers have no lock and belong to one thread. Every call that moves data blocks until it has, or has failed.
class OpalKellyDevice {
public:
    /// Takes the open device and configures the FPGA when `bitFile` isn't empty. Whether that worked isn't reported.
    /// Without a device (null) every transfer fails.
    OpalKellyDevice(std::unique_ptr<usb::LibUSBDevice> device, const std::string& bitFile);

    /// Configures the FPGA from a bit file; takes a second and more. A file that can't be read or is none leaves the
    /// FPGA without a configuration, since it then gets an empty one; that is written to the log, as an error.
    /// @return 0 when a transfer moved nothing; else non-zero, also when one failed in another way
    int configure(const std::string& bitFile);

    /// Stores a value for updateWireIns(). @param address  0 to 31; others change nothing
    void wireInWrite(int address, std::uint32_t value);

    /// The value that updateWireOuts() last fetched. @param address  32 to 63; others give 0
    std::uint32_t wireOutRead(int address) const;

    /// Sends all wire-ins. @return true when data moved
    bool updateWireIns() const;

    /// Fetches all wire-outs. @return true when data moved; the buffer is as before when not
    bool updateWireOuts();

    /// Writes `data` to a block pipe, at most 1024 bytes in one transfer.
    /// @param pipe       0x80 to 0x9F
    /// @param blockSize  1 to 1024; the length of `data` is a multiple of it
    /// @return false, with nothing sent, for arguments out of range; false when a transfer fell short
    bool writeToBlockPipeIn(std::uint8_t pipe, int blockSize, const std::vector<std::uint8_t>& data) const;

    /// Reads from a block pipe, at most 16384 bytes in one transfer.
    /// @param pipe       0xA0 to 0xBF
    /// @param blockSize  1 to 16384; below that, its low 16 bits count as a signed number, and may not be 0
    /// @param length     bytes, a multiple of the block size
    /// @return `length` bytes; none for arguments out of range, with nothing sent, or when a transfer fell short
    /// @throws std::length_error when only `length` is wrong, and negative
    std::vector<std::uint8_t> readFromBlockPipeOut(int pipe, int blockSize, int length) const;

private:
    int controlWrite(const usb::Request& request, std::span<const std::uint8_t> data) const;
    bool setUpPipe(const usb::Request& request, int pipe, int blockSize, std::size_t length) const;

    std::unique_ptr<usb::LibUSBDevice> device;
    std::vector<std::uint8_t> wireIns;  // words, little-endian, as they travel
    std::vector<std::uint8_t> wireOuts; // likewise
};

/// What every pipe setup block begins as; chunk length, block size and pipe are filled in for each transfer.
inline const std::vector<std::uint8_t> pipeSetupTemplate = [] {
    std::vector<std::uint8_t> block(pipeSetupSize);
    for (const auto& [at, value] : pipeSetupFixedBytes)
        block[at] = value;
    return block;
}();

/// The block that announces a configuration of `size` bytes.
std::vector<std::uint8_t> generateFlashSetupBytes(std::size_t size);

/// The configuration in a bit file: what follows the header, whose end is the first byte 0xFF, each byte b as 0, b, 0,
/// 0. Empty, and an error in the log "opalkelly::OpalKellyDevice", when the file can't be read, has no byte 0xFF or is
/// longer than any FPGA's (256 MiB).
std::vector<std::uint8_t> readConfigBytesFromBitFile(const std::string& path);

/// Sleeps for that long, through signals.
void waitInFull(std::chrono::milliseconds time);

/// Puts a configuration into the FPGA: the announcement, with a wait of 500 ms on either side, and the bytes.
/// @param wait  does the waiting; tests give one that returns at once
/// @return as usbBlockWrite()
int opkFlashDevice(usb::LibUSBDevice& device, const std::vector<std::uint8_t>& bytes,
                   void (*wait)(std::chrono::milliseconds) = &waitInFull);

/// Writes bytes to a bulk endpoint in chunks of `blockSize`. The last chunk may be shorter.
/// @return 0 as soon as a write moved nothing;
///         0 for bytes with a `blockSize` below 1;
///         else 1, also when a write failed in another way
int usbBlockWrite(usb::LibUSBDevice& device, std::uint8_t endpoint, std::span<const std::uint8_t> bytes, int blockSize);

template <std::contiguous_iterator Iterator>
int usbBlockWrite(usb::LibUSBDevice& device, std::uint8_t endpoint, Iterator first, Iterator last, int blockSize)
{
    return usbBlockWrite(device, endpoint, std::span<const std::uint8_t>(first, last), blockSize);
}

} // namespace opalkelly
