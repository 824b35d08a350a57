#include "trovi/Names.h"

#include <algorithm>
#include <random>
#include <regex>
#include <string>

#include <gtest/gtest.h>

namespace {

// The rule as it is stated, by std::regex.
std::string snakeCaseByExpression(const std::string& name)
{
    static const std::regex words(
        "((^[a-z0-9]+)|([0-9]+)|([A-Z]{1}[a-z0-9]+)|([A-Z0-9]+(?=([A-Z0-9][a-z0-9])|($)|([0-9])))|([a-z0-9]+)|(_+))");
    std::string result;
    for (auto i = std::sregex_iterator(name.begin(), name.end(), words); i != std::sregex_iterator(); ++i)
        result += (result.empty() ? "" : "_") + i->str();
    std::transform(result.begin(), result.end(), result.begin(), [](unsigned char c) { return std::tolower(c); });
    return result;
}

TEST(Names, KnownOnes)
{
    const struct {
        const char* name;
        const char* snake;
        const char* python;
    } rows[] = {
        {"", "", ""},
        {"XYZ", "xyz", "xyz"},
        {"getROIValue", "get_roi_value", "get_roi_value"},
        {"tessel::event::OutputEvent", "tessel_event_output_event", "tessel_event_output_event"},
        {"unsigned int", "unsigned_int", "unsigned_int"},
        {"open_dvxplorer", "open___dvxplorer", "open_dvxplorer"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(trovi::snakeCase(row.name), row.snake);
        EXPECT_EQ(trovi::pythonName(row.name), row.python);
    }
    using Pieces = std::vector<std::string>;
    EXPECT_EQ(trovi::splitNamespaceString("VornaNode"), Pieces({"VornaNode"}));
    EXPECT_EQ(trovi::splitNamespaceString("graph::nodes::DvsEventCrop"), Pieces({"graph", "nodes", "DvsEventCrop"}));
}

TEST(Names, SnakeCaseAgreesWithTheExpressionOnRandomText)
{
    std::mt19937 random(20261122);
    const std::string letters = "abzABZ019__:<> "; // few letters, so that every pair of neighbours turns up
    for (int i = 0; i < 20'000; ++i) {
        std::string name(random() % 12, ' ');
        for (char& c : name)
            c = letters[random() % letters.size()];
        ASSERT_EQ(trovi::snakeCase(name), snakeCaseByExpression(name)) << '"' << name << '"';
    }
}

} // namespace
