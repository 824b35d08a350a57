#include "util/tensor/Array.h"

#include <numeric>

#include <gmock/gmock.h>

#include "../../ErrorOf.h"
#include "trovi/Json.h"

namespace {

using namespace util::tensor;
using testing::ElementsAre;

struct Layer {
    Array3Int16 values;
    Array<bool, 2> mask;
    friend bool operator==(const Layer&, const Layer&) = default;
};

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

TEST(TensorArray, GoesToNestedVectorsAndBack)
{
    EXPECT_EQ(Array4Bool(), (Array4Bool{{1, 1, 1, 1}, {false}}));
    for (const auto& dimensions : {Array3Int16::Dimensions{2, 3, 4}, {3, 1, 2}, {2, 0, 0}, {0, 0, 0}, {2, 2, 0}}) {
        const Array3Int16 array = counted(dimensions);
        const auto nested = buildList(array);
        EXPECT_TRUE(checkArray(dimensions, nested));
        EXPECT_EQ(arrayFromVector(nested), array);
    }
    const Array3Int16 array = counted({2, 3, 4});
    EXPECT_THAT(array.strides(), ElementsAre(12, 4, 1));
    EXPECT_THAT(buildList(array)[1][2], ElementsAre(15, 16, 17, 18)); // the last index runs fastest
    const std::vector<std::vector<bool>> bits = {{true, false, true}, {false, true, true}};
    EXPECT_EQ(buildList(arrayFromVector(bits)), bits);
}

TEST(TensorArray, RaggedVectorsAreRefused)
{
    using Nested = RecursiveVector<short, 3>::Internal;
    const Nested good[] = {{}, {{}, {}}, {{{1}, {2}}, {{3}, {4}}}};
    for (const Nested& nested : good)
        EXPECT_EQ(buildList(arrayFromVector(nested)), nested);
    const Nested longerInside{{{1}, {2}}, {{3}, {4, 5}}}, longer{{{1}}, {{3}, {4}}}, firstEmpty{{}, {{3}}},
        lastEmpty{{{3}}, {}};
    for (const Nested& nested : {longerInside, longer, firstEmpty, lastEmpty}) {
        EXPECT_FALSE(validVectorAsArray(nested));
        EXPECT_EQ(errorOf([&] { arrayFromVector(nested); }), "Input vector dimensions are not consistent.");
    }
    EXPECT_TRUE(checkArray(std::array<std::uint64_t, 3>{1, 2, 1}, Nested{{{1}, {2}}}));
    EXPECT_FALSE(checkArray(std::array<std::uint64_t, 3>{1, 2, 2}, Nested{{{1}, {2}}}));
}

TEST(TensorArray, MembersAreSetInTheirNestedForm)
{
    constexpr auto member = std::get<0>(trovi::MetaHolder<Layer>::members);
    Layer layer;
    const RecursiveVector<short, 3>::Internal nested{{{1, 2}}, {{3, 4}}}, ragged{{{1, 2}}, {{3}}};
    member.pySetter(layer, nested);
    EXPECT_EQ(errorOf([&] { member.pySetter(layer, ragged); }), "Input vector dimensions are not consistent.");
    EXPECT_EQ(layer.values, (Array3Int16{{2, 1, 2}, {1, 2, 3, 4}}));
    EXPECT_EQ(member.pyGetter(layer), nested);
    layer.values.data.pop_back();
    EXPECT_EQ(errorOf([&] { member.pyGetter(layer); }), "An array of dimensions [2, 1, 2] has not 3 values.");
}

// An array's parts as they come from a file or a peer.
struct Parts {
    Array3Int16::Dimensions dimensions, offsets;
    std::vector<short> values;
};

} // namespace

template <>
constexpr auto trovi::registerMembers<Parts>()
{
    return members(member("dimensions", &Parts::dimensions), member("offsets", &Parts::offsets),
                   member("values", &Parts::values));
}

namespace {

TEST(TensorArray, ItsFormsAreThoseOfItsParts)
{
    const Array3Int16 array{{2, 1, 2}, {1, 2, 3, -4}};
    const Parts parts{{2, 1, 2}, {2, 2, 1}, {1, 2, 3, -4}};
    EXPECT_EQ(trovi::serializeToBuffer(array), trovi::serializeToBuffer(parts));
    EXPECT_EQ(trovi::toJson(array), trovi::toJson(parts));

    const Layer layer{array, {{1, 3}, {true, false, true}}};
    EXPECT_EQ(trovi::deserializeBytes<Layer>(trovi::serializeToBuffer(layer)), layer);
    Layer back;
    trovi::fromJson(back, trovi::toJson(layer));
    EXPECT_EQ(back, layer);
}

TEST(TensorArray, ABadFormIsRefusedAndTheArrayStays)
{
    constexpr std::uint64_t huge = 1ULL << 32U;
    const struct {
        Parts parts;
        const char* error;
    } rows[] = {
        {{{2, 1, 2}, {2, 2, 1}, {1, 2, 3}}, "An array of dimensions [2, 1, 2] has not 3 values."},
        {{{2, 1, 2}, {2, 2, 1}, {1, 2, 3, 4, 5}}, "An array of dimensions [2, 1, 2] has not 5 values."},
        {{{2, 1, 2}, {1, 2, 2}, {1, 2, 3, 4}},
         "An array of dimensions [2, 1, 2] has the offsets [2, 2, 1], and not [1, 2, 2]."},
        {{{huge, huge, 1}, {huge, 1, 1}, {}}, "An array of dimensions [4294967296, 4294967296, 1] has not 0 values."},
        {{{huge, 0, 1}, {0, 1, 1}, {}}, "An array of dimensions [4294967296, 0, 1] has too many empty rows."},
    };
    Array3Int16 array = counted({1, 2, 1});
    for (const auto& row : rows) {
        const trovi::Bytes form = trovi::serializeToBuffer(row.parts);
        trovi::ByteReader reader(form);
        EXPECT_EQ(errorOf([&] { trovi::decode(reader, array); }), row.error);
        EXPECT_EQ(errorOf([&] { trovi::fromJson(array, trovi::toJson(row.parts)); }), row.error);
        EXPECT_EQ(array, counted({1, 2, 1}));
    }
}

} // namespace
