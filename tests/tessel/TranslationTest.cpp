#include "tessel/family/Family.h"
#include VORNA_FAMILY_HEADER_IN(configuration, Translation)

#include <bit>
#include <cstdio>
#include <regex>
#include <set>

#include <gtest/gtest.h>

#include "../Golden.h"
#include "EventText.h"
#include "Leaves.h"

namespace VORNA_FAMILY::event {
namespace {

using Root = configuration::VORNA_FAMILY_NAME(Configuration);
using namespace util::tensor;

InputEvents eventsOf(const Root& configuration) { return VORNA_FAMILY_FUNCTION(ConfigurationToEvent)(configuration); }

// ---- registers ---------------------------------------------------------------------------------------------------

using Words = std::map<std::pair<int, int>, int>; // by core and number

Words registersOf(const Root& root)
{
    Words words;
    for (const InputEvent& event : eventsOf(root))
        if (const auto* write = std::get_if<WriteRegisterValue>(&event))
            words[{write->layer, write->index}] = write->data;
    return words;
}

std::string number(const char* format, int a, int b = 0)
{
    char digits[24];
    std::snprintf(digits, sizeof digits, format, a, b);
    return digits;
}

/// Values of a member that show each of its bits, and what isn't a power of two.
template <class Leaf>
std::vector<Leaf> samples()
{
    if constexpr (std::is_same_v<Leaf, bool>)
        return {false, true};
    const int bits = std::is_enum_v<Leaf> ? 5 : 8 * sizeof(Leaf);
    std::vector<Leaf> values{static_cast<Leaf>(0), static_cast<Leaf>(3), static_cast<Leaf>(5)};
    for (int bit = 0; bit < bits; ++bit)
        values.push_back(static_cast<Leaf>(1 << bit));
    values.push_back(static_cast<Leaf>((1 << bits) - 1));
    return values;
}

// Each member goes through its samples, and each register that changes with it is a line: "cnn_layers[3].leak_enable:
// 3/16 0=00 1=40". Of the nine layers one is shown, of the readout's neurons the first and the last.
TEST(Translation, EachMemberReachesItsBits)
{
    const std::regex others("cnn_layers\\w*\\[[^3]\\]|settings.readout\\[([1-9]|1[0-4])\\]");
    std::string lines;
    Root root;
    leaves::forEach(root, "", [&]<class Leaf>(const std::string& path, Leaf& leaf) {
        if constexpr (!leaves::isTensor<Leaf>) {
            if (std::regex_search(path, others))
                return;
            const Leaf before = leaf;
            std::map<std::pair<int, int>, std::pair<std::string, std::set<int>>> changes;
            for (const Leaf value : samples<Leaf>()) {
                leaf = value;
                for (const auto& [at, word] : registersOf(root)) {
                    changes[at].first += " " + leaves::text(value) + number("=%02X", word);
                    changes[at].second.insert(word);
                }
            }
            leaf = before;
            const std::size_t length = lines.size();
            for (const auto& [at, change] : changes)
                if (change.second.size() > 1)
                    lines += path + ": " + number("%d/%d", at.first, at.second) + change.first + "\n";
            if (lines.size() == length)
                lines += path + ": no register\n";
        }
    });

    // all members at once, in layers and neurons that are not shown too
    std::mt19937 random(11);
    std::uint64_t digest = 0xCBF2'9CE4'8422'2325;
    for (int round = 0; round < 100; ++round) {
        leaves::forEach(root, "", [&]<class Leaf>(const std::string&, Leaf& leaf) {
            if constexpr (!leaves::isTensor<Leaf>)
                leaves::randomise(leaf, random);
        });
        for (const auto& [at, word] : registersOf(root))
            digest = (digest ^ static_cast<std::uint64_t>(word)) * 0x100'0000'01B3;
    }
    EXPECT_GOLDEN("chip_register_bits.txt", lines + "digest of 100 configurations: " + std::to_string(digest) + "\n");
}

TEST(Translation, FieldsAreTranslated)
{
    for (const int value : {0, 1, 2, 3, 4, 5, 7, 8, 16, 255}) {
        const auto v = static_cast<std::uint8_t>(value);
        EXPECT_EQ(translateCNNStride(v), translateCNNPooling(v)) << value;
        EXPECT_EQ(translateDVSPooling(v), value == 8 ? 0 : translateCNNPooling(v)) << value;
        EXPECT_EQ(translateCNNPooling(v), value == 2 ? 1 : value == 4 ? 2 : value == 8 ? 3 : 0) << value;
        EXPECT_EQ(translateIODriveStrength(v), value == 4) << value;
    }
}

// ---- memories ----------------------------------------------------------------------------------------------------

template <class Array>
Array arrayOf(const typename Array::Dimensions& dimensions, std::mt19937& random)
{
    Array array;
    leaves::fill(array, dimensions, random);
    return array;
}

int bitsFor(std::uint64_t size) { return static_cast<int>(std::bit_width(size - 1)); }

// Every second time the kill bits have another shape, which is long enough all the same.
TEST(Translation, WeightsGoToPackedAddresses)
{
    std::mt19937 random(3);
    for (std::uint64_t round = 0; round < 50; ++round) {
        Array4Int8::Dimensions d;
        for (auto& size : d)
            size = random() % 5 + 1;
        const Array4Bool::Dimensions k{d[0], d[1] + round % 2, d[2], d[3] + round % 2};
        const auto weights = arrayOf<Array4Int8>(d, random);
        const auto kill = arrayOf<Array4Bool>(k, random);
        InputEvents expected{ReadProbe{5}}, found = expected;
        std::set<std::uint64_t> addresses;
        for (std::uint64_t n = 0; n < weights.data.size(); ++n) {
            const std::uint64_t b = n % d[3], a = n / d[3] % d[2], i = n / d[3] / d[2] % d[1],
                                o = n / d[3] / d[2] / d[1];
            const std::uint64_t address = (a + d[2] * b) << (bitsFor(d[1]) + bitsFor(d[0])) | o << bitsFor(d[1]) | i;
            expected.push_back(WriteWeightValue{3, static_cast<std::uint32_t>(address),
                                                kill.data[((o * k[1] + i) * k[2] + a) * k[3] + b], weights.data[n]});
            addresses.insert(address);
        }
        weightsArrayToEvents(3, weights, kill, found);
        ASSERT_EQ(found, expected) << testing::PrintToString(d);
        EXPECT_EQ(addresses.size(), weights.data.size());
    }
}

TEST(Translation, NeuronStatesGoToPackedAddresses)
{
    std::mt19937 random(4);
    for (std::uint64_t round = 0; round < 50; ++round) {
        Array3Int16::Dimensions d;
        for (auto& size : d)
            size = random() % 6 + 1;
        const Array3Bool::Dimensions k{d[0], d[1], d[2] + round % 2};
        const auto states = arrayOf<Array3Int16>(d, random);
        const auto kill = arrayOf<Array3Bool>(k, random);
        InputEvents expected, found;
        for (std::uint64_t n = 0; n < states.data.size(); ++n) {
            const std::uint64_t y = n % d[2], x = n / d[2] % d[1], f = n / d[2] / d[1];
            const std::uint64_t address = x << (bitsFor(d[0]) + bitsFor(d[2])) | y << bitsFor(d[0]) | f;
            expected.push_back(WriteNeuronValue{8, static_cast<std::uint32_t>(address),
                                                kill.data[(f * k[1] + x) * k[2] + y], states.data[n]});
        }
        neuronStatesArrayToEvents(8, states, kill, found);
        ASSERT_EQ(found, expected) << testing::PrintToString(d);
    }
}

TEST(Translation, BiasesGoToTheirIndex)
{
    std::mt19937 random(5);
    const auto biases = arrayOf<Array1Int16>({7}, random);
    const auto kill = arrayOf<Array1Bool>({9}, random);
    InputEvents expected, found;
    for (std::uint32_t n = 0; n < 7; ++n)
        expected.push_back(WriteBiasValue{2, n, kill.data[n], biases.data[n]});
    biasArrayToEvents(2, biases, kill, found);
    EXPECT_EQ(found, expected);
}

TEST(Translation, KillBitsThatEndTooEarlyAreRefusedBeforeAnythingIsWritten)
{
    std::mt19937 random(1);
    const auto weights = arrayOf<Array4Int8>({2, 3, 3, 3}, random);
    const struct {
        const char* what;
        Array4Bool::Dimensions dimensions;
        std::size_t length;
        bool refused;
    } rows[] = {
        {"the same shape", {2, 3, 3, 3}, 54, false},
        {"one element short", {2, 3, 3, 3}, 53, true},
        {"none", {0, 0, 0, 0}, 0, true},
        {"larger strides", {2, 3, 3, 4}, 71, false},
        {"larger strides, one element short", {2, 3, 3, 4}, 70, true},
        {"strides beyond all memory", {1, std::uint64_t{1} << 40, std::uint64_t{1} << 22, 3}, 54, true},
    };
    for (const auto& row : rows) {
        Array4Bool kill;
        kill.dimensions = row.dimensions;
        kill.data.assign(row.length, true);
        InputEvents found;
        if (row.refused)
            EXPECT_THROW(weightsArrayToEvents(0, weights, kill, found), std::out_of_range) << row.what;
        else
            EXPECT_NO_THROW(weightsArrayToEvents(0, weights, kill, found)) << row.what;
        EXPECT_EQ(found.size(), row.refused ? 0U : 54U) << row.what;
    }

    Root root;
    root.cnn_layers[8].neurons_value_kill_bit.data.clear();
    InputEvents found{ReadProbe{1}};
    EXPECT_THROW(VORNA_FAMILY_FUNCTION(ConfigurationToEvent)(root, found), std::out_of_range);
    EXPECT_EQ(found.size(), 1U);
    root = Root();
    root.cnn_layers[2].biases.data.clear();
    EXPECT_THROW(eventsOf(root), std::out_of_range);
}

TEST(Translation, AnEmptyArrayGivesNoEvents)
{
    Array4Int8 weights;
    weights.dimensions = {std::uint64_t{1} << 60, 0, std::uint64_t{1} << 60, 3};
    weights.data.clear();
    InputEvents found;
    weightsArrayToEvents(0, weights, Array4Bool(), found);
    EXPECT_TRUE(found.empty());
}

// ---- the chip ----------------------------------------------------------------------------------------------------

TEST(Translation, ADefaultConfiguration)
{
    const InputEvents events = eventsOf(Root());
    EXPECT_EQ(events.size(), 337U);
    EXPECT_EQ(events.capacity(), events.size());
    std::string lines, block;
    for (const InputEvent& event : events) {
        const auto* write = std::get_if<WriteRegisterValue>(&event);
        const std::string next =
            write == nullptr ? event_text::text(event) : "registers of " + std::to_string(write->layer) + ":";
        if (next != block)
            lines += (lines.empty() ? "" : "\n") + next;
        block = next;
        if (write != nullptr)
            lines += number(" %d=%02X", write->index, write->data);
    }
    EXPECT_GOLDEN("chip_default_events.txt", lines + "\n");
}

TEST(Translation, AllRegistersAndMemoryWordsComeInTheChipsOrder)
{
    std::mt19937 random(5);
    Root root;
    InputEvents expected{ResetSensorPixel{}};
    const auto append = [&](std::size_t core, const RegisterMap& registers) {
        for (const auto& [number, word] : registers)
            expected.push_back(
                WriteRegisterValue{static_cast<std::uint8_t>(core), static_cast<std::uint8_t>(number), word});
    };
    for (std::size_t n = 0; n < root.cnn_layers.size(); ++n) {
        auto& layer = root.cnn_layers[n];
        layer.weights = arrayOf<Array4Int8>({2, 3, 2, 2}, random);
        layer.weights_kill_bit = arrayOf<Array4Bool>({2, 3, 2, 2}, random);
        layer.biases = arrayOf<Array1Int16>({2}, random);
        layer.biases_kill_bit = arrayOf<Array1Bool>({2}, random);
        append(n, toCnnRegisterValues(layer, n, {}, {}));
        weightsArrayToEvents(n, layer.weights, layer.weights_kill_bit, expected);
        biasArrayToEvents(n, layer.biases, layer.biases_kill_bit, expected);
        neuronStatesArrayToEvents(n, layer.neurons_initial_value, layer.neurons_value_kill_bit, expected);
    }
    append(12, toReadoutRegisterValues({}, {}, {}));
    append(13, toInputInterfaceRegisterValues({}, {}));
    append(14, toDVSRegisterValues({}, {}));

    InputEvents found{ResetSensorPixel{}};
    VORNA_FAMILY_FUNCTION(ConfigurationToEvent)(root, found);
    EXPECT_EQ(found, expected);
}

} // namespace
} // namespace VORNA_FAMILY::event
