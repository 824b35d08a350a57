#include "fxtree/FirmwareImage.h"

#include <stdexcept>

#include <gmock/gmock.h>

#include "Image.h"
#include "TemporaryFile.h"

namespace {

using namespace fxtree_tests;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;
using testing::ThrowsMessage;

Bytes imageOfSize(std::size_t size)
{
    Bytes bytes(size, 0x20); // blanks and line ends are bytes like others
    const Bytes header = Image().bytes;
    std::copy(header.begin(), header.end(), bytes.begin());
    for (std::size_t at = 4; at < size; at += 7)
        bytes[at] = 0x0A;
    return bytes;
}

TEST(FirmwareImage, IsTheFileBehindItsHeader)
{
    for (const std::size_t size : {4U, 5U, 100'000U, 0x80000U}) {
        const Bytes bytes = imageOfSize(size);
        const TemporaryFile file(bytes);
        EXPECT_EQ(util::readFirmwareImage(file.path()), Bytes(bytes.begin() + 4, bytes.end())) << size;
    }
}

TEST(FirmwareImage, IsRefusedInWordsThatSayWhy)
{
    const struct {
        const char* description;
        Bytes bytes;
        const char* text;
    } rows[] = {
        {"a byte too many", imageOfSize(0x80001), "Error: File size exceeds maximum firmware image size"},
        {"too large and not one", Bytes(0x90000), "Error: File size exceeds maximum firmware image size"},
        {"first letter", {'B', 'Y', 0x1C, 0xB0}, "Error: Image does not have CY at start"},
        {"second letter", {'C', 'y', 0x1C, 0xB0, 0}, "Error: Image does not have CY at start"},
        {"control byte", {'C', 'Y', 0x1D, 0xB0}, "Error: file is not marked executable\n"},
        {"letters before control byte", {'C', 'X', 0x01, 0x00}, "Error: Image does not have CY at start"},
        {"control byte before type", {'C', 'Y', 0x01, 0x00}, "Error: file is not marked executable\n"},
        {"type", {'C', 'Y', 0x00, 0xB1}, "Error: file is not marked as firmware\n"},
        {"first letter, and nothing else", {'B'}, "Error: Image does not have CY at start"},
        {"second letter, and nothing else", {'C', 'X'}, "Error: Image does not have CY at start"},
        {"control byte at the end", {'C', 'Y', 0x01}, "Error: file is not marked executable\n"},
    };
    for (const auto& row : rows) {
        const TemporaryFile file(row.bytes);
        EXPECT_THAT([&] { util::readFirmwareImage(file.path()); }, ThrowsMessage<std::invalid_argument>(row.text))
            << row.description;
    }
}

TEST(FirmwareImage, ThatEndsInItsHeaderNamesFileAndOffset)
{
    for (const std::size_t size : {0U, 1U, 2U, 3U}) {
        const TemporaryFile file(imageOfSize(4));
        std::filesystem::resize_file(file.path(), size);
        EXPECT_THAT([&] { util::readFirmwareImage(file.path()); },
                    ThrowsMessage<std::invalid_argument>(AllOf(HasSubstr(file.path()),
                                                               HasSubstr("at offset " + std::to_string(size)),
                                                               HasSubstr("expected the header"))));
    }
}

TEST(FirmwareImage, ThatCannotBeReadNamesFileAndReason)
{
    const TemporaryFile file({});
    const std::string folder = std::filesystem::path(file.path()).parent_path();
    EXPECT_THAT([&] { util::readFirmwareImage(folder + "/none.img"); },
                ThrowsMessage<std::invalid_argument>(
                    AllOf(HasSubstr(folder + "/none.img"), HasSubstr("No such file or directory"))));
    EXPECT_THAT([&] { util::readFirmwareImage(folder); },
                ThrowsMessage<std::invalid_argument>(AllOf(HasSubstr(folder), HasSubstr("Is a directory"))));
}

// Offsets count from the beginning of the file, as those of an editor do.
TEST(FirmwareImage, ThatEndsInARecordSaysWhereAndWhatIsMissing)
{
    const Image oneRecord = Image().record(0x100, {1, 2, 3}); // offsets 4 to 23
    const struct {
        const char* description;
        Bytes bytes;
        const char* text;
    } rows[] = {
        {"in the first length", {'C', 'Y', 0, 0xB0, 1}, "ends at offset 5, expected the length of a record, 4 bytes"},
        {"before an address", Image().word(1).bytes, "ends at offset 8, expected the address of a record, 4 bytes"},
        {"in an address", {'C', 'Y', 0, 0xB0, 1, 0, 0, 0, 1, 2, 3}, "ends at offset 11, expected the address"},
        {"without data", Image().word(2).word(0x100).bytes,
         "ends at offset 12, expected 2 words of data from offset 12 on, as the record at offset 4 says"},
        {"in a word of data", Bytes(oneRecord.bytes.begin(), oneRecord.bytes.end() - 1),
         "ends at offset 23, expected 3 words of data from offset 12 on, as the record at offset 4 says"},
        {"in the second record", Image(oneRecord).word(9).word(0x200).word(0).bytes,
         "ends at offset 36, expected 9 words of data from offset 32 on, as the record at offset 24 says"},
        {"a length whose bytes don't fit in 32 bits", Image().word(0x40000001).word(0x100).word(7).bytes,
         "expected 1073741825 words of data"},
        {"the greatest length", Image().word(0xFFFFFFFF).word(0xFFFFFFFF).word(7).bytes,
         "expected 4294967295 words of data"},
        {"a last record without checksum", Image(oneRecord).word(0).word(0x100).bytes,
         "ends at offset 32, expected the checksum, 4 bytes"},
        {"a last record without entry", Image(oneRecord).word(0).bytes, "ends at offset 28, expected the address"},
    };
    for (const auto& row : rows) {
        const std::vector<std::uint8_t> image(row.bytes.begin() + 4, row.bytes.end());
        EXPECT_THAT([&] { fxtree::parseFirmware(image, "a/path.img"); },
                    ThrowsMessage<std::invalid_argument>(
                        AllOf(StartsWith("Error: firmware image a/path.img "), HasSubstr(row.text))))
            << row.description;
    }
}

// Every way to cut an image: it is whole at the end of a record, and refused elsewhere.
TEST(FirmwareImage, IsAcceptedExactlyAtTheEndOfARecord)
{
    Image builder;
    std::vector<std::size_t> ends{4};
    for (const std::size_t count : {1U, 5U, 2U})
        ends.push_back(builder.record(0x1000, words(count, 3)).bytes.size());
    builder.end(0x1000);
    for (std::size_t size = 4; size <= builder.bytes.size(); ++size) {
        // a copy of its own size, so that a sanitizer sees a read behind it
        const std::vector<std::uint8_t> image(builder.bytes.begin() + 4,
                                              builder.bytes.begin() + static_cast<std::ptrdiff_t>(size));
        const bool whole = size == builder.bytes.size() || std::ranges::count(ends, size) != 0;
        if (whole)
            EXPECT_NO_THROW(fxtree::parseFirmware(image, "f")) << size;
        else
            EXPECT_THROW(fxtree::parseFirmware(image, "f"), std::invalid_argument) << size;
    }
}

TEST(FirmwareImage, SumsItsDataWordsIn32Bits)
{
    const Image image = Image().record(0x10, {0xFFFFFFFF, 2}).record(0x20, {0x80000000, 0x80000000, 5}).end(0x40);
    const std::vector<std::uint8_t> body(image.bytes.begin() + 4, image.bytes.end());
    const auto records = fxtree::parseFirmware(body, "f");
    EXPECT_EQ(records.sum(), 6U);
    ASSERT_TRUE(records.end);
    EXPECT_EQ(records.end->checksum, 6U);
    EXPECT_EQ(records.end->entry, 0x40U);
    ASSERT_EQ(records.data.size(), 2U);
    EXPECT_EQ(records.data[1].address, 0x20U);
    EXPECT_EQ(records.data[1].content.size(), 12U);
}

} // namespace
