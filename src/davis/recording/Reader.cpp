#include "davis/recording/Reader.h"

#include <array>
#include <stdexcept>
#include <string_view>

#include "davis/recording/detail/FileReader.h"

namespace davis::recording {

namespace {

struct FormatRow {
    Format format;
    const char* name;
    std::string_view mark;      // how the content begins; empty: by the file's name alone
    std::string_view extension; // of the file's name
    std::unique_ptr<Reader> (*open)(detail::BufferedFile&&);
};
constexpr auto formats = std::to_array<FormatRow>({
    {Format::aedat31, "AEDAT 3.1", "#!AER-DAT", ".aedat", detail::openAedat31},
    {Format::evt3, "EVT 3.0", "% ", ".raw", detail::openEvt3},
    {Format::polarity, "polarity words", "", ".polarity", detail::openPolarity},
    {Format::digit, "5-byte digit events", "", ".bin", detail::openDigit},
});

const FormatRow& rowOf(Format format)
{
    for (const FormatRow& row : formats)
        if (row.format == format)
            return row;
    throw std::invalid_argument("unknown recording format " + std::to_string(static_cast<int>(format)));
}

const FormatRow& recognise(const std::filesystem::path& path, detail::BufferedFile& file)
{
    const std::string extension = path.extension().string();
    for (const FormatRow& row : formats)
        if (row.mark.empty() && extension == row.extension)
            return row; // no header: any first bytes may be events
    constexpr std::size_t longestMark = 16;
    const std::string_view begin = file.peekText(longestMark);
    for (const FormatRow& row : formats)
        if (!row.mark.empty() && begin.starts_with(row.mark))
            return row;
    for (const FormatRow& row : formats)
        if (extension == row.extension)
            return row;
    throw std::runtime_error(path.string() + ": cannot tell what recording this is: it begins with neither " +
                             "\"#!AER-DAT3.1\" (AEDAT 3.1) nor \"% \" (EVT 3.0), and its name ends in none of " +
                             ".aedat, .raw, .polarity, .bin");
}

} // namespace

namespace detail {

std::string hex(std::uint32_t value, int digits)
{
    std::string text = "0x";
    for (int shift = (digits - 1) * 4; shift >= 0; shift -= 4)
        text += "0123456789abcdef"[(value >> shift) & 0xF];
    return text;
}

} // namespace detail

const char* formatName(Format format) { return rowOf(format).name; }

std::string Damage::text() const
{
    return file + ": damaged at byte " + std::to_string(offset) + ": expected " + expected + ", found " + found;
}

bool Reader::read(std::vector<event::DvsEvent>& batch)
{
    batch.clear();
    while (batch.empty() && !ended)
        ended = !decode(batch);
    return !batch.empty();
}

std::unique_ptr<Reader> open(const std::filesystem::path& path)
{
    detail::BufferedFile file(path);
    const FormatRow& row = recognise(path, file);
    return row.open(std::move(file));
}

std::unique_ptr<Reader> open(const std::filesystem::path& path, Format format)
{
    return rowOf(format).open(detail::BufferedFile(path));
}

Recording readAll(const std::filesystem::path& path)
{
    const std::unique_ptr<Reader> reader = open(path);
    Recording recording;
    recording.format = reader->format();
    recording.sensorSize = reader->sensorSize();
    std::vector<event::DvsEvent> batch;
    while (reader->read(batch))
        recording.events.insert(recording.events.end(), batch.begin(), batch.end());
    recording.skipped = reader->skipped();
    recording.damage = reader->damage();
    return recording;
}

} // namespace davis::recording
