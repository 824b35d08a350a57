#include "usb/Request.h"

#include <cstdio>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "usb/Ids.h"

namespace {

constexpr usb::Request writeMemory{
    .use = "write to memory", .code = 0xA0, .wValue = usb::lowHalf, .wIndex = usb::highHalf, .maxBytes = 2048};
constexpr usb::Request readStatus{
    .use = "read", .code = 0xC2, .direction = usb::Direction::read, .wValue = usb::constant(1), .maxBytes = 8};

static_assert(writeMemory.setup(0x12345678) == usb::USBSetupPacket{0x40, 0xA0, 0x5678, 0x1234, 0});
static_assert(readStatus.setup(0x12345678) == usb::USBSetupPacket{0xC0, 0xC2, 1, 0, 0});

TEST(Request, MatchesWhatItSendsAndNothingElse)
{
    const struct {
        const char* description;
        const usb::Request& request;
        usb::USBSetupPacket seen;
        bool matches;
    } rows[] = {
        {"any address", writeMemory, {0x40, 0xA0, 0xFFFF, 7, 2048}, true},
        {"the other direction", writeMemory, {0xC0, 0xA0, 0, 0, 0}, false},
        {"another code", writeMemory, {0x40, 0xA1, 0, 0, 0}, false},
        {"a standard request", writeMemory, {0x00, 0xA0, 0, 0, 0}, false},
        {"its constants", readStatus, {0xC0, 0xC2, 1, 0, 8}, true},
        {"another value", readStatus, {0xC0, 0xC2, 0, 0, 8}, false},
        {"another index", readStatus, {0xC0, 0xC2, 1, 1, 8}, false},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.request.matches(row.seen), row.matches) << row.description;
}

// udev reads the file on machines of users, so nothing else would tell of a board that was left out.
TEST(UdevRules, NameEveryBoardAndNoOther)
{
    std::set<std::string> expected;
    for (const auto& board : usb::knownBoards) {
        char ids[16];
        std::snprintf(ids, sizeof ids, "%04x:%04x", static_cast<unsigned>(board.vendor),
                      static_cast<unsigned>(board.product));
        expected.insert(ids);
    }

    std::ifstream file(std::string(VORNA_SOURCE_DIR "/packaging/") + usb::udevRulesFile);
    ASSERT_TRUE(file) << usb::udevRulesFile;
    const std::regex rule(
        R"re(SUBSYSTEM=="usb", ATTR\{idVendor\}=="([0-9a-f]{4})", ATTR\{idProduct\}=="([0-9a-f]{4})", )re"
        R"re(MODE="0660", GROUP="plugdev", TAG\+="uaccess")re");
    std::set<std::string> found;
    for (std::string line; std::getline(file, line);) {
        if (line.empty() || line[0] == '#')
            continue;
        std::smatch parts;
        ASSERT_TRUE(std::regex_match(line, parts, rule)) << line;
        EXPECT_TRUE(found.insert(parts[1].str() + ":" + parts[2].str()).second) << line;
    }
    EXPECT_EQ(found, expected);
}

} // namespace
