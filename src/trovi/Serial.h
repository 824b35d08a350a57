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
//   class with a RegisterForm     the parts of that form
//   reflected class               its members in registered order
//
// A value that consists of numbers alone has a layout of fixed size, computed at compile time ("packed" below). A
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
#include "util/LittleEndian.h"

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
    } else if constexpr (isReflected<T> && !HasOwnForm<T> && std::is_trivially_copyable_v<T>) {
        return std::apply(
            [](const auto&... member) {
                std::size_t sum = 0;
                [[maybe_unused]] const auto add = [&sum](std::size_t size) {
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

/// Writes packedSize<T> bytes at `out`.
template <class T>
inline void pack(std::uint8_t* out, const T& value)
{
    if constexpr (isNumber<T>) {
        util::writeLittleEndian(out, value);
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
        value = util::readLittleEndian<T>(in);
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

// ---- many packed values ------------------------------------------------------------------------------------------
//
// A class of numbers is copied 8 bytes at a time. A copy that begins at one member also covers the next ones, as long
// as memory and wire have the same layout. What it writes beyond them is overwritten by the copies that follow. The
// offsets are constants to the optimiser, so only the copies remain in the compiled code.

inline constexpr std::size_t wideMove = 8;

// Initialises any field of an aggregate.
struct AnyField {
    template <class T>
    constexpr operator T() const noexcept;
};

template <class T, std::size_t... I>
constexpr bool takesInitialisers(std::index_sequence<I...>)
{
    return requires { T{(static_cast<void>(I), AnyField())...}; };
}

/// True only if every field of the class is a registered member.
template <class T>
constexpr bool isMembersAlone()
{
    return std::is_aggregate_v<T> && !takesInitialisers<T>(std::make_index_sequence<memberCount<T> + 1>());
}

/// True for classes whose members are numbers, without further fields that a wide copy could overwrite.
template <class T>
constexpr bool movesWide()
{
    if constexpr (!isReflected<T> || !isPacked<T> || std::endian::native != std::endian::little)
        return false;
    else if constexpr (isMembersAlone<T>())
        return std::apply(
            [](const auto&... member) {
                return (isNumber<typename std::remove_cvref_t<decltype(member)>::Type> && ...);
            },
            MetaHolder<T>::members);
    else
        return false;
}

/// As pack, but may also write up to 7 bytes beyond the value.
template <class T>
inline void packSpilling(std::uint8_t* out, const T& value)
{
    const auto* base = reinterpret_cast<const std::uint8_t*>(&value);
    std::size_t wire = 0;
    std::size_t shift = notPacked; // from wire to memory, of the last copy
    std::size_t moved = 0;         // memory offset at which that copy ended
    forEach(MetaHolder<T>::members, [&](const auto& member) {
        constexpr std::size_t size = packedSize<typename std::remove_cvref_t<decltype(member)>::Type>;
        const auto offset =
            static_cast<std::size_t>(reinterpret_cast<const std::uint8_t*>(&(value.*(member.field))) - base);
        if (offset - wire != shift || offset + size > moved) {
            const bool fits = offset + wideMove <= sizeof(T);
            std::memcpy(out + wire, base + offset, fits ? wideMove : size);
            shift = offset - wire;
            moved = offset + (fits ? wideMove : size);
        }
        wire += size;
    });
}

/// As unpack, but may also read up to 7 bytes beyond the value.
template <class T>
inline void unpackSpilling(const std::uint8_t* in, T& value)
{
    auto* base = reinterpret_cast<std::uint8_t*>(&value);
    std::size_t wire = 0;
    std::size_t shift = notPacked;
    std::size_t moved = 0;
    std::size_t written = 0; // memory offset at which the members so far end: a copy may only write beyond it
    forEach(MetaHolder<T>::members, [&](const auto& member) {
        using Type = typename std::remove_cvref_t<decltype(member)>::Type;
        constexpr std::size_t size = packedSize<Type>;
        const auto offset = static_cast<std::size_t>(reinterpret_cast<std::uint8_t*>(&(value.*(member.field))) - base);
        if (offset - wire != shift || offset + size > moved) {
            const bool fits = offset + wideMove <= sizeof(T) && offset >= written;
            std::memcpy(base + offset, in + wire, fits ? wideMove : size);
            shift = offset - wire;
            moved = offset + (fits ? wideMove : size);
        }
        if constexpr (std::is_same_v<Type, bool>)
            if (in[wire] > 1) [[unlikely]] // any byte may have come
                base[offset] = 1;
        written = std::max(written, offset + size);
        wire += size;
    });
}

template <class T>
void packMany(std::uint8_t* out, const T* in, std::size_t count)
{
    if constexpr (movesWide<T>()) {
#pragma GCC unroll 4
        for (; count > 1; --count, ++in, out += packedSize<T>)
            packSpilling(out, *in);
    }
    for (; count > 0; --count, ++in, out += packedSize<T>)
        pack(out, *in);
}

template <class T>
void unpackMany(const std::uint8_t* in, T* out, std::size_t count)
{
    if constexpr (movesWide<T>()) {
#pragma GCC unroll 4
        for (; count > 1; --count, ++out, in += packedSize<T>)
            unpackSpilling(in, *out);
    }
    for (; count > 0; --count, ++out, in += packedSize<T>)
        unpack(in, *out);
}

/// Number of elements in a block of a few kilobytes. A vector grows by one block at a time, so that the zeros that
/// growing writes are still in the L1 cache when the values replace them.
template <class T>
inline constexpr std::size_t blockLength = std::max<std::size_t>(1, 4096 / std::max(packedSize<T>, sizeof(T)));

template <class T, class Allocator>
void encodePackedVector(ByteWriter& writer, const std::vector<T, Allocator>& values)
{
    writer.reserve(values.size() * packedSize<T>);
    for (std::size_t done = 0; done < values.size();) {
        const std::size_t count = std::min(values.size() - done, blockLength<T>);
        std::uint8_t* out = writer.grow(count * packedSize<T>);
        if constexpr (std::is_same_v<T, bool>)
            for (std::size_t i = 0; i < count; ++i)
                out[i] = values[done + i];
        else
            packMany(out, values.data() + done, count);
        done += count;
    }
}

/// `count` times `size`; the largest number if that overflows.
constexpr std::uint64_t saturatedProduct(std::uint64_t count, std::size_t size)
{
    constexpr std::uint64_t most = std::numeric_limits<std::uint64_t>::max();
    return count > most / size ? most : count * size;
}

template <class T, class Allocator>
void decodePackedVector(ByteReader& reader, std::vector<T, Allocator>& values, std::uint64_t count)
{
    // The count comes from a peer or a file: no memory is reserved for more elements than the bytes can hold.
    const std::uint64_t total = saturatedProduct(count, packedSize<T>);
    if (reader.isBounded() && total > reader.available())
        throwReadFailure(total, reader.available());
    values.clear();
    values.reserve(static_cast<std::size_t>(reader.isBounded() ? count : std::min<std::uint64_t>(count, 65536)));
    std::uint8_t scratch[blockLength<T> * packedSize<T>];
    // Appending copies of blank values takes fewer stores than appending newly made ones.
    static const std::array<T, blockLength<T>> blank{};
    for (std::uint64_t done = 0; done < count;) {
        const auto length = static_cast<std::size_t>(std::min<std::uint64_t>(count - done, blockLength<T>));
        std::size_t got = 0;
        const std::uint8_t* in = reader.fetch(length * packedSize<T>, scratch, got);
        if (in == nullptr)
            throwReadFailure(total, done * packedSize<T> + got);
        if constexpr (std::is_same_v<T, bool>) {
            std::transform(in, in + length, std::back_inserter(values), [](std::uint8_t byte) { return byte != 0; });
        } else {
            values.insert(values.end(), blank.begin(), blank.begin() + static_cast<std::ptrdiff_t>(length));
            unpackMany(in, values.data() + done, length);
        }
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
        values.resize(count); // elements without content: the bytes set no bound to their number
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
void encode([[maybe_unused]] ByteWriter& writer, [[maybe_unused]] const T& value)
{
    using namespace detail;
    if constexpr (packedSize<T> == 0) {
        // a class without members
    } else if constexpr (isPacked<T>) {
        std::uint8_t bytes[packedSize<T>];
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
    } else if constexpr (HasOwnForm<T>) {
        RegisterForm<T>::save(value, [&](const char*, const auto& part) { encode(writer, part); });
    } else if constexpr (isReflected<T>) {
        forEach(MetaHolder<T>::members, [&](const auto& member) { encode(writer, value.*(member.field)); });
    } else {
        static_assert(alwaysFalse<T>, "this type has no binary form: describe the class with trovi::registerMembers");
    }
}

/// Reads a value of type T into `value`.
/// @throws cereal::Exception when the bytes end before the value, or a variant's index is wrong
template <class T>
void decode([[maybe_unused]] ByteReader& reader, [[maybe_unused]] T& value)
{
    using namespace detail;
    if constexpr (packedSize<T> == 0) {
        // a class without members
    } else if constexpr (isPacked<T>) {
        std::uint8_t bytes[packedSize<T>];
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
            std::vector<char> bytes; // a block at a time, since the length can't be trusted
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
    } else if constexpr (HasOwnForm<T>) {
        RegisterForm<T>::load(value, [&](const char*, auto& part) { decode(reader, part); });
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

/// A value of type T from the front of `bytes`; what follows it is ignored.
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
