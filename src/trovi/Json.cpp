// The only file that includes cereal's JSON archives: they turn the parser's assertions into exceptions only if they
// are the first to include the parser.
#include "trovi/Json.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <utility>

#include <cereal/archives/json.hpp>

#include "util/ReadFile.h"

namespace trovi {
namespace {

// Scripts compare this text; the installed archive words it differently.
constexpr const char* exhaustedText = "JSONInputArchive internal error: null or empty iterator to object or array!";

template <class Action>
void withExhaustedText(Action action)
{
    try {
        action();
    } catch (const cereal::RapidJSONException&) {
        throw;
    } catch (const cereal::Exception& error) {
        if (std::string_view(error.what()) == "No more objects in input")
            throw cereal::Exception(exhaustedText);
        throw;
    }
}

std::size_t digitsAt(std::string_view text, std::size_t at, const char* digits)
{
    return std::min(text.find_first_not_of(digits, at), text.size()) - at;
}

// Length of the number at the front of `text` when it is a zero with a fraction or an exponent, such as 0.00 and 0E98;
// 0 for any other.
std::size_t longZero(std::string_view text)
{
    if (!text.starts_with('0'))
        return 0;
    std::size_t length = 1;
    if (text.substr(length).starts_with('.')) {
        const std::size_t zeros = digitsAt(text, 2, "0");
        if (zeros == 0 || digitsAt(text, 2, "0123456789") > zeros)
            return 0;
        length += 1 + zeros;
    }
    if (length < text.size() && (text[length] == 'e' || text[length] == 'E')) {
        const std::size_t sign = length + 1 < text.size() && (text[length + 1] == '+' || text[length + 1] == '-');
        if (const std::size_t digits = digitsAt(text, std::min(length + 1 + sign, text.size()), "0123456789"))
            length += 1 + sign + digits;
    }
    return length > 1 ? length : 0;
}

// The document in a form that is safe to parse. The parser recurses for each level of nesting, so deep documents are
// refused; long ones are refused for the memory that they would take. For a zero with a long fraction or a large
// exponent the parser counts the leading zero bits of 0, which is undefined: such a zero is passed on in a short form.
std::string checked(const std::string& document)
{
    if (document.size() > jsonMaxSize)
        throw cereal::Exception("JSON document has more than " + std::to_string(jsonMaxSize) + " bytes");
    std::string result;
    result.reserve(document.size());
    std::size_t depth = 0;
    for (std::size_t at = 0; at < document.size();) {
        const char c = document[at];
        std::size_t end = at + 1;
        if (c == '"') {
            while (end < document.size() && document[end] != '"')
                end += document[end] == '\\' ? 2 : 1;
            end = std::min(end + 1, document.size());
        } else if (c >= '0' && c <= '9') {
            if (const std::size_t length = longZero(std::string_view(document).substr(at))) {
                result += "0.0e0"; // complete, so that nothing behind it can belong to it
                at += length;
                continue;
            }
            end = at + digitsAt(document, at, "0123456789.eE+-");
        } else if (c == '[' || c == '{') {
            if (++depth > jsonMaxDepth)
                throw cereal::Exception("JSON document is nested deeper than " + std::to_string(jsonMaxDepth) +
                                        " levels");
        } else if ((c == ']' || c == '}') && depth > 0) {
            --depth;
        }
        result.append(document, at, end - at);
        at = end;
    }
    return result;
}

} // namespace

// ---- writing -----------------------------------------------------------------------------------------------------

struct JsonWriter::Archive {
    std::ostringstream stream;
    std::unique_ptr<cereal::JSONOutputArchive> json = std::make_unique<cereal::JSONOutputArchive>(stream);
};

JsonWriter::JsonWriter() : archive(std::make_unique<Archive>()) {}
JsonWriter::~JsonWriter() = default;

void JsonWriter::key(const char* text) { archive->json->setNextName(text); }
void JsonWriter::beginObject() { archive->json->startNode(); }

void JsonWriter::beginArray()
{
    archive->json->startNode();
    archive->json->makeArray();
}

void JsonWriter::end() { archive->json->finishNode(); }

template <class T>
void JsonWriter::number(T value)
{
    archive->json->writeName();
    if constexpr (std::is_same_v<T, bool>)
        archive->json->saveValue(value);
    else if constexpr (std::is_floating_point_v<T>)
        archive->json->saveValue(static_cast<double>(value));
    else if constexpr (std::is_signed_v<T>)
        archive->json->saveValue(static_cast<std::int64_t>(value));
    else
        archive->json->saveValue(static_cast<std::uint64_t>(value));
}

void JsonWriter::text(const std::string& value)
{
    archive->json->writeName();
    archive->json->saveValue(value);
}

std::string JsonWriter::finish()
{
    archive->json.reset(); // its destructor closes the root
    return archive->stream.str();
}

// ---- reading -----------------------------------------------------------------------------------------------------

struct JsonReader::Archive {
    explicit Archive(std::string&& document) : stream(std::move(document)), json(stream) {}

