#pragma once
// A whole file as bytes, or the reason why it can't be read.

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

namespace util {

struct FileBytes {
    std::vector<std::uint8_t> bytes;
    std::string error; ///< the system's words, as "No such file or directory"; empty when the file was read
};

/// Reads up to `limit` bytes; a longer file gives its first `limit` bytes and no error. A folder, or a file that fails
/// midway, gives an error and no bytes.
inline FileBytes readFile(const std::string& path, std::size_t limit)
{
    const auto failure = [] { return FileBytes{{}, std::generic_category().message(errno)}; };
    const auto close = [](std::FILE* file) { std::fclose(file); };
    const std::unique_ptr<std::FILE, decltype(close)> file(std::fopen(path.c_str(), "rb"), close);
    if (!file)
        return failure();
    FileBytes result;
    constexpr std::size_t step = 65536;
    while (result.bytes.size() < limit) {
        const std::size_t before = result.bytes.size();
        const std::size_t wanted = std::min(step, limit - before);
        result.bytes.resize(before + wanted);
        const std::size_t got = std::fread(result.bytes.data() + before, 1, wanted, file.get());
        result.bytes.resize(before + got);
        if (got < wanted)
            break;
    }
    return std::ferror(file.get()) != 0 ? failure() : result;
}

} // namespace util
