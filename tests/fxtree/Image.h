#pragma once
// Builds firmware images.

#include <cstdint>
#include <vector>

namespace fxtree_tests {

using Bytes = std::vector<std::uint8_t>;

struct Image {
    Bytes bytes{'C', 'Y', 0x1C, 0xB0};
    std::uint32_t sum = 0;

    Image& word(std::uint32_t value)
    {
        for (int shift = 0; shift < 32; shift += 8)
            bytes.push_back(static_cast<std::uint8_t>(value >> shift));
        return *this;
    }
    Image& record(std::uint32_t address, const std::vector<std::uint32_t>& words)
    {
        word(static_cast<std::uint32_t>(words.size())).word(address);
        for (const std::uint32_t value : words) {
            word(value);
            sum += value;
        }
        return *this;
    }
    Image& end(std::uint32_t entry, std::uint32_t error = 0) { return word(0).word(entry).word(sum + error); }
};

inline std::vector<std::uint32_t> words(std::size_t count, std::uint32_t seed)
{
    std::vector<std::uint32_t> values(count);
    for (std::size_t i = 0; i < count; ++i)
        values[i] = seed + static_cast<std::uint32_t>(i) * 0x9E3779B9U;
    return values;
}

} // namespace fxtree_tests
