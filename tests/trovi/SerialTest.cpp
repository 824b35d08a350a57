#include "trovi/Serial.h"

#include <random>
#include <set>
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

#include "Sample.h"
#include "davis/event/DvsEvent.h"
#include "trovi/BinaryArchive.h"
#include "trovi/StoreRef.h"

namespace {

using namespace trovi;
using davis::event::DvsEvent;
using sample::Colour;
using sample::Pixel;
using sample::Shuffled;
using test::bytes;

using Variant = std::variant<std::uint8_t, std::string>;

template <class Action>
std::string errorOf(Action action)
{
    try {
        action();
    } catch (const cereal::Exception& error) {
        return error.what();
    }
    return "no error";
}

/// Checks a value against bytes written by hand: both ways, by functions and by archives, whole and cut at every byte.
template <class T>
void checkForm(const char* what, const T& value, std::string_view text)
{
    SCOPED_TRACE(what);
    const Bytes expected = bytes(text);
    EXPECT_EQ(serializeToBuffer(value), expected);

    ByteStream stream(expected);
    EXPECT_EQ(deserializeElement<T>(stream), value);
    EXPECT_EQ(stream.peek(), std::char_traits<char>::eof());
    std::stringstream foreign(std::string(expected.begin(), expected.end()));
    EXPECT_EQ(deserializeElement<T>(foreign), value);

    std::stringstream archived;
    cereal::ComposablePortableBinaryOutputArchive output(archived);
    output(value);
    const std::string content = archived.str();
    EXPECT_EQ(Bytes(content.begin(), content.end()), expected);
    T back{};
    cereal::ComposablePortableBinaryInputArchive input(archived);
    input(back);
    EXPECT_EQ(back, value);

    for (std::size_t size = 0; size < expected.size(); ++size)
        EXPECT_THROW(deserializeBytes<T>({expected.data(), size}), cereal::Exception) << size;
}

TEST(Serial, FormsByHand)
{
    checkForm("bool", true, "01");
    checkForm("u8", std::uint8_t{0xAB}, "AB");
    checkForm("i16", std::int16_t{-2}, "FE FF");
    checkForm("u32", std::uint32_t{0x01020304}, "04 03 02 01");
    checkForm("i64", std::int64_t{-1}, "FF FF FF FF FF FF FF FF");
    checkForm("float", 1.0F, "00 00 80 3F");
    checkForm("double", -2.0, "00 00 00 00 00 00 00 C0");
    checkForm("enumeration", Colour::blue, "02");
    checkForm("text", std::string("ab"), "02 00 00 00 00 00 00 00 'ab'");
    checkForm("text with a zero", std::string("\0", 1), "01 00 00 00 00 00 00 00 00");
    checkForm("vector of numbers", std::vector<std::uint16_t>{1, 0x203}, "02 00 00 00 00 00 00 00 01 00 03 02");
    checkForm("vector of bytes", Bytes{9, 8}, "02 00 00 00 00 00 00 00 09 08");
    checkForm("vector of bool", std::vector<bool>{true, false}, "02 00 00 00 00 00 00 00 01 00");
    checkForm("vector of text", std::vector<std::string>{"", "x"},
              "02 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00  01 00 00 00 00 00 00 00 'x'");
    checkForm("array", std::array<std::uint16_t, 2>{1, 2}, "01 00 02 00");
    checkForm("array of text", std::array<std::string, 1>{"x"}, "01 00 00 00 00 00 00 00 'x'");
    checkForm("pair", std::pair<std::uint8_t, bool>{3, true}, "03 01");
    checkForm("tuple", std::tuple<std::uint8_t, std::uint16_t, bool>{1, 2, true}, "01 02 00 01");
    checkForm("map", std::map<std::uint8_t, std::uint16_t>{{1, 2}, {3, 4}},
              "02 00 00 00 00 00 00 00 01 02 00 03 04 00");
    checkForm("hash map", std::unordered_map<std::string, std::uint8_t>{{"k", 5}},
              "01 00 00 00 00 00 00 00 01 00 00 00 00 00 00 00 'k' 05");
    checkForm("set", std::set<std::uint8_t>{2, 1}, "02 00 00 00 00 00 00 00 01 02");
    checkForm("variant, first", Variant(std::uint8_t{7}), "00 00 00 00 07");
    checkForm("variant, second", Variant("x"), "01 00 00 00 01 00 00 00 00 00 00 00 'x'");
    checkForm("reflected", StoreRef{1, 2}, "01 00 00 00 00 00 00 00 02 00 00 00 00 00 00 00");
    checkForm("without members", sample::Empty{}, "");
    checkForm("a field that is not registered", sample::Stamped{1, 7, 0x0203, true, 9}, "01 03 02 01");
    checkForm("numbers and padding", Pixel{0x0102, true, 3, Colour::green, 1.0F},
              "02 01 01 03 00 00 00 00 00 00 00 01 00 00 80 3F");
    checkForm("event", DvsEvent{1, 2, true, 3}, "01 00 02 00 01 03 00 00 00 00 00 00 00");
    checkForm("other order than in memory", Shuffled{1, 2, true, 4}, "04 00 02 00 00 00 01 01");
    checkForm("vector of events", std::vector<DvsEvent>{{1, 2, true, 3}, {4, 5, false, -1}},
              "02 00 00 00 00 00 00 00  01 00 02 00 01 03 00 00 00 00 00 00 00"
              "04 00 05 00 00 FF FF FF FF FF FF FF FF");
}

TEST(Serial, WholeConfigurationsComeBack)
{
    const sample::Config config = sample::filledConfig();
    EXPECT_EQ(deserializeBytes<sample::Config>(serializeToBuffer(config)), config);
}

TEST(Serial, ValuesFollowEachOtherWithoutAGap)
{
    EXPECT_EQ(serializeToBuffer(std::uint64_t{1}, "ab"),
              bytes("01 00 00 00 00 00 00 00 02 00 00 00 00 00 00 00 61 62"));
    EXPECT_EQ(serializeToBuffer(), Bytes());
    EXPECT_EQ(serializeToBuffer(std::vector<int>()), Bytes(8, 0));

    ByteStream stream = sstreamFromBuffer(serializeToBuffer(std::uint16_t{1}, "ab", std::uint8_t{3}));
    EXPECT_EQ(deserializeElement<std::uint16_t>(stream), 1);
    EXPECT_EQ(deserializeElement<std::string>(stream), "ab");
    EXPECT_EQ(stream.get(), 3); // the stream itself stands behind what was read
}

TEST(Serial, StreamsAreReadAndAppendedTo)
{
    ByteStream stream(bytes("01"));
    EXPECT_EQ(deserializeElement<std::uint8_t>(stream), 1);
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
    checkBlocks<Shuffled>();
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
        Bytes many = bytes("02 00 00 00 00 00 00 00");
        for (int i = 0; i < 2; ++i) {
            many.resize(many.size() + 13);
            many[many.size() - 9] = static_cast<std::uint8_t>(byte);
        }
        for (const DvsEvent& event : deserializeBytes<std::vector<DvsEvent>>(many))
            EXPECT_EQ(event, (DvsEvent{0, 0, byte != 0, 0})) << byte;
        std::stringstream stream(std::string(1, static_cast<char>(byte)));
        cereal::ComposablePortableBinaryInputArchive archive(stream);
        bool value = false;
        archive(value);
        EXPECT_EQ(serializeToBuffer(value), Bytes{byte != 0}) << byte;
    }
}

