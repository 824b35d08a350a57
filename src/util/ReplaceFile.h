#pragma once
// Writing a state file so that a crash, a full disk or a power cut never leaves half of it.

#include <string>
#include <string_view>

namespace util {

/// Replaces the file at `path` by one with `content`, whole or not at all: the new file is written beside it, brought
/// to disk, and renamed over it. Links are followed, the mode is kept, and devices and pipes are written to. A path
/// that can't be opened for writing is left alone, without an error.
///
/// While it is written the new file is "<path>.<process>-<n>.tmp". What a process that died left under such a name is
/// removed by the next replacement of `path` that succeeds.
/// @throws std::runtime_error when writing fails later on, as on a full disk; the old file stays
/// Threads: thread-safe, also against other processes; the last one to rename wins.
void replaceFile(const std::string& path, std::string_view content);

} // namespace util
