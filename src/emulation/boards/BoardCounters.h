#pragma once
// What a board has counted since it was made.

#include <cstdint>

#include "trovi/Reflect.h"

namespace emulation {

struct BoardCounters {
    std::uint64_t controlTransfers = 0;
    std::uint64_t bulkTransfers = 0;
    std::uint64_t refusedTransfers = 0;
    std::uint64_t blocksToHost = 0;
    std::uint64_t packetsToHost = 0;
    std::uint64_t wordsToHost = 0;
    std::uint64_t packetsFromHost = 0;
    std::uint64_t wordsFromHost = 0;
    std::uint64_t emptyPackets = 0;
    std::uint64_t malformedPackets = 0;
    std::uint64_t unclaimedPackets = 0;
    std::uint64_t wordsBeyondCredit = 0;
    std::uint64_t lostPackets = 0;
    std::uint64_t problems = 0;

    friend bool operator==(const BoardCounters&, const BoardCounters&) = default;
};

} // namespace emulation

template <>
constexpr auto trovi::registerMembers<emulation::BoardCounters>()
{
    using emulation::BoardCounters;
    return members(
        member("controlTransfers", &BoardCounters::controlTransfers, "control requests that reached the board"),
        member("bulkTransfers", &BoardCounters::bulkTransfers, "bulk transfers that the board completed"),
        member("refusedTransfers", &BoardCounters::refusedTransfers, "transfers that the board ended with an error"),
        member("blocksToHost", &BoardCounters::blocksToHost,
               "blocks of 1024 bytes sent, most of them with credit alone"),
        member("packetsToHost", &BoardCounters::packetsToHost, "packets that modules sent"),
        member("wordsToHost", &BoardCounters::wordsToHost, "32-bit words of these, headers included"),
        member("packetsFromHost", &BoardCounters::packetsFromHost, "packets that modules received"),
        member("wordsFromHost", &BoardCounters::wordsFromHost, "32-bit words of these, headers included"),
        member("emptyPackets", &BoardCounters::emptyPackets, "packets from the host without payload"),
        member("malformedPackets", &BoardCounters::malformedPackets,
               "headers from the host that contradict themselves; the rest of their block was dropped"),
        member("unclaimedPackets", &BoardCounters::unclaimedPackets,
               "packets for a module that the board doesn't have"),
        member("wordsBeyondCredit", &BoardCounters::wordsBeyondCredit,
               "32-bit words that the host sent beyond the board's credit; their packets were dropped"),
        member("lostPackets", &BoardCounters::lostPackets,
               "packets that found no room on their way to the host, since it read too little"),
        member("problems", &BoardCounters::problems, "complaints about the host, see problems()"));
}

template <>
constexpr const char* trovi::registerDoc<emulation::BoardCounters>()
{
    return "What an emulated board has counted since it was made.";
}
