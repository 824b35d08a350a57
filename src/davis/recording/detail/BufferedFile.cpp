#include "davis/recording/detail/BufferedFile.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>

namespace davis::recording::detail {

BufferedFile::BufferedFile(const std::filesystem::path& path) : name_(path.string()), buffer(capacity)
{
    std::error_code unknown;
    if (std::filesystem::is_directory(path, unknown)) // opens well, and fails at the first read
        throw std::runtime_error(name_ + ": cannot read the recording: it is a directory");
    errno = 0;
    file.open(path, std::ios::binary);
    if (!file)
        throw std::runtime_error(name_ + ": cannot read the recording: " +
                                 (errno != 0 ? std::generic_category().message(errno) : "it cannot be opened"));
}

std::span<const std::byte> BufferedFile::peek(std::size_t wanted)
{
    if (end - begin < wanted && file) {
        std::memmove(buffer.data(), buffer.data() + begin, end - begin);
        bufferOffset += begin;
        end -= begin;
        begin = 0;
        file.read(reinterpret_cast<char*>(buffer.data() + end), static_cast<std::streamsize>(capacity - end));
        end += static_cast<std::size_t>(file.gcount());
        if (file.bad())
            throw std::runtime_error(name_ + ": the system failed to read at byte " +
                                     std::to_string(bufferOffset + end));
    }
    return std::span<const std::byte>(buffer).subspan(begin, end - begin);
}

std::string_view BufferedFile::peekText(std::size_t wanted)
{
    const std::span<const std::byte> bytes = peek(wanted);
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

} // namespace davis::recording::detail
