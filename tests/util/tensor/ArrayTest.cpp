#include "util/tensor/Array.h"

#include <numeric>

#include <gmock/gmock.h>

#include "trovi/Json.h"

namespace {

using namespace util::tensor;
using testing::ElementsAre;

struct Layer {
    Array3Int16 values;
    Array<bool, 2> mask;
    friend bool operator==(const Layer&, const Layer&) = default;
};

template <class Action>
std::string errorOf(Action action)
{
    try {
        action();
    } catch (const std::exception& error) {
        return error.what();
    }
    return "no error";
}

} // namespace

template <>
constexpr auto trovi::registerMembers<Layer>()
{
    return members(util::tensor::member<&Layer::values>("values", "numbers"),
                   util::tensor::member<&Layer::mask>("mask", "bits"));
}

namespace {

Array3Int16 counted(Array3Int16::Dimensions dimensions)
{
    Array3Int16 array{dimensions, std::vector<short>(elementCount(dimensions))};
    std::iota(array.data.begin(), array.data.end(), static_cast<short>(-5));
    return array;
}

TEST(TensorArray, StartsAsOneZero)
{
    const Array4Bool array;
    EXPECT_THAT(array.dimensions, ElementsAre(1, 1, 1, 1));
    EXPECT_EQ(array.data, std::vector<bool>(1));
    EXPECT_THAT(counted({2, 3, 4}).strides(), ElementsAre(12, 4, 1));
}

TEST(TensorArray, GoesToNestedVectorsAndBack)
{
    for (const auto& dimensions :
         {Array3Int16::Dimensions{2, 3, 4}, {1, 1, 1}, {3, 1, 2}, {2, 0, 0}, {0, 0, 0}, {2, 2, 0}}) {
        const Array3Int16 array = counted(dimensions);
        const auto nested = buildList(array);
        EXPECT_TRUE(checkArray(dimensions, nested));
        EXPECT_EQ(arrayFromVector(nested), array);
    }
    const auto nested = buildList(counted({2, 3, 4}));
    EXPECT_THAT(nested[1][2], ElementsAre(15, 16, 17, 18)); // the last index runs fastest
    const std::vector<std::vector<bool>> bits = {{true, false, true}, {false, true, true}};
    EXPECT_EQ(buildList(arrayFromVector(bits)), bits);
    EXPECT_THAT(arrayFromVector(std::vector<short>{}).dimensions, ElementsAre(0));
}

TEST(TensorArray, RaggedVectorsAreRefused)
{
    using Nested = RecursiveVector<short, 3>::Internal;
    const struct {
        const char* what;
        Nested nested;
        bool valid;
    } rows[] = {
        {"empty", {}, true},
        {"empty inside", {{}, {}}, true},
        {"rectangular", {{{1}, {2}}, {{3}, {4}}}, true},
        {"one longer, innermost", {{{1}, {2}}, {{3}, {4, 5}}}, false},
        {"one longer, middle", {{{1}}, {{3}, {4}}}, false},
        {"first empty", {{}, {{3}}}, false},
        {"last empty", {{{3}}, {}}, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(validVectorAsArray(row.nested), row.valid);
        EXPECT_EQ(errorOf([&] { arrayFromVector(row.nested); }),
                  row.valid ? "no error" : "Input vector dimensions are not consistent.");
    }
    EXPECT_TRUE(checkArray(std::array<std::uint64_t, 3>{1, 2, 1}, Nested{{{1}, {2}}}));
    EXPECT_FALSE(checkArray(std::array<std::uint64_t, 3>{1, 2, 2}, Nested{{{1}, {2}}}));
}

TEST(TensorArray, ShapeAndDataMustAgree)
{
    Array3Int16 array = counted({2, 3, 4});
    array.data.pop_back();
    EXPECT_EQ(errorOf([&] { buildList(array); }), "An array of dimensions [2, 3, 4] has not 23 values.");
    array.dimensions = {1U << 31U, 1U << 31U, 4}; // 0 when cut to 64 bits
    array.data.clear();
    EXPECT_EQ(errorOf([&] { buildList(array); }),
              "An array of dimensions [2147483648, 2147483648, 4] has not 0 values.");
    array.dimensions = {1U << 31U, 0, 0};
    EXPECT_EQ(errorOf([&] { buildList(array); }), "An array of dimensions [2147483648, 0, 0] has too many empty rows.");
}

TEST(TensorArray, MembersAreSetInTheirNestedForm)
{
    constexpr auto member = std::get<0>(trovi::MetaHolder<Layer>::members);
    Layer layer;
    member.pySetter(layer, {{{1, 2}}, {{3, 4}}});
    EXPECT_EQ(layer.values, (Array3Int16{{2, 1, 2}, {1, 2, 3, 4}}));
    EXPECT_EQ(errorOf([&] {
                  member.pySetter(layer, {{{1, 2}}, {{3}}});
              }),
              "Input vector dimensions are not consistent.");
    EXPECT_EQ(member.pyGetter(layer), (RecursiveVector<short, 3>::Internal{{{1, 2}}, {{3, 4}}}));
}

trovi::Bytes layerBytes(std::initializer_list<std::uint64_t> head, std::initializer_list<short> values)
{
    trovi::Bytes bytes;
    trovi::ByteWriter writer(bytes);
    for (const std::uint64_t number : head)
        trovi::encode(writer, number);
    trovi::encode(writer, std::vector<short>(values));
    return bytes;
}

TEST(TensorArray, BinaryForm)
{
    const Array3Int16 array{{2, 1, 2}, {1, 2, 3, -4}};
    const trovi::Bytes form = layerBytes({2, 1, 2, 2, 2, 1}, {1, 2, 3, -4});
    EXPECT_EQ(trovi::serializeToBuffer(array), form);
    EXPECT_EQ(trovi::deserializeBytes<Array3Int16>(form), array);
    const Layer layer{array, {{1, 3}, {true, false, true}}};
    EXPECT_EQ(trovi::deserializeBytes<Layer>(trovi::serializeToBuffer(layer)), layer);
    for (std::size_t size = 0; size < form.size(); ++size)
        EXPECT_THROW(trovi::deserializeBytes<Array3Int16>({form.data(), size}), std::runtime_error) << size;
}

TEST(TensorArray, ABadFormIsRefusedAndTheArrayStays)
{
    constexpr std::uint64_t huge = 1ULL << 32U;
    const struct {
        trovi::Bytes form;
        const char* error;
    } rows[] = {
        {layerBytes({2, 1, 2, 2, 2, 1}, {1, 2, 3}), "An array of dimensions [2, 1, 2] has not 3 values."},
        {layerBytes({2, 1, 2, 2, 2, 1}, {1, 2, 3, 4, 5}), "An array of dimensions [2, 1, 2] has not 5 values."},
        {layerBytes({2, 1, 2, 1, 2, 2}, {1, 2, 3, 4}),
         "An array of dimensions [2, 1, 2] has the offsets [2, 2, 1], and not [1, 2, 2]."},
        {layerBytes({huge, huge, 1, huge, 1, 1}, {}),
         "An array of dimensions [4294967296, 4294967296, 1] has not 0 values."},
        {layerBytes({huge, 0, 1, 0, 1, 1}, {}), "An array of dimensions [4294967296, 0, 1] has too many empty rows."},
    };
    for (const auto& row : rows) {
        Array3Int16 array = counted({1, 2, 1});
        trovi::ByteReader reader(row.form);
        EXPECT_EQ(errorOf([&] { trovi::decode(reader, array); }), row.error);
        EXPECT_EQ(array, counted({1, 2, 1}));
    }
}

TEST(TensorArray, JsonForm)
{
    const Layer layer{{{2, 1, 2}, {1, 2, 3, -4}}, {{1, 2}, {true, false}}};
    const std::string document = trovi::toJson(layer);
    std::string packed = document;
    std::erase_if(packed, [](char c) { return c == ' ' || c == '\n'; });
    EXPECT_EQ(packed, R"({"value0":{"values":{"dimensions":[2,1,2],"offsets":[2,2,1],"values":[1,2,3,-4]},)"
                      R"("mask":{"dimensions":[1,2],"offsets":[2,1],"values":[true,false]}}})");
    Layer back;
    trovi::fromJson(back, document);
    EXPECT_EQ(back, layer);

    const struct {
        const char* form;
        const char* error;
    } rows[] = {
        {R"({"dimensions": [1, 1, 2], "offsets": [2, 2, 1], "values": [1]})",
         "An array of dimensions [1, 1, 2] has not 1 values."},
        {R"({"dimensions": [1, 1, 2], "offsets": [1, 2, 1], "values": [1, 2]})",
         "An array of dimensions [1, 1, 2] has the offsets [2, 2, 1], and not [1, 2, 1]."},
        {R"({"dimensions": [1, 1, 2], "offsets": [2, 2, 1], "values": [1, 32768]})",
         "JSON value 32768 is out of range of short int"},
        {R"({"dimensions": [1, 1, 2], "offsets": [2, 2, 1]})", "JSON Parsing failed - provided NVP (values) not found"},
        {"[[[1, 2]]]", "JSON Parsing failed - provided NVP (dimensions) not found"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(errorOf([&] { trovi::fromJson(back, std::string(R"({"value0": {"values": )") + row.form + "}}"); }),
                  row.error);
        EXPECT_EQ(back.values, layer.values);
    }
}

} // namespace
