#include "trovi/Messages.h"

#include <set>

#include <gmock/gmock.h>
#include <zmq.hpp>

#include "../Golden.h"
#include "Sample.h"
#include "trovi/Store.h"

namespace {

using namespace trovi;
using namespace trovi::messages;
using test::bytes;

Bytes frameOf(const Message& message)
{
    const zmq::message_t frame = messageBody(message);
    return {frame.data<std::uint8_t>(), frame.data<std::uint8_t>() + frame.size()};
}

std::string errorOf(const Bytes& frame)
{
    try {
        deserializeZMQMessage(zmq::message_t(frame.data(), frame.size()));
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "no error";
}

const Header header{1, {2, 3}, StoreCommand::set, 4};
const char* const headerBytes = "01 00 00 00 00 00 00 00  02 00 00 00 00 00 00 00  03 00 00 00 00 00 00 00"
                                "01 00 00 00  04 00 00 00 00 00 00 00";

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
    const struct {
        const char* what;
        Message message;
    } rows[] = {
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
    for (const auto& row : rows) {
        const Bytes frame = frameOf(row.message);
        text += row.what + (":" + fieldsOf(frame)) + "\n";
        EXPECT_EQ(frameOf(deserializeZMQMessage(zmq::message_t(frame.data(), frame.size()))), frame) << row.what;
        for (std::size_t size = 0; size < frame.size(); ++size)
            EXPECT_THAT(errorOf({frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(size)}),
                        testing::StartsWith("Failed to read "))
                << row.what << " cut at " << size;
    }
    EXPECT_GOLDEN("wire_frames.txt", text);
}

TEST(Messages, UnknownAlternativesAreRefused)
{
    EXPECT_EQ(errorOf(bytes("05 00 00 00")), "Invalid 'index' selector when deserializing std::variant");
    EXPECT_EQ(errorOf(bytes("FF FF FF FF")), "Error traversing variant during load");
}

TEST(Messages, TheTopicIsTheDecimalId)
{
    EXPECT_EQ(messageHeader(0).to_string(), "0");
    EXPECT_EQ(messageHeader(1234567890).to_string(), "1234567890");
    EXPECT_EQ(messageHeader(18446744073709551615U).to_string(), "18446744073709551615");
    EXPECT_EQ(messageFromString("a b").to_string(), "a b");
}

TEST(Messages, UuidTexts)
{
    EXPECT_EQ(uuid().str(), "00000000-0000-0000-0000-000000000000");
    EXPECT_EQ((uuid{1, 2}).str(), "00000000-0000-0001-0000-000000000002");
    EXPECT_EQ((uuid{0x0123456789abcdef, 0xfedcba9876543210}).str(), "01234567-89ab-cdef-fedc-ba9876543210");
}

TEST(Messages, CommandsAreKeywords)
{
    const char* const names[] = {"connect", "set",      "call", "response",      "directSet",  "connectToDirect",
                                 "report",  "internal", "get",  "contentUpdate", "storeClosed"};
    for (std::uint32_t i = 0; i < std::size(names); ++i)
        EXPECT_EQ(commandName(static_cast<StoreCommand>(i)), names[i]);
    EXPECT_EQ(commandName(static_cast<StoreCommand>(11)), "");
}

TEST(Messages, AnInternalCarriesTheNextMessageInItsBuffer)
{
    const Internal step{{0, {1, 2}, StoreCommand::internal, 5}, nullptr, bytes("00 00 00 00")};
    const Internal carrying = step.append(Call{header, nullptr, bytes("20 0A")});
    EXPECT_EQ(carrying.buffer, bytes("00 00 00 00" + std::string(headerBytes) + " 02 00 00 00 00 00 00 00 20 0A"));

    // Bytes inside the carried message stay; behind it, those that look like white space are lost.
    Bytes content = carrying.buffer;
    const Bytes behind = bytes("08 09 0A 0B 0C 0D 0E 1F 20 21");
    content.insert(content.end(), behind.begin(), behind.end());
    ByteStream stream(std::move(content));
    deserializeElement<InternalType>(stream);
    const NestedMessage nested = deserializeInternal(stream);
    EXPECT_EQ(serializeToBuffer(nested.header), bytes(headerBytes));
    EXPECT_EQ(nested.buffer, bytes("20 0A 08 0E 1F 21"));
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