TEST(Serial, ShortReadsSayHowMuchWasThere)
{
    const Bytes three(3);
    EXPECT_EQ(errorOf([&] { deserializeBytes<std::uint64_t>(three); }),
              "Failed to read 8 bytes from input stream! Read 3");
    std::stringstream stream("abc");
    EXPECT_EQ(errorOf([&] { deserializeElement<std::uint64_t>(stream); }),
              "Failed to read 8 bytes from input stream! Read 3");
    std::stringstream archived("abc");
    cereal::ComposablePortableBinaryInputArchive archive(archived);
    std::uint64_t value = 0;
    EXPECT_EQ(errorOf([&] { archive(value); }), "Failed to read 8 bytes from input stream! Read 3");
    // a class reports the member at which the bytes end
    EXPECT_EQ(errorOf([&] { deserializeBytes<StoreRef>(Bytes(11)); }),
              "Failed to read 8 bytes from input stream! Read 3");
}

TEST(Serial, AHugeCountTakesNoMemory)
{
    const struct {
        const char* count;
        const char* events;
        const char* texts;
    } rows[] = {
        {"00 00 00 00 00 00 00 10", "14987979559889010688", "8"},
        {"FF FF FF FF FF FF FF FF", "18446744073709551615", "8"},
        {"02 00 00 00 00 00 00 00", "26", "8"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.count);
        Bytes form = bytes(row.count);
        form.resize(form.size() + 7);
        const std::string tail = " bytes from input stream! Read 7";
        const std::string events = std::string("Failed to read ") + row.events + tail;
        EXPECT_EQ(errorOf([&] { deserializeBytes<std::vector<DvsEvent>>(form); }), events);
        std::stringstream stream(std::string(form.begin(), form.end()));
        EXPECT_EQ(errorOf([&] { deserializeElement<std::vector<DvsEvent>>(stream); }), events);
        EXPECT_EQ(errorOf([&] { deserializeBytes<std::vector<std::string>>(form); }),
                  std::string("Failed to read ") + row.texts + tail);
        const auto asMap = [&] { deserializeBytes<std::map<std::string, int>>(form); };
        EXPECT_EQ(errorOf(asMap), std::string("Failed to read ") + row.texts + tail);
    }
    Bytes form = bytes("00 00 00 00 00 00 00 10 'abc'");
    for (const auto& action : {std::function<void()>([&] { deserializeBytes<std::string>(form); }),
                               std::function<void()>([&] { deserializeBytes<Bytes>(form); })})
        EXPECT_EQ(errorOf(action), "Failed to read 1152921504606846976 bytes from input stream! Read 3");
}

TEST(Serial, VariantsWithAWrongIndexAreRefused)
{
    EXPECT_EQ(errorOf([] { deserializeBytes<Variant>(bytes("02 00 00 00 00")); }),
              "Invalid 'index' selector when deserializing std::variant");
    EXPECT_EQ(errorOf([] { deserializeBytes<Variant>(bytes("FF FF FF FF 00")); }),
              "Error traversing variant during load");
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

TEST(Serial, AValuelessVariantIsMinusOne)
{
    std::variant<std::uint8_t, Thrower> value;
    try {
        const Thrower thrower;
        value.emplace<1>(thrower);
    } catch (int) {
    }
    ASSERT_TRUE(value.valueless_by_exception());
    EXPECT_EQ(serializeToBuffer(value), bytes("FF FF FF FF"));
}

TEST(Serial, AFullStreamIsReported)
{
    struct Full : std::streambuf {};
    Full full;
    std::ostream stream(&full);
    cereal::ComposablePortableBinaryOutputArchive archive(stream);
    EXPECT_EQ(errorOf([&] { archive(std::uint32_t{1}); }), "Failed to write 4 bytes to output stream! Wrote 0");
}

} // namespace
