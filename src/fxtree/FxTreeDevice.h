#pragma once
// An FX3 that runs the dev kit's firmware: the pipe to the FPGA, the SPI flash, and the FPGA's configuration.
//
//   fxtree::FxTreeDevice kit(std::make_unique<usb::LibUSBDevice>(bus, address));
//   kit.programFpgaPc(bitstream);
//   kit.writeGpif(block);
//   const auto blocks = kit.readGpif(8192);
//
// Flash and FPGA calls raise when a transfer failed (-1). A transfer that couldn't even be submitted, as to a board
// that was unplugged before, has another code and passes as success here; the pipe calls raise nothing at all.

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "fxtree/Requests.h"
#include "usb/LibUSBDevice.h"

namespace fxtree {

/// Threads: no lock and no thread of its own; the pipe may be used by one thread while another sends requests. Calls
/// that belong together, as an announcement and its data do within one call here, must not be mixed by two threads.
/// Every call blocks until its data have moved or failed; flash and FPGA calls move 2048 bytes in one transfer and so
/// take seconds for a whole bitstream.
class FxTreeDevice {
public:
    /// Without a device (null) every transfer fails.
    explicit FxTreeDevice(std::unique_ptr<usb::LibUSBDevice> device);

    /// Writes to the FPGA in one transfer. @return true unless nothing moved; true also for a failed transfer
    bool writeGpif(const std::vector<std::uint8_t>& data);

    /// Reads from the FPGA in one transfer. @return `size` bytes, zeros where nothing arrived or the transfer failed
    /// @throws std::length_error for a negative size
    std::vector<std::uint8_t> readGpif(int size);

    /// Writes to the flash, whose sectors were erased before.
    /// @param address  in bytes, its 32 bits as they are
    /// @throws std::runtime_error "Program Flash failed 1 : impossibile to send write control transfer" for the
    ///         announcement, "Program Flash failed 2: impossibile to send write control transfer" for data
    void writeSpiFlash(const std::vector<std::uint8_t>& data, int address);

    /// Reads `size` bytes from the flash; asks the board for whole chunks of 2048 and drops what is too much. Bytes
    /// that a short transfer left out are zeros.
    /// @throws std::runtime_error "Read Flash failed: impossibile to send write control transfer" for the announcement,
    ///         "Program Flash failed: impossibile to send read control transfer" for data
    /// @throws std::length_error for a negative size, with nothing sent
    std::vector<std::uint8_t> readSpiFlash(int size, int address);

    /// Sets a flash sector of 64 KiB to 0xFF. Returns before the flash is done with it.
    /// @param sector  its low 16 bits count
    /// @throws std::runtime_error "Erase Flash failed: impossible to send write control transfer"
    void eraseSpiFlash(int sector);

    /// Configures the FPGA with a bitstream.
    /// @throws std::runtime_error "FPGA PROGRAM: impossible to send write control transfer" for the announcement,
    ///         "Program FPGA failed: impossible to send write control transfer" for data
    void programFpgaPc(const std::vector<std::uint8_t>& data);

    /// Configures the FPGA from the flash. The board gets the first number, and the second plus 5.
    /// @throws std::runtime_error "FPGA FLASH: impossible to send write control transfer"
    void configFpgaFromFlash(int first, int second);

    /// Resets the logic in the FPGA.
    /// @throws std::runtime_error "Reset FPGA failed: impossible to send write control transfer"
    void resetFpgaFromPc();

private:
    int write(const usb::Request& request, std::span<const std::uint8_t> data, std::uint32_t argument = 0);
    int read(const usb::Request& request, std::span<std::uint8_t> data);
    void announce(const usb::Request& request, std::uint32_t first, std::uint32_t second, const char* failureText);
    void writeInChunks(const usb::Request& request, std::span<const std::uint8_t> data, const char* failureText);

    std::unique_ptr<usb::LibUSBDevice> device;
};

} // namespace fxtree
