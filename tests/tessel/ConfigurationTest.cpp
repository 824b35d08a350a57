#include "tessel/family/Family.h"
#include VORNA_FAMILY_HEADER_IN(configuration, Configuration)

#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <magic_enum/magic_enum.hpp>

#include "../Golden.h"
#include "Leaves.h"
#include "trovi/Json.h"
#include "trovi/Serial.h"

namespace VORNA_FAMILY::configuration {
namespace {

using Root = VORNA_FAMILY_NAME(Configuration);

std::string withoutFamily(std::string_view name)
{
    return std::regex_replace(std::string(name), std::regex(VORNA_FAMILY_TEXT "::"), "");
}

// Lines that differ in an index alone are one, with their number.
TEST(Configuration, NamesTypesAndDefaults)
{
    std::vector<std::string> order;
    std::map<std::string, int> counts;
    const Root configuration;
    leaves::forEach(configuration, "", [&](const std::string& path, const auto& leaf) {
        const auto type = trovi::typeName<std::remove_cvref_t<decltype(leaf)>>();
        const std::string line = std::regex_replace(path, std::regex("\\[\\d+\\]"), "[]") + " | " +
                                 withoutFamily(type) + " | " + leaves::text(leaf);
        if (++counts[line] == 1)
            order.push_back(line);
    });
    std::string lines;
    for (const auto& line : order)
        lines += line + (counts[line] == 1 ? "" : " | " + std::to_string(counts[line]) + " times") + "\n";
    EXPECT_GOLDEN("chip_configuration_defaults.txt", lines);
    EXPECT_EQ(trovi::registeredName<Root>(),
              VORNA_FAMILY_TEXT "::configuration::" VORNA_FAMILY_TEXT_OF(VORNA_FAMILY_NAME(Configuration)));
    EXPECT_EQ(trovi::typeName<ProbePointRouter2>(), VORNA_FAMILY_TEXT "::configuration::ProbePointRouter2");
}

TEST(Configuration, ProbePointsHaveTheChipsNumbers)
{
    std::string lines;
    std::set<std::string_view> seen;
    const Root configuration;
    leaves::forEach(configuration, "", [&]<class Leaf>(const std::string&, const Leaf&) {
        if constexpr (std::is_enum_v<Leaf>)
            if (seen.insert(trovi::typeName<Leaf>()).second) {
                EXPECT_EQ(sizeof(Leaf), 4U);
                lines += withoutFamily(trovi::typeName<Leaf>()) + "\n";
                for (const auto& [value, name] : magic_enum::enum_entries<Leaf>())
                    lines += "  " + leaves::text(value) + " " + std::string(name) + "\n";
            }
    });
    EXPECT_GOLDEN("chip_probe_points.txt", lines);
}

// Changes one leaf after the other and asks whether == sees it.
template <class T>
void expectEqualityToLeaveOut(const char* leftOut)
{
    std::size_t count = 0;
    const T unchanged;
    T changed;
    leaves::forEach(changed, "", [&](const std::string& path, auto& leaf) {
        const auto before = leaf;
        leaves::change(leaf);
        const bool equal = changed == unchanged;
        EXPECT_EQ(equal, std::regex_search(path, std::regex(leftOut))) << path;
        EXPECT_EQ(changed != unchanged, !equal) << path;
        leaf = before;
        ++count;
    });
    EXPECT_TRUE(changed == unchanged);
    EXPECT_GT(count, 0U);
}

TEST(Configuration, EqualityLeavesOutWhatIsWatchedOrSetUpBeside)
{
    expectEqualityToLeaveOut<Root>("^readout|^factory_settings|^debug_config|^cnn_layers.*(monitor_enable|kill_bit)|"
                                   "^dvs_layer.(pass_sensor_events|monitor_enable|monitor_sensor_enable)");
    expectEqualityToLeaveOut<CNNLayerConfig>("^monitor_enable|kill_bit");
    expectEqualityToLeaveOut<DVSLayerConfig>("^pass_sensor_events|^monitor_enable|^monitor_sensor_enable");
    expectEqualityToLeaveOut<CNNLayerDestination>("^$");
    expectEqualityToLeaveOut<CNNLayerDimensions>("^$");
    expectEqualityToLeaveOut<DVSLayerDestination>("^$");
    expectEqualityToLeaveOut<ReadoutConfig>("^$");
    expectEqualityToLeaveOut<FactorySettings>("^$");
    expectEqualityToLeaveOut<DebugConfig>("^$");

    CNNLayerConfig wide, high;
    leaves::reshape(wide.weights, {1, 1, 1, 2});
    leaves::reshape(high.weights, {1, 1, 2, 1});
    EXPECT_NE(wide, high);
}

TEST(Configuration, EveryMemberSurvivesBothForms)
{
    std::mt19937 random(7);
    for (int round = 0; round < 5; ++round) {
        Root configuration;
        leaves::randomise(configuration, random, 1);
        const std::string all = leaves::lines(configuration);
        Root fromText;
        trovi::fromJson(fromText, trovi::toJson(configuration));
        EXPECT_EQ(leaves::lines(fromText), all);
        EXPECT_EQ(leaves::lines(trovi::deserializeBytes<Root>(trovi::serializeToBuffer(configuration))), all);
    }
}

} // namespace
} // namespace VORNA_FAMILY::configuration
