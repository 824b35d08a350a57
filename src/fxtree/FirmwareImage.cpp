#include "fxtree/FirmwareImage.h"

#include <stdexcept>

#include "util/LittleEndian.h"
#include "util/ReadFile.h"

namespace {

constexpr std::size_t headerSize = 4;
constexpr std::size_t wordSize = 4;
constexpr std::size_t maxImageSize = 0x80000;
constexpr std::uint8_t notExecutable = 0x01; // bit of the control byte
constexpr std::uint8_t firmwareType = 0xB0;

[[noreturn]] void throwTruncated(const std::string& path, std::size_t offset, const std::string& expected)
{
    throw std::invalid_argument("Error: firmware image " + path + " ends at offset " + std::to_string(offset) +
                                ", expected " + expected);
}

// Walks over the words of an image; checks that each is there.
class Reader {
public:
    Reader(std::span<const std::uint8_t> image, const std::string& pathOfImage) : rest(image), path(pathOfImage) {}

    bool atEnd() const { return rest.empty(); }

    std::uint32_t word(const char* what)
    {
        return util::readLittleEndian<std::uint32_t>(take(wordSize, [&] { return std::string(what); }), 0);
    }

    std::span<const std::uint8_t> words(std::uint32_t count)
    {
        const std::size_t recordAt = offset - 2 * wordSize;
        return take(std::uint64_t{count} * wordSize, [&] {
            return std::to_string(count) + " words of data from offset " + std::to_string(offset) +
                   " on, as the record at offset " + std::to_string(recordAt) + " says";
        });
    }

private:
    template <class Expected>
    std::span<const std::uint8_t> take(std::uint64_t size, Expected expected)
    {
        if (size > rest.size())
            throwTruncated(path, offset + rest.size(), expected());
        const auto taken = rest.first(static_cast<std::size_t>(size));
        rest = rest.subspan(taken.size());
        offset += taken.size();
        return taken;
    }

    std::span<const std::uint8_t> rest;
    const std::string& path;
    std::size_t offset = headerSize; // in the file
};

} // namespace

std::vector<std::uint8_t> util::readFirmwareImage(const std::string& path)
{
    auto [bytes, error] = readFile(path, maxImageSize + 1);
    if (!error.empty())
        throw std::invalid_argument("Error: cannot read the firmware image " + path + ": " + error);
    if (bytes.size() > maxImageSize)
        throw std::invalid_argument("Error: File size exceeds maximum firmware image size");
    // a file that ends within its header is checked by the bytes it has
    if ((!bytes.empty() && bytes[0] != 'C') || (bytes.size() > 1 && bytes[1] != 'Y'))
        throw std::invalid_argument("Error: Image does not have CY at start");
    if (bytes.size() > 2 && (bytes[2] & notExecutable) != 0)
        throw std::invalid_argument("Error: file is not marked executable\n");
    if (bytes.size() < headerSize)
        throwTruncated(path, bytes.size(), "the header of 4 bytes: \"CY\", the control byte, the image type");
    if (bytes[3] != firmwareType)
        throw std::invalid_argument("Error: file is not marked as firmware\n");
    bytes.erase(bytes.begin(), bytes.begin() + headerSize);
    return std::move(bytes);
}

namespace fxtree {

std::uint32_t FirmwareRecords::sum() const
{
    std::uint32_t sum = 0;
    for (const FirmwareRecord& record : data)
        for (std::size_t at = 0; at < record.content.size(); at += wordSize)
            sum += util::readLittleEndian<std::uint32_t>(record.content, at);
    return sum;
}

FirmwareRecords parseFirmware(std::span<const std::uint8_t> image, const std::string& path)
{
    FirmwareRecords records;
    Reader reader(image, path);
    while (!reader.atEnd()) {
        const std::uint32_t length = reader.word("the length of a record, 4 bytes");
        const std::uint32_t address = reader.word("the address of a record, 4 bytes");
        if (length == 0) {
            records.end = {address, reader.word("the checksum, 4 bytes")};
            break;
        }
        records.data.push_back({address, reader.words(length)});
    }
    return records;
}

} // namespace fxtree
