// The configurations of both families, by one text.

#include "ravik/configuration/Configuration.h"

#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <magic_enum/magic_enum.hpp>

#include "Leaves.h"
#include "tessel/configuration/Configuration.h"
#include "trovi/Json.h"
#include "trovi/Serial.h"

namespace {

std::string contentOf(const std::string& path)
{
    std::ifstream file(path);
    std::stringstream content;
    content << file.rdbuf();
    return content.str();
}

// The names of all links of the router: for each target the sources, in the chip's order.
std::vector<std::string> routerLinks()
{
    std::vector<std::string> links;
    for (const char* target : {"C0", "C1", "C2", "C3", "C4", "C5", "C6", "C7", "Readout", "C8"})
        for (const char* source : {"DVS", "C8", "C0", "C1", "C2", "C3", "C4", "C5", "C6", "C7"})
            links.push_back(std::string(source) + "To" + target);
    return links;
}

template <class E>
std::vector<std::string> namesOf()
{
    const auto names = magic_enum::enum_names<E>();
    return {names.begin(), names.end()};
}

} // namespace

#define VORNA_FAMILY tessel
#include "ConfigurationTest.inc"
#undef VORNA_FAMILY

#define VORNA_FAMILY ravik
#include "ConfigurationTest.inc"
#undef VORNA_FAMILY

static_assert(
    !std::is_convertible_v<ravik::configuration::RavikConfiguration&, tessel::configuration::TesselConfiguration&>);
static_assert(!std::is_same_v<ravik::configuration::IOShape, tessel::configuration::IOShape>);
