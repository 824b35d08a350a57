#include <numeric>

#include <gmock/gmock.h>

#include "LogCapture.h"
#include "TemporaryFile.h"
#include "opalkelly/OpalKellyDevice.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(BitFile, BecomesOneWordForEachByteFromTheStartByteOn)
{
    const struct {
        const char* description;
        Bytes file, configuration;
    } rows[] = {
        {"no header", {0xFF, 0x01}, {0, 0xFF, 0, 0, 0, 0x01, 0, 0}},
        {"a header, with zeros and line ends", {0x00, 0x0A, 0x0D, 0x1A, 0xFF, 0xAA}, {0, 0xFF, 0, 0, 0, 0xAA, 0, 0}},
        {"later start bytes are data", {0x09, 0xFF, 0xFF, 0x00}, {0, 0xFF, 0, 0, 0, 0xFF, 0, 0, 0, 0x00, 0, 0}},
        {"the start byte alone", {0x61, 0xFF}, {0, 0xFF, 0, 0}},
    };
    for (const auto& row : rows) {
        LogCapture log;
        const TemporaryFile file(row.file);
        EXPECT_EQ(opalkelly::readConfigBytesFromBitFile(file.path()), row.configuration) << row.description;
        EXPECT_THAT(log.lines(), IsEmpty()) << row.description;
    }
}

TEST(BitFile, OfManyBlocksIsReadWhole)
{
    Bytes bytes(1'000'003);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<std::uint8_t>(i * 13 + i / 256);
    const auto begin = static_cast<std::size_t>(std::find(bytes.begin(), bytes.end(), 0xFF) - bytes.begin());
    const TemporaryFile file(bytes);
    const Bytes words = opalkelly::readConfigBytesFromBitFile(file.path());
    ASSERT_EQ(words.size(), (bytes.size() - begin) * 4);
    for (std::size_t i = 0; i < words.size(); ++i)
        ASSERT_EQ(words[i], i % 4 == 1 ? bytes[begin + i / 4] : 0) << i;
}

TEST(BitFile, WithoutAConfigurationIsEmptyAndLogged)
{
    const TemporaryFile noStart({0x00, 0xFE, 0x7F}), empty({});
    const std::string folder = std::filesystem::path(empty.path()).parent_path();
    const struct {
        std::string path;
        const char* reason;
    } rows[] = {
        {noStart.path(), "no byte 0xFF"},
        {empty.path(), "no byte 0xFF"},
        {"/nonexistent/logic.bit", "No such file or directory"},
        {folder, "Is a directory"},
    };
    for (const auto& row : rows) {
        LogCapture log;
        EXPECT_THAT(opalkelly::readConfigBytesFromBitFile(row.path), IsEmpty());
        ASSERT_EQ(log.lines().size(), 1U) << row.path;
        EXPECT_EQ(log.lines()[0].category, "opalkelly::OpalKellyDevice");
        EXPECT_EQ(log.lines()[0].level, "ERROR");
        EXPECT_THAT(log.lines()[0].text, AllOf(HasSubstr(row.path), HasSubstr(row.reason)));
    }
}

} // namespace
