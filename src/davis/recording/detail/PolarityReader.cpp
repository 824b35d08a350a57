// Polarity words: events of 8 bytes (event/PolarityWord.h) up to the end of the file, without a header. The timestamp
// is unsigned, and the valid mark must be set.

#include <algorithm>

#include "davis/event/PolarityWord.h"
#include "davis/recording/detail/FileReader.h"
#include "util/LittleEndian.h"

namespace davis::recording::detail {

namespace {

using event::PolarityWord;

class PolarityReader : public FileReader {
public:
    using FileReader::FileReader;
    Format format() const override { return Format::polarity; }

protected:
    bool decode(std::vector<event::DvsEvent>& batch) override
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
            const std::byte* const at = bytes.data() + taken * PolarityWord::bytes;
            const auto data = util::readLittleEndian<std::uint32_t>(at);
            if (PolarityWord::valid.get(data) == 0) {
                damaged("an event with its valid mark (bit 0) set", "data word " + hex(data, 8),
                        taken * PolarityWord::bytes);
                break;
            }
            batch.push_back(event::eventOf(data, util::readLittleEndian<std::uint32_t>(at + 4)));
        }
        file.take(taken * PolarityWord::bytes);
        return !damage_;
    }
};

} // namespace

std::unique_ptr<Reader> openPolarity(BufferedFile&& file) { return std::make_unique<PolarityReader>(std::move(file)); }

} // namespace davis::recording::detail
