#include "emulation/boards/BoardLogic.h"

#include <algorithm>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>

#include "util/LittleEndian.h"

namespace emulation {

BoardLogic::BoardLogic(BoardCounters& boardCounters, Problems& boardProblems)
    : counters(boardCounters), problems(boardProblems)
{}

void BoardLogic::setModule(int id, std::shared_ptr<Module> module)
{
    if (id < 0 || id >= Packet::modules)
        throw std::invalid_argument("module " + std::to_string(id) + ": ids are 0 to 63");
    modules[static_cast<std::size_t>(id)] = std::move(module);
}

void BoardLogic::setCreditLimit(std::optional<std::uint32_t> limit)
{
    creditLimit = limit;
    creditReturned = true;
}

void BoardLogic::take(std::span<const std::uint8_t> blocks)
{
    if (blocks.size() % blockSize != 0)
        problems.note("a write of " + std::to_string(blocks.size()) + " bytes isn't made of blocks of 1024");
    for (; !blocks.empty(); blocks = blocks.subspan(std::min(blocks.size(), blockSize))) {
        const auto block = blocks.first(std::min(blocks.size(), blockSize));
        for (std::size_t at = 0; at + 4 <= block.size();) {
            if (missing == 0) {
                const std::size_t words = begin(util::readLittleEndian<std::uint32_t>(block, at));
                if (words == 0)
                    break;
                at += 4;
                continue;
            }
            const std::size_t count = std::min(missing, (block.size() - at) & ~std::size_t{3});
            const std::size_t kept = std::min(count, current.size - std::min<std::size_t>(position, current.size));
            std::copy_n(block.begin() + static_cast<std::ptrdiff_t>(at), kept,
                        current.bytes.begin() + static_cast<std::ptrdiff_t>(position));
            position += count;
            missing -= count;
            at += count;
            if (missing == 0)
                finish();
        }
    }
}

// Starts the packet with this header. Returns its words; 0: nothing more comes in this block.
std::size_t BoardLogic::begin(std::uint32_t header)
{
    if (header == 0)
        return 0;
    const bool empty = header == packet_header::empty;
    const auto packet = empty ? Packet() : packetFor(header);
    if (!packet) {
        ++counters.malformedPackets;
        problems.note("a header contradicts itself: " + std::to_string(header));
        return 0;
    }
    const std::size_t words = empty ? 1 : packet->words();
    dropping = granted < static_cast<std::int64_t>(words);
    if (dropping) {
        counters.wordsBeyondCredit += words;
        problems.note("a packet of " + std::to_string(words) + " words goes beyond the credit, of which " +
                      std::to_string(granted) + " are left");
    } else {
        granted -= static_cast<std::int64_t>(words);
        creditReturned = true;
    }
    if (empty) {
        ++counters.emptyPackets;
        return words;
    }
    current = *packet;
    position = 0;
    missing = (words - 1) * 4;
    return words;
}

void BoardLogic::finish()
{
    if (dropping)
        return;
    const auto module = modules[current.module]; // kept while it runs
    if (!module) {
        ++counters.unclaimedPackets;
        problems.note("there is no module " + std::to_string(current.module) + " that could take a packet");
        return;
    }
    ++counters.packetsFromHost;
    counters.wordsFromHost += current.words();
    module->receive(current, *this);
}

void BoardLogic::send(const Packet& packet)
{
    const std::uint32_t header = packet.header();
    const bool accepted = packet.format == PacketFormat::events || packet.format == PacketFormat::raw;
    if (packet.size == 0 || packet.size > Packet::capacity || header == 0 || !accepted)
        throw std::logic_error("a module sends a packet that no host can take");
    if (waiting().size() + packet.words() > mostWaiting) {
        ++counters.lostPackets;
        return;
    }
    outgoing.push_back(header);
    for (std::size_t at = 0; at < packet.size; at += 4)
        outgoing.push_back(static_cast<std::uint32_t>(packet.value(at, 4)));
    ++counters.packetsToHost;
    counters.wordsToHost += packet.words();
}

// Half of the room stays for the host, whatever modules send by themselves.
std::size_t BoardLogic::freeWords() const
{
    return creditRoom / 2 - std::min<std::size_t>(waiting().size(), creditRoom / 2);
}

void BoardLogic::advance(Time now)
{
    for (std::size_t id = 0; id < modules.size(); ++id) {
        const auto& module = modules[id];
        const auto before = modules.begin() + static_cast<std::ptrdiff_t>(id);
        if (module && std::find(modules.begin(), before, module) == before)
            module->advance(now, *this);
    }
}

std::uint32_t BoardLogic::credit() const
{
    const auto taken = static_cast<std::uint32_t>(std::min<std::size_t>(waiting().size(), creditRoom));
    return std::min(creditRoom - taken, creditLimit.value_or(creditRoom));
}

void BoardLogic::fill(std::span<std::uint8_t> blocks)
{
    std::fill(blocks.begin(), blocks.end(), std::uint8_t{0});
    const std::size_t count = blocks.size() / blockSize;
    for (std::size_t block = 0; block < count; ++block) {
        const auto words = waiting();
        const std::size_t taken = std::min(words.size(), blockWords - 1);
        for (std::size_t i = 0; i < taken; ++i)
            util::writeLittleEndian(blocks, block * blockSize + 4 * (i + 1), words[i]);
        sent += taken;
    }
    // computed last, so that it includes the room of these very blocks; a host uses the last block's credit
    granted = credit();
    for (std::size_t block = 0; block < count; ++block)
        util::writeLittleEndian(blocks, block * blockSize, static_cast<std::uint32_t>(granted));
    creditReturned = false;
    counters.blocksToHost += count;
    if (2 * sent >= outgoing.size()) { // so words are rarely moved
        outgoing.erase(outgoing.begin(), outgoing.begin() + static_cast<std::ptrdiff_t>(sent));
        sent = 0;
    }
}

void BoardLogic::reset()
{
    missing = 0;
    granted = 0;
    outgoing.clear();
    sent = 0;
    creditReturned = false;
    std::set<Module*> done;
    for (const auto& module : modules)
        if (module && done.insert(module.get()).second)
            module->reset();
}

} // namespace emulation
