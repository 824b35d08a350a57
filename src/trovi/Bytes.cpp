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

// Not inline: g++ 12 takes the growing of a vector whose size it can see for an overflow.
void ByteWriter::write(const void* data, std::size_t size)
{
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    out_.insert(out_.end(), bytes, bytes + size);
}

void ByteStreamBuffer::showFrom(std::size_t position)
{
    auto* begin = reinterpret_cast<char*>(bytes_.data());
    setg(begin, begin + position, begin + bytes_.size());
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
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(data);
    bytes_.insert(bytes_.end(), bytes, bytes + size);
    showFrom(position);
    return size;
}

ByteStream::ByteStream(Bytes bytes) : std::iostream(nullptr), buffer_(std::move(bytes)) { rdbuf(&buffer_); }

ByteReader::ByteReader(std::istream& stream)
{
    owner_ = dynamic_cast<ByteStreamBuffer*>(stream.rdbuf());
    if (owner_ == nullptr) {
        stream_ = stream.rdbuf();
        return;
    }
    const auto unread = owner_->unread();
    begin_ = at_ = unread.data();
    end_ = begin_ + unread.size();
}

std::size_t ByteReader::readSome(void* out, std::size_t size)
{
    const std::size_t ready = std::min(size, available());
    if (ready > 0)
        std::memcpy(out, at_, ready);
    at_ += ready;
    if (ready == size || stream_ == nullptr)
        return ready;
    return ready + static_cast<std::size_t>(
                       stream_->sgetn(static_cast<char*>(out) + ready, static_cast<std::streamsize>(size - ready)));
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
        const std::uint8_t* place = at_;
        at_ += size;
        got = size;
        return place;
    }
    got = readSome(scratch, size);
    return got == size ? scratch : nullptr;
}

Bytes ByteReader::rest()
{
    Bytes result(at_, end_);
    at_ = end_;
    if (stream_ != nullptr) {
        std::uint8_t chunk[4096];
        while (const std::size_t got = readSome(chunk, sizeof chunk))
            result.insert(result.end(), chunk, chunk + got);
    }
    return result;
}

} // namespace trovi
