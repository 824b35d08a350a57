#include "trovi/Messages.h"

#include <set>

#include <gmock/gmock.h>
#include <zmq.hpp>

#include "../ErrorOf.h"
#include "../Golden.h"
#include "Sample.h"
#include "trovi/ElementDescription.h"

namespace {

using namespace trovi;
using namespace trovi::messages;
using test::bytes;

Bytes frameOf(const Message& message)
{
    const zmq::message_t frame = messageBody(message);
    return {frame.data<std::uint8_t>(), frame.data<std::uint8_t>() + frame.size()};
}

Message decoded(const Bytes& frame) { return deserializeZMQMessage(zmq::message_t(frame.data(), frame.size())); }

const Header header{1, {2, 3}, StoreCommand::set, 4};
// " 02000000 0100000000000000 ...": the frame's fields in hexadecimal, its buffer last.
std::string fieldsOf(const Bytes& frame)
{
    const bool isResponse = frame[0] == 4;
    const std::set<std::size_t> begins =
        isResponse ? std::set<std::size_t>{0, 4, 12, 16, 24} : std::set<std::size_t>{0, 4, 12, 20, 28, 32, 40, 48};
    std::string text;
    for (std::size_t i = 0; i < frame.size(); ++i)
        text += (begins.contains(i) ? " " : "") + test::hex({&frame[i], 1}).substr(1);
    return text;
}

TEST(Messages, Frames)
{
    const StoreRef object{1, 3}, store{1, StoreRef::invalidId};
    const Bytes address = serializeToBuffer(std::uint64_t{2}, uuid{0, 2}.str());
    const Call call{{1, object, StoreCommand::call, 2}, nullptr, serializeToBuffer(std::uint32_t{7})};
    const Internal step{{1, object, StoreCommand::internal, 5}, nullptr, serializeToBuffer(InternalType::function)};
    const std::pair<const char*, Message> rows[] = {
        {"set member 4", Set{header, bytes("AA BB")}},
        {"connect", Connect{header, bytes("AA BB")}},
        {"call function 2 with 7, from node 2",
         Call{call.header, nullptr, serializeToBuffer(std::uint32_t{7}, std::uint64_t{2}, uuid{0, 2}.str())}},
        {"its answer 9", ResponseMessage(2, uuid{0, 2}.str(), std::uint32_t{9})},
        {"get member 4", Call{{1, object, StoreCommand::get, 4}, nullptr, address}},
        {"report", Call{{1, store, StoreCommand::report, 0}, nullptr, address}},
        {"call through function 5", step.append(call)},
        {"call through functions 5 and 5", step.append(step.append(call))},
        {"contentUpdate", Response{5, StoreCommand::contentUpdate,
                                   serializeToBuffer("", std::vector<ElementDescription>{{{1, 0}, "T", "n", 1}})}},
        {"storeClosed", Response{5, StoreCommand::storeClosed, serializeToBuffer("", std::uint64_t{1})}},
        {"empty response", Response{7, StoreCommand::response, {}}},
    };
    std::string text;
    for (const auto& [what, message] : rows) {
        const Bytes frame = frameOf(message);
        text += what + (":" + fieldsOf(frame)) + "\n";
        EXPECT_EQ(frameOf(decoded(frame)), frame) << what;
        for (std::size_t size = 0; size < frame.size(); ++size)
            EXPECT_THAT(errorOf([&] {
                            decoded({&frame[0], &frame[size]});
                        }),
                        testing::StartsWith("Failed to read "))
                << what << " cut at " << size;
    }
    EXPECT_GOLDEN("wire_frames.txt", text);
    EXPECT_EQ(errorOf([] { decoded(bytes("05 00 00 00")); }),
              "Invalid 'index' selector when deserializing std::variant");
    EXPECT_EQ(errorOf([] { decoded(bytes("FF FF FF FF")); }), "Error traversing variant during load");
}

TEST(Messages, Texts)
{
    std::string text;
    for (std::uint32_t i = 0; i <= 11; ++i)
        text += "command " + std::to_string(i) + ": " + std::string(commandName(static_cast<StoreCommand>(i))) + "\n";
    for (const std::uint64_t id : {0UL, 1234567890UL, 18446744073709551615UL})
        text += "topic: " + messageHeader(id).to_string() + "\n";
    for (const uuid& id : {uuid(), uuid{1, 2}, uuid{0x0123456789abcdef, 0xfedcba9876543210}})
        text += "uuid: " + id.str() + "\n";
    EXPECT_GOLDEN("message_texts.txt", text);
    EXPECT_EQ(messageFromString("a b").to_string(), "a b");
}

TEST(Messages, OnlyReturnAddressesWithoutWhiteSpaceBytesSurviveAChain)
{
    for (std::uint64_t id = 0; id < 256; ++id) {
        ByteStream stream(serializeToBuffer(header, Bytes(), id, uuid{0, id}.str()));
        ByteStream rest(deserializeInternal(stream).buffer);
        const bool lost = id == 0x20 || (id >= 0x09 && id <= 0x0D);
        if (lost)
            EXPECT_THROW(deserializeDestinationAndUUID(rest), std::runtime_error) << id;
        else
            EXPECT_EQ(deserializeDestinationAndUUID(rest), (std::pair{id, uuid{0, id}.str()}));
    }
}

} // namespace
