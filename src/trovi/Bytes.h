#pragma once
// Byte buffers with a writer, a reader and a stream, on which the binary form is built.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <istream>
#include <span>
#include <streambuf>
#include <utility>
#include <vector>

namespace trovi {

using Bytes = std::vector<std::uint8_t>;

namespace detail {

/// @throws cereal::Exception "Failed to read N bytes from input stream! Read M"
[[noreturn]] void throwReadFailure(std::uint64_t wanted, std::uint64_t got);
/// @throws cereal::Exception with `text`
[[noreturn]] void throwSerialError(const char* text);

} // namespace detail

/// Appends to a buffer.
class ByteWriter {
public:
    explicit ByteWriter(Bytes& out) : out(out) {}

    void write(const void* data, std::size_t size);
    /// Appends `size` bytes for the caller to fill.
    std::uint8_t* grow(std::size_t size)
    {
        out.resize(out.size() + size);
        return out.data() + (out.size() - size);
    }
    /// Reserves room for `size` more bytes, so that a large value is written without reallocation.
    void reserve(std::size_t size) { out.reserve(out.size() + size); }

private:
    Bytes& out;
};

/// The buffer of a ByteStream: reads from the front of the bytes, appends at their end.
class ByteStreamBuffer final : public std::streambuf {
public:
    explicit ByteStreamBuffer(Bytes bytes) : bytes(std::move(bytes)) { showFrom(0); }

    std::span<const std::uint8_t> unread() const
    {
        return {reinterpret_cast<const std::uint8_t*>(gptr()), static_cast<std::size_t>(egptr() - gptr())};
    }
    /// Skips `count` bytes, at most unread().size().
    void skip(std::size_t count) { setg(eback(), gptr() + count, egptr()); }

protected:
    int_type overflow(int_type c) override;
    std::streamsize xsputn(const char* data, std::streamsize size) override;

private:
    void showFrom(std::size_t position);

    Bytes bytes;
};

/// A stream in memory that is read from the front and appended to at the end. It costs less than a std::stringstream,
/// and a ByteReader on it reads the bytes where they are.
class ByteStream : public std::iostream {
public:
    explicit ByteStream(Bytes bytes);

private:
    ByteStreamBuffer buffer;
};

/// Reads from bytes in memory or from a stream. A stream keeps its position: the next reader begins where the one
/// before stopped. A reader on a ByteStream writes the position back when it is destroyed.
class ByteReader {
public:
    explicit ByteReader(std::span<const std::uint8_t> bytes) : at(bytes.data()), end(bytes.data() + bytes.size()) {}
    explicit ByteReader(std::istream& stream);
    ByteReader(const ByteReader&) = delete;
    ByteReader& operator=(const ByteReader&) = delete;
    ~ByteReader()
    {
        if (owner != nullptr)
            owner->skip(static_cast<std::size_t>(at - begin));
    }

    /// @throws cereal::Exception with the numbers when fewer than `size` bytes are left; they are consumed then
    void read(void* out, std::size_t size)
    {
        if (size == 0)
            return;
        if (size > available())
            return readSlowly(out, size);
        std::memcpy(out, at, size);
        at += size;
    }

    /// Reads up to `size` bytes.
    std::size_t readSome(void* out, std::size_t size);

    /// The next `size` bytes, in place when they lie in memory, else copied to `scratch`; null when fewer are left.
    const std::uint8_t* fetch(std::size_t size, std::uint8_t* scratch, std::size_t& got);

    /// Number of bytes that are ready in memory.
    std::size_t available() const { return static_cast<std::size_t>(end - at); }
    /// True when no bytes can follow the available ones.
    bool isBounded() const { return source == nullptr; }

    /// Everything that is left.
    Bytes rest();

private:
    void readSlowly(void* out, std::size_t size);

    const std::uint8_t* begin = nullptr;
    const std::uint8_t* at = nullptr;
    const std::uint8_t* end = nullptr;
    ByteStreamBuffer* owner = nullptr; // where the bytes are, if they are a ByteStream's
    std::streambuf* source = nullptr;  // any other stream
};

} // namespace trovi
