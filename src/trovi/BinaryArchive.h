#pragma once
// The binary form of trovi/Serial.h as a pair of cereal archives. Unlike cereal's own portable archive they write no
// header, so several may be used one after the other on one stream. They are for code that uses cereal; the functions
// of Serial.h give the same bytes, and run and compile faster.
//
// Include <cereal/types/...> for the standard containers that are archived.

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <istream>
#include <ostream>
#include <string>
#include <type_traits>

#include <cereal/cereal.hpp>

#include "trovi/Reflect.h"

namespace cereal {

class ComposablePortableBinaryOutputArchive : public OutputArchive<ComposablePortableBinaryOutputArchive, 1> {
public:
    explicit ComposablePortableBinaryOutputArchive(std::ostream& stream)
        : OutputArchive<ComposablePortableBinaryOutputArchive, 1>(this), stream(&stream)
    {}

    /// Writes `size` bytes, the bytes of each `Size`-byte element from the least significant one.
    /// @throws cereal::Exception "Failed to write N bytes to output stream! Wrote M"
    template <std::size_t Size>
    void saveBinary(const void* data, std::streamsize size)
    {
        const char* bytes = static_cast<const char*>(data);
        std::streamsize written = 0;
        if (swapped)
            for (std::streamsize i = 0; i < size; i += static_cast<std::streamsize>(Size))
                for (std::size_t j = Size; j > 0; --j)
                    written += stream->rdbuf()->sputn(bytes + i + j - 1, 1);
        else
            written = stream->rdbuf()->sputn(bytes, size);
        if (written != size)
            throw Exception("Failed to write " + std::to_string(size) + " bytes to output stream! Wrote " +
                            std::to_string(written));
    }

private:
    std::ostream* stream;
    bool swapped = std::endian::native != std::endian::little;
};

class ComposablePortableBinaryInputArchive : public InputArchive<ComposablePortableBinaryInputArchive, 1> {
public:
    explicit ComposablePortableBinaryInputArchive(std::istream& stream)
        : InputArchive<ComposablePortableBinaryInputArchive, 1>(this), stream(&stream)
    {}

    /// The mirror of saveBinary.
    /// @throws cereal::Exception "Failed to read N bytes from input stream! Read M"
    template <std::size_t Size>
    void loadBinary(void* data, std::streamsize size)
    {
        char* bytes = static_cast<char*>(data);
        const std::streamsize read = stream->rdbuf()->sgetn(bytes, size);
        if (read != size)
            throw Exception("Failed to read " + std::to_string(size) + " bytes from input stream! Read " +
                            std::to_string(read));
        if (swapped)
            for (std::streamsize i = 0; i < size; i += static_cast<std::streamsize>(Size))
                std::reverse(bytes + i, bytes + i + Size);
    }

private:
    std::istream* stream;
    bool swapped = std::endian::native != std::endian::little;
};

template <class T, std::enable_if_t<std::is_arithmetic_v<T>, int> = 0>
void save(ComposablePortableBinaryOutputArchive& archive, const T& value)
{
    archive.saveBinary<sizeof(T)>(&value, sizeof(T));
}

template <class T, std::enable_if_t<std::is_arithmetic_v<T>, int> = 0>
void load(ComposablePortableBinaryInputArchive& archive, T& value)
{
    if constexpr (std::is_same_v<T, bool>) {
        std::uint8_t byte = 0; // a bool can't take any byte
        archive.loadBinary<1>(&byte, 1);
        value = byte != 0;
    } else {
        archive.loadBinary<sizeof(T)>(&value, sizeof(T));
    }
}

template <class T>
void save(ComposablePortableBinaryOutputArchive& archive, const BinaryData<T>& data)
{
    using Element = std::remove_pointer_t<T>;
    archive.saveBinary<sizeof(Element)>(data.data, static_cast<std::streamsize>(data.size));
}

template <class T>
void load(ComposablePortableBinaryInputArchive& archive, BinaryData<T>& data)
{
    using Element = std::remove_pointer_t<T>;
    archive.loadBinary<sizeof(Element)>(data.data, static_cast<std::streamsize>(data.size));
}

// A name-value pair is its value; a size is an unsigned 64-bit number.
template <class Archive, class T,
          std::enable_if_t<std::is_same_v<Archive, ComposablePortableBinaryOutputArchive> ||
                               std::is_same_v<Archive, ComposablePortableBinaryInputArchive>,
                           int> = 0>
void serialize(Archive& archive, NameValuePair<T>& pair)
{
    archive(pair.value);
}

template <class Archive, class T,
          std::enable_if_t<std::is_same_v<Archive, ComposablePortableBinaryOutputArchive> ||
                               std::is_same_v<Archive, ComposablePortableBinaryInputArchive>,
                           int> = 0>
void serialize(Archive& archive, SizeTag<T>& tag)
{
    archive(tag.size);
}

/// A reflected class is its members in registered order, in any archive.
template <class Archive, class T, std::enable_if_t<trovi::isReflected<T> && !trovi::HasOwnForm<T>, int> = 0>
void serialize(Archive& archive, T& value)
{
    trovi::forEach(trovi::MetaHolder<T>::members,
                   [&](const auto& member) { archive(make_nvp(member.name, value.*(member.field))); });
}

/// A class with a form of its own is the parts of that form.
template <class Archive, class T, std::enable_if_t<trovi::HasOwnForm<T>, int> = 0>
void save(Archive& archive, const T& value)
{
    trovi::RegisterForm<T>::save(value, [&](const char* name, const auto& part) { archive(make_nvp(name, part)); });
}
template <class Archive, class T, std::enable_if_t<trovi::HasOwnForm<T>, int> = 0>
void load(Archive& archive, T& value)
{
    trovi::RegisterForm<T>::load(value, [&](const char* name, auto& part) { archive(make_nvp(name, part)); });
}

} // namespace cereal

CEREAL_REGISTER_ARCHIVE(cereal::ComposablePortableBinaryOutputArchive)
CEREAL_REGISTER_ARCHIVE(cereal::ComposablePortableBinaryInputArchive)
CEREAL_SETUP_ARCHIVE_TRAITS(cereal::ComposablePortableBinaryInputArchive, cereal::ComposablePortableBinaryOutputArchive)
