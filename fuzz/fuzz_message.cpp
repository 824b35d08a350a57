// The body of a message, and what a node reads out of its buffer.

#include <cstdlib>

#include "trovi/Messages.h"
#include "trovi/Store.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace trovi;
    Bytes buffer;
    try {
        const messages::Message message = deserializeMessage({data, size});
        const Bytes form = serializeMessage(message);
        if (form.size() > size || !std::equal(form.begin(), form.end(), data))
            std::abort(); // a message has one form
        buffer = std::visit([](const auto& m) { return m.buffer; }, message);
    } catch (const std::runtime_error&) {
        buffer.assign(data, data + size);
    }
    const auto attempt = [&](auto read) {
        try {
            ByteStream stream = sstreamFromBuffer(buffer);
            read(stream);
        } catch (const std::runtime_error&) {
        }
    };
    attempt([](std::istream& stream) { deserializeDestinationAndUUID(stream); });
    attempt([](std::istream& stream) { deserializeElement<std::vector<ElementDescription>>(stream); });
    attempt([](std::istream& stream) {
        deserializeElement<messages::InternalType>(stream);
        ByteStream nested(messages::deserializeInternal(stream).buffer);
        deserializeElement<messages::InternalType>(nested);
        messages::deserializeInternal(nested);
    });
    return 0;
}
