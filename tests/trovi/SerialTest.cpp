#include "trovi/Serial.h"

#include <limits>
#include <random>
#include <sstream>

#include <cereal/types/array.hpp>
#include <cereal/types/map.hpp>
#include <cereal/types/set.hpp>
#include <cereal/types/string.hpp>
#include <cereal/types/tuple.hpp>
#include <cereal/types/unordered_map.hpp>
#include <cereal/types/utility.hpp>
#include <cereal/types/variant.hpp>
#include <cereal/types/vector.hpp>
#include <gmock/gmock.h>

#include "../../fuzz/Everything.h"
#include "../ErrorOf.h"
#include "../Golden.h"
#include "Sample.h"
#include "trovi/BinaryArchive.h"
#include "trovi/Json.h"

namespace {

using namespace trovi;
using davis::event::DvsEvent;
using sample::Pixel;
using test::bytes;

using Variant = std::variant<std::uint8_t, std::string>;

template <class T>
T fromStream(std::istream&& stream)
{
    return deserializeElement<T>(stream);
}

/// The line of the golden file for `value`: its JSON form without blanks, and its bytes. Checks the ways back from
/// them, by functions and by archives, and that bytes cut anywhere are refused.
template <class T>
std::string lineOf(const char* what, const T& value)
{
    SCOPED_TRACE(what);
    const Bytes form = serializeToBuffer(value);
    const std::string text(form.begin(), form.end());
    EXPECT_EQ(fromStream<T>(ByteStream(form)), value);
    EXPECT_EQ(fromStream<T>(std::istringstream(text)), value);
    std::stringstream archived;
    cereal::ComposablePortableBinaryOutputArchive output(archived);
    output(value);
    EXPECT_EQ(archived.str(), text);
    T back{};
    cereal::ComposablePortableBinaryInputArchive input(archived);
    input(back);
    EXPECT_EQ(back, value);
    for (std::size_t size = 0; size < form.size(); ++size)
        EXPECT_THROW(deserializeBytes<T>({form.data(), size}), cereal::Exception) << size;

    std::string json = toJson(value);
    T read{};
    fromJson(read, json);
    EXPECT_EQ(read, value);
    std::erase_if(json, [](char c) { return c == ' ' || c == '\n'; });
    constexpr std::string_view head = "{\"value0\":";
    return what + (": " + json.substr(head.size(), json.size() - head.size() - 1)) + " =" + test::hex(form) + "\n";
}

TEST(Serial, Forms)
{
    std::string text;
    const Everything everything = filledEverything();
    forEach(MetaHolder<Everything>::members, [&](const auto& m) { text += lineOf(m.name, everything.*(m.field)); });
    lineOf("all of it", everything);
    text += lineOf("smallest i64", std::numeric_limits<std::int64_t>::min());
    text += lineOf("largest u64", std::numeric_limits<std::uint64_t>::max());
    text += lineOf("smallest double", 4.9406564584124654e-324);
    text += lineOf("double of many digits", 1.0 / 3);
    text += lineOf("enumeration", sample::Colour::blue);
    text += lineOf("empty vector", std::vector<int>());
    text += lineOf("array of arrays", std::array<std::array<std::uint16_t, 2>, 2>{{{1, 2}, {3, 4}}});
    text += lineOf("hash map", std::unordered_map<std::string, std::uint8_t>{{"k", 5}});
    text += lineOf("class without members", sample::Empty{});
    text += lineOf("class with a field that is no member", sample::Stamped{1, 7, 0x0203, true, 9});
    text += lineOf("class with padding", Pixel{0x0102, true, -3, sample::Colour::green, 1.0F});
    text += lineOf("class in another order than in memory", sample::Shuffled{1, 2, true, 4});
    EXPECT_GOLDEN("forms.txt", text);
}

TEST(Serial, ValuesFollowEachOtherWithoutAGap)
{
    EXPECT_EQ(serializeToBuffer(std::uint64_t{1}, "ab"),
              bytes("01 00 00 00 00 00 00 00 02 00 00 00 00 00 00 00 61 62"));
    EXPECT_EQ(serializeToBuffer(), Bytes());
    EXPECT_EQ(serializeToBuffer(std::string("\0", 1)), bytes("01 00 00 00 00 00 00 00 00"));

    ByteStream stream = sstreamFromBuffer(serializeToBuffer(std::uint16_t{1}, "ab", std::uint8_t{3}));
    EXPECT_EQ(deserializeElement<std::uint16_t>(stream), 1);
    EXPECT_EQ(deserializeElement<std::string>(stream), "ab");
    EXPECT_EQ(stream.get(), 3); // the stream is positioned behind what was read
    stream << "ab" << 'c';
    EXPECT_EQ(deserializeElement<std::uint8_t>(stream), 'a');
    std::string rest;
    stream >> rest;
    EXPECT_EQ(rest, "bc");
}

// Values in blocks, at the blocks' seams and with every value of every byte, against value by value.
template <class T>
void checkBlocks()
{
    SCOPED_TRACE(typeName<T>());
    std::mt19937_64 random(1);
    for (const std::size_t count : {0, 1, 2, 255, 256, 257, 1000}) {
        Bytes one(count * detail::packedSize<T>);
        for (std::uint8_t& byte : one)
            byte = static_cast<std::uint8_t>(random() % 4);
        Bytes form = serializeToBuffer(std::uint64_t{count});
        form.insert(form.end(), one.begin(), one.end());

        const auto values = deserializeBytes<std::vector<T>>(form);
        ASSERT_EQ(values.size(), count);
        ByteReader reader(one);
        Bytes normal = serializeToBuffer(std::uint64_t{count});
        ByteWriter writer(normal);
        for (const T& value : values) {
            T single;
            decode(reader, single);
            ASSERT_EQ(value, single);
            encode(writer, single);
        }
        EXPECT_EQ(serializeToBuffer(values), normal);
    }
}

TEST(Serial, BlocksEqualSingleValues)
{
    checkBlocks<DvsEvent>();
    checkBlocks<Pixel>();
    checkBlocks<sample::Shuffled>();
    checkBlocks<StoreRef>();
    checkBlocks<sample::Stamped>();
    checkBlocks<sample::Nested>();
    checkBlocks<std::uint32_t>();
}

TEST(Serial, AnyByteButZeroIsReadAsTrue)
{
    for (int byte = 0; byte < 256; ++byte) {
        const Bytes single{static_cast<std::uint8_t>(byte)};
        EXPECT_EQ(serializeToBuffer(deserializeBytes<bool>(single)), Bytes{byte != 0}) << byte;
        Bytes event(13);
        event[4] = static_cast<std::uint8_t>(byte);
        EXPECT_EQ(deserializeBytes<DvsEvent>(event), (DvsEvent{0, 0, byte != 0, 0})) << byte;
        std::stringstream stream(std::string(1, static_cast<char>(byte)));
        cereal::ComposablePortableBinaryInputArchive archive(stream);
        bool value = false;
        archive(value);
        EXPECT_EQ(serializeToBuffer(value), Bytes{byte != 0}) << byte;
    }
}

TEST(Serial, ShortReadsSayHowMuchWasThere)
{
    const std::string text = "Failed to read 8 bytes from input stream! Read 3";
    EXPECT_EQ(errorOf([&] { deserializeBytes<std::uint64_t>(Bytes(3)); }), text);
    EXPECT_EQ(errorOf([&] { deserializeBytes<StoreRef>(Bytes(11)); }), text); // of the member at which the bytes end
    std::stringstream stream("abc"), archived("abc");
    EXPECT_EQ(errorOf([&] { deserializeElement<std::uint64_t>(stream); }), text);
    cereal::ComposablePortableBinaryInputArchive archive(archived);
    std::uint64_t value = 0;
    EXPECT_EQ(errorOf([&] { archive(value); }), text);

    struct Full : std::streambuf {};
    Full full;
    std::ostream fullStream(&full);
    cereal::ComposablePortableBinaryOutputArchive output(fullStream);
    EXPECT_EQ(errorOf([&] { output(std::uint32_t{1}); }), "Failed to write 4 bytes to output stream! Wrote 0");
}

TEST(Serial, AHugeCountTakesNoMemory)
{
    const auto failed = [](const char* wanted, int read) {
        return std::string("Failed to read ") + wanted + " bytes from input stream! Read " + std::to_string(read);
    };
    const struct {
        const char* count;
        const char* events;
    } rows[] = {
        {"00 00 00 00 00 00 00 10", "14987979559889010688"},
        {"FF FF FF FF FF FF FF FF", "18446744073709551615"},
        {"02 00 00 00 00 00 00 00", "26"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.count);
        Bytes form = bytes(row.count);
        form.resize(form.size() + 7);
        EXPECT_EQ(errorOf([&] { deserializeBytes<std::vector<DvsEvent>>(form); }), failed(row.events, 7));
        std::stringstream stream(std::string(form.begin(), form.end()));
        EXPECT_EQ(errorOf([&] { deserializeElement<std::vector<DvsEvent>>(stream); }), failed(row.events, 7));
        EXPECT_EQ(errorOf([&] { deserializeBytes<std::vector<std::string>>(form); }), failed("8", 7));
        using Map = std::map<std::string, int>;
        EXPECT_EQ(errorOf([&] { deserializeBytes<Map>(form); }), failed("8", 7));
    }
    const Bytes form = bytes("00 00 00 00 00 00 00 10 'abc'");
    EXPECT_EQ(errorOf([&] { deserializeBytes<std::string>(form); }), failed("1152921504606846976", 3));
    EXPECT_EQ(errorOf([&] { deserializeBytes<Bytes>(form); }), failed("1152921504606846976", 3));
}

struct Thrower {
    Thrower() = default;
    Thrower(const Thrower&) { throw 0; }
    Thrower& operator=(const Thrower&) = default;
};

} // namespace

template <>
constexpr auto trovi::registerMembers<Thrower>()
{
    return members();
}

namespace {

TEST(Serial, AValuelessVariantIsMinusOneAndWrongIndicesAreRefused)
{
    std::variant<std::uint8_t, Thrower> value;
    const Thrower thrower;
    EXPECT_ANY_THROW(value.emplace<1>(thrower));
    ASSERT_TRUE(value.valueless_by_exception());
    EXPECT_EQ(serializeToBuffer(value), bytes("FF FF FF FF"));
    EXPECT_EQ(errorOf([] { deserializeBytes<Variant>(bytes("02 00 00 00 00")); }),
              "Invalid 'index' selector when deserializing std::variant");
    EXPECT_EQ(errorOf([] { deserializeBytes<Variant>(bytes("FF FF FF FF 00")); }),
              "Error traversing variant during load");
}

} // namespace
