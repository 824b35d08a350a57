#include "opalkelly/OpalKellyDevice.h"

#include <algorithm>
#include <stdexcept>
#include <thread>
#include <utility>

#include "device/Log.h"
#include "util/LittleEndian.h"
#include "util/ReadFile.h"

namespace opalkelly {
namespace {

constexpr int failed = -1;
constexpr std::size_t maxBitFile = std::size_t{256} << 20;

void logError(const std::string& path, const std::string& reason)
{
    static const device::Log log("opalkelly::OpalKellyDevice");
    log.error("Cannot configure the FPGA from the bit file " + path + ": " + reason);
}

} // namespace

OpalKellyDevice::OpalKellyDevice(std::unique_ptr<usb::LibUSBDevice> openDevice, const std::string& bitFile)
    : device(std::move(openDevice)), wireIns(wireBlockSize), wireOuts(wireBlockSize)
{
    if (!bitFile.empty())
        configure(bitFile);
}

int OpalKellyDevice::configure(const std::string& bitFile)
{
    const std::vector<std::uint8_t> bytes = readConfigBytesFromBitFile(bitFile);
    return device ? opkFlashDevice(*device, bytes) : 0;
}

void OpalKellyDevice::wireInWrite(int address, std::uint32_t value)
{
    if (address >= 0 && address < wireCount) // below 0 there is no buffer either
        util::writeLittleEndian(wireIns, static_cast<std::size_t>(address) * wireBytes, value);
}

std::uint32_t OpalKellyDevice::wireOutRead(int address) const
{
    if (address < firstWireOut || address >= firstWireOut + wireCount)
        return 0;
    const std::size_t at = static_cast<std::size_t>(address - firstWireOut) * wireBytes;
    return util::readLittleEndian<std::uint32_t>(wireOuts, at);
}

int OpalKellyDevice::controlWrite(const usb::Request& request, std::span<const std::uint8_t> data) const
{
    return device ? device->controlWrite(request.setup(), data, request.timeoutMs) : failed;
}

bool OpalKellyDevice::updateWireIns() const { return controlWrite(writeWireIns, wireIns) > 0; }

bool OpalKellyDevice::updateWireOuts()
{
    return device && device->controlRead(wireReadSetupPacket, wireOuts, readWireOuts.timeoutMs) > 0;
}

bool OpalKellyDevice::setUpPipe(const usb::Request& request, int pipe, int blockSize, std::size_t length) const
{
    std::vector<std::uint8_t> block = pipeSetupTemplate;
    util::writeLittleEndian(block, pipeSetupLengthAt, static_cast<std::uint16_t>(length));
    util::writeLittleEndian(block, pipeSetupBlockSizeAt, static_cast<std::uint16_t>(blockSize));
    util::writeLittleEndian(block, pipeSetupPipeAt, static_cast<std::uint8_t>(pipe));
    return controlWrite(request, block) == static_cast<int>(block.size());
}

bool OpalKellyDevice::writeToBlockPipeIn(std::uint8_t pipe, int blockSize, const std::vector<std::uint8_t>& data) const
{
    if (!pipeIn.has(pipe) || blockSize < 1 || blockSize > pipeIn.maxChunk)
        return false;
    if (data.size() % static_cast<std::size_t>(blockSize) != 0)
        return false;
    for (std::span<const std::uint8_t> rest(data); !rest.empty();) {
        const auto chunk = rest.first(std::min(rest.size(), static_cast<std::size_t>(pipeIn.maxChunk)));
        if (!setUpPipe(setUpPipeWrite, pipe, blockSize, chunk.size()))
            return false;
        if (device->bulkWrite(pipeInEndpoint, chunk, bulkTimeoutMs) != static_cast<int>(chunk.size()))
            return false;
        rest = rest.subspan(chunk.size());
    }
    return true;
}

std::vector<std::uint8_t> OpalKellyDevice::readFromBlockPipeOut(int pipe, int blockSize, int length) const
{
    // The board has 16 bits for a block size, so this is the number that the length is measured by.
    const int divisor = static_cast<std::int16_t>(blockSize);
    if (!pipeOut.has(pipe) || blockSize > pipeOut.maxChunk || divisor == 0)
        return {};
    if (length < 0)
        throw std::length_error("readFromBlockPipeOut: negative length " + std::to_string(length));
    if (length % divisor != 0)
        return {};
    std::vector<std::uint8_t> data(static_cast<std::size_t>(length));
    for (std::span<std::uint8_t> rest(data); !rest.empty();) {
        const auto chunk = rest.first(std::min(rest.size(), static_cast<std::size_t>(pipeOut.maxChunk)));
        if (!setUpPipe(setUpPipeRead, pipe, blockSize, chunk.size()))
            return {};
        if (device->bulkRead(pipeOutEndpoint, chunk, bulkTimeoutMs) != static_cast<int>(chunk.size()))
            return {};
        rest = rest.subspan(chunk.size());
    }
    return data;
}

std::vector<std::uint8_t> generateFlashSetupBytes(std::size_t size)
{
    std::vector<std::uint8_t> block(flashSetupSize);
    util::writeLittleEndian(block, flashSetupMarkAt, flashSetupMark);
    util::writeLittleEndian(block, flashSetupSizeAt, static_cast<std::uint32_t>(size));
    return block;
}

std::vector<std::uint8_t> readConfigBytesFromBitFile(const std::string& path)
{
    const auto [bytes, error] = util::readFile(path, maxBitFile + 1);
    if (!error.empty() || bytes.size() > maxBitFile) {
        logError(path, error.empty() ? "it has more than 256 MiB" : error);
        return {};
    }
    const auto begin = std::find(bytes.begin(), bytes.end(), std::uint8_t{0xFF});
    if (begin == bytes.end()) {
        logError(path, "it has no byte 0xFF, at which the configuration would begin");
        return {};
    }
    // the board takes a 32-bit word for each byte, with the byte in bits 8 to 15
    std::vector<std::uint8_t> words(static_cast<std::size_t>(bytes.end() - begin) * 4);
    for (std::size_t i = 0; i < words.size() / 4; ++i)
        words[i * 4 + 1] = begin[static_cast<std::ptrdiff_t>(i)];
    return words;
}

void waitInFull(std::chrono::milliseconds time) { std::this_thread::sleep_for(time); }

int opkFlashDevice(usb::LibUSBDevice& device, const std::vector<std::uint8_t>& bytes,
                   void (*wait)(std::chrono::milliseconds))
{
    constexpr std::chrono::milliseconds settling(500);
    const std::vector<std::uint8_t> announcement = generateFlashSetupBytes(bytes.size());
    wait(settling);
    device.controlWrite(setUpConfiguration.setup(), announcement, setUpConfiguration.timeoutMs); // result ignored
    wait(settling);
    return usbBlockWrite(device, configurationEndpoint, bytes, static_cast<int>(maxConfigurationChunk));
}

int usbBlockWrite(usb::LibUSBDevice& device, std::uint8_t endpoint, std::span<const std::uint8_t> bytes, int blockSize)
{
    if (!bytes.empty() && blockSize < 1)
        return 0;
    while (!bytes.empty()) {
        const auto chunk = bytes.first(std::min(bytes.size(), static_cast<std::size_t>(blockSize)));
        if (device.bulkWrite(endpoint, chunk, bulkTimeoutMs) == 0)
            return 0;
        bytes = bytes.subspan(chunk.size());
    }
    return 1;
}

} // namespace opalkelly
