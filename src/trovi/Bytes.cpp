#include "trovi/Bytes.h"

#include <algorithm>
#include <string>

#include <cereal/details/helpers.hpp>

namespace trovi {
namespace detail {

void throwReadFailure(std::uint64_t wanted, std::uint64_t got)
{
    throw cereal::Exception("Failed to read " + std::to_string(wanted) + " bytes from input stream! Read " +
                            std::to_string(got));
}

void throwSerialError(const char* text) { throw cereal::Exception(text); }

} // namespace detail

// Not inline: when g++ 12 sees the vector's size, it warns of an overflow that can't happen.
void ByteWriter::write(const void* data, std::size_t size)
{
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    out.insert(out.end(), bytes, bytes + size);
}

void ByteStreamBuffer::showFrom(std::size_t position)
{
    auto* begin = reinterpret_cast<char*>(bytes.data());
    setg(begin, begin + position, begin + bytes.size());
}

ByteStreamBuffer::int_type ByteStreamBuffer::overflow(int_type c)
{
    if (!traits_type::eq_int_type(c, traits_type::eof())) {
        const char byte = traits_type::to_char_type(c);
        xsputn(&byte, 1);
    }
    return traits_type::not_eof(c);
}

std::streamsize ByteStreamBuffer::xsputn(const char* data, std::streamsize size)
{
    const auto position = static_cast<std::size_t>(gptr() - eback());
    const auto* added = reinterpret_cast<const std::uint8_t*>(data);
    bytes.insert(bytes.end(), added, added + size);
    showFrom(position);
    return size;
}

ByteStream::ByteStream(Bytes bytes) : std::iostream(nullptr), buffer(std::move(bytes)) { rdbuf(&buffer); }

ByteReader::ByteReader(std::istream& stream)
{
    owner = dynamic_cast<ByteStreamBuffer*>(stream.rdbuf());
    if (owner == nullptr) {
        source = stream.rdbuf();
        return;
    }
    const auto unread = owner->unread();
    begin = at = unread.data();
    end = begin + unread.size();
}

std::size_t ByteReader::readSome(void* out, std::size_t size)
{
    const std::size_t ready = std::min(size, available());
    if (ready > 0)
        std::memcpy(out, at, ready);
    at += ready;
    if (ready == size || source == nullptr)
        return ready;
    return ready + static_cast<std::size_t>(
                       source->sgetn(static_cast<char*>(out) + ready, static_cast<std::streamsize>(size - ready)));
}

void ByteReader::readSlowly(void* out, std::size_t size)
{
    const std::size_t got = readSome(out, size);
    if (got != size)
        detail::throwReadFailure(size, got);
}

const std::uint8_t* ByteReader::fetch(std::size_t size, std::uint8_t* scratch, std::size_t& got)
{
    if (size <= available()) {
        const std::uint8_t* place = at;
        at += size;
        got = size;
        return place;
    }
    got = readSome(scratch, size);
    return got == size ? scratch : nullptr;
}

Bytes ByteReader::rest()
{
    Bytes result(at, end);
    at = end;
    if (source != nullptr) {
        std::uint8_t chunk[4096];
        while (const std::size_t got = readSome(chunk, sizeof chunk))
            result.insert(result.end(), chunk, chunk + got);
    }
    return result;
}

} // namespace trovi
