#pragma once
// The messages between nodes: one variant, the same on a node's channel and on the socket, and its frames.
//
// On a socket a message has two frames: the destination's id as decimal text, which subscriptions match against, and
// the variant in binary form.

#include <cstdint>
#include <functional>
#include <istream>
#include <string>
#include <utility>
#include <variant>

#include "trovi/Serial.h"
#include "trovi/StoreRef.h"

namespace zmq {
class message_t;
} // namespace zmq

namespace trovi {

/// What a message asks for. The enumerators' names are keywords of the protocol: a node's notification handlers are
/// found by them. Numbers are never reused.
enum class StoreCommand : std::uint32_t {
    connect = 0,         ///< reserved, nothing handles it
    set = 1,             ///< write a data member
    call = 2,            ///< call a member function of a store's object
    response = 3,        ///< the reply to a Call
    directSet = 4,       ///< reserved
    connectToDirect = 5, ///< reserved
    report = 6,          ///< ask a store for its content, and to become its observer
    internal = 7,        ///< call on an object that is reached through a chain of references
    get = 8,             ///< read a data member
    contentUpdate = 9,   ///< a store reports an added or removed object
    storeClosed = 10,    ///< a store closes
};

/// The enumerator's name; empty for a number that is none.
std::string_view commandName(StoreCommand command);

/// Identifies a call on the node that made it; two nodes make the same ones.
struct uuid {
    std::uint64_t high = 0;
    std::uint64_t low = 0;

    /// 36 characters, "00000000-0000-0001-0000-000000000002"
    std::string str() const;
};

namespace messages {

/// Takes an answer: a stream, positioned behind the call's uuid. Runs in the node's turn (trovi/MessageChannel.h).
using Callback = std::function<void(std::istream&)>;

struct Header {
    std::uint64_t destination = 0; ///< scratch of the dispatchers; no receiver reads it
    StoreRef ref;                  ///< the addressed object; objId is all ones for the store itself
    StoreCommand command = StoreCommand::connect;
    std::uint64_t id = 0; ///< number of the member or function in the description of the object's class
};

struct Set {
    Header header;
    Bytes buffer; ///< the value
};

struct Connect {
    Header header;
    Bytes buffer;
};

struct Call {
    Header header;
    Callback callback; ///< stays on the sending node, where the dispatcher replaces it by a return address
    Bytes buffer;      ///< the arguments, then the return address
};

/// A call on an object to which an object of a store returns a reference. The buffer holds the InternalType and the
/// arguments of this step. append() adds the message for the object that the step leads to: an Internal again, or the
/// Call at the chain's end. The return address comes last.
struct Internal {
    Header header;
    Callback callback;
    Bytes buffer;

    /// A copy with `message` added at the buffer's end.
    template <class M>
    Internal append(M&& message) const
    {
        Internal result = *this;
        ByteWriter writer(result.buffer);
        encode(writer, message);
        return result;
    }
};

struct Response {
    std::uint64_t destination = 0; ///< id of the node that gets it
    StoreCommand command = StoreCommand::response;
    Bytes buffer; ///< uuid text of the call, or an empty text; then the content
};

/// The order is the index on the wire.
using Message = std::variant<Set, Connect, Call, Internal, Response>;

/// How an Internal's step leads to the next object. Any other number is read as `member`.
enum class InternalType : std::uint32_t { function = 0, member = 1 };

/// A message inside the buffer of an Internal, without its callback.
struct NestedMessage {
    Header header;
    Bytes buffer;
};

/// Reads the message that an Internal carries. What follows it, the return address, goes to the end of the new
/// buffer. That copy takes one character after the other as formatted input and so drops bytes with the value of a
/// white space (0x09 to 0x0D, 0x20). That is part of the format, since peers do the same. A node whose id has such a
/// byte gets no answer through a chain.
/// @throws cereal::Exception when the message is truncated
NestedMessage deserializeInternal(std::istream& stream);

} // namespace messages

template <>
constexpr auto registerMembers<messages::Header>()
{
    using messages::Header;
    return members(member("destination", &Header::destination), member("ref", &Header::ref),
                   member("command", &Header::command), member("id", &Header::id));
}

template <>
constexpr auto registerMembers<messages::Set>()
{
    return members(member("header", &messages::Set::header), member("buffer", &messages::Set::buffer));
}

template <>
constexpr auto registerMembers<messages::Connect>()
{
    return members(member("header", &messages::Connect::header), member("buffer", &messages::Connect::buffer));
}

template <>
constexpr auto registerMembers<messages::Call>()
{
    return members(member("header", &messages::Call::header), member("buffer", &messages::Call::buffer));
}

template <>
constexpr auto registerMembers<messages::Internal>()
{
    return members(member("header", &messages::Internal::header), member("buffer", &messages::Internal::buffer));
}

template <>
constexpr auto registerMembers<messages::Response>()
{
    using messages::Response;
    return members(member("destination", &Response::destination), member("command", &Response::command),
                   member("buffer", &Response::buffer));
}

/// The variant's binary form, the content of frame 2.
Bytes serializeMessage(const messages::Message& message);
/// @throws cereal::Exception for an unknown alternative or a truncated message
messages::Message deserializeMessage(std::span<const std::uint8_t> bytes);

/// Frame 1: the decimal digits of `destination`.
zmq::message_t messageHeader(std::uint64_t destination);
/// Frame 2.
zmq::message_t messageBody(const messages::Message& message);
/// A frame of the bytes of `text`.
zmq::message_t messageFromString(std::string_view text);
/// Reads frame 2.
/// @throws as deserializeMessage
messages::Message deserializeZMQMessage(const zmq::message_t& frame);

/// Reads a return address: the caller's node and the text of the call's uuid.
std::pair<std::uint64_t, std::string> deserializeDestinationAndUUID(std::istream& stream);

/// The reply to the call `uuidText` of node `destination`, with `results` behind the uuid.
template <class... Results>
messages::Response ResponseMessage(std::uint64_t destination, const std::string& uuidText, const Results&... results)
{
    return {destination, StoreCommand::response, serializeToBuffer(uuidText, results...)};
}

} // namespace trovi
