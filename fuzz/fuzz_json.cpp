// The JSON loader: it either refuses the document or gives a value whose own document comes back as itself.

#include <cstdlib>

#include "Everything.h"
#include "trovi/Json.h"

namespace {

std::string documentOf(const std::string& document)
{
    try {
        Everything value;
        trovi::fromJson(value, document);
        return trovi::toJson(value);
    } catch (const std::runtime_error&) {
        return {};
    }
}

} // namespace

// Random text hardly ever is a document with all members, so the input is also put in place of one member of a good
// one.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const std::string good = trovi::toJson(Everything());
    const std::string text(reinterpret_cast<const char*>(data), size);
    documentOf(text);
    if (size < 1)
        return 0;
    std::string document = good;
    std::size_t at = 0;
    for (int i = 0; i <= data[0] % 20; ++i)
        at = document.find(": ", at + 1) == std::string::npos ? at : document.find(": ", at + 1);
    const std::size_t end = document.find(',', at);
    document.replace(at + 2, end == std::string::npos ? 1 : end - at - 2, text.substr(1));
    const std::string once = documentOf(document);
    if (!once.empty() && documentOf(once) != once)
        std::abort();
    return 0;
}
