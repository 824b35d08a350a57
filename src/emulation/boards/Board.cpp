#include "emulation/boards/Board.h"

#include <cerrno>
#include <stdexcept>
#include <utility>

namespace emulation {

Board::Board(std::string productText, std::string serialNumber, bool configuredAtFirst, Clock boardClock)
    : configuredAtPowerUp(configuredAtFirst), configured(configuredAtFirst), product(std::move(productText)),
      serial(std::move(serialNumber)), clock(std::move(boardClock))
{}

void Board::powerUp()
{
    const util::Lock lock(mutex);
    configured = configuredAtPowerUp;
    bitstreamBytes.clear();
    readWaits = false;
    logic.reset();
    forget();
}

void Board::setModule(int id, std::shared_ptr<Module> module)
{
    const util::Lock lock(mutex);
    logic.setModule(id, std::move(module));
}

void Board::setCreditLimit(std::int64_t words)
{
    if (words < -1 || words > BoardLogic::creditRoom)
        throw std::invalid_argument("a credit limit is -1 (none) to " + std::to_string(BoardLogic::creditRoom) +
                                    ", got " + std::to_string(words));
    {
        const util::Lock lock(mutex);
        logic.setCreditLimit(words < 0 ? std::nullopt : std::optional(static_cast<std::uint32_t>(words)));
    }
    wake();
}

bool Board::isConfigured() const
{
    const util::Lock lock(mutex);
    return configured;
}

std::vector<std::uint8_t> Board::bitstream() const
{
    const util::Lock lock(mutex);
    return bitstreamBytes;
}

BoardCounters Board::counters() const
{
    const util::Lock lock(mutex);
    BoardCounters result = counted;
    result.problems = noted.count();
    return result;
}

std::vector<std::string> Board::problems() const
{
    const util::Lock lock(mutex);
    return noted.texts();
}

std::string Board::text(int index) const
{
    switch (index) {
    case 1:
        return "vorna";
    case 2:
        return product;
    case 3:
        return serial;
    default:
        return {};
    }
}

std::optional<Board::Time> Board::pollAfter() const
{
    const util::Lock lock(mutex);
    return readWaits ? std::optional(lastAnswer + tick) : std::nullopt;
}

void Board::cancelled(std::uint8_t endpoint)
{
    const util::Lock lock(mutex);
    if ((endpoint & 0x80) != 0)
        readWaits = false;
}

int Board::refuse(std::string problem, int code)
{
    ++counted.refusedTransfers;
    noted.note(std::move(problem));
    return -code;
}

int Board::answerBlocks(std::span<std::uint8_t> data, bool running)
{
    if (data.empty() || data.size() % BoardLogic::blockSize != 0)
        return refuse("a read of " + std::to_string(data.size()) + " bytes, where blocks of 1024 are sent", EOVERFLOW);
    const Time now = clock();
    readWaits = false;
    if (!(running && logic.hasNews())) {
        if (now < lastAnswer + tick) {
            readWaits = true;
            return pending;
        }
        if (running)
            logic.advance(now);
    }
    lastAnswer = now;
    if (running)
        logic.fill(data);
    else
        std::fill(data.begin(), data.end(), std::uint8_t{0});
    ++counted.bulkTransfers;
    return static_cast<int>(data.size());
}

void Board::takeBlocks(std::span<const std::uint8_t> data, bool running)
{
    ++counted.bulkTransfers;
    if (running)
        logic.take(data);
    else
        noted.note("blocks for an FPGA that isn't running: " + std::to_string(data.size()) + " bytes dropped");
}

void Board::wakeIfNews()
{
    {
        const util::Lock lock(mutex);
        if (!readWaits || !logic.hasNews())
            return;
    }
    wake();
}

} // namespace emulation
