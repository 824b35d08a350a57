#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Packets.h"

using namespace packets;
using testing::ElementsAre;

TEST(Packet, HeaderAndPaddingFollowFromFormatAndPayload)
{
    const struct {
        const char* what;
        std::uint8_t moduleId;
        PktFmt format;
        std::uint8_t extension;
        std::size_t payload;
        std::uint32_t header;
        std::size_t words;
    } rows[] = {
        {"one event word", 2, PktFmt::Ev32, 0, 8, 0x0000'0207, 3},
        {"raw packets hold the length twice", 2, PktFmt::Raw, 1, 3, 0x0102'4202, 2},
        {"only raw packets hold an extension", 3, PktFmt::Config, 7, 4, 0x0000'C303, 2},
        {"route", 63, PktFmt::Route, 0, 2, 0x0000'BF01, 2},
        {"full", 1, PktFmt::Raw, 255, 256, 0xFFFF'41FF, 65},
        {"the id is cut to 6 bits", 0x41, PktFmt::Ev32, 0, 5, 0x0000'0104, 3},
        {"without payload all bits are set", 2, PktFmt::Raw, 3, 0, 0xFFFF'FFFF, 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        PacketPtr packet = Keplin::getEmptyPacketBuffer();
        packet->data.fill(0xEE);
        packet->setHeader(row.moduleId, static_cast<HdrExtFmt>(row.extension), row.format);
        for (std::size_t i = 0; i < row.payload; ++i)
            packet->push_back(0x11, 1);
        packet->prepToSend();
        EXPECT_EQ(packet->header, row.header);
        const Words wire = wireOf(*packet);
        ASSERT_EQ(wire.size(), row.words);
        if (row.payload > 0) {
            EXPECT_EQ(wordsOfHeader(packet->header), row.words);
        }
        const Bytes bytes = bytesOf(wire);
        for (std::size_t i = 4; i < bytes.size(); ++i)
            EXPECT_EQ(bytes[i], i - 4 < row.payload ? 0x11 : 0) << i;
        const std::size_t padded = (row.payload + 3) / 4 * 4;
        EXPECT_TRUE(std::all_of(packet->data.begin() + static_cast<std::ptrdiff_t>(padded), packet->data.end(),
                                [](std::uint8_t byte) { return byte == 0xEE; }));
        Keplin::putPacketBuffer(std::move(packet));
    }
}

TEST(Packet, TakesLowBytesFirstUpTo256)
{
    PacketPtr packet = Keplin::getRawPacketBuffer(2, HdrExtFmt::Command, PktFmt::Raw);
    packet->push_back(0x1234'5678'9ABC'DEF0, 3);
    packet->push_back(~0ULL, 0);
    packet->push_back(0x0807'0605'0403'0201, 10);
    EXPECT_THAT(payloadOf(*packet), ElementsAre(0xF0, 0xDE, 0xBC, 1, 2, 3, 4, 5, 6, 7, 8, 0, 0));
    packet->push_back(0, 256 - packet->size);
    const PacketBuffer full = *packet;
    for (const std::uint64_t count : {1ULL, ~0ULL})
        try {
            packet->push_back(1, count);
            ADD_FAILURE() << "took byte 257";
        } catch (const std::length_error& e) {
            EXPECT_STREQ(e.what(), "Attempt to exceed max size of Keplin packet.");
        }
    EXPECT_EQ(std::memcmp(&full, packet.get(), sizeof full), 0);
    EXPECT_NO_THROW(packet->pushBackSizeCheck(0));
    Keplin::putPacketBuffer(std::move(packet));
}

TEST(Packet, PrintsHeaderAndPayload)
{
    std::ostringstream text;
    text << *packet(2, PktFmt::Raw, {0x0A, 0xFF, 3}) << 17;
    EXPECT_EQ(text.str(), "02 42 02 00 0a ff 03 \n17");
}

TEST(Packet, WhatEndsBeforeAWholeWordReadsAsIfZerosFollowed)
{
    for (const auto& [size, expected] : std::vector<std::pair<std::size_t, std::vector<std::uint64_t>>>{
             {0, {}},
             {3, {}},
             {4, {0x1111'1111}},
             {7, {0x11'1111'1111'1111}},
             {8, {0x1111'1111'1111'1111}},
             {11, {0x1111'1111'1111'1111}},
             {13, {0x1111'1111'1111'1111, 0x11'1111'1111}}}) {
        PacketPtr packet = Keplin::getEmptyPacketBuffer();
        packet->data.fill(0x11);
        packet->size = size;
        std::vector<std::uint64_t> words;
        packet->forEachEventWord([&](std::uint64_t word) { words.push_back(word); });
        EXPECT_EQ(words, expected) << size;
        EXPECT_EQ(packet->payload<std::uint32_t>(300), 0U);
        Keplin::putPacketBuffer(std::move(packet));
    }
}
