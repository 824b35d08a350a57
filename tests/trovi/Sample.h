#pragma once
// Described classes of every kind that the binary and JSON forms tell apart, and bytes by hand.

#include <array>
#include <charconv>
#include <cstdint>
#include <string_view>

#include "trovi/Serial.h"

namespace sample {

enum class Colour : std::uint8_t { red, green, blue };

struct Empty {
    friend bool operator==(const Empty&, const Empty&) = default;
};

/// Numbers alone, with padding in memory and none on the wire.
struct Pixel {
    std::uint16_t x = 0;
    bool on = false;
    std::int64_t time = 0;
    Colour colour = Colour::red;
    float weight = 0;
    friend bool operator==(const Pixel&, const Pixel&) = default;
};

/// Members listed in another order than they lie in memory.
struct Shuffled {
    std::uint8_t a = 0;
    std::uint32_t b = 0;
    bool c = false;
    std::uint16_t d = 0;
    friend bool operator==(const Shuffled&, const Shuffled&) = default;
};

/// Numbers alone, with one in the middle and one at the end that are not registered.
struct Stamped {
    std::uint8_t layer = 0;
    std::uint8_t hidden = 7;
    std::uint16_t feature = 0;
    bool kill = false;
    std::uint32_t timestamp = 9;
    friend bool operator==(const Stamped&, const Stamped&) = default;
};

/// Numbers alone, in classes and arrays.
struct Nested {
    Pixel pixel;
    std::array<std::uint16_t, 3> levels{};
    friend bool operator==(const Nested&, const Nested&) = default;
};

} // namespace sample

namespace trovi {

template <>
constexpr auto registerMembers<sample::Empty>()
{
    return members();
}
template <>
constexpr auto registerMembers<sample::Pixel>()
{
    using sample::Pixel;
    return members(member("x", &Pixel::x), member("on", &Pixel::on), member("time", &Pixel::time),
                   member("colour", &Pixel::colour), member("weight", &Pixel::weight));
}
template <>
constexpr auto registerMembers<sample::Shuffled>()
{
    using sample::Shuffled;
    return members(member("d", &Shuffled::d), member("b", &Shuffled::b), member("c", &Shuffled::c),
                   member("a", &Shuffled::a));
}
template <>
constexpr auto registerMembers<sample::Stamped>()
{
    using sample::Stamped;
    return members(member("layer", &Stamped::layer), member("feature", &Stamped::feature),
                   member("kill", &Stamped::kill));
}
template <>
constexpr auto registerMembers<sample::Nested>()
{
    return members(member("pixel", &sample::Nested::pixel), member("levels", &sample::Nested::levels));
}

} // namespace trovi

namespace test {

/// "01 ff" gives the bytes 1 and 255; a text in quotes gives its characters: "'ab' 00".
inline trovi::Bytes bytes(std::string_view text)
{
    trovi::Bytes result;
    bool quoted = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\'')
            quoted = !quoted;
        else if (quoted)
            result.push_back(static_cast<std::uint8_t>(text[i]));
        else if (text[i] != ' ') {
            std::from_chars(&text[i], &text[i] + 2, result.emplace_back(), 16);
            ++i;
        }
    }
    return result;
}

/// The other way: " 01 FF".
inline std::string hex(std::span<const std::uint8_t> bytes)
{
    constexpr const char* digits = "0123456789ABCDEF";
    std::string text;
    for (const std::uint8_t byte : bytes)
        text += {' ', digits[byte >> 4], digits[byte & 15]};
    return text;
}

} // namespace test
