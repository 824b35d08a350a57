// The rules for configurations. Users see the texts and scripts compare them, so don't change them. Compiled once for
// each family.

#include "tessel/family/Family.h"
#include VORNA_FAMILY_HEADER_IN(configuration, Validation)

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <sstream>
#include <utility>

#include "util/Report.h"

namespace VORNA_FAMILY::configuration {

namespace detail {
namespace {

// A name for a reporter, which asks for it only when there is something to report.
auto named(const char* label)
{
    return [label] { return label; };
}

// c(v): log2(v), rounded up to a whole number; v is above 0.
int bitsToCount(std::uint64_t v) { return static_cast<int>(std::bit_width(v - 1)); }

template <class T, std::size_t N>
bool shapeMatches(const util::tensor::Array<T, N>& array, const std::array<std::uint64_t, N>& required,
                  const char* words, std::ostream& stream)
{
    if (array.dimensions == required)
        return true;
    stream << words << ' ';
    for (const std::uint64_t dimension : required)
        stream << '[' << dimension << ']';
    stream << '\n';
    return false;
}

void reportPair(const char* what, const FeatureRange& first, const FeatureRange& second, std::ostream& stream)
{
    const auto write = [&](const FeatureRange& range) -> std::ostream& {
        return stream << "\t\t" << layerToString(range.sourceLayer) << " destination[" << range.destinationIndex
                      << "] bottom: " << range.bottom << " top: " << range.top;
    };
    stream << '\t' << what << " between:\n";
    write(first) << " with\n";
    write(second) << '\n';
}

// Before a range comes another one, at some distance: 0 where they join, below 0 where they overlap.
std::int64_t distance(const FeatureRange& first, const FeatureRange& second)
{
    return std::int64_t{second.bottom} - first.top - 1;
}

bool sourceSizeMatches(const Configuration& configuration, std::size_t source, const CNNLayerDestination& destination,
                       std::ostream& stream)
{
    const auto& target = configuration.cnn_layers[destination.layer].dimensions.input_shape.size;
    const auto& output = configuration.cnn_layers[source].dimensions.output_shape.size;
    const int pooling = destination.pooling;
    if (pooling == 0) {
        stream << layerToString(destination.layer) << " input size cannot be compared with " << layerToString(source)
               << " output size, pooling: 0\n";
        return false;
    }
    const auto compare = [&](int expected, int size, char axis) {
        if (expected == size / pooling)
            return true;
        stream << layerToString(destination.layer) << " input size " << axis << ": " << expected << " different than "
               << layerToString(source) << " output size " << axis << ": " << size << " pooling: " << pooling << '\n';
        return false;
    };
    const bool x = compare(target.x, output.x, 'x');
    const bool y = compare(target.y, output.y, 'y');
    return x && y;
}

bool dvsSizeMatches(const Configuration& configuration, const DVSLayerDestination& destination, std::ostream& stream)
{
    const DVSLayerConfig& dvs = configuration.dvs_layer;
    const auto& target = configuration.cnn_layers[destination.layer].dimensions.input_shape.size;
    bool valid = true;
    if (dvs.pooling.x == 0 || dvs.pooling.y == 0) {
        stream << layerToString(destination.layer)
               << " input size cannot be compared with DVS output size, pooling x: " << +dvs.pooling.x
               << " pooling y: " << +dvs.pooling.y << '\n';
        valid = false;
    }
    // signed: a cut below the origin shows as a size of 0 or less
    const auto compare = [&](int expected, int origin, int cut, int pooling, char axis) {
        if (pooling == 0 || expected == (cut - origin + 1) / pooling)
            return true;
        stream << layerToString(destination.layer) << " input size " << axis << ": " << expected
               << " different than DVS output size " << axis << ": " << (cut - origin + 1) / pooling << '\n';
        return false;
    };
    valid = compare(target.x, dvs.origin.x, dvs.cut.x, dvs.pooling.x, 'x') && valid;
    valid = compare(target.y, dvs.origin.y, dvs.cut.y, dvs.pooling.y, 'y') && valid;
    return valid;
}

// Whether both axes of the padded input hold the kernel; else there is no output whose neurons could be counted.
bool kernelFits(const CNNLayerDimensions& dimensions)
{
    const auto& size = dimensions.input_shape.size;
    return size.x - dimensions.kernel_size + 2 * dimensions.padding.x >= 0 &&
           size.y - dimensions.kernel_size + 2 * dimensions.padding.y >= 0;
}

bool memoryFits(const CNNLayerConfig& config, std::size_t layer, std::ostream& stream)
{
    if (!util::reportIfNotInRange(layer, CNN_MIN_LAYER, CNN_MAX_LAYER, named("Layer"), stream))
        return false; // there is no memory to compare with
    const auto compare = [&](const char* memory, std::uint64_t words, std::uint64_t maximum) {
        if (words <= maximum)
            return true;
        stream << memory << " memory requirements " << words << " exceeds " << maximum << '\n';
        return false;
    };
    const bool weights = compare("Weight", computeWeightMemory(config), tessel::getMaximumWeightMemory(layer));
    const bool neurons = compare("Neuron", kernelFits(config.dimensions) ? computeNeuronMemory(config) : 0,
                                 tessel::getMaximumNeuronMemory(layer));
    return weights && neurons;
}

} // namespace

std::string layerToString(std::uint64_t layer)
{
    return layer == DVS_SOURCE ? "DVS" : "Layer[" + std::to_string(layer) + "]";
}

std::vector<std::vector<FeatureRange>> generateLayerInputRanges(const Configuration& configuration)
{
    std::vector<std::vector<FeatureRange>> ranges(CNN_LAYER_COUNT);
    for (std::uint16_t source = 0; source < CNN_LAYER_COUNT; ++source) {
        const CNNLayerConfig& config = configuration.cnn_layers[source];
        for (std::size_t index = 0; index < config.destinations.size(); ++index) {
            const CNNLayerDestination& destination = config.destinations[index];
            if (destination.enable && destination.layer <= CNN_MAX_LAYER)
                ranges[destination.layer].push_back(
                    {source, index, destination.feature_shift,
                     destination.feature_shift + config.dimensions.output_shape.feature_count - 1});
        }
    }
    const DVSLayerConfig& dvs = configuration.dvs_layer;
    for (std::size_t index = 0; index < dvs.destinations.size(); ++index) {
        const DVSLayerDestination& destination = dvs.destinations[index];
        if (destination.enable && destination.layer <= CNN_MAX_LAYER)
            ranges[destination.layer].push_back({DVS_SOURCE, index, 0, dvs.merge ? 0 : 1}); // a feature for a polarity
    }
    for (auto& list : ranges)
        std::ranges::stable_sort(list, {}, &FeatureRange::bottom);
    return ranges;
}

void reportOverlaps(const std::vector<FeatureRange>& ranges, std::ostream& stream)
{
    for (auto first = ranges.begin(); first != ranges.end(); ++first)
        for (auto second = first + 1; second != ranges.end(); ++second)
            if (distance(*first, *second) < 0)
                reportPair("Overlap", *first, *second, stream);
}

void reportGaps(const std::vector<FeatureRange>& ranges, std::ostream& stream)
{
    for (std::size_t i = 1; i < ranges.size(); ++i)
        if (distance(ranges[i - 1], ranges[i]) > 0)
            reportPair("Gap", ranges[i - 1], ranges[i], stream);
}

bool validateContiguousFeatureSpace(const Configuration& configuration, std::ostream& stream)
{
    const auto ranges = generateLayerInputRanges(configuration);
    bool valid = true;
    for (std::size_t target = 0; target < ranges.size(); ++target) {
        const auto apart = [](const FeatureRange& a, const FeatureRange& b) { return distance(a, b) != 0; };
        if (std::ranges::adjacent_find(ranges[target], apart) == ranges[target].end())
            continue;
        stream << layerToString(target) << '\n';
        reportOverlaps(ranges[target], stream);
        reportGaps(ranges[target], stream);
        valid = false;
    }
    return valid;
}

bool validateFeatureCount(const Configuration& configuration, std::ostream& stream)
{
    const auto ranges = generateLayerInputRanges(configuration);
    bool valid = true;
    for (std::size_t target = 0; target < ranges.size(); ++target) {
        if (ranges[target].empty())
            continue;
        const FeatureRange& first = ranges[target].front();
        if (first.bottom != 0) {
            stream << layerToString(target) << "\n\tInput range does not start from 0. Bottom: " << first.bottom
                   << '\n';
            valid = false;
        }
        int sum = 0;
        for (const FeatureRange& range : ranges[target])
            sum += range.top - range.bottom + 1;
        const int expected = configuration.cnn_layers[target].dimensions.input_shape.feature_count;
        if (sum != expected) {
            stream << layerToString(target)
                   << "\n\tInput space feature count does not match target input feature count. " << sum << " versus "
                   << expected << '\n';
            valid = false;
        }
        const FeatureRange& last = ranges[target].back();
        if (last.top > CNN_MAX_FEATURE_SHIFT) {
            stream << layerToString(target) << " input feature space top is out of bounds; top:" << last.top
                   << " Max: " << CNN_MAX_FEATURE_SHIFT << '\n';
            valid = false;
        }
    }
    return valid;
}

bool validateInputFeatureSpaceSize(const Configuration& configuration, std::ostream& stream)
{
    bool valid = true;
    for (std::size_t source = 0; source < CNN_LAYER_COUNT; ++source)
        for (const CNNLayerDestination& destination : configuration.cnn_layers[source].destinations)
            if (destination.enable && destination.layer <= CNN_MAX_LAYER)
                valid = sourceSizeMatches(configuration, source, destination, stream) && valid;
    for (const DVSLayerDestination& destination : configuration.dvs_layer.destinations)
        if (destination.enable && destination.layer <= CNN_MAX_LAYER)
            valid = dvsSizeMatches(configuration, destination, stream) && valid;
    return valid;
}

bool validateInOutDim(int input, int output, int kernel, int padding, int stride, std::string_view label,
                      std::ostream& stream)
{
    const double reach = static_cast<double>(input) - kernel + 2.0 * padding;
    const double expected =
        stride == 0 ? std::copysign(std::numeric_limits<double>::infinity(), reach) : std::floor(reach / stride) + 1;
    if (output == expected)
        return true;
    stream << "On " << label << " floor((feature_size-filter_size+2*zero_padding)/stride+1) must be " << expected
           << ". Actual: " << output << '\n';
    return false;
}

bool validateInOutDimX(const CNNLayerConfig& config, std::ostream& stream)
{
    const CNNLayerDimensions& d = config.dimensions;
    return validateInOutDim(d.input_shape.size.x, d.output_shape.size.x, d.kernel_size, d.padding.x, d.stride.x, "x",
                            stream);
}

bool validateInOutDimY(const CNNLayerConfig& config, std::ostream& stream)
{
    const CNNLayerDimensions& d = config.dimensions;
    return validateInOutDim(d.input_shape.size.y, d.output_shape.size.y, d.kernel_size, d.padding.y, d.stride.y, "y",
                            stream);
}

bool weightsSizeMatchConfig(const CNNLayerConfig& config, std::ostream& stream)
{
    const auto required = config.dimensions.getWeightsArrayDimensions();
    const bool values = shapeMatches(config.weights, required, "Weights array must have dimensions", stream);
    const bool kills =
        shapeMatches(config.weights_kill_bit, required, "Weights kill bit array must have dimensions", stream);
    return values && kills;
}

bool biasesSizeMatchConfig(const CNNLayerConfig& config, std::ostream& stream)
{
    const auto required = config.dimensions.getBiasesArrayDimensions();
    const bool values = shapeMatches(config.biases, required, "Biases array must have dimension", stream);
    const bool kills =
        shapeMatches(config.biases_kill_bit, required, "Biases kill bit array must have dimension", stream);
    return values && kills;
}

bool neuronStatesSizeMatchConfig(const CNNLayerConfig& config, std::ostream& stream)
{
    const auto required = config.dimensions.getNeuronStatesArrayDimensions();
    const bool values =
        shapeMatches(config.neurons_initial_value, required, "Neuron values must have dimensions", stream);
    const bool kills =
        shapeMatches(config.neurons_value_kill_bit, required, "Neuron values kill bit must have dimensions", stream);
    return values && kills;
}

} // namespace detail

std::uint64_t computeWeightMemory(const CNNLayerConfig& config)
{
    const std::uint64_t kernel = config.dimensions.kernel_size;
    const std::uint64_t inputs = config.dimensions.input_shape.feature_count;
    const std::uint64_t outputs = config.dimensions.output_shape.feature_count;
    if (kernel == 0 || outputs == 0)
        return 0;
    return inputs << (detail::bitsToCount(kernel * kernel) + detail::bitsToCount(outputs)); // at most 16 bits << 32
}

std::uint64_t computeNeuronMemory(const CNNLayerConfig& config)
{
    const CNNLayerDimensions& d = config.dimensions;
    const int x = tessel::getOutputSize(d.input_shape.size.x, d.kernel_size, d.padding.x, d.stride.x);
    const int y = tessel::getOutputSize(d.input_shape.size.y, d.kernel_size, d.padding.y, d.stride.y);
    if (x <= 0 || y <= 0)
        return 0;
    const int shift =
        detail::bitsToCount(static_cast<std::uint64_t>(x)) + detail::bitsToCount(static_cast<std::uint64_t>(y));
    return std::uint64_t{d.output_shape.feature_count} << shift; // at most 16 bits << 20
}

bool validate(const Configuration& configuration, std::ostream& stream)
{
    bool valid = detail::validateContiguousFeatureSpace(configuration, stream);
    valid = detail::validateFeatureCount(configuration, stream) && valid;
    valid = detail::validateInputFeatureSpaceSize(configuration, stream) && valid;
    for (std::size_t layer = 0; layer < CNN_LAYER_COUNT; ++layer) {
        if (validate(configuration.cnn_layers[layer], layer, stream))
            continue;
        stream << detail::layerToString(layer) << " is configured incorrectly ^^^^^^\n";
        valid = false;
    }
    if (!validate(configuration.dvs_layer, stream)) {
        stream << "DVS Layer is configured incorrectly ^^^^^^.\n";
        valid = false;
    }
    return validate(configuration.readout, stream) && valid;
}

bool validate(const CNNLayerConfig& config, std::size_t layer, std::ostream& stream)
{
    using detail::named;
    bool valid = detail::weightsSizeMatchConfig(config, stream);
    valid = detail::biasesSizeMatchConfig(config, stream) && valid;
    valid = detail::neuronStatesSizeMatchConfig(config, stream) && valid;
    if (validate(config.dimensions, stream)) {
        valid = detail::validateInOutDimX(config, stream) && valid;
        valid = detail::validateInOutDimY(config, stream) && valid;
        valid = util::reportIfNotInRange(config.threshold_high, CNN_MIN_HIGH_THRESHOLD, CNN_MAX_HIGH_THRESHOLD,
                                         named("Threshold high"), stream) &&
                valid;
        valid = util::reportIfNotInRange(config.threshold_low, CNN_MIN_LOW_THRESHOLD, CNN_MAX_LOW_THRESHOLD,
                                         named("Threshold low"), stream) &&
                valid;
        valid = detail::memoryFits(config, layer, stream) && valid;
    } else {
        valid = false; // there is nothing to compute with
    }
    for (std::size_t index = 0; index < config.destinations.size(); ++index) {
        if (validate(config.destinations[index], stream))
            continue;
        stream << "Layer[" << layer << "] Destination[" << index << "] is configured incorrectly ^^^^^^\n";
        valid = false;
    }
    return valid;
}

bool validate(const CNNLayerDimensions& dimensions, std::ostream& stream)
{
    bool valid = true;
    const auto within = [&](auto value, auto low, auto high, const char* label) {
        valid = util::reportIfNotInRange(value, low, high, detail::named(label), stream) && valid;
    };
    const auto amongStrides = [&](std::uint8_t value, const char* label) {
        valid = util::reportIfNotInArray(value, CNN_STRIDE_VALUES, detail::named(label), stream) && valid;
    };
    const IOShape& input = dimensions.input_shape;
    const IOShape& output = dimensions.output_shape;
    amongStrides(dimensions.stride.x, "Stride x");
    amongStrides(dimensions.stride.y, "Stride y");
    within(dimensions.padding.x, CNN_MIN_PADDING, CNN_MAX_PADDING, "Padding x");
    within(dimensions.padding.y, CNN_MIN_PADDING, CNN_MAX_PADDING, "Padding y");
    within(dimensions.kernel_size, CNN_MIN_KERNEL_SIZE, CNN_MAX_KERNEL_SIZE, "Kernel size");
    within(input.feature_count, CNN_MIN_FEATURE_NUMBER, CNN_MAX_FEATURE_NUMBER, "Input feature number");
    within(input.size.x, CNN_MIN_INPUT_FEATURE_SIZE, CNN_MAX_INPUT_FEATURE_SIZE, "Input feature size x");
    within(input.size.y, CNN_MIN_INPUT_FEATURE_SIZE, CNN_MAX_INPUT_FEATURE_SIZE, "Input feature size y");
    within(output.feature_count, CNN_MIN_FEATURE_NUMBER, CNN_MAX_FEATURE_NUMBER, "Output feature number");
    within(output.size.x, CNN_MIN_OUTPUT_FEATURE_SIZE, CNN_MAX_OUTPUT_FEATURE_SIZE, "Output feature size x");
    within(output.size.y, CNN_MIN_OUTPUT_FEATURE_SIZE, CNN_MAX_OUTPUT_FEATURE_SIZE, "Output feature size y");
    return valid;
}

bool validate(const CNNLayerDestination& destination, std::ostream& stream)
{
    using detail::named;
    bool valid =
        util::reportIfNotInRange(destination.layer, CNN_MIN_LAYER, CNN_MAX_LAYER, named("Destination Layer"), stream);
    valid = util::reportIfNotInRange(destination.feature_shift, CNN_MIN_FEATURE_SHIFT, CNN_MAX_FEATURE_SHIFT,
                                     named("Feature shift"), stream) &&
            valid;
    return util::reportIfNotInArray(destination.pooling, CNN_POOLING_VALUES, named("Pooling"), stream) && valid;
}

bool validate(const DVSLayerConfig& config, std::ostream& stream)
{
    bool valid = true;
    const auto within = [&](std::uint8_t value, std::uint8_t low, std::uint8_t high, const char* label) {
        valid = util::reportIfNotInRange(value, low, high, detail::named(label), stream) && valid;
    };
    const auto amongPoolings = [&](std::uint8_t value, const char* label) {
        valid = util::reportIfNotInArray(value, DVS_POOLING_VALUES, detail::named(label), stream) && valid;
    };
    within(config.origin.x, DVS_MIN_ORDINATE, DVS_MAX_ORDINATE, "Origin x");
    within(config.origin.y, DVS_MIN_ORDINATE, DVS_MAX_ORDINATE, "Origin y");
    within(config.cut.x, DVS_MIN_ORDINATE, DVS_MAX_ORDINATE, "Cut x");
    within(config.cut.y, DVS_MIN_ORDINATE, DVS_MAX_ORDINATE, "Cut y");
    amongPoolings(config.pooling.x, "Pooling x");
    amongPoolings(config.pooling.y, "Pooling y");
    within(config.current_control_p3, DVS_CURRENT_CONTROL_MIN, DVS_CURRENT_CONTROL_MAX, "Current control P3");
    within(config.current_control_p4, DVS_CURRENT_CONTROL_MIN, DVS_CURRENT_CONTROL_MAX, "Current control P4");
    within(config.current_control_p5, DVS_CURRENT_CONTROL_MIN, DVS_CURRENT_CONTROL_MAX, "Current control P5");
    within(config.current_control_p6, DVS_CURRENT_CONTROL_MIN, DVS_CURRENT_CONTROL_MAX, "Current control P6");
    within(config.current_control_p7, DVS_CURRENT_CONTROL_MIN, DVS_CURRENT_CONTROL_MAX, "Current control P7");
    for (std::size_t index = 0; index < config.destinations.size(); ++index) {
        if (validate(config.destinations[index], stream))
            continue;
        stream << "DVS Destination[" << index << "] is configured incorrectly ^^^^^^\n";
        valid = false;
    }
    return valid;
}

bool validate(const DVSLayerDestination& destination, std::ostream& stream)
{
    return util::reportIfNotInRange(destination.layer, CNN_MIN_LAYER, CNN_MAX_LAYER, detail::named("Destination Layer"),
                                    stream);
}

bool validate(const ReadoutConfig& config, std::ostream& stream)
{
    return util::reportIfNotInRange(config.input_address_interpretation, READOUT_MIN_ADDRESS_INTERPRETATION,
                                    READOUT_MAX_ADDRESS_INTERPRETATION, detail::named("Input address interpretation"),
                                    stream);
}

} // namespace VORNA_FAMILY::configuration

std::tuple<bool, std::string> VORNA_FAMILY::validateConfiguration(const configuration::Configuration& configuration)
{
    std::ostringstream stream;
    const bool valid = configuration::validate(configuration, stream);
    return {valid, std::move(stream).str()};
}
