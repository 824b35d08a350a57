#include "tessel/family/Family.h"
#include VORNA_FAMILY_HEADER_IN(configuration, Validation)

#include <cstdint>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../Golden.h"
#include "Leaves.h"
#include "tessel/registers/DvsCore.h"
#include "tessel/registers/LayerCore.h"
#include "tessel/registers/ReadoutCore.h"

namespace VORNA_FAMILY::configuration {
namespace {

using detail::FeatureRange;
using tessel::getOutputSize;
using C = Configuration;

// What passes is never cut on its way into a register: the largest value fits the fields that take it.
constexpr bool fits(unsigned value, auto... fields) { return value < 1u << (fields.width + ...); }
namespace lc = tessel::registers::layercore;
namespace dvs = tessel::registers::dvscore;
static_assert(fits(CNN_MAX_PADDING, lc::Register00::paddingX));
static_assert(fits(CNN_MAX_KERNEL_SIZE - 1, lc::Register01::kernelSizeLess1));
static_assert(fits(CNN_MAX_FEATURE_NUMBER - 1, lc::Register02::inputFeaturesLess1Low,
                   lc::Register03::inputFeaturesLess1High));
static_assert(fits(CNN_MAX_FEATURE_NUMBER - 1, lc::Register04::outputFeaturesLess1Low,
                   lc::Register05::outputFeaturesLess1High));
static_assert(fits(CNN_MAX_OUTPUT_FEATURE_SIZE - 1, lc::Register04::outputHeightLess1));
static_assert(fits(CNN_MAX_LAYER, lc::Register32::layer0));
static_assert(fits(CNN_MAX_FEATURE_SHIFT, lc::Register33::featureShift0Low, lc::Register34::featureShift0High));
static_assert(fits(DVS_MAX_ORDINATE, dvs::Register03::cutX));
static_assert(fits(DVS_CURRENT_CONTROL_MAX, dvs::Register08::currentControlP3));
static_assert(fits(READOUT_MAX_ADDRESS_INTERPRETATION,
                   tessel::registers::readoutcore::Register14::inputAddressInterpretation));

// Gives the arrays of each layer the shapes that its dimensions ask for.
void fit(C& c)
{
    for (CNNLayerConfig& layer : c.cnn_layers) {
        leaves::reshape(layer.weights, layer.dimensions.getWeightsArrayDimensions());
        leaves::reshape(layer.weights_kill_bit, layer.dimensions.getWeightsArrayDimensions());
        leaves::reshape(layer.biases, layer.dimensions.getBiasesArrayDimensions());
        leaves::reshape(layer.biases_kill_bit, layer.dimensions.getBiasesArrayDimensions());
        leaves::reshape(layer.neurons_initial_value, layer.dimensions.getNeuronStatesArrayDimensions());
        leaves::reshape(layer.neurons_value_kill_bit, layer.dimensions.getNeuronStatesArrayDimensions());
    }
}

void shape(CNNLayerConfig& layer, std::uint16_t inputs, std::uint8_t inputSize, std::uint8_t kernel,
           std::uint8_t padding, std::uint16_t outputs, std::uint8_t outputSize)
{
    layer.dimensions = {.padding = {padding, padding},
                        .kernel_size = kernel,
                        .input_shape = {inputs, {inputSize, inputSize}},
                        .output_shape = {outputs, {outputSize, outputSize}}};
}

//           2x32x32     /-- pooling 2 --> 1 --\ features 0-3
//   DVS ----------> 0 --                       --> 3
//                         \-- pooling 2 --> 2 --/ features 4-7
C network()
{
    C c;
    c.dvs_layer.cut = {31, 31};
    c.dvs_layer.destinations[0].enable = true;
    c.cnn_layers[0].destinations = {{{1, true, 0, 2}, {2, true, 0, 2}}};
    c.cnn_layers[1].destinations[0] = {3, true, 0, 1};
    c.cnn_layers[2].destinations[0] = {3, true, 4, 1};
    shape(c.cnn_layers[0], 2, 32, 3, 1, 4, 32);
    shape(c.cnn_layers[1], 4, 16, 3, 0, 4, 14);
    shape(c.cnn_layers[2], 4, 16, 3, 0, 4, 14);
    shape(c.cnn_layers[3], 8, 14, 14, 0, 10, 1);
    fit(c);
    return c;
}

// The text; and the verdict is false exactly when there is one.
std::string findings(const auto&... checked)
{
    std::ostringstream stream;
    const bool valid = validate(checked..., stream);
    EXPECT_EQ(valid, stream.str().empty());
    return stream.str();
}

TEST(Validation, WhatIsRightIsSilent)
{
    C c = network();
    EXPECT_EQ(findings(c), "");
    EXPECT_EQ(findings(C()), "");
    EXPECT_EQ(validateConfiguration(c), std::tuple(true, std::string()));
    c.factory_settings.io_drive_strength = 255;
    c.debug_config.cnn_layers_config[0].kernel.word_part = 255;
    c.dvs_layer.merge = true;
    c.cnn_layers[0].dimensions.input_shape.feature_count = 1;
    fit(c);
    EXPECT_EQ(findings(c), "");
}

// The golden file has the cases too: after "====" what is wrong, the members that make it so in the network above, and
// after "----" the text. "fit" gives the arrays the shapes that the new dimensions ask for. A new case needs no text.
TEST(Validation, EachFaultHasItsText)
{
    std::ifstream file(VORNA_SOURCE_DIR "/tests/golden/chip_validation.txt");
    std::string cases, members;
    bool given = false;
    int count = 0;
    for (std::string line; std::getline(file, line);)
        if (line.rfind("====", 0) == 0) {
            cases += line + "\n";
            members.clear();
            given = true;
        } else if (given && line != "----") {
            members += line + "\n";
        } else if (given) {
            C c = network();
            const bool fitted = members.ends_with(" fit\n");
            leaves::assign(c, fitted ? members.substr(0, members.size() - 4) : members);
            if (fitted)
                fit(c);
            const std::string text = findings(c);
            EXPECT_EQ(validateConfiguration(c), std::tuple(false, text));
            cases += members + "----\n" + text;
            given = false;
            ++count;
        }
    EXPECT_EQ(count, 20);
    EXPECT_GOLDEN("chip_validation.txt", cases);
}

// Equal bottoms keep the order of their sources; overlaps are sought among all pairs, gaps among neighbours.
TEST(Validation, RangesOfFeatures)
{
    C c;
    for (auto& layer : c.cnn_layers)
        layer.destinations = {{{4, true, 7, 1}, {4, true, 7, 1}}};
    c.cnn_layers[6].destinations[1].feature_shift = 0;
    c.cnn_layers[6].dimensions.output_shape.feature_count = 0; // a range of no feature
    c.dvs_layer.destinations[1] = {.layer = 4, .enable = true};
    std::ostringstream text;
    for (const auto& ranges : detail::generateLayerInputRanges(c)) {
        text << "a layer receives " << ranges.size() << " ranges\n";
        for (const FeatureRange& r : ranges)
            text << detail::layerToString(r.sourceLayer) << ' ' << r.destinationIndex << ": " << r.bottom << " to "
                 << r.top << '\n';
    }
    constexpr std::int32_t last = std::numeric_limits<std::int32_t>::max();
    for (const std::vector<FeatureRange>& ranges :
         {std::vector<FeatureRange>{}, {{0, 0, 5, 2}}, {{0, 0, 0, last}, {1, 1, 2, 3}, {9, 0, 6, 6}}}) {
        text << "report of " << ranges.size() << '\n';
        detail::reportOverlaps(ranges, text);
        detail::reportGaps(ranges, text);
    }
    EXPECT_GOLDEN("chip_feature_ranges.txt", text.str());
    EXPECT_EQ(detail::layerToString(10), "Layer[10]");
}

TEST(Validation, MemoryIsCountedInWholeAddressBits)
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
        CNNLayerConfig layer;
        layer.dimensions.input_shape = {row.inputs, {row.inputSize, row.inputSize}};
        layer.dimensions.kernel_size = row.kernel;
        layer.dimensions.padding = {row.padding, row.padding};
        layer.dimensions.stride = {row.stride, row.stride};
        layer.dimensions.output_shape = {row.outputs, {1, 1}};
        EXPECT_EQ(computeWeightMemory(layer), row.weightWords) << &row - rows;
        EXPECT_EQ(computeNeuronMemory(layer), row.neuronWords) << &row - rows;
    }
    CNNLayerConfig layer;
    layer.dimensions.stride.y = 0;
    EXPECT_THROW((void)computeNeuronMemory(layer), std::domain_error);
}

