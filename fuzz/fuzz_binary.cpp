// The reader of the binary form: it either refuses the bytes or gives a value that comes back as itself, whether it
// reads from memory or from a stream of another kind.

#include <cstdlib>
#include <sstream>

#include "Everything.h"
#include "trovi/Serial.h"

namespace {

/// The T that the bytes hold, in its own form; empty when they are refused.
template <class T, class Source>
trovi::Bytes formOf(Source&& source)
{
    try {
        trovi::ByteReader reader(source);
        T value;
        trovi::decode(reader, value);
        return trovi::serializeToBuffer(value);
    } catch (const std::runtime_error&) {
        return {};
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const trovi::Bytes fromMemory = formOf<Everything>(std::span(data, size));
    std::istringstream stream(std::string(reinterpret_cast<const char*>(data), size));
    if (formOf<Everything>(stream) != fromMemory)
        std::abort();
    if (!fromMemory.empty() && formOf<Everything>(std::span<const std::uint8_t>(fromMemory)) != fromMemory)
        std::abort();
    formOf<std::unordered_map<std::string, double>>(std::span(data, size));
    return 0;
}
