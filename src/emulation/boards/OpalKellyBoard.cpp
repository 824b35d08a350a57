#include "emulation/boards/OpalKellyBoard.h"

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <utility>

#include "util/LittleEndian.h"

namespace emulation {
namespace {

enum Request : std::uint8_t {
    configureRequest = 0xC0,
    wireInRequest = 0xC2,
    wireOutRequest = 0xC3,
    pipeRequest = 0xC6
};

constexpr std::size_t wireBytes = OpalKellyBoard::wires * 4;
constexpr std::uint32_t runBit = 1; // of wire-in 0

// The setup block of a pipe, 32 bytes: the fields that vary, and the constant bytes of all others.
constexpr std::size_t pipeBlockSize = 32;
constexpr std::size_t lengthOffset = 0, blockSizeOffset = 4, pipeOffset = 14; // 16, 16 and 8 bits
constexpr std::array<std::uint8_t, pipeBlockSize> pipeBlock = [] {
    std::array<std::uint8_t, pipeBlockSize> block{};
    block[6] = 12;
    block[10] = 1;
    block[19] = 1;
    block[24] = 1;
    return block;
}();

struct PipeLimits {
    std::uint8_t first, last; // addresses
    std::size_t mostInChunk, largestBlock;
    std::uint8_t present;
};
constexpr PipeLimits writeLimits{0x80, 0x9F, 1024, 1024, OpalKellyBoard::writePipe};
constexpr PipeLimits readLimits{0xA0, 0xBF, 16384, 16384, OpalKellyBoard::readPipe};

// The block that announces a configuration, 4096 bytes, zero except for two words.
constexpr std::size_t configurationBlockSize = 4096, magicOffset = 0, sizeOffset = 8;
constexpr std::uint32_t magic = 0xBE097C3D;

// Of four bytes in a configuration this one counts, the others are 0.
constexpr std::size_t stride = 4, usedByte = 1;
constexpr std::uint8_t firstByte = 0xFF; // a bitstream's

} // namespace

OpalKellyBoard::OpalKellyBoard(std::string serialNumber, bool running, Clock boardClock)
    : Board("emulated Opal Kelly board", std::move(serialNumber), running, std::move(boardClock))
{
    wireIns[0] = running ? runBit : 0;
}

void OpalKellyBoard::forget()
{
    wireIns.fill(0);
    wireIns[0] = configuredAtPowerUp ? runBit : 0;
    announcedRead = announcedWrite = 0;
    incoming.clear();
    incomingSize = incomingTaken = 0;
}

bool OpalKellyBoard::isRunning() const { return configured && (wireIns[0] & runBit) != 0; }

int OpalKellyBoard::stall(std::string problem) { return refuse(std::move(problem), EPIPE); }

int OpalKellyBoard::controlTransfer(const Setup& setup, std::span<std::uint8_t> data)
{
    const util::Lock lock(mutex);
    ++counted.controlTransfers;
    return perform(setup, data);
}

int OpalKellyBoard::perform(const Setup& setup, std::span<std::uint8_t> data)
{
    const bool reads = (setup.bmRequestType & 0x80) != 0;
    if (setup.bRequest == configureRequest && !reads && setup.wValue == 1)
        return beginConfiguration(data);
    const bool wires = setup.bRequest == (reads ? wireOutRequest : wireInRequest) && setup.wValue == 0;
    const bool pipe = setup.bRequest == pipeRequest && !reads && setup.wValue <= 1;
    if (!wires && !pipe)
        return stall("the board has no request " + std::to_string(setup.bRequest) + " with value " +
                     std::to_string(setup.wValue) + (reads ? " that reads" : " that writes"));
    if (!configured)
        return stall(std::string(wires ? "wires" : "a pipe") + " of an FPGA that isn't configured");
    if (pipe)
        return setUpPipe(data, setup.wValue == 1);
    if (data.size() != wireBytes)
        return stall("an update of wires with " + std::to_string(data.size()) + " bytes instead of 128");
    return reads ? tellWireOuts(data) : updateWireIns(data);
}

int OpalKellyBoard::updateWireIns(std::span<const std::uint8_t> data)
{
    for (std::size_t i = 0; i < wires; ++i)
        wireIns[i] = util::readLittleEndian<std::uint32_t>(data, 4 * i);
    if (!isRunning())
        logic.reset();
    ++updates;
    return static_cast<int>(data.size());
}

int OpalKellyBoard::tellWireOuts(std::span<std::uint8_t> data) const
{
    for (std::size_t i = 0; i < wires; ++i)
        util::writeLittleEndian(data, 4 * i, wireOuts[i]);
    return static_cast<int>(data.size());
}

int OpalKellyBoard::setUpPipe(std::span<const std::uint8_t> data, bool reads)
{
    if (data.size() != pipeBlockSize)
        return stall("a pipe's setup of " + std::to_string(data.size()) + " bytes instead of 32");
    const PipeLimits& limits = reads ? readLimits : writeLimits;
    const std::size_t length = util::readLittleEndian<std::uint16_t>(data, lengthOffset);
    const std::size_t blockSize = util::readLittleEndian<std::uint16_t>(data, blockSizeOffset);
    const std::uint8_t pipe = data[pipeOffset];
    auto rest = pipeBlock;
    util::writeLittleEndian(std::span(rest), lengthOffset, static_cast<std::uint16_t>(length));
    util::writeLittleEndian(std::span(rest), blockSizeOffset, static_cast<std::uint16_t>(blockSize));
    rest[pipeOffset] = pipe;
    const std::string name = "pipe " + std::to_string(pipe);
    if (!std::equal(rest.begin(), rest.end(), data.begin()))
        return stall("the setup of " + name + " has other bytes than it should");
    if (pipe < limits.first || pipe > limits.last)
        return stall(name + (reads ? " can't be read" : " can't be written"));
    if (pipe != limits.present)
        return stall("there is no " + name);
    if (length == 0 || length > limits.mostInChunk || blockSize == 0 || blockSize > limits.largestBlock ||
        length % blockSize != 0)
        return stall(name + ": " + std::to_string(length) + " bytes in blocks of " + std::to_string(blockSize));
    if (announcedWrite != 0)
        noted.note("a pipe's " + std::to_string(announcedWrite) + " announced bytes never came");
    announcedRead = reads ? length : 0;
    announcedWrite = reads ? 0 : length;
    return static_cast<int>(data.size());
}

int OpalKellyBoard::beginConfiguration(std::span<const std::uint8_t> data)
{
    if (data.size() != configurationBlockSize)
        return stall("the setup of a configuration has " + std::to_string(data.size()) + " bytes instead of 4096");
    const std::size_t size = util::readLittleEndian<std::uint32_t>(data, sizeOffset);
    std::vector<std::uint8_t> expected(configurationBlockSize);
    util::writeLittleEndian(std::span(expected), magicOffset, magic);
    util::writeLittleEndian(std::span(expected), sizeOffset, static_cast<std::uint32_t>(size));
    if (!std::equal(expected.begin(), expected.end(), data.begin()))
        return stall("the setup of a configuration has other bytes than it should");
    if (size > largestConfiguration || size % stride != 0)
        return stall("a configuration of " + std::to_string(size) + " bytes");
    if (size == 0)
        noted.note("a configuration of no bytes");
    configured = false; // the old one is lost, even if this one fails
    wireIns.fill(0);
    announcedRead = announcedWrite = 0;
    logic.reset();
    incoming.clear();
    incomingSize = size;
    incomingTaken = 0;
    incomingGood = true;
    return static_cast<int>(data.size());
}

int OpalKellyBoard::takeConfiguration(std::span<const std::uint8_t> data)
{
    if (data.size() > incomingSize - incomingTaken)
        return stall("a configuration with " + std::to_string(data.size() - (incomingSize - incomingTaken)) +
                     " bytes more than announced");
    ++counted.bulkTransfers;
    for (const std::uint8_t byte : data) {
        if (incomingTaken++ % stride == usedByte)
            incoming.push_back(byte);
        else
            incomingGood = incomingGood && byte == 0;
    }
    if (incomingTaken == incomingSize && !incoming.empty()) {
        if (!incomingGood || incoming.front() != firstByte)
            noted.note("a configuration that isn't one: each byte of a bitstream stands between one zero and two, and "
                       "the first is 0xFF");
        else
            configured = true;
        bitstreamBytes = std::exchange(incoming, {});
    }
    return static_cast<int>(data.size());
}

int OpalKellyBoard::takePipe(std::span<const std::uint8_t> data)
{
    const std::size_t announced = std::exchange(announcedWrite, 0);
    if (data.size() != announced)
        return stall("a pipe gets " + std::to_string(data.size()) + " bytes where " + std::to_string(announced) +
                     " were announced");
    takeBlocks(data, isRunning());
    return static_cast<int>(data.size());
}

int OpalKellyBoard::bulkOut(std::uint8_t endpoint, std::span<const std::uint8_t> data)
{
    int result = 0;
    {
        const util::Lock lock(mutex);
        result = endpoint == configurationEndpoint ? takeConfiguration(data) : takePipe(data);
    }
    wakeIfNews();
    return result;
}

int OpalKellyBoard::bulkIn(std::uint8_t, std::span<std::uint8_t> data)
{
    const util::Lock lock(mutex);
    if (announcedRead == 0)
        return stall("a pipe is read without a setup");
    if (data.size() < announcedRead) {
        announcedRead = 0;
        return refuse("a pipe is asked for less than was announced", EOVERFLOW);
    }
    const int result = answerBlocks(data.first(announcedRead), isRunning());
    if (result != pending)
        announcedRead = 0;
    return result;
}

std::uint32_t OpalKellyBoard::wireIn(int address) const
{
    const util::Lock lock(mutex);
    if (address < 0 || address >= firstWireOut)
        throw std::out_of_range("wire-in " + std::to_string(address) + ": addresses are 0 to 31");
    return wireIns[static_cast<std::size_t>(address)];
}

void OpalKellyBoard::setWireOut(int address, std::uint32_t value)
{
    const util::Lock lock(mutex);
    if (address < firstWireOut || address >= firstWireOut + static_cast<int>(wires))
        throw std::out_of_range("wire-out " + std::to_string(address) + ": addresses are 32 to 63");
    wireOuts[static_cast<std::size_t>(address - firstWireOut)] = value;
}

std::uint64_t OpalKellyBoard::wireUpdates() const
{
    const util::Lock lock(mutex);
    return updates;
}

} // namespace emulation
