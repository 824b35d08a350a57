#pragma once
// EVT 3.0: a stream of little-endian 16-bit words, each with a type in bits 15..12 and a payload in bits 11..0. A word
// carries only what changed, so the decoder remembers time, row and vector base:
//
//   type              payload
//   0x0 addressY      bits 10..0 row of the events that follow (bit 11: which of two cameras)
//   0x2 addressX      bits 10..0 column, bit 11 polarity: one event
//   0x3 vectorBaseX   bits 10..0 column, bit 11 polarity of the vectors that follow
//   0x4 vector12      bit i set: an event at base + i; the base then moves on by 12
//   0x5 vector8       the same with 8 bits
//   0x6 timeLow       bits 11..0 of the time in microseconds
//   0x7 continued4    data of a word of type 0xE
//   0x8 timeHigh      bits 23..12 of the time; beyond that the decoder counts the turns
//   0xA trigger       an edge at a trigger input: counted, no event
//   0xE others        private to the camera: skipped, with the words that continue it
//   0xF continued12   data of a word of type 0xE
//
// A stream may begin in the middle: events before the first time and the first row are counted and dropped.

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "davis/event/DvsEvent.h"
#include "davis/recording/Reader.h"
#include "util/BitField.h"

namespace davis::recording {

struct Evt3Word {
    static constexpr util::BitField type{12, 4};
    static constexpr util::BitField payload{0, 12};
    static constexpr util::BitField coordinate{0, 11};
    static constexpr util::BitField polarity{11, 1};
    static constexpr std::size_t bytes = 2;

    enum Type : std::uint32_t {
        addressY = 0x0,
        addressX = 0x2,
        vectorBaseX = 0x3,
        vector12 = 0x4,
        vector8 = 0x5,
        timeLow = 0x6,
        continued4 = 0x7,
        timeHigh = 0x8,
        trigger = 0xA,
        others = 0xE,
        continued12 = 0xF,
    };
};

class Evt3Decoder {
public:
    /// @param sensorSize  when given, a row or column beyond it is an error
    explicit Evt3Decoder(std::optional<SensorSize> sensorSize = std::nullopt);

    /// Decodes whole words (an odd byte at the end is ignored) and appends their events. Timestamps are the camera's
    /// time in microseconds.
    /// @return how many words were decoded: all, or those before the first invalid word
    std::size_t decode(std::span<const std::byte> words, std::vector<event::DvsEvent>& events);

    /// What decode() expected in place of the word at which it stopped; null when it decoded all.
    const char* expected() const { return expected_; }

    std::uint64_t triggers() const { return triggers_; }
    std::uint64_t incomplete() const { return incomplete_; }

private:
    event::DvsEvent* decodeWord(std::uint32_t word, event::DvsEvent* out);
    event::DvsEvent* emitVector(std::uint32_t bits, unsigned count, event::DvsEvent* out);
    void setTimeHigh(std::uint32_t high);

    std::vector<event::DvsEvent> block; // room for the events of one block of words
    std::uint32_t width;
    std::uint32_t height;
    const char* expected_ = nullptr;
    std::uint64_t triggers_ = 0;
    std::uint64_t incomplete_ = 0;
    std::int64_t turns = 0; // full turns of the 24-bit time, in microseconds
    std::int64_t time = 0;
    std::uint32_t high = 0;
    std::uint32_t row = 0;
    std::uint32_t base = 0;
    std::uint32_t basePolarity = 0;
    bool timeKnown = false;
    bool rowKnown = false;
};

} // namespace davis::recording
