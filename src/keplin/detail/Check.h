#pragma once
// Checks that stay in every build. After a failed one nothing can be trusted, so the process ends.

namespace keplin::detail {

/// Writes `text` to standard error and ends the process.
[[noreturn]] void endProcess(const char* text) noexcept;

inline void check(bool holds, const char* text)
{
    if (!holds) [[unlikely]]
        endProcess(text);
}

} // namespace keplin::detail