TEST(Validation, OutputSizesGoDownwardsBelowZero)
{
    const auto line = [](int input, int output, int kernel, int padding, int stride) {
        std::ostringstream stream;
        const bool valid = detail::validateInOutDim(input, output, kernel, padding, stride, "x", stream);
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

TEST(Validation, ALayerThatDoesNotExistIsAFault)
{
    const CNNLayerConfig layer;
    EXPECT_EQ(findings(layer, std::size_t{8}), "");
    EXPECT_EQ(findings(layer, std::size_t{9}), "Layer must be in [0,8]. Actual: 9\n");
    EXPECT_THROW((void)tessel::getMaximumWeightMemory(9), std::out_of_range);
    EXPECT_THROW((void)tessel::getMaximumNeuronMemory(9), std::out_of_range);
}

TEST(Validation, AnyConfigurationGetsAVerdictWithAText)
{
    std::mt19937 random(20261123);
    int good = 0;
    for (int round = 0; round < 3000 && !testing::Test::HasFailure(); ++round) {
        C c = random() % 2 == 0 ? network() : C();
        leaves::randomise(c, random, std::vector{1u, 3u, 30u, 300u}[static_cast<std::size_t>(round % 4)]);
        const std::string text = findings(c);
        good += text.empty();
        EXPECT_TRUE(text.empty() || text.back() == '\n');
        EXPECT_EQ(findings(c), text);
    }
    EXPECT_GT(good, 0) << "all were broken beyond repair, so nothing was learnt about valid ones";
}

} // namespace
} // namespace VORNA_FAMILY::configuration
