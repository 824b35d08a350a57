#pragma once
// A file read from front to back through one buffer, which knows the offset of each byte.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace davis::recording::detail {

class BufferedFile {
public:
    static constexpr std::size_t capacity = 256 * 1024;

    /// @throws std::runtime_error when the file cannot be opened for reading
    explicit BufferedFile(const std::filesystem::path& path);

    /// The next bytes, without consuming them: all that are in the buffer, and at least `wanted` (at most `capacity`)
    /// unless the file ends first. Valid until the next call.
    /// @throws std::runtime_error when the system fails to read
    std::span<const std::byte> peek(std::size_t wanted);
    /// peek() as text.
    std::string_view peekText(std::size_t wanted);
    /// Consumes `count` bytes, at most as many as the last peek() returned.
    void take(std::size_t count) { begin += count; }

    /// Offset in the file of the next byte.
    std::uint64_t offset() const { return bufferOffset + begin; }
    const std::string& name() const { return name_; }

private:
    std::string name_;
    std::ifstream file;
    std::vector<std::byte> buffer;
    std::uint64_t bufferOffset = 0; // of buffer[0]
    std::size_t begin = 0;          // buffer[begin, end) is not yet consumed
    std::size_t end = 0;
};

} // namespace davis::recording::detail
