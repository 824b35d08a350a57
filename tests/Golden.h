#pragma once
// Golden files: what a test prints is compared with a file of tests/golden, line by line.
//
//   #include "../Golden.h"
//   EXPECT_GOLDEN("node_names.txt", text);
//
// With VORNA_GOLDEN=accept in the environment (`make golden`) the file is rewritten; `git diff` shows the change.

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

namespace golden {

/// Success when tests/golden/`name` holds `text`; else the first lines that differ, by number.
inline testing::AssertionResult matches(const std::string& name, const std::string& text)
{
    const std::string path = std::string(VORNA_SOURCE_DIR) + "/tests/golden/" + name;
    const char* const mode = std::getenv("VORNA_GOLDEN");
    if (mode != nullptr && std::string(mode) == "accept")
        std::ofstream(path, std::ios::binary) << text;
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    if (file && content.str() == text)
        return testing::AssertionSuccess();

    testing::AssertionResult failure = testing::AssertionFailure();
    failure << "differs from tests/golden/" << name << "; if that is meant: make golden\n";
    std::istringstream expected(content.str()), actual(text);
    int shown = 0;
    for (int number = 1; shown < 20; ++number) {
        std::string wanted, given;
        const bool more = static_cast<bool>(std::getline(expected, wanted));
        const bool moreGiven = static_cast<bool>(std::getline(actual, given));
        if (!more && !moreGiven)
            break;
        if (more == moreGiven && wanted == given)
            continue;
        ++shown;
        if (more)
            failure << number << " - " << wanted << "\n";
        if (moreGiven)
            failure << number << " + " << given << "\n";
    }
    return failure;
}

} // namespace golden

#define EXPECT_GOLDEN(name, text) EXPECT_TRUE(golden::matches(name, text))
