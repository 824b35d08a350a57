#include "emulation/boards/DevKit.h"

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <utility>

#include "util/LittleEndian.h"

namespace emulation {
namespace {

constexpr std::uint8_t erased = 0xFF;
constexpr std::size_t announcement = 8; // bytes: two words

std::uint32_t firstWord(std::span<const std::uint8_t> data) { return util::readLittleEndian<std::uint32_t>(data, 0); }
std::uint32_t secondWord(std::span<const std::uint8_t> data) { return util::readLittleEndian<std::uint32_t>(data, 4); }

bool inFlash(std::size_t address, std::size_t size)
{
    return address <= DevKit::flashSize && size <= DevKit::flashSize - address;
}

std::string bytesAt(std::size_t size, std::size_t address)
{
    return std::to_string(size) + " bytes at " + std::to_string(address);
}

} // namespace

struct DevKit::Request {
    std::uint8_t code;
    bool reads;
    std::uint16_t value;
    std::size_t least, most; // bytes of data
    const char* name;
    int (DevKit::*act)(const Setup&, std::span<std::uint8_t>);
};

const DevKit::Request DevKit::requests[] = {
    // code reads value  least         most           name
    {0xB0, false, 1, 0, 0, "erasing a sector", &DevKit::eraseSector},
    {0xB1, false, 1, announcement, announcement, "announcing a flash write", &DevKit::announceFlashWrite},
    {0xB1, false, 0, 0, mostInRequest, "writing flash", &DevKit::writeFlash},
    {0xB2, false, 1, announcement, announcement, "announcing a flash read", &DevKit::announceFlashRead},
    {0xB2, true, 0, 0, mostInRequest, "reading flash", &DevKit::readFlash},
    {0xC0, false, 1, announcement, announcement, "announcing a bitstream", &DevKit::announceBitstream},
    {0xC0, false, 0, 0, mostInRequest, "sending a bitstream", &DevKit::takeBitstream},
    {0xC1, false, 1, announcement, announcement, "configuring from flash", &DevKit::configureFromFlash},
    {0xC2, true, 1, announcement, announcement, "asking for the configuration", &DevKit::tellConfiguration},
    {0xC3, false, 1, 0, 0, "resetting the FPGA", &DevKit::resetFpga},
};

DevKit::DevKit(std::string serialNumber, bool hasConfiguration, Clock boardClock)
    : Board("emulated dev kit", std::move(serialNumber), hasConfiguration, std::move(boardClock)),
      flashBytes(flashSize, erased)
{}

void DevKit::forget()
{
    flashWrite = flashRead = {};
    incoming.clear();
    incomingLeft = 0;
}

int DevKit::controlTransfer(const Setup& setup, std::span<std::uint8_t> data)
{
    const util::Lock lock(mutex);
    ++counted.controlTransfers;
    return perform(setup, data);
}

int DevKit::perform(const Setup& setup, std::span<std::uint8_t> data)
{
    const bool reads = (setup.bmRequestType & 0x80) != 0;
    for (const Request& request : requests) {
        if (request.code != setup.bRequest || request.reads != reads || request.value != setup.wValue)
            continue;
        if (data.size() < request.least || data.size() > request.most)
            return stall(std::string(request.name) + " with " + std::to_string(data.size()) + " bytes of data");
        return (this->*request.act)(setup, data);
    }
    return stall("the firmware has no request " + std::to_string(setup.bRequest) + " with value " +
                 std::to_string(setup.wValue) + (reads ? " that reads" : " that writes"));
}

int DevKit::stall(std::string problem) { return refuse(std::move(problem), EPIPE); }

int DevKit::eraseSector(const Setup& setup, std::span<std::uint8_t>)
{
    const std::size_t address = setup.wIndex * sectorSize;
    if (!inFlash(address, sectorSize))
        return stall("the flash has no sector " + std::to_string(setup.wIndex));
    std::fill_n(flashBytes.begin() + static_cast<std::ptrdiff_t>(address), sectorSize, erased);
    ++flashCounted.erasedSectors;
    return 0;
}

// Data that were announced and never came are noted when something else begins.
void DevKit::noteUnfinished()
{
    if (const std::size_t left = std::exchange(flashWrite.left, 0); left > 0)
        noted.note("a flash write ended " + std::to_string(left) + " bytes early");
    if (const std::size_t left = std::exchange(incomingLeft, 0); left > 0)
        noted.note("a bitstream ended " + std::to_string(left) + " bytes early");
}

int DevKit::announceFlashWrite(const Setup&, std::span<std::uint8_t> data)
{
    noteUnfinished();
    const std::size_t size = firstWord(data), address = secondWord(data);
    if (!inFlash(address, size))
        return stall("a flash write beyond its end: " + bytesAt(size, address));
    flashWrite = {address, size};
    return static_cast<int>(data.size());
}

int DevKit::writeFlash(const Setup&, std::span<std::uint8_t> data)
{
    if (data.size() > flashWrite.left)
        return stall("a flash write of " + std::to_string(data.size() - flashWrite.left) +
                     " bytes more than announced");
    std::uint64_t spoiled = 0;
    for (std::size_t i = 0; i < data.size(); ++i) {
        std::uint8_t& byte = flashBytes[flashWrite.address + i];
        byte = byte & data[i];
        spoiled += byte != data[i] ? 1 : 0;
    }
    if (spoiled > 0)
        noted.note("a flash write where it isn't erased spoiled " + std::to_string(spoiled) + " of " +
                   bytesAt(data.size(), flashWrite.address));
    flashCounted.spoiledBytes += spoiled;
    flashCounted.programmedBytes += data.size();
    flashWrite.address += data.size();
    flashWrite.left -= data.size();
    return static_cast<int>(data.size());
}

int DevKit::announceFlashRead(const Setup&, std::span<std::uint8_t> data)
{
    noteUnfinished();
    const std::size_t size = firstWord(data), address = secondWord(data);
    if (!inFlash(address, size))
        return stall("a flash read beyond its end: " + bytesAt(size, address));
    flashRead = {address, size};
    return static_cast<int>(data.size());
}

// A host may ask for more in the last request than it announced: it gets what lies there, up to the flash's end.
int DevKit::readFlash(const Setup&, std::span<std::uint8_t> data)
{
    if (flashRead.left == 0)
        return stall("a flash read that wasn't announced");
    const std::size_t count = std::min(data.size(), flashSize - flashRead.address);
    std::copy_n(flashBytes.begin() + static_cast<std::ptrdiff_t>(flashRead.address), count, data.begin());
    flashRead.address += count;
    flashRead.left -= std::min(count, flashRead.left);
    return static_cast<int>(count);
}

int DevKit::announceBitstream(const Setup&, std::span<std::uint8_t> data)
{
    noteUnfinished();
    const std::size_t size = firstWord(data);
    configured = false; // programming begins, even if it then fails
    logic.reset();
    if (size != secondWord(data))
        return stall("a bitstream announced with two sizes, " + std::to_string(size) + " and " +
                     std::to_string(secondWord(data)));
    if (size == 0 || size > largestBitstream)
        return stall("a bitstream of " + std::to_string(size) + " bytes");
    incoming.clear();
    incomingLeft = size;
    return static_cast<int>(data.size());
}

int DevKit::takeBitstream(const Setup&, std::span<std::uint8_t> data)
{
    if (data.size() > incomingLeft)
        return stall("a bitstream with " + std::to_string(data.size() - incomingLeft) + " bytes more than announced");
    incoming.insert(incoming.end(), data.begin(), data.end());
    incomingLeft -= data.size();
    if (incomingLeft == 0 && !incoming.empty()) {
        bitstreamBytes = std::exchange(incoming, {});
        configured = true;
    }
    return static_cast<int>(data.size());
}

int DevKit::configureFromFlash(const Setup&, std::span<std::uint8_t> data)
{
    noteUnfinished();
    const std::size_t size = firstWord(data), address = secondWord(data);
    if (size == 0 || !inFlash(address, size))
        return stall("an FPGA configuration outside the flash: " + bytesAt(size, address));
    const auto begin = flashBytes.begin() + static_cast<std::ptrdiff_t>(address);
    const auto end = begin + static_cast<std::ptrdiff_t>(size);
    logic.reset();
    configured = std::any_of(begin, end, [](std::uint8_t byte) { return byte != erased; });
    if (configured)
        bitstreamBytes.assign(begin, end);
    else
        noted.note("an FPGA configuration from erased flash: " + bytesAt(size, address));
    return static_cast<int>(data.size());
}

// Two words: whether the FPGA is configured, and with how many bytes.
int DevKit::tellConfiguration(const Setup&, std::span<std::uint8_t> data)
{
    util::writeLittleEndian(data, 0, std::uint32_t{configured});
    util::writeLittleEndian(data, 4, static_cast<std::uint32_t>(configured ? bitstreamBytes.size() : 0));
    return static_cast<int>(data.size());
}

int DevKit::resetFpga(const Setup&, std::span<std::uint8_t>)
{
    ++resets;
    logic.reset();
    return 0;
}

int DevKit::bulkOut(std::uint8_t, std::span<const std::uint8_t> data)
{
    {
        const util::Lock lock(mutex);
        takeBlocks(data, configured);
    }
    wakeIfNews();
    return static_cast<int>(data.size());
}

int DevKit::bulkIn(std::uint8_t, std::span<std::uint8_t> data)
{
    const util::Lock lock(mutex);
    return answerBlocks(data, configured);
}

std::vector<std::uint8_t> DevKit::flash(std::size_t address, std::size_t size) const
{
    const util::Lock lock(mutex);
    if (!inFlash(address, size))
        throw std::out_of_range("the flash of 16 MiB has no " + bytesAt(size, address));
    const auto begin = flashBytes.begin() + static_cast<std::ptrdiff_t>(address);
    return {begin, begin + static_cast<std::ptrdiff_t>(size)};
}

void DevKit::setFlash(std::size_t address, std::span<const std::uint8_t> bytes)
{
    const util::Lock lock(mutex);
    if (!inFlash(address, bytes.size()))
        throw std::out_of_range("the flash of 16 MiB has no " + bytesAt(bytes.size(), address));
    std::copy(bytes.begin(), bytes.end(), flashBytes.begin() + static_cast<std::ptrdiff_t>(address));
}

DevKit::FlashCounters DevKit::flashCounters() const
{
    const util::Lock lock(mutex);
    return flashCounted;
}

std::uint64_t DevKit::fpgaResets() const
{
    const util::Lock lock(mutex);
    return resets;
}

} // namespace emulation
