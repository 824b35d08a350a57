#include "trovi/Messages.h"

#include <charconv>

#include <magic_enum/magic_enum.hpp>
#include <zmq.hpp>

namespace trovi {

std::string_view commandName(StoreCommand command) { return magic_enum::enum_name(command); }

std::string uuid::str() const
{
    // 8-4-4-4-12 digits
    constexpr char digits[] = "0123456789abcdef";
    std::string text(36, '-');
    std::size_t at = 0;
    for (int digit = 0; digit < 32; ++digit) {
        if (at == 8 || at == 13 || at == 18 || at == 23)
            ++at;
        const std::uint64_t half = digit < 16 ? high : low;
        text[at++] = digits[(half >> (60 - 4 * (digit % 16))) & 0xF];
    }
    return text;
}

namespace messages {

NestedMessage deserializeInternal(std::istream& stream)
{
    NestedMessage nested;
    ByteReader reader(stream);
    decode(reader, nested.header);
    decode(reader, nested.buffer);
    // Formatted extraction of characters, with the skipping of white space that goes with it.
    constexpr auto isSpace = [](std::uint8_t byte) { return byte == 0x20 || (byte >= 0x09 && byte <= 0x0D); };
    for (const std::uint8_t byte : reader.rest())
        if (!isSpace(byte))
            nested.buffer.push_back(byte);
    return nested;
}

} // namespace messages

Bytes serializeMessage(const messages::Message& message)
{
    Bytes bytes;
    bytes.reserve(48 + std::visit([](const auto& m) { return m.buffer.size(); }, message));
    ByteWriter writer(bytes);
    encode(writer, message);
    return bytes;
}

messages::Message deserializeMessage(std::span<const std::uint8_t> bytes)
{
    return deserializeBytes<messages::Message>(bytes);
}

zmq::message_t messageHeader(std::uint64_t destination)
{
    char digits[20];
    const auto result = std::to_chars(std::begin(digits), std::end(digits), destination);
    return zmq::message_t(digits, static_cast<std::size_t>(result.ptr - digits));
}

zmq::message_t messageBody(const messages::Message& message)
{
    const Bytes bytes = serializeMessage(message);
    return zmq::message_t(bytes.data(), bytes.size());
}

zmq::message_t messageFromString(std::string_view text) { return zmq::message_t(text.data(), text.size()); }

messages::Message deserializeZMQMessage(const zmq::message_t& frame)
{
    return deserializeMessage({frame.data<std::uint8_t>(), frame.size()});
}

std::pair<std::uint64_t, std::string> deserializeDestinationAndUUID(std::istream& stream)
{
    std::pair<std::uint64_t, std::string> address;
    ByteReader reader(stream);
    decode(reader, address);
    return address;
}

} // namespace trovi
