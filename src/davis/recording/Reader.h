#pragma once
// Recordings of event cameras, read in batches through one interface.
//
//   auto reader = davis::recording::open("scene.aedat");
//   std::vector<davis::event::DvsEvent> batch;
//   while (reader->read(batch))
//       use(batch);
//   if (reader->damage())
//       std::cerr << reader->damage()->text();   // all events before that place have been read
//
// Four formats, recognised by content first and then by the file's name:
//
//   Format    name        recognised by        sensor size          timestamps (microseconds)
//   polarity  *.polarity  its name             not known            as in the file, unsigned 32 bits
//   digit     *.bin       its name             34 x 34              as in the file, 23 bits
//   evt3      *.raw       "% evt 3.0" header   "% geometry" header  the camera's, unrolled beyond 24 bits
//   aedat31   *.aedat     "#!AER-DAT3.1"       "#Source" header     the camera's, 31 bits and the packet's overflow

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "davis/event/DvsEvent.h"

namespace davis::recording {

enum class Format { polarity, digit, evt3, aedat31 };

/// Name of the format for messages: "polarity words", "5-byte digit events", "EVT 3.0", "AEDAT 3.1".
const char* formatName(Format format);

struct SensorSize {
    std::uint16_t width = 0;  ///< columns
    std::uint16_t height = 0; ///< rows

    friend bool operator==(const SensorSize&, const SensorSize&) = default;
};

/// Where and why reading ended early. All events before that place are good.
struct Damage {
    std::string file;
    std::uint64_t offset = 0; ///< of the first wrong byte, from the start of the file
    std::string expected;     ///< what should be there
    std::string found;        ///< what is there

    /// "FILE: damaged at byte OFFSET: expected EXPECTED, found FOUND"
    std::string text() const;
};

/// What a reader skipped because it gives no events.
struct Skipped {
    std::uint64_t triggers = 0;     ///< external trigger words of EVT 3.0
    std::uint64_t incomplete = 0;   ///< events before the first time and row (EVT 3.0 begun in mid-stream)
    std::uint64_t otherPackets = 0; ///< AEDAT packets that hold no polarity events

    friend bool operator==(const Skipped&, const Skipped&) = default;
};

class Reader {
public:
    /// A batch never holds more events than this, so that a count in a file can't decide how much memory is used.
    static constexpr std::size_t maxBatch = 65'536;

    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;
    virtual ~Reader() = default;

    /// Replaces `batch` by the next events, in file order. A batch of AEDAT 3.1 is one packet of the file (or a part of
    /// it, beyond maxBatch); of the other formats any number of events.
    /// @return false at the end, with `batch` empty; damage() is set when that is not the end of the file
    bool read(std::vector<event::DvsEvent>& batch);

    /// Set when reading came to invalid data; nothing after it is read.
    const std::optional<Damage>& damage() const { return damage_; }

    virtual Format format() const = 0;
    virtual std::optional<SensorSize> sensorSize() const { return std::nullopt; }
    const Skipped& skipped() const { return skipped_; }

protected:
    Reader() = default;
    /// Appends up to maxBatch events; true as long as there may be more to come.
    virtual bool decode(std::vector<event::DvsEvent>& batch) = 0;

    std::optional<Damage> damage_;
    Skipped skipped_;

private:
    bool ended = false;
};

/// Opens a recording at its first event.
/// @throws std::runtime_error when the file can't be read, or has none of the formats, or another version of one; the
///         text names the file, and the byte where a header is wrong
std::unique_ptr<Reader> open(const std::filesystem::path& path);
/// The same, for a file whose name and content don't show the format.
std::unique_ptr<Reader> open(const std::filesystem::path& path, Format format);

struct Recording {
    std::vector<event::DvsEvent> events; ///< all that could be read
    Format format{};
    std::optional<SensorSize> sensorSize;
    Skipped skipped;
    std::optional<Damage> damage; ///< set when `events` ends at a damaged place
};

/// Reads a whole recording into memory, 16 bytes per event.
/// @throws std::runtime_error as open() does; damage after the header is reported in Recording::damage
Recording readAll(const std::filesystem::path& path);

} // namespace davis::recording
