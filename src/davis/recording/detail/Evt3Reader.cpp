// EVT 3.0 in a file: header lines that begin with '%', then words (see Evt3Decoder.h) up to the end of the file. These
// lines are read: "% evt 3.0" or "% format EVT3;height=480;width=640" (the encoding), "% geometry 640x480" (the
// sensor), "% end" (the last line, optional).

#include <algorithm>
#include <charconv>

#include "davis/recording/Evt3Decoder.h"
#include "davis/recording/detail/FileReader.h"
#include "util/LittleEndian.h"

namespace davis::recording::detail {

namespace {

/// The number that follows `key` in `line`, if there is one of 1 to 65,535.
std::optional<std::uint16_t> numberAfter(std::string_view line, std::string_view key)
{
    const std::size_t at = line.find(key);
    if (at == std::string_view::npos)
        return std::nullopt;
    std::uint16_t value = 0;
    const char* first = line.data() + at + key.size();
    const auto [rest, error] = std::from_chars(first, line.data() + line.size(), value);
    if (error != std::errc{} || value == 0)
        return std::nullopt;
    return value;
}

class Evt3Reader : public FileReader {
public:
    explicit Evt3Reader(BufferedFile&& opened) : FileReader(std::move(opened))
    {
        readHeader();
        decoder = Evt3Decoder(size);
    }
    Format format() const override { return Format::evt3; }
    std::optional<SensorSize> sensorSize() const override { return size; }

protected:
    bool decode(std::vector<event::DvsEvent>& batch) override
    {
        const std::span<const std::byte> bytes = file.peek(Evt3Word::bytes);
        if (bytes.size() < Evt3Word::bytes) {
            if (!bytes.empty())
                truncated("the 2 bytes of a word", bytes.size());
            return false;
        }
        constexpr std::size_t mostPerWord = 12;
        const std::size_t words = std::min(bytes.size() / Evt3Word::bytes, (maxBatch - batch.size()) / mostPerWord);
        if (words == 0)
            return true; // the batch has no room for a word with the most events
        const std::size_t taken = decoder.decode(bytes.first(words * Evt3Word::bytes), batch);
        if (decoder.expected() != nullptr) {
            const auto word = util::readLittleEndian<std::uint16_t>(bytes.data() + taken * Evt3Word::bytes);
            damaged(decoder.expected(), "word " + hex(word, 4), taken * Evt3Word::bytes);
        }
        file.take(taken * Evt3Word::bytes);
        skipped_.triggers = decoder.triggers();
        skipped_.incomplete = decoder.incomplete();
        return !damage_;
    }

private:
    void readHeader()
    {
        constexpr std::size_t longestLine = 4096;
        for (;;) {
            const std::string_view text = file.peekText(longestLine).substr(0, longestLine);
            const std::size_t length = text.find('\n');
            // A word may begin with the byte of '%' too. A line is text up to its end.
            const bool isLine = text.starts_with('%') && length != std::string_view::npos &&
                                std::ranges::all_of(text.substr(0, length), [](char c) {
                                    return (c >= ' ' && c <= '~') || c == '\t' || c == '\r';
                                });
            if (!isLine)
                return;
            const std::string line(text.substr(0, length));
            readLine(line);
            file.take(length + 1);
            if (line.starts_with("% end"))
                return;
        }
    }

    void readLine(const std::string& line)
    {
        const bool namesEncoding = line.starts_with("% evt ") || line.starts_with("% format ");
        if (namesEncoding && !line.starts_with("% evt 3") && !line.starts_with("% format EVT3"))
            throw std::runtime_error(file.name() + ": header line \"" + line + "\" at byte " +
                                     std::to_string(file.offset()) + " names an encoding other than EVT 3.0");
        const bool isGeometry = line.starts_with("% geometry ");
        const auto width = numberAfter(line, isGeometry ? "% geometry " : "width=");
        const auto height = numberAfter(line, isGeometry ? "x" : "height=");
        if ((isGeometry || line.starts_with("% format ")) && width && height)
            size = SensorSize{*width, *height};
    }

    std::optional<SensorSize> size;
    Evt3Decoder decoder;
};

} // namespace

std::unique_ptr<Reader> openEvt3(BufferedFile&& file) { return std::make_unique<Evt3Reader>(std::move(file)); }

} // namespace davis::recording::detail
