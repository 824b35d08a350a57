#pragma once
// The firmware image of an FX3, as its file holds it:
//
//   "CY"  control byte (bit 0 is 0: executable)  image type (0xB0: firmware)
//   records: length  address  length words of data
//   the last: 0      entry    checksum, the sum of all data words
//
// Words have 32 bits, little-endian; lengths count words; the checksum wraps.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace util {

/// The records of a firmware image: its file from offset 4 on.
/// @throws std::invalid_argument "Error: File size exceeds maximum firmware image size" above 0x80000 bytes, "Error:
///         Image does not have CY at start", "Error: file is not marked executable\n", "Error: file is not marked as
///         firmware\n"; for a file that can't be read, or ends within its first 4 bytes, a text that says so, with the
///         path, the reason or offset, and what should have followed
std::vector<std::uint8_t> readFirmwareImage(const std::string& path);

} // namespace util

namespace fxtree {

struct FirmwareRecord {
    std::uint32_t address = 0;             ///< in the FX3's RAM
    std::span<const std::uint8_t> content; ///< 4 bytes per word
};

struct FirmwareEnd {
    std::uint32_t entry = 0; ///< where the firmware starts
    std::uint32_t checksum = 0;
};

/// The records of an image, in order, as views into it.
struct FirmwareRecords {
    std::vector<FirmwareRecord> data;
    std::optional<FirmwareEnd> end; ///< none when the image ends without a last record

    std::uint32_t sum() const; ///< what the checksum should be
};

/// @param image  as readFirmwareImage() gives it; it must live as long as the result. What follows the last record is
///               ignored
/// @param path   for the text of an error
/// @throws std::invalid_argument with path, offset in the file and what was expected, when the image ends in a record
FirmwareRecords parseFirmware(std::span<const std::uint8_t> image, const std::string& path);

} // namespace fxtree
