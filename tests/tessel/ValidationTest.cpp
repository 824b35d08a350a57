#include "ravik/configuration/Validation.h"

#include <cstdint>
#include <functional>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tessel/configuration/Validation.h"
#include "tessel/registers/DvsCore.h"
#include "tessel/registers/LayerCore.h"
#include "tessel/registers/ReadoutCore.h"

namespace {

using tessel::getOutputSize;

// What passes is never cut on its way into a register: the largest value fits the fields that take it.
constexpr bool fits(unsigned value, auto... fields) { return value < 1u << (fields.width + ...); }
namespace lc = tessel::registers::layercore;
namespace dvs = tessel::registers::dvscore;
static_assert(fits(tessel::CNN_MAX_PADDING, lc::Register00::paddingX));
static_assert(fits(tessel::CNN_MAX_KERNEL_SIZE - 1, lc::Register01::kernelSizeLess1));
static_assert(fits(tessel::CNN_MAX_FEATURE_NUMBER - 1, lc::Register02::inputFeaturesLess1Low,
                   lc::Register03::inputFeaturesLess1High));
static_assert(fits(tessel::CNN_MAX_FEATURE_NUMBER - 1, lc::Register04::outputFeaturesLess1Low,
                   lc::Register05::outputFeaturesLess1High));
static_assert(fits(tessel::CNN_MAX_OUTPUT_FEATURE_SIZE - 1, lc::Register04::outputHeightLess1));
static_assert(fits(tessel::CNN_MAX_LAYER, lc::Register32::layer0));
static_assert(fits(tessel::CNN_MAX_FEATURE_SHIFT, lc::Register33::featureShift0Low, lc::Register34::featureShift0High));
static_assert(fits(tessel::DVS_MAX_ORDINATE, dvs::Register03::cutX));
static_assert(fits(tessel::DVS_CURRENT_CONTROL_MAX, dvs::Register08::currentControlP3));
static_assert(fits(tessel::READOUT_MAX_ADDRESS_INTERPRETATION,
                   tessel::registers::readoutcore::Register14::inputAddressInterpretation));

// What differs between the families: types, and the functions that no argument leads to.
struct Tessel {
    using Configuration = tessel::configuration::TesselConfiguration;
    using Layer = tessel::configuration::CNNLayerConfig;
    using Range = tessel::configuration::detail::FeatureRange;
    static constexpr auto ranges = &tessel::configuration::detail::generateLayerInputRanges;
    static constexpr auto inOutDim = &tessel::configuration::detail::validateInOutDim;
    static constexpr auto layerToString = &tessel::configuration::detail::layerToString;
    static constexpr auto validateConfiguration = &tessel::validateConfiguration;
};

struct Ravik {
    using Configuration = ravik::configuration::RavikConfiguration;
    using Layer = ravik::configuration::CNNLayerConfig;
    using Range = ravik::configuration::detail::FeatureRange;
    static constexpr auto ranges = &ravik::configuration::detail::generateLayerInputRanges;
    static constexpr auto inOutDim = &ravik::configuration::detail::validateInOutDim;
    static constexpr auto layerToString = &ravik::configuration::detail::layerToString;
    static constexpr auto validateConfiguration = &ravik::validateConfiguration;
};

template <class Family>
class Validation : public testing::Test {};
using Families = testing::Types<Tessel, Ravik>;
TYPED_TEST_SUITE(Validation, Families);

template <class Array>
void reshape(Array& array, const typename Array::Dimensions& dimensions)
{
    array.dimensions = dimensions;
    array.data.assign(util::tensor::elementCount(dimensions), {});
}

// Gives the arrays of a layer the shapes that its dimensions ask for.
void fit(auto& layer)
{
    reshape(layer.weights, layer.dimensions.getWeightsArrayDimensions());
    reshape(layer.weights_kill_bit, layer.dimensions.getWeightsArrayDimensions());
    reshape(layer.biases, layer.dimensions.getBiasesArrayDimensions());
    reshape(layer.biases_kill_bit, layer.dimensions.getBiasesArrayDimensions());
    reshape(layer.neurons_initial_value, layer.dimensions.getNeuronStatesArrayDimensions());
    reshape(layer.neurons_value_kill_bit, layer.dimensions.getNeuronStatesArrayDimensions());
}

void shape(auto& layer, std::uint16_t inputs, std::uint8_t inputSize, std::uint8_t kernel, std::uint8_t padding,
           std::uint16_t outputs, std::uint8_t outputSize)
{
    layer.dimensions.input_shape = {inputs, {inputSize, inputSize}};
    layer.dimensions.kernel_size = kernel;
    layer.dimensions.padding = {padding, padding};
    layer.dimensions.output_shape = {outputs, {outputSize, outputSize}};
    fit(layer);
}

//           2x32x32     /-- pooling 2 --> 1 --\ features 0-3
//   DVS ----------> 0 --                       --> 3
//                         \-- pooling 2 --> 2 --/ features 4-7
template <class Family>
typename Family::Configuration network()
{
    typename Family::Configuration c;
    c.dvs_layer.cut = {31, 31};
    c.dvs_layer.destinations[0] = {.layer = 0, .enable = true};
    shape(c.cnn_layers[0], 2, 32, 3, 1, 4, 32);
    c.cnn_layers[0].destinations[0] = {.layer = 1, .enable = true, .feature_shift = 0, .pooling = 2};
    c.cnn_layers[0].destinations[1] = {.layer = 2, .enable = true, .feature_shift = 0, .pooling = 2};
    for (const std::size_t i : {1u, 2u}) {
        shape(c.cnn_layers[i], 4, 16, 3, 0, 4, 14);
        c.cnn_layers[i].destinations[0] = {
            .layer = 3, .enable = true, .feature_shift = static_cast<std::uint16_t>(4 * (i - 1))};
    }
    shape(c.cnn_layers[3], 8, 14, 14, 0, 10, 1);
    return c;
}

// The text; and the verdict is false exactly when there is one.
std::string findings(const auto&... judged)
{
    std::ostringstream stream;
    const bool valid = validate(judged..., stream);
    EXPECT_EQ(valid, stream.str().empty());
    return stream.str();
}

template <class Family>
struct Fault {
    const char* what;
    std::function<void(typename Family::Configuration&)> breakIt;
    const char* text;
};

template <class Family>
const std::vector<Fault<Family>>& faults()
{
    using C = typename Family::Configuration;
    static const std::vector<Fault<Family>> rows{
        {"features 0-3 and 2-5", [](C& c) { c.cnn_layers[2].destinations[0].feature_shift = 2; },
         "Layer[3]\n"
         "\tOverlap between:\n"
         "\t\tLayer[1] destination[0] bottom: 0 top: 3 with\n"
         "\t\tLayer[2] destination[0] bottom: 2 top: 5\n"},
        {"features 0-3 and 6-9", [](C& c) { c.cnn_layers[2].destinations[0].feature_shift = 6; },
         "Layer[3]\n"
         "\tGap between:\n"
         "\t\tLayer[1] destination[0] bottom: 0 top: 3 with\n"
         "\t\tLayer[2] destination[0] bottom: 6 top: 9\n"},
        {"both destinations of a layer and the camera feed one layer",
         [](C& c) {
             c.cnn_layers[2].destinations[1] = c.cnn_layers[1].destinations[0];
             c.dvs_layer.destinations[1] = {.layer = 3, .enable = true};
         },
         "Layer[3]\n"
         "\tOverlap between:\n"
         "\t\tLayer[1] destination[0] bottom: 0 top: 3 with\n"
         "\t\tLayer[2] destination[1] bottom: 0 top: 3\n"
         "\tOverlap between:\n"
         "\t\tLayer[1] destination[0] bottom: 0 top: 3 with\n"
         "\t\tDVS destination[1] bottom: 0 top: 1\n"
         "\tOverlap between:\n"
         "\t\tLayer[2] destination[1] bottom: 0 top: 3 with\n"
         "\t\tDVS destination[1] bottom: 0 top: 1\n"
         "\tGap between:\n"
         "\t\tDVS destination[1] bottom: 0 top: 1 with\n"
         "\t\tLayer[2] destination[0] bottom: 4 top: 7\n"
         "Layer[3]\n"
         "\tInput space feature count does not match target input feature count. 14 versus 8\n"
         "Layer[3] input size x: 14 different than DVS output size x: 32\n"
         "Layer[3] input size y: 14 different than DVS output size y: 32\n"},
        {"contiguous, but from feature 4 on",
         [](C& c) {
             c.cnn_layers[1].destinations[0].feature_shift = 4;
             c.cnn_layers[2].destinations[0].feature_shift = 8;
         },
         "Layer[3]\n\tInput range does not start from 0. Bottom: 4\n"},
        {"a merged camera is one feature", [](C& c) { c.dvs_layer.merge = true; },
         "Layer[0]\n\tInput space feature count does not match target input feature count. 1 versus 2\n"},
        {"the last feature is 1024", [](C& c) { c.cnn_layers[2].destinations[0].feature_shift = 1021; },
         "Layer[3]\n"
         "\tGap between:\n"
         "\t\tLayer[1] destination[0] bottom: 0 top: 3 with\n"
         "\t\tLayer[2] destination[0] bottom: 1021 top: 1024\n"
         "Layer[3] input feature space top is out of bounds; top:1024 Max: 1023\n"},
        {"a size that the pooling doesn't divide",
         [](C& c) {
             c.cnn_layers[0].destinations[0].pooling = 1;
             c.cnn_layers[1].destinations[0].pooling = 4;
         },
         "Layer[1] input size x: 16 different than Layer[0] output size x: 32 pooling: 1\n"
         "Layer[1] input size y: 16 different than Layer[0] output size y: 32 pooling: 1\n"
         "Layer[3] input size x: 14 different than Layer[1] output size x: 14 pooling: 4\n"
         "Layer[3] input size y: 14 different than Layer[1] output size y: 14 pooling: 4\n"},
        {"the camera's region: origin above cut, and pooled",
         [](C& c) {
             c.dvs_layer.origin = {50, 0};
             c.dvs_layer.pooling = {4, 2};
         },
         "Layer[0] input size x: 32 different than DVS output size x: -4\n" // -18 / 4
         "Layer[0] input size y: 32 different than DVS output size y: 16\n"},
        {"pooling 0",
         [](C& c) {
             c.cnn_layers[0].destinations[1].pooling = 0;
             c.dvs_layer.pooling = {0, 2};
         },
         "Layer[2] input size cannot be compared with Layer[0] output size, pooling: 0\n"
         "Layer[0] input size cannot be compared with DVS output size, pooling x: 0 pooling y: 2\n"
         "Layer[0] input size y: 32 different than DVS output size y: 16\n"
         "Pooling must be in {1, 2, 4, 8}. Actual: 0\n"
         "Layer[0] Destination[1] is configured incorrectly ^^^^^^\n"
         "Layer[0] is configured incorrectly ^^^^^^\n"
         "Pooling x must be in {1, 2, 4}. Actual: 0\n"
         "DVS Layer is configured incorrectly ^^^^^^.\n"},
        {"enabled destinations that don't exist",
         [](C& c) {
             c.cnn_layers[3].destinations[0] = {.layer = 9, .enable = true, .feature_shift = 0, .pooling = 0};
             c.dvs_layer.destinations[1] = {.layer = 255, .enable = true};
         },
         "Destination Layer must be in [0,8]. Actual: 9\n"
         "Pooling must be in {1, 2, 4, 8}. Actual: 0\n"
         "Layer[3] Destination[0] is configured incorrectly ^^^^^^\n"
         "Layer[3] is configured incorrectly ^^^^^^\n"
         "Destination Layer must be in [0,8]. Actual: 255\n"
         "DVS Destination[1] is configured incorrectly ^^^^^^\n"
         "DVS Layer is configured incorrectly ^^^^^^.\n"},
        {"a disabled destination is judged too",
         [](C& c) {
             c.cnn_layers[8].destinations[1] = {.layer = 9, .enable = false, .feature_shift = 1024, .pooling = 3};
         },
         "Destination Layer must be in [0,8]. Actual: 9\n"
         "Feature shift must be in [0,1023]. Actual: 1024\n"
         "Pooling must be in {1, 2, 4, 8}. Actual: 3\n"
         "Layer[8] Destination[1] is configured incorrectly ^^^^^^\n"
         "Layer[8] is configured incorrectly ^^^^^^\n"},
        {"stride 0 and another fault behind it",
         [](C& c) {
             c.cnn_layers[1].dimensions.stride.x = 0;
             c.cnn_layers[1].threshold_low = 5; // not looked at: the dimensions are wrong
             c.cnn_layers[1].destinations[1].pooling = 16;
         },
         "Stride x must be in {1, 2, 4, 8}. Actual: 0\n"
         "Pooling must be in {1, 2, 4, 8}. Actual: 16\n"
         "Layer[1] Destination[1] is configured incorrectly ^^^^^^\n"
         "Layer[1] is configured incorrectly ^^^^^^\n"},
        {"every dimension out of bounds",
         [](C& c) {
             c.cnn_layers[7].dimensions = {.padding = {8, 255},
                                           .stride = {3, 16},
                                           .kernel_size = 17,
                                           .input_shape = {1025, {129, 0}},
                                           .output_shape = {0, {65, 255}}};
         },
         "Weights array must have dimensions [0][1025][17][17]\n"
         "Weights kill bit array must have dimensions [0][1025][17][17]\n"
         "Biases array must have dimension [0]\n"
         "Biases kill bit array must have dimension [0]\n"
         "Neuron values must have dimensions [0][65][255]\n"
         "Neuron values kill bit must have dimensions [0][65][255]\n"
         "Stride x must be in {1, 2, 4, 8}. Actual: 3\n"
         "Stride y must be in {1, 2, 4, 8}. Actual: 16\n"
         "Padding x must be in [0,7]. Actual: 8\n"
         "Padding y must be in [0,7]. Actual: 255\n"
         "Kernel size must be in [1,16]. Actual: 17\n"
         "Input feature number must be in [1,1024]. Actual: 1025\n"
         "Input feature size x must be in [1,128]. Actual: 129\n"
         "Input feature size y must be in [1,128]. Actual: 0\n"
         "Output feature number must be in [1,1024]. Actual: 0\n"
         "Output feature size x must be in [1,64]. Actual: 65\n"
         "Output feature size y must be in [1,64]. Actual: 255\n"
         "Layer[7] is configured incorrectly ^^^^^^\n"},
        {"kill bits of another shape than the values",
         [](C& c) {
             reshape(c.cnn_layers[1].weights_kill_bit, {4, 4, 3, 4});
             reshape(c.cnn_layers[1].biases_kill_bit, {3});
             reshape(c.cnn_layers[1].neurons_value_kill_bit, {4, 14, 13});
         },
         "Weights kill bit array must have dimensions [4][4][3][3]\n"
         "Biases kill bit array must have dimension [4]\n"
         "Neuron values kill bit must have dimensions [4][14][14]\n"
         "Layer[1] is configured incorrectly ^^^^^^\n"},
        {"an output size that the input doesn't give, and thresholds on the wrong sides",
         [](C& c) {
             shape(c.cnn_layers[3], 8, 14, 13, 0, 10, 1);
             c.cnn_layers[3].threshold_high = -1;
             c.cnn_layers[3].threshold_low = 1;
         },
         "On x floor((feature_size-filter_size+2*zero_padding)/stride+1) must be 2. Actual: 1\n"
         "On y floor((feature_size-filter_size+2*zero_padding)/stride+1) must be 2. Actual: 1\n"
         "Threshold high must be in [0,32767]. Actual: -1\n"
         "Threshold low must be in [-32768,0]. Actual: 1\n"
         "Layer[3] is configured incorrectly ^^^^^^\n"},
        {"a kernel larger than the input: no neurons to count",
         [](C& c) {
             shape(c.cnn_layers[8], 1, 1, 4, 0, 1024, 64);
             c.cnn_layers[8].dimensions.stride = {2, 1};
         },
         "On x floor((feature_size-filter_size+2*zero_padding)/stride+1) must be -1. Actual: 64\n"
         "On y floor((feature_size-filter_size+2*zero_padding)/stride+1) must be -2. Actual: 64\n"
         "Layer[8] is configured incorrectly ^^^^^^\n"},
        {"too much for the memories of layer 7", [](C& c) { shape(c.cnn_layers[7], 33, 65, 2, 0, 65, 64); },
         "Weight memory requirements 16896 exceeds 16384\n"  // 33 << 2 + 7
         "Neuron memory requirements 266240 exceeds 16384\n" // 65 << 6 + 6
         "Layer[7] is configured incorrectly ^^^^^^\n"},
        {"the same layer's kernel fits layer 3",
         [](C& c) {
             c.cnn_layers[2].destinations[0].enable = c.cnn_layers[1].destinations[0].enable = false;
             shape(c.cnn_layers[3], 33, 65, 2, 0, 65, 64);
         },
         "Neuron memory requirements 266240 exceeds 32768\n"
         "Layer[3] is configured incorrectly ^^^^^^\n"},
        {"every setting of the camera out of bounds",
         [](C& c) {
             auto& d = c.dvs_layer;
             d.destinations[0].enable = false;
             d.destinations[0].layer = d.destinations[1].layer = 9;
             d.origin = {128, 129};
             d.cut = {130, 131};
             d.pooling = {3, 8};
             d.current_control_p3 = 16;
             d.current_control_p4 = 17;
             d.current_control_p5 = 18;
             d.current_control_p6 = 19;
             d.current_control_p7 = 255;
         },
         "Origin x must be in [0,127]. Actual: 128\n"
         "Origin y must be in [0,127]. Actual: 129\n"
         "Cut x must be in [0,127]. Actual: 130\n"
         "Cut y must be in [0,127]. Actual: 131\n"
         "Pooling x must be in {1, 2, 4}. Actual: 3\n"
         "Pooling y must be in {1, 2, 4}. Actual: 8\n"
         "Current control P3 must be in [0,15]. Actual: 16\n"
         "Current control P4 must be in [0,15]. Actual: 17\n"
         "Current control P5 must be in [0,15]. Actual: 18\n"
         "Current control P6 must be in [0,15]. Actual: 19\n"
         "Current control P7 must be in [0,15]. Actual: 255\n"
         "Destination Layer must be in [0,8]. Actual: 9\n"
         "DVS Destination[0] is configured incorrectly ^^^^^^\n"
         "Destination Layer must be in [0,8]. Actual: 9\n"
         "DVS Destination[1] is configured incorrectly ^^^^^^\n"
         "DVS Layer is configured incorrectly ^^^^^^.\n"},
        {"a bit of everything, in the order of the judgement",
         [](C& c) {
             c.readout.input_address_interpretation = 4;
             c.dvs_layer.current_control_p5 = 99;
             c.cnn_layers[5].dimensions.kernel_size = 0;
             fit(c.cnn_layers[5]);
             c.cnn_layers[1].threshold_high = std::numeric_limits<std::int16_t>::min();
             c.cnn_layers[2].destinations[0].feature_shift = 5;
             c.dvs_layer.cut.y = 30;
         },
         "Layer[3]\n"
         "\tGap between:\n"
         "\t\tLayer[1] destination[0] bottom: 0 top: 3 with\n"
         "\t\tLayer[2] destination[0] bottom: 5 top: 8\n"
         "Layer[0] input size y: 32 different than DVS output size y: 31\n"
         "Threshold high must be in [0,32767]. Actual: -32768\n"
         "Layer[1] is configured incorrectly ^^^^^^\n"
         "Kernel size must be in [1,16]. Actual: 0\n"
         "Layer[5] is configured incorrectly ^^^^^^\n"
         "Current control P5 must be in [0,15]. Actual: 99\n"
         "DVS Layer is configured incorrectly ^^^^^^.\n"
         "Input address interpretation must be in [0,3]. Actual: 4\n"},
    };
    return rows;
}

TYPED_TEST(Validation, WhatIsRightIsSilent)
{
    auto c = network<TypeParam>();
    EXPECT_EQ(findings(c), "");
    EXPECT_EQ(findings(typename TypeParam::Configuration{}), "");
    c.factory_settings.io_drive_strength = 255;
    c.debug_config.cnn_layers_config[0].kernel.word_part = 255;
    c.dvs_layer.merge = true;
    c.cnn_layers[0].dimensions.input_shape.feature_count = 1;
    fit(c.cnn_layers[0]);
    EXPECT_EQ(findings(c), "");
}

TYPED_TEST(Validation, FaultsAreToldInFull)
{
    for (const auto& row : faults<TypeParam>()) {
        auto c = network<TypeParam>();
        row.breakIt(c);
        EXPECT_EQ(findings(c), row.text) << row.what;
        EXPECT_EQ(TypeParam::validateConfiguration(c), std::tuple(false, std::string(row.text))) << row.what;
    }
}

TYPED_TEST(Validation, EqualBottomsKeepTheOrderOfTheirSources)
{
    typename TypeParam::Configuration c;
    for (auto& layer : c.cnn_layers) {
        layer.destinations[0] = {.layer = 4, .enable = true, .feature_shift = 7};
        layer.destinations[1] = layer.destinations[0];
    }
    c.cnn_layers[6].destinations[1].feature_shift = 0;
    c.cnn_layers[6].dimensions.output_shape.feature_count = 0; // a range of no feature
    c.dvs_layer.destinations[1] = {.layer = 4, .enable = true};
    const auto ranges = TypeParam::ranges(c);
    ASSERT_EQ(ranges.size(), 9u);
    std::vector<typename TypeParam::Range> expected{{6, 1, 0, -1}, {9, 1, 0, 1}};
    for (std::uint16_t source = 0; source < 9; ++source)
        for (std::uint64_t index = 0; index < 2; ++index)
            if (source != 6)
                expected.push_back({source, index, 7, 7});
            else if (index == 0)
                expected.push_back({source, index, 7, 6});
    EXPECT_TRUE(ranges[4] == expected);
    EXPECT_TRUE(ranges[0].empty());
}

TYPED_TEST(Validation, OverlapsAreSoughtAmongAllPairsAndGapsAmongNeighbours)
{
    constexpr std::int32_t last = std::numeric_limits<std::int32_t>::max();
    const auto report = [](const std::vector<typename TypeParam::Range>& ranges) {
        std::ostringstream stream;
        reportOverlaps(ranges, stream);
        stream << "--\n";
        reportGaps(ranges, stream);
        return stream.str();
    };
    EXPECT_EQ(report({}), "--\n");
    EXPECT_EQ(report({{0, 0, 5, 2}}), "--\n");
    EXPECT_EQ(report({{0, 0, 0, last}, {1, 1, 2, 3}, {9, 0, 6, 6}}),
              "\tOverlap between:\n"
              "\t\tLayer[0] destination[0] bottom: 0 top: 2147483647 with\n"
              "\t\tLayer[1] destination[1] bottom: 2 top: 3\n"
              "\tOverlap between:\n"
              "\t\tLayer[0] destination[0] bottom: 0 top: 2147483647 with\n"
              "\t\tDVS destination[0] bottom: 6 top: 6\n"
              "--\n"
              "\tGap between:\n"
              "\t\tLayer[1] destination[1] bottom: 2 top: 3 with\n"
              "\t\tDVS destination[0] bottom: 6 top: 6\n");
    EXPECT_EQ(TypeParam::layerToString(8), "Layer[8]");
    EXPECT_EQ(TypeParam::layerToString(10), "Layer[10]");
}

TYPED_TEST(Validation, MemoryIsCountedInWholeAddressBits)
{
    struct Row {
        std::uint16_t inputs;
        std::uint8_t inputSize, kernel, padding, stride;
        std::uint16_t outputs;
        std::uint64_t weightWords, neuronWords;
    };
    static const Row rows[]{
        {3, 1, 3, 1, 1, 5, 384, 5},                                             // 3 << 4 + 3
        {1, 1, 1, 0, 1, 1, 1, 1},                                               //
        {2, 64, 4, 0, 4, 9, 2 << (4 + 4), 9 << (4 + 4)},                        // 16 x 16 neurons
        {2, 66, 2, 0, 4, 8, 2 << (2 + 3), 8 << (5 + 5)},                        // 17 x 17
        {65535, 255, 255, 255, 1, 65535, 281470681743360, 65535ull << (9 + 9)}, // 511 x 511
        {4, 8, 0, 0, 1, 4, 0, 4 << (4 + 4)},                                    // no kernel: no weights
        {4, 8, 3, 0, 1, 0, 0, 0},                                               // no output
        {4, 3, 4, 0, 2, 4, 4 << (4 + 2), 4}, // -1 / 2 + 1 is 1: the fraction is dropped
        {4, 3, 5, 0, 2, 4, 4 << (5 + 2), 0}, // -2 / 2 + 1 is 0
    };
    for (const Row& row : rows) {
        typename TypeParam::Layer layer;
        layer.dimensions.input_shape = {row.inputs, {row.inputSize, row.inputSize}};
        layer.dimensions.kernel_size = row.kernel;
        layer.dimensions.padding = {row.padding, row.padding};
        layer.dimensions.stride = {row.stride, row.stride};
        layer.dimensions.output_shape = {row.outputs, {1, 1}};
        EXPECT_EQ(computeWeightMemory(layer), row.weightWords) << &row - rows;
        EXPECT_EQ(computeNeuronMemory(layer), row.neuronWords) << &row - rows;
    }
    typename TypeParam::Layer layer;
    layer.dimensions.stride.y = 0;
    EXPECT_THROW((void)computeNeuronMemory(layer), std::domain_error);
}

TYPED_TEST(Validation, OutputSizesGoDownwardsBelowZero)
{
    const auto line = [](int input, int output, int kernel, int padding, int stride) {
        std::ostringstream stream;
        const bool valid = TypeParam::inOutDim(input, output, kernel, padding, stride, "x", stream);
        EXPECT_EQ(valid, stream.str().empty());
        return stream.str();
    };
    const std::string start = "On x floor((feature_size-filter_size+2*zero_padding)/stride+1) must be ";
    EXPECT_EQ(line(32, 16, 3, 1, 2), "");
    EXPECT_EQ(line(1, 1, 4, 1, 2), start + "0. Actual: 1\n");
    EXPECT_EQ(getOutputSize(1, 4, 1, 2), 1);
    EXPECT_EQ(line(0, 0, 5, 0, 2), start + "-2. Actual: 0\n");
    EXPECT_EQ(getOutputSize(0, 5, 0, 2), -1);
    EXPECT_EQ(line(4, 4, 1, 0, 0), start + "inf. Actual: 4\n");
    EXPECT_THROW((void)getOutputSize(4, 1, 0, 0), std::domain_error);
}

TYPED_TEST(Validation, ALayerThatDoesNotExistIsAFault)
{
    const typename TypeParam::Layer layer;
    EXPECT_EQ(findings(layer, std::size_t{8}), "");
    EXPECT_EQ(findings(layer, std::size_t{9}), "Layer must be in [0,8]. Actual: 9\n");
    EXPECT_THROW((void)tessel::getMaximumWeightMemory(9), std::out_of_range);
    EXPECT_THROW((void)tessel::getMaximumNeuronMemory(9), std::out_of_range);
}

// ---- any configuration -------------------------------------------------------------------------------------------

using Random = std::mt19937_64;

bool oneIn(Random& random, unsigned n) { return random() % n == 0; }

// Sets members that the description lists to values at which something begins or ends, one in `rarity` of them.
template <class T>
void scramble(T& value, Random& random, unsigned rarity);

template <class T, std::size_t N>
void scrambleArray(util::tensor::Array<T, N>& array, Random& random, unsigned rarity)
{
    if (!oneIn(random, rarity))
        return;
    typename util::tensor::Array<T, N>::Dimensions dimensions;
    for (auto& size : dimensions)
        size = random() % 4;
    reshape(array, dimensions);
}

template <class T>
void scramble(T& value, Random& random, unsigned rarity)
{
    if constexpr (std::is_integral_v<T> || std::is_enum_v<T>) {
        static constexpr int edges[]{-32768, -1, 0,  1,  2,   3,   4,   5,   7,   8,    9,    14,    15,
                                     16,     17, 31, 32, 63,  64,  65,  127, 128, 129,  255,  1023,  1024,
                                     1025,   -2, 10, 12, 100, 250, 254, 256, 512, 1020, 4096, 32767, 65535};
        if (oneIn(random, rarity))
            value = static_cast<T>(edges[random() % std::size(edges)]);
    } else if constexpr (requires { scrambleArray(value, random, rarity); }) {
        scrambleArray(value, random, rarity);
    } else if constexpr (requires { value.begin(); }) {
        for (auto& element : value)
            scramble(element, random, rarity);
    } else {
        trovi::forEach(trovi::MetaHolder<T>::members,
                       [&](const auto& member) { scramble(value.*(member.field), random, rarity); });
    }
}

TYPED_TEST(Validation, AnyConfigurationGetsAVerdictWithAText)
{
    Random random(20261123);
    int good = 0;
    for (int round = 0; round < 3000; ++round) {
        auto c = oneIn(random, 2) ? network<TypeParam>() : typename TypeParam::Configuration{};
        const unsigned rarity = std::vector{1u, 3u, 30u, 300u}[static_cast<std::size_t>(round % 4)];
        scramble(c, random, rarity);
        const std::string text = findings(c);
        good += text.empty();
        EXPECT_TRUE(text.empty() || text.back() == '\n');
        EXPECT_EQ(findings(c), text);
        if (this->HasFailure())
            break;
    }
    EXPECT_GT(good, 0) << "all were broken beyond repair, so nothing was learnt about valid ones";
}

} // namespace
