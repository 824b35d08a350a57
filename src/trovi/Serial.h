#pragma once
// The binary form of values, as it travels between nodes. There is no header, no tag and no class version: writer and
// reader agree on the type.
//
//   bool                          1 byte, 0 or 1; any other byte is read as true
//   integers, float, double       their width, little-endian
//   enumeration                   as its underlying type
//   text                          u64 length, then the bytes
//   vector, map, set              u64 count, then the elements (a map's: key, value)
//   array, pair, tuple            the elements
//   variant                       i32 index, then the alternative; -1 when valueless
//   reflected class               its members in registered order
//
// A value that is made of numbers alone has a layout of fixed size, worked out at compile time ("packed" below); a
// vector of such values is written and read in one loop over a buffer, without a call per member.
//
// For code that is written against cereal, trovi/BinaryArchive.h offers archives of the same form.

#include <algorithm>
#include <array>
#include <bit>
#include <limits>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <unordered_map>
#include <unordered_set>
#include <variant>

#include "trovi/Bytes.h"
#include "trovi/Reflect.h"

namespace trovi {

template <class T>
void encode(ByteWriter& writer, const T& value);
template <class T>
void decode(ByteReader& reader, T& value);

namespace detail {

template <class T>
inline constexpr bool isNumber = std::is_arithmetic_v<T> || std::is_enum_v<T>;

template <class T, template <class...> class Template>
inline constexpr bool isA = false;
template <template <class...> class Template, class... Args>
inline constexpr bool isA<Template<Args...>, Template> = true;

template <class T>
inline constexpr bool isStdArray = false;
template <class T, std::size_t N>
inline constexpr bool isStdArray<std::array<T, N>> = true;

template <class T>
concept MapLike = requires
{
    typename T::key_type;
    typename T::mapped_type;
};
template <class T>
concept SetLike = requires
{
    typename T::key_type;
}
&&!MapLike<T>;

template <class T>
inline constexpr bool alwaysFalse = false;

// ---- the packed layout -------------------------------------------------------------------------------------------

inline constexpr std::size_t notPacked = std::numeric_limits<std::size_t>::max();

/// Bytes of T's form when it consists of numbers alone; notPacked otherwise.
template <class T>
constexpr std::size_t packedSizeOf()
{
    if constexpr (std::is_same_v<T, bool>) {
        return 1;
    } else if constexpr (isNumber<T>) {
        static_assert(sizeof(T) <= 8, "the binary form has no number of more than 8 bytes");
        return sizeof(T);
    } else if constexpr (isStdArray<T>) {
        constexpr std::size_t element = packedSizeOf<typename T::value_type>();
        return element == notPacked ? notPacked : element * std::tuple_size_v<T>;
    } else if constexpr (isReflected<T> && std::is_trivially_copyable_v<T>) {
        return std::apply(
            [](const auto&... member) {
                std::size_t sum = 0;
                const auto add = [&sum](std::size_t size) {
                    sum = sum == notPacked || size == notPacked ? notPacked : sum + size;
                };
                (add(packedSizeOf<typename std::remove_cvref_t<decltype(member)>::Type>()), ...);
                return sum;
            },
            MetaHolder<T>::members);
    } else {
        return notPacked;
    }
}

template <class T>
inline constexpr std::size_t packedSize = packedSizeOf<T>();

/// Values that go through a small buffer on the stack, alone or by the block.
template <class T>
inline constexpr bool isPacked = packedSize<T> <= 256;

template <class T>
inline void copyLittleEndian(std::uint8_t* out, const std::uint8_t* in)
{
    if constexpr (std::endian::native == std::endian::little)
        std::memcpy(out, in, sizeof(T));
    else
        std::reverse_copy(in, in + sizeof(T), out);
}

/// Writes packedSize<T> bytes at `out`.
template <class T>
inline void pack(std::uint8_t* out, const T& value)
{
    if constexpr (isNumber<T>) {
        copyLittleEndian<T>(out, reinterpret_cast<const std::uint8_t*>(&value));
    } else if constexpr (isStdArray<T>) {
        for (std::size_t i = 0; i < value.size(); ++i)
            pack(out + i * packedSize<typename T::value_type>, value[i]);
    } else {
        forEach(MetaHolder<T>::members, [&](const auto& member) {
            using Type = typename std::remove_cvref_t<decltype(member)>::Type;
            pack<Type>(out, value.*(member.field));
            out += packedSize<Type>;
        });
    }
}

/// Reads packedSize<T> bytes at `in`.
template <class T>
inline void unpack(const std::uint8_t* in, T& value)
{
    if constexpr (std::is_same_v<T, bool>) {
        value = *in != 0;
    } else if constexpr (isNumber<T>) {
        copyLittleEndian<T>(reinterpret_cast<std::uint8_t*>(&value), in);
    } else if constexpr (isStdArray<T>) {
        for (std::size_t i = 0; i < value.size(); ++i)
            unpack(in + i * packedSize<typename T::value_type>, value[i]);
    } else {
        forEach(MetaHolder<T>::members, [&](const auto& member) {
            using Type = typename std::remove_cvref_t<decltype(member)>::Type;
            unpack<Type>(in, value.*(member.field));
            in += packedSize<Type>;
        });
    }
}

/// Elements that fit a block of a few kilobytes: it stays in the first cache, and the vector's memory is touched once.
template <class T>
inline constexpr std::size_t blockLength = std::max<std::size_t>(1, 4096 / std::max(packedSize<T>, sizeof(T)));

template <class Vector>
void encodePackedVector(ByteWriter& writer, const Vector& values)
{
    using T = typename Vector::value_type;
    writer.reserve(values.size() * packedSize<T>);
    std::uint8_t block[blockLength<T> * packedSize<T>];
    for (std::size_t done = 0; done < values.size();) {
        const std::size_t count = std::min(values.size() - done, blockLength<T>);
        for (std::size_t i = 0; i < count; ++i)
            pack<T>(block + i * packedSize<T>, values[done + i]);
        writer.write(block, count * packedSize<T>);
        done += count;
    }
}

/// Bytes of `count` elements, the largest number when it has no room for them.
constexpr std::uint64_t saturatedProduct(std::uint64_t count, std::size_t size)
{
    constexpr std::uint64_t most = std::numeric_limits<std::uint64_t>::max();
    return count > most / size ? most : count * size;
}

template <class Vector>
void decodePackedVector(ByteReader& reader, Vector& values, std::uint64_t count)
{
    using T = typename Vector::value_type;
    // The count came from outside: no memory is taken for elements that the bytes at hand cannot hold.
    const std::uint64_t total = saturatedProduct(count, packedSize<T>);
    if (reader.isBounded() && total > reader.available())
        throwReadFailure(total, reader.available());
    values.clear();
    values.reserve(static_cast<std::size_t>(reader.isBounded() ? count : std::min<std::uint64_t>(count, 65536)));
    std::uint8_t bytes[blockLength<T> * packedSize<T>];
    std::array<T, blockLength<T>> block;
    for (std::uint64_t done = 0; done < count;) {
        const auto length = static_cast<std::size_t>(std::min<std::uint64_t>(count - done, blockLength<T>));
        std::size_t got = 0;
        const std::uint8_t* in = reader.fetch(length * packedSize<T>, bytes, got);
        if (in == nullptr)
            throwReadFailure(total, done * packedSize<T> + got);
        for (std::size_t i = 0; i < length; ++i)
            unpack<T>(in + i * packedSize<T>, block[i]);
        values.insert(values.end(), block.begin(), block.begin() + static_cast<std::ptrdiff_t>(length));
        done += length;
    }
}

// ---- the other types ---------------------------------------------------------------------------------------------

inline void encodeCount(ByteWriter& writer, std::size_t count) { encode<std::uint64_t>(writer, count); }

inline std::uint64_t decodeCount(ByteReader& reader)
{
    std::uint64_t count = 0;
    decode(reader, count);
    return count;
}

template <class Vector>
void decodeVector(ByteReader& reader, Vector& values)
{
    using T = typename Vector::value_type;
    const std::uint64_t count = decodeCount(reader);
    if constexpr (isPacked<T> && packedSize < T >> 0) {
        decodePackedVector(reader, values, count);
    } else if constexpr (packedSize<T> == 0) {
        values.resize(count); // elements without content: nothing in the bytes bounds their number
    } else {
        values.clear();
        values.reserve(static_cast<std::size_t>(std::min<std::uint64_t>(count, reader.available() / 8)));
        for (std::uint64_t i = 0; i < count; ++i)
            decode(reader, values.emplace_back());
    }
}

template <class Map>
void decodeMap(ByteReader& reader, Map& map)
{
    map.clear();
    for (std::uint64_t count = decodeCount(reader); count > 0; --count) {
        typename Map::key_type key{};
        typename Map::mapped_type value{};
        decode(reader, key);
        decode(reader, value);
        map.emplace_hint(map.end(), std::move(key), std::move(value));
    }
}

template <class Set>
void decodeSet(ByteReader& reader, Set& set)
{
    set.clear();
    for (std::uint64_t count = decodeCount(reader); count > 0; --count) {
        typename Set::key_type key{};
        decode(reader, key);
        set.emplace_hint(set.end(), std::move(key));
    }
}

template <class... Ts>
void encodeVariant(ByteWriter& writer, const std::variant<Ts...>& value)
{
    encode<std::int32_t>(writer, value.valueless_by_exception() ? -1 : static_cast<std::int32_t>(value.index()));
    if (!value.valueless_by_exception())
        std::visit([&](const auto& alternative) { encode(writer, alternative); }, value);
}

template <class... Ts>
void decodeVariant(ByteReader& reader, std::variant<Ts...>& value)
{
    std::int32_t index = 0;
    decode(reader, index);
    if (index >= static_cast<std::int32_t>(sizeof...(Ts)))
        throwSerialError("Invalid 'index' selector when deserializing std::variant");
    if (index < 0)
        throwSerialError("Error traversing variant during load");
    staticFor<sizeof...(Ts)>([&](auto i) {
        if (static_cast<std::int32_t>(i()) == index)
            decode(reader, value.template emplace<i()>());
    });
}

} // namespace detail

/// Appends the form of `value`.
template <class T>
void encode(ByteWriter& writer, const T& value)
{
    using namespace detail;
    if constexpr (isPacked<T>) {
        std::uint8_t bytes[packedSize<T> + 1]; // a class without members has none
        pack<T>(bytes, value);
        writer.write(bytes, packedSize<T>);
    } else if constexpr (std::is_convertible_v<const T&, std::string_view>) {
        const std::string_view text = value;
        encodeCount(writer, text.size());
        writer.write(text.data(), text.size());
    } else if constexpr (std::is_same_v<T, Bytes>) {
        encodeCount(writer, value.size());
        writer.write(value.data(), value.size());
    } else if constexpr (isA<T, std::vector>) {
        encodeCount(writer, value.size());
        if constexpr (isPacked<typename T::value_type> && packedSize < typename T::value_type >> 0)
            encodePackedVector(writer, value);
        else
            for (const auto& element : value)
                encode(writer, element);
    } else if constexpr (isStdArray<T> || SetLike<T>) {
        if constexpr (SetLike<T>)
            encodeCount(writer, value.size());
        for (const auto& element : value)
            encode(writer, element);
    } else if constexpr (MapLike<T>) {
        encodeCount(writer, value.size());
        for (const auto& [key, mapped] : value) {
            encode(writer, key);
            encode(writer, mapped);
        }
    } else if constexpr (isA<T, std::pair> || isA<T, std::tuple>) {
        std::apply([&](const auto&... element) { (encode(writer, element), ...); }, value);
    } else if constexpr (isA<T, std::variant>) {
        encodeVariant(writer, value);
    } else if constexpr (isReflected<T>) {
        forEach(MetaHolder<T>::members, [&](const auto& member) { encode(writer, value.*(member.field)); });
    } else {
        static_assert(alwaysFalse<T>, "this type has no binary form: describe the class with trovi::registerMembers");
    }
}

/// Reads a value of type T into `value`.
/// @throws cereal::Exception when the bytes end before the value, or a variant's index is wrong
template <class T>
void decode(ByteReader& reader, T& value)
{
    using namespace detail;
    if constexpr (isPacked<T>) {
        std::uint8_t bytes[packedSize<T> + 1];
        // a class reports a short read by the member at which the bytes end
        if constexpr (isNumber<T>) {
            reader.read(bytes, packedSize<T>);
            unpack<T>(bytes, value);
        } else if (reader.available() >= packedSize<T>) {
            reader.read(bytes, packedSize<T>);
            unpack<T>(bytes, value);
        } else if constexpr (isStdArray<T>) {
            for (auto& element : value)
                decode(reader, element);
        } else {
            forEach(MetaHolder<T>::members, [&](const auto& member) { decode(reader, value.*(member.field)); });
        }
    } else if constexpr (std::is_same_v<T, std::string>) {
        const std::uint64_t length = decodeCount(reader);
        if (!reader.isBounded() || length > reader.available()) {
            std::vector<char> bytes; // a block at a time, as the length cannot be trusted
            decodePackedVector(reader, bytes, length);
            value.assign(bytes.begin(), bytes.end());
        } else {
            value.resize(static_cast<std::size_t>(length));
            reader.read(value.data(), value.size());
        }
    } else if constexpr (std::is_same_v<T, Bytes>) {
        const std::uint64_t length = decodeCount(reader);
        if (!reader.isBounded() || length > reader.available()) {
            decodePackedVector(reader, value, length);
        } else {
            std::size_t got = 0;
            const std::uint8_t* in = reader.fetch(static_cast<std::size_t>(length), nullptr, got);
            value.assign(in, in + got);
        }
    } else if constexpr (isA<T, std::vector>) {
        decodeVector(reader, value);
    } else if constexpr (isStdArray<T>) {
        for (auto& element : value)
            decode(reader, element);
    } else if constexpr (MapLike<T>) {
        decodeMap(reader, value);
    } else if constexpr (SetLike<T>) {
        decodeSet(reader, value);
    } else if constexpr (isA<T, std::pair> || isA<T, std::tuple>) {
        std::apply([&](auto&... element) { (decode(reader, element), ...); }, value);
    } else if constexpr (isA<T, std::variant>) {
        decodeVariant(reader, value);
    } else if constexpr (isReflected<T>) {
        forEach(MetaHolder<T>::members, [&](const auto& member) { decode(reader, value.*(member.field)); });
    } else {
        static_assert(alwaysFalse<T>, "this type has no binary form: describe the class with trovi::registerMembers");
    }
}

/// The forms of `values`, one after the other.
template <class... Ts>
Bytes serializeToBuffer(const Ts&... values)
{
    Bytes bytes;
    ByteWriter writer(bytes);
    (encode(writer, values), ...);
    return bytes;
}

/// The next value of type T on `stream`; the stream keeps the position.
/// @throws cereal::Exception when the stream ends before the value, or a variant's index is wrong
template <class T>
T deserializeElement(std::istream& stream)
{
    T value{};
    ByteReader reader(stream);
    decode(reader, value);
    return value;
}

/// A value of type T from the front of `bytes`; what is behind it is left out.
/// @throws as deserializeElement
template <class T>
T deserializeBytes(std::span<const std::uint8_t> bytes)
{
    T value{};
    ByteReader reader(bytes);
    decode(reader, value);
    return value;
}

/// A stream that reads `buffer` from its beginning.
inline ByteStream sstreamFromBuffer(const Bytes& buffer) { return ByteStream(buffer); }
inline ByteStream sstreamFromBuffer(Bytes&& buffer) { return ByteStream(std::move(buffer)); }

} // namespace trovi
