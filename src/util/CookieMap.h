#pragma once
// A table of random numbers, made once: objects that carry one of them were made by this process, and not by a script.

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <limits>
#include <random>

namespace util {

/// N numbers from 0 to 2^63 - 1. They follow from the second in which the table was made: two tables of one second are
/// equal.
template <std::size_t N>
class CookieMap {
public:
    CookieMap()
    {
        std::mt19937_64 random(static_cast<std::uint64_t>(std::time(nullptr)));
        std::uniform_int_distribution<std::uint64_t> draw(
            0, static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()));
        for (std::uint64_t& cookie : cookies_)
            cookie = draw(random);
    }

    static constexpr std::size_t size() { return N; }
    std::uint64_t operator[](std::size_t i) const { return cookies_[i]; }
    auto begin() const { return cookies_.begin(); }
    auto end() const { return cookies_.end(); }

private:
    std::array<std::uint64_t, N> cookies_;
};

} // namespace util
