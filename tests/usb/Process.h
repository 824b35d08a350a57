#pragma once
// What this process holds, for tests of growth.

#include <cstddef>
#include <filesystem>
#include <malloc.h>

namespace usb_tests {

/// Bytes of memory handed out; 0 under a sanitizer, which has an allocator of its own and looks for leaks itself.
inline std::size_t heapInUse()
{
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

inline std::ptrdiff_t entries(const char* folder)
{
    return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator());
}
inline std::ptrdiff_t openFiles() { return entries("/proc/self/fd"); }
inline std::ptrdiff_t threads() { return entries("/proc/self/task"); }

} // namespace usb_tests
