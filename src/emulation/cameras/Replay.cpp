#include "emulation/cameras/Replay.h"

#include <algorithm>
#include <exception>

namespace emulation {

using davis::event::DvsEvent;

namespace {

constexpr std::size_t mostInBatch = 1'000'000; // for a recording whose timestamps don't advance

} // namespace

Replay::Replay(const std::filesystem::path& file, const ReplayOptions& checked)
    : path(file), options(checked), reader(davis::recording::open(file))
{}

void Replay::rewind()
{
    piece.clear();
    shown = 0;
    firstUs.reset();
    lastUs = 0;
    turnShiftUs = 0;
    turnHasEvents = false;
    damage_.reset();
    reader = davis::recording::open(path);
}

bool Replay::next(std::vector<DvsEvent>& batch)
{
    batch.clear();
    return options.ownPackets ? readPiece(batch) : readSlot(batch);
}

bool Replay::readSlot(std::vector<DvsEvent>& batch)
{
    std::int64_t slotEnd = 0;
    while (batch.size() < mostInBatch) {
        if (shown == piece.size()) {
            shown = 0;
            if (!readPiece(piece))
                break;
        }
        const auto from = piece.begin() + static_cast<std::ptrdiff_t>(shown);
        if (batch.empty()) {
            const std::int64_t slot = std::max<std::int64_t>(0, from->timestamp - *firstUs) / options.batchUs;
            slotEnd = *firstUs + (slot + 1) * options.batchUs;
        }
        const auto to = std::find_if(from, piece.end(), [&](const DvsEvent& e) { return e.timestamp >= slotEnd; });
        batch.insert(batch.end(), from, to);
        shown += static_cast<std::size_t>(to - from);
        if (to != piece.end())
            break;
    }
    return !batch.empty();
}

bool Replay::readPiece(std::vector<DvsEvent>& into)
{
    // An exception would end the process, on the camera's thread. A file that becomes unreadable ends the show instead.
    try {
        while (!reader->read(into)) {
            if (reader->damage() && !damage_)
                damage_ = reader->damage()->text();
            if (!beginNextTurn())
                return false;
        }
    } catch (const std::exception& error) {
        into.clear();
        damage_ = error.what();
        return false;
    }
    turnHasEvents = true;
    if (!firstUs)
        firstUs = into.front().timestamp;
    for (DvsEvent& event : into) {
        lastUs = std::max(lastUs, event.timestamp);
        event.timestamp += turnShiftUs;
    }
    return true;
}

bool Replay::beginNextTurn()
{
    if (!options.loop || !turnHasEvents)
        return false;
    // A file may hold any number as a timestamp; the sum must not overflow.
    constexpr std::int64_t latestUs = std::int64_t{1} << 61;
    const bool plausible = *firstUs > -latestUs && lastUs < latestUs;
    const std::int64_t turnUs = plausible ? std::max<std::int64_t>(0, lastUs - *firstUs) + 1 : 0;
    if (!plausible || turnShiftUs > latestUs - turnUs) {
        if (!damage_)
            damage_ = path.string() + ": the time stamps are too large to be played in a loop";
        return false;
    }
    turnShiftUs += turnUs;
    turnHasEvents = false;
    reader = davis::recording::open(path);
    return true;
}

} // namespace emulation
