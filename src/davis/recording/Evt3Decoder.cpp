#include "davis/recording/Evt3Decoder.h"

#include <algorithm>
#include <bit>

#include "davis/event/PolarityWord.h"
#include "util/LittleEndian.h"

namespace davis::recording {

namespace {

constexpr std::size_t blockWords = 1024;
constexpr std::size_t mostPerWord = 12;
constexpr std::uint32_t noLimit = 1U << 12; // beyond 11 bits and a vector's reach

event::DvsEvent pixel(std::uint32_t x, std::uint32_t y, std::uint32_t polarity, std::int64_t time)
{
    using event::PolarityWord;
    return event::eventOf(PolarityWord::x.put(x) | PolarityWord::y.put(y) | PolarityWord::polarity.put(polarity), time);
}

} // namespace

Evt3Decoder::Evt3Decoder(std::optional<SensorSize> sensorSize)
    : block(blockWords * mostPerWord), width(sensorSize ? sensorSize->width : noLimit),
      height(sensorSize ? sensorSize->height : noLimit)
{}

std::size_t Evt3Decoder::decode(std::span<const std::byte> words, std::vector<event::DvsEvent>& events)
{
    const std::size_t count = words.size() / Evt3Word::bytes;
    std::size_t taken = 0;
    while (taken < count && expected_ == nullptr) {
        const std::size_t blockEnd = std::min(count, taken + blockWords);
        event::DvsEvent* out = block.data();
        while (taken < blockEnd) {
            out = decodeWord(util::readLittleEndian<std::uint16_t>(words.data() + taken * Evt3Word::bytes), out);
            if (expected_ != nullptr) [[unlikely]]
                break;
            ++taken;
        }
        events.insert(events.end(), block.data(), out);
    }
    return taken;
}

event::DvsEvent* Evt3Decoder::decodeWord(std::uint32_t word, event::DvsEvent* out)
{
    const std::uint32_t payload = Evt3Word::payload.get(word);
    const std::uint32_t coordinate = Evt3Word::coordinate.get(word);
    switch (Evt3Word::type.get(word)) {
    case Evt3Word::addressX:
        if (coordinate >= width) [[unlikely]] {
            expected_ = "a column within the sensor";
            return out;
        }
        if (timeKnown && rowKnown) [[likely]]
            *out++ = pixel(coordinate, row, Evt3Word::polarity.get(word), time);
        else
            ++incomplete_;
        return out;
    case Evt3Word::addressY:
        if (coordinate >= height) [[unlikely]] {
            expected_ = "a row within the sensor";
            return out;
        }
        row = coordinate;
        rowKnown = true;
        return out;
    case Evt3Word::timeLow:
        time = (time & ~std::int64_t{Evt3Word::payload.largest()}) | payload;
        return out;
    case Evt3Word::timeHigh:
        setTimeHigh(payload);
        return out;
    case Evt3Word::vectorBaseX:
        base = coordinate;
        basePolarity = Evt3Word::polarity.get(word);
        return out;
    case Evt3Word::vector12:
        return emitVector(payload, 12, out);
    case Evt3Word::vector8:
        return emitVector(payload & 0xFF, 8, out);
    case Evt3Word::trigger:
        ++triggers_;
        return out;
    case Evt3Word::others:
    case Evt3Word::continued4:
    case Evt3Word::continued12:
        return out;
    default:
        expected_ = "an EVT 3.0 word of type 0, 2 to 8, A, E or F";
        return out;
    }
}

event::DvsEvent* Evt3Decoder::emitVector(std::uint32_t bits, unsigned count, event::DvsEvent* out)
{
    if (bits != 0 && base + static_cast<std::uint32_t>(std::bit_width(bits)) > width) [[unlikely]] {
        expected_ = "a vector within the sensor";
        return out;
    }
    if (timeKnown && rowKnown) [[likely]] {
        for (std::uint32_t rest = bits; rest != 0; rest &= rest - 1)
            *out++ = pixel(base + static_cast<std::uint32_t>(std::countr_zero(rest)), row, basePolarity, time);
    } else {
        incomplete_ += static_cast<std::uint64_t>(std::popcount(bits));
    }
    // At most 12 bits, so that a stream of nothing but vectors can't make it overflow.
    base = std::min(base + count, noLimit);
    return out;
}

void Evt3Decoder::setTimeHigh(std::uint32_t next)
{
    constexpr std::uint32_t halfTurn = (Evt3Word::payload.largest() + 1) / 2;
    if (timeKnown && next == high)
        return; // repeated every few microseconds
    if (timeKnown && next < high && high - next > halfTurn)
        turns += std::int64_t{1} << 24;
    high = next;
    timeKnown = true;
    time = turns + (std::int64_t{next} << 12); // the low bits follow; until then the earliest time that fits
}

} // namespace davis::recording
