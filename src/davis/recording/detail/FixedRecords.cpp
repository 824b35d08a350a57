// The two formats without a header: records of a fixed length up to the end of the file.
//
//   polarity  8 bytes: see event/PolarityWord.h; the timestamp is unsigned, and the valid mark must be set
//   digit     5 bytes, most significant bit first: x (8 bits), y (8), polarity (1), timestamp in microseconds (23)

#include <algorithm>
#include <array>
#include <cstring>

#include "davis/event/PolarityWord.h"
#include "davis/recording/detail/Formats.h"

namespace davis::recording::detail {

namespace {

using event::DvsEvent;
using event::PolarityWord;

class PolarityReader : public FileReader {
public:
    using FileReader::FileReader;
    Format format() const override { return Format::polarity; }

protected:
    bool decode(std::vector<DvsEvent>& batch) override
    {
        const std::span<const std::byte> bytes = file.peek(PolarityWord::bytes);
        if (bytes.size() < PolarityWord::bytes) {
            if (!bytes.empty())
                truncated("the 8 bytes of an event", bytes.size());
            return false;
        }
        const std::size_t count = std::min(bytes.size() / PolarityWord::bytes, maxBatch - batch.size());
        std::size_t taken = 0;
        for (; taken < count; ++taken) {
            std::array<std::uint32_t, 2> word;
            std::memcpy(word.data(), bytes.data() + taken * PolarityWord::bytes, sizeof word);
            if (PolarityWord::valid.get(word[0]) == 0) {
                damaged("an event with its valid mark (bit 0) set", "data word " + hex(word[0], 8),
                        taken * PolarityWord::bytes);
                break;
            }
            batch.push_back(event::eventOf(word[0], std::int64_t{word[1]}));
        }
        file.take(taken * PolarityWord::bytes);
        return !damage_;
    }
};

class DigitReader : public FileReader {
public:
    using FileReader::FileReader;
    Format format() const override { return Format::digit; }
    std::optional<SensorSize> sensorSize() const override { return SensorSize{side, side}; }

protected:
    bool decode(std::vector<DvsEvent>& batch) override
    {
        const std::span<const std::byte> bytes = file.peek(recordBytes);
        if (bytes.size() < recordBytes) {
            if (!bytes.empty())
                truncated("the 5 bytes of an event", bytes.size());
            return false;
        }
        const std::size_t count = std::min(bytes.size() / recordBytes, maxBatch - batch.size());
        std::size_t taken = 0;
        for (; taken < count; ++taken) {
            const std::byte* record = bytes.data() + taken * recordBytes;
            const auto at = [record](std::size_t i) { return std::to_integer<std::uint32_t>(record[i]); };
            if (at(0) >= side || at(1) >= side) {
                damaged("a pixel of a 34 x 34 sensor",
                        "x = " + std::to_string(at(0)) + ", y = " + std::to_string(at(1)), taken * recordBytes);
                break;
            }
            const std::uint32_t low = at(2) << 16 | at(3) << 8 | at(4);
            DvsEvent& event = batch.emplace_back();
            event.x = static_cast<std::uint16_t>(at(0));
            event.y = static_cast<std::uint16_t>(at(1));
            event.polarity = polarity.get(low) != 0;
            event.timestamp = timestamp.get(low);
        }
        file.take(taken * recordBytes);
        return !damage_;
    }

private:
    static constexpr std::size_t recordBytes = 5;
    static constexpr std::uint16_t side = 34;
    static constexpr util::BitField polarity{23, 1}; // of bytes 2 to 4
    static constexpr util::BitField timestamp{0, 23};
};

} // namespace

std::unique_ptr<Reader> openPolarity(BufferedFile&& file) { return std::make_unique<PolarityReader>(std::move(file)); }
std::unique_ptr<Reader> openDigit(BufferedFile&& file) { return std::make_unique<DigitReader>(std::move(file)); }

} // namespace davis::recording::detail
