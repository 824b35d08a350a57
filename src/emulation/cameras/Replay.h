#pragma once
// A recording on disk as what a virtual camera shows.

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "davis/recording/Reader.h"
#include "emulation/cameras/Content.h"
#include "emulation/cameras/ReplayOptions.h"

namespace emulation {

/// Batches are batchUs long, counted from the first event, or they are the recording's packets. Timestamps are the
/// recording's. In a loop, each turn begins one microsecond after the last event of the turn before.
class Replay final : public Content {
public:
    /// @throws std::runtime_error when the file cannot be read as a recording
    Replay(const std::filesystem::path& path, const ReplayOptions& options);

    std::optional<davis::recording::SensorSize> sensorSize() const { return reader->sensorSize(); }

    void rewind() override;
    bool next(std::vector<davis::event::DvsEvent>& batch) override;
    std::optional<std::string> damage() const override { return damage_; }

private:
    bool readPiece(std::vector<davis::event::DvsEvent>& piece);
    bool readSlot(std::vector<davis::event::DvsEvent>& batch);
    bool beginNextTurn();

    const std::filesystem::path path;
    const ReplayOptions options;
    std::unique_ptr<davis::recording::Reader> reader;
    std::vector<davis::event::DvsEvent> piece; // read, and shown up to `shown`
    std::size_t shown = 0;
    std::optional<std::int64_t> firstUs; // of the recording
    std::int64_t lastUs = 0;             // the latest so far, in the recording's own time
    std::int64_t turnShiftUs = 0;        // what earlier turns of a loop add
    bool turnHasEvents = false;
    std::optional<std::string> damage_;
};

} // namespace emulation
