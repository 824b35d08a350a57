#include "fxtree/FxTreeDevice.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>
#include <utility>

#include "util/LittleEndian.h"

namespace fxtree {
namespace {

// The one result that the calls below take for a failure; others below 0 pass.
constexpr int failed = -1;

// Scripts have met these texts for years; the spelling stays.
namespace texts {
constexpr const char* announceFlashWrite = "Program Flash failed 1 : impossibile to send write control transfer";
constexpr const char* writeFlash = "Program Flash failed 2: impossibile to send write control transfer";
constexpr const char* announceFlashRead = "Read Flash failed: impossibile to send write control transfer";
constexpr const char* readFlash = "Program Flash failed: impossibile to send read control transfer";
constexpr const char* erase = "Erase Flash failed: impossible to send write control transfer";
constexpr const char* announceFpgaProgram = "FPGA PROGRAM: impossible to send write control transfer";
constexpr const char* writeFpga = "Program FPGA failed: impossible to send write control transfer";
constexpr const char* configureFromFlash = "FPGA FLASH: impossible to send write control transfer";
constexpr const char* resetFpga = "Reset FPGA failed: impossible to send write control transfer";
} // namespace texts

void throwIfFailed(int result, const char* text)
{
    if (result == failed)
        throw std::runtime_error(text);
}

std::size_t checkedSize(const char* function, int size)
{
    if (size < 0)
        throw std::length_error(std::string(function) + ": negative size " + std::to_string(size));
    return static_cast<std::size_t>(size);
}

std::array<std::uint8_t, announcementSize> twoNumbers(std::uint32_t first, std::uint32_t second)
{
    std::array<std::uint8_t, announcementSize> bytes{};
    util::writeLittleEndian(bytes, 0, first);
    util::writeLittleEndian(bytes, 4, second);
    return bytes;
}

} // namespace

FxTreeDevice::FxTreeDevice(std::unique_ptr<usb::LibUSBDevice> openDevice) : device(std::move(openDevice)) {}

int FxTreeDevice::write(const usb::Request& request, std::span<const std::uint8_t> data, std::uint32_t argument)
{
    return device ? device->controlWrite(request.setup(argument), data, request.timeoutMs) : failed;
}

int FxTreeDevice::read(const usb::Request& request, std::span<std::uint8_t> data)
{
    return device ? device->controlRead(request.setup(), data, request.timeoutMs) : failed;
}

void FxTreeDevice::announce(const usb::Request& request, std::uint32_t first, std::uint32_t second,
                            const char* failureText)
{
    throwIfFailed(write(request, twoNumbers(first, second)), failureText);
}

void FxTreeDevice::writeInChunks(const usb::Request& request, std::span<const std::uint8_t> data,
                                 const char* failureText)
{
    while (!data.empty()) {
        const auto chunk = data.first(std::min(data.size(), request.maxBytes));
        throwIfFailed(write(request, chunk), failureText);
        data = data.subspan(chunk.size());
    }
}

bool FxTreeDevice::writeGpif(const std::vector<std::uint8_t>& data)
{
    return (device ? device->bulkWrite(gpifWriteEndpoint, data, gpifTimeoutMs) : failed) != 0;
}

std::vector<std::uint8_t> FxTreeDevice::readGpif(int size)
{
    std::vector<std::uint8_t> data(checkedSize("readGpif", size));
    if (device)
        device->bulkRead(gpifReadEndpoint, data, gpifTimeoutMs); // a failure shows as zeros
    return data;
}

void FxTreeDevice::writeSpiFlash(const std::vector<std::uint8_t>& data, int address)
{
    announce(announceFlashWrite, static_cast<std::uint32_t>(data.size()), static_cast<std::uint32_t>(address),
             texts::announceFlashWrite);
    writeInChunks(writeFlash, data, texts::writeFlash);
}

std::vector<std::uint8_t> FxTreeDevice::readSpiFlash(int size, int address)
{
    const std::size_t wanted = checkedSize("readSpiFlash", size);
    announce(announceFlashRead, static_cast<std::uint32_t>(size), static_cast<std::uint32_t>(address),
             texts::announceFlashRead);
    std::vector<std::uint8_t> data;
    while (data.size() < wanted) {
        std::array<std::uint8_t, readFlash.maxBytes> chunk{};
        throwIfFailed(read(readFlash, chunk), texts::readFlash);
        const std::size_t used = std::min(chunk.size(), wanted - data.size());
        data.insert(data.end(), chunk.begin(), chunk.begin() + static_cast<std::ptrdiff_t>(used));
    }
    return data;
}

void FxTreeDevice::eraseSpiFlash(int sector)
{
    throwIfFailed(write(eraseFlashSector, {}, static_cast<std::uint32_t>(sector)), texts::erase);
}

void FxTreeDevice::programFpgaPc(const std::vector<std::uint8_t>& data)
{
    const auto size = static_cast<std::uint32_t>(data.size());
    announce(announceFpgaProgram, size, size, texts::announceFpgaProgram);
    writeInChunks(writeFpga, data, texts::writeFpga);
}

void FxTreeDevice::configFpgaFromFlash(int first, int second)
{
    announce(configureFpgaFromFlash, static_cast<std::uint32_t>(first),
             static_cast<std::uint32_t>(second) + configurationBias, texts::configureFromFlash);
    std::array<std::uint8_t, readConfigurationStatus.maxBytes> status{};
    read(readConfigurationStatus, status); // the board expects this read; the meaning of its answer is unknown
}

void FxTreeDevice::resetFpgaFromPc() { throwIfFailed(write(resetFpga, {}), texts::resetFpga); }

} // namespace fxtree
