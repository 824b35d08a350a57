#pragma once
// A table of random numbers, made once. An object that carries one of them was made by this process, not by a script.

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <limits>
#include <random>

namespace util {

/// N numbers from 0 to 2^63 - 1. They depend on the second in which the table is made: two tables of the same second
/// are equal.
template <std::size_t N>
class CookieMap {
public:
    CookieMap()
    {
        std::mt19937_64 random(static_cast<std::uint64_t>(std::time(nullptr)));
        std::uniform_int_distribution<std::uint64_t> draw(
            0, static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()));
        for (std::uint64_t& cookie : cookies)
            cookie = draw(random);
    }

    static constexpr std::size_t size() { return N; }
    std::uint64_t operator[](std::size_t i) const { return cookies[i]; }
    auto begin() const { return cookies.begin(); }
    auto end() const { return cookies.end(); }

private:
    std::array<std::uint64_t, N> cookies;
};

} // namespace util
