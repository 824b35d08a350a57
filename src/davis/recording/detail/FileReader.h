#pragma once
// One reader for each format; only open() makes them.

#include <memory>
#include <string>

#include "davis/recording/Reader.h"
#include "davis/recording/detail/BufferedFile.h"

namespace davis::recording::detail {

/// What the readers share: the file, and reporting damage.
class FileReader : public Reader {
public:
    explicit FileReader(BufferedFile&& opened) : file(std::move(opened)) {}

protected:
    /// Ends reading at the byte that is `ahead` bytes after the next one.
    void damaged(std::string expected, std::string found, std::uint64_t ahead = 0)
    {
        damage_ = Damage{file.name(), file.offset() + ahead, std::move(expected), std::move(found)};
    }
    /// Ends reading at a record that the end of the file cuts off after `present` bytes.
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
