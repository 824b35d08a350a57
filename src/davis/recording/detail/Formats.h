#pragma once
// One reader for each format; made by open() alone.

#include <memory>
#include <string>

#include "davis/recording/Reader.h"
#include "davis/recording/detail/BufferedFile.h"

namespace davis::recording::detail {

/// What the readers share: the file, and the words of a damage report.
class FileReader : public Reader {
public:
    explicit FileReader(BufferedFile&& opened) : file(std::move(opened)) {}

protected:
    /// Ends reading at `ahead` bytes beyond the next one.
    void damaged(std::string expected, std::string found, std::uint64_t ahead = 0)
    {
        damage_ = Damage{file.name(), file.offset() + ahead, std::move(expected), std::move(found)};
    }
    /// Ends reading at a record of which only `present` bytes are there.
    void truncated(const std::string& record, std::size_t present)
    {
        damaged(record, "the end of the file after " + std::to_string(present) + " of them");
    }

    BufferedFile file;
};

std::unique_ptr<Reader> openPolarity(BufferedFile&& file);
std::unique_ptr<Reader> openDigit(BufferedFile&& file);
/// @throws std::runtime_error for a header that names another encoding
std::unique_ptr<Reader> openEvt3(BufferedFile&& file);
/// @throws std::runtime_error for a missing or unfinished header, another version, or a compressed file
std::unique_ptr<Reader> openAedat31(BufferedFile&& file);

/// "0x0123abcd", for messages.
std::string hex(std::uint32_t value, int digits);

} // namespace davis::recording::detail
