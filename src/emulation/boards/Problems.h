#pragma once
// What a host did wrong, as a board reports it: the first texts, and how many there were.

#include <cstdint>
#include <string>
#include <vector>

namespace emulation {

/// Threads: guarded by its owner.
class Problems {
public:
    static constexpr std::size_t mostTexts = 100;

    void note(std::string text)
    {
        ++count_;
        if (texts_.size() < mostTexts)
            texts_.push_back(std::move(text));
    }
    std::uint64_t count() const { return count_; }
    const std::vector<std::string>& texts() const { return texts_; }

private:
    std::uint64_t count_ = 0;
    std::vector<std::string> texts_;
};

} // namespace emulation
