// Digit events: records of 5 bytes up to the end of the file, without a header, most significant bit first: x (8 bits),
// y (8), polarity (1), timestamp in microseconds (23).

#include <algorithm>

#include "davis/recording/detail/FileReader.h"
#include "util/BitField.h"

namespace davis::recording::detail {

namespace {

using event::DvsEvent;

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

std::unique_ptr<Reader> openDigit(BufferedFile&& file) { return std::make_unique<DigitReader>(std::move(file)); }

} // namespace davis::recording::detail