    std::istringstream stream;
    cereal::JSONInputArchive json;
    const char* nextKey = "value0";    // of the value that comes next; null for an element of an array
    std::vector<const char*> nodeKeys; // of the nodes that are open; an element of an array has its array's
};

JsonReader::JsonReader(const std::string& document) : archive(std::make_unique<Archive>(checked(document))) {}

JsonReader::~JsonReader() = default;

void JsonReader::key(const char* text)
{
    archive->json.setNextName(text);
    archive->nextKey = text;
}

void JsonReader::beginNode()
{
    withExhaustedText([&] { archive->json.startNode(); });
    const char* const key = std::exchange(archive->nextKey, nullptr);
    archive->nodeKeys.push_back(key != nullptr ? key : archive->nodeKeys.back());
}

void JsonReader::beginArray(std::size_t most)
{
    beginNode();
    if (const std::size_t count = size(); count > most)
        throw cereal::Exception("JSON array '" + std::string(archive->nodeKeys.back()) + "' has " +
                                std::to_string(count) + " elements, but " + std::to_string(most) + " at most");
}

std::size_t JsonReader::size()
{
    cereal::size_type count = 0;
    archive->json.loadSize(count);
    return static_cast<std::size_t>(count);
}

void JsonReader::end()
{
    archive->json.finishNode();
    archive->nodeKeys.pop_back();
}

template <class T>
void JsonReader::number(T& value)
{
    archive->nextKey = nullptr;
    withExhaustedText([&] {
        if constexpr (std::is_same_v<T, bool> || std::is_floating_point_v<T>) {
            archive->json.loadValue(value);
        } else {
            // Read as the archive reads a T, but at full width, so that a number that doesn't fit is detected.
            using Signed = std::conditional_t<sizeof(T) == 8, std::int64_t, std::int32_t>;
            using Wide = std::conditional_t<std::is_signed_v<T>, Signed, std::make_unsigned_t<Signed>>;
            Wide wide = 0;
            archive->json.loadValue(wide);
            if (static_cast<Wide>(static_cast<T>(wide)) != wide)
                detail::throwValueOutOfRange(std::to_string(wide), typeName<T>());
            value = static_cast<T>(wide);
        }
    });
}

void JsonReader::text(std::string& value)
{
    archive->nextKey = nullptr;
    withExhaustedText([&] { archive->json.loadValue(value); });
}

#define VORNA_JSON_NUMBER(type)                   \
    template void JsonWriter::number<type>(type); \
    template void JsonReader::number<type>(type&);
VORNA_JSON_NUMBER(bool)
VORNA_JSON_NUMBER(char)
VORNA_JSON_NUMBER(signed char)
VORNA_JSON_NUMBER(unsigned char)
VORNA_JSON_NUMBER(short)
VORNA_JSON_NUMBER(unsigned short)
VORNA_JSON_NUMBER(int)
VORNA_JSON_NUMBER(unsigned int)
VORNA_JSON_NUMBER(long)
VORNA_JSON_NUMBER(unsigned long)
VORNA_JSON_NUMBER(long long)
VORNA_JSON_NUMBER(unsigned long long)
VORNA_JSON_NUMBER(float)
VORNA_JSON_NUMBER(double)
#undef VORNA_JSON_NUMBER

namespace detail {

std::string documentIn(const std::string& path)
{
    // a byte beyond the limit, so that a longer file is refused and not cut off
    const std::vector<std::uint8_t> bytes = util::readFile(path, jsonMaxSize + 1).bytes;
    return {bytes.begin(), bytes.end()};
}

void throwValueOutOfRange(const std::string& value, std::string_view type)
{
    throw cereal::Exception("JSON value " + value + " is out of range of " + std::string(type));
}

} // namespace detail
} // namespace trovi
