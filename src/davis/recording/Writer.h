#pragma once
// Writes recordings, `*.polarity` and AEDAT 3.1. Reader gives the same events back.
//
//   davis::recording::Writer writer("scene.aedat", davis::recording::Format::aedat31, {{346, 260}});
//   writer.write(batch);      // one packet of the file
//   writer.close();           // or the destructor, which ignores a failure

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "davis/event/DvsEvent.h"
#include "davis/recording/Reader.h"

namespace davis::recording {

class Writer {
public:
    /// Creates or truncates the file and writes the header, if the format has one.
    /// @param sensorSize  goes into the header of AEDAT 3.1; `*.polarity` has no place for it
    /// @throws std::invalid_argument for a format that is only read; std::runtime_error when the file cannot be written
    Writer(const std::filesystem::path& path, Format format, std::optional<SensorSize> sensorSize = std::nullopt);
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;
    ~Writer();

    /// Appends events in the given order; an empty batch does nothing.
    /// @param events  x and y up to 32,767; timestamps 0 to 4,294,967,295 (polarity), 0 to 2^62 - 1 (AEDAT 3.1)
    /// @throws std::invalid_argument naming the first event that the format cannot hold, before anything is written;
    ///         std::runtime_error when writing fails
    void write(std::span<const event::DvsEvent> events);

    /// Flushes and closes the file; does nothing a second time.
    /// @throws std::runtime_error when that fails
    void close();

private:
    void check(std::span<const event::DvsEvent> events) const;
    void append(const std::vector<std::byte>& bytes);

    std::string name;
    Format format;
    std::ofstream file;
};

/// Writes all events to a file, in packets of at most 4,096 events. Throws as Writer does.
void writeAll(const std::filesystem::path& path, Format format, std::span<const event::DvsEvent> events,
              std::optional<SensorSize> sensorSize = std::nullopt);

} // namespace davis::recording
