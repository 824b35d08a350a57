#include <iomanip>
#include <sstream>

#include <gmock/gmock.h>

#include "../Golden.h"
#include "Packets.h"

using namespace packets;

TEST(Packet, HeaderFollowsFromFormatAndPayload)
{
    std::ostringstream text;
    for (const PktFmt format : {PktFmt::Ev32, PktFmt::Raw, PktFmt::Route, PktFmt::Config})
        for (const int moduleId : {2, 63, 0x41}) // the id is cut to 6 bits
            for (const std::size_t size : {0, 1, 3, 4, 5, 256}) {
                PacketPtr packet = Keplin::getEmptyPacketBuffer();
                packet->data.fill(0xEE);
                packet->setHeader(static_cast<std::uint8_t>(moduleId), HdrExtFmt::AdcSample, format);
                packet->push_back(0, size);
                packet->prepToSend();
                text << "module " << moduleId << ", " << size << " bytes: " << std::hex << std::setw(8)
                     << std::setfill('0') << packet->header << std::dec << ", " << packet->wireWords() << " words\n";
                for (std::size_t i = 0; i < packet->data.size(); ++i)
                    EXPECT_EQ(packet->data[i], i < (size + 3) / 4 * 4 ? 0 : 0xEE) << "padding alone is zeroed";
                Keplin::putPacketBuffer(std::move(packet));
            }
    EXPECT_GOLDEN("packet_headers.txt", text.str());
}

TEST(Packet, TakesLowBytesFirstUpTo256AndPrintsThem)
{
    PacketPtr packet = Keplin::getRawPacketBuffer(2, HdrExtFmt::Command, PktFmt::Raw);
    packet->push_back(0x1234'5678'9ABC'DEF0, 3);
    packet->push_back(~0ULL, 0);
    packet->push_back(0x0807'0605'0403'0201, 10);
    std::ostringstream text;
    text << *packet << 17;
    EXPECT_EQ(text.str(), "00 42 00 00 f0 de bc 01 02 03 04 05 06 07 08 00 00 \n17");

    packet->push_back(0, 256 - packet->size);
    const PacketBuffer full = *packet;
    for (const std::uint64_t count : {1ULL, ~0ULL})
        EXPECT_THAT([&] { packet->push_back(1, count); },
                    testing::ThrowsMessage<std::length_error>("Attempt to exceed max size of Keplin packet."));
    EXPECT_EQ(std::memcmp(&full, packet.get(), sizeof full), 0);
    EXPECT_NO_THROW(packet->pushBackSizeCheck(0));
    Keplin::putPacketBuffer(std::move(packet));
}

TEST(Packet, WhatEndsBeforeAWholeWordReadsAsIfZerosFollowed)
{
    const std::pair<std::size_t, std::vector<std::uint64_t>> rows[] = {
        {0, {}},
        {3, {}},
        {4, {0x1111'1111}},
        {7, {0x11'1111'1111'1111}},
        {8, {0x1111'1111'1111'1111}},
        {11, {0x1111'1111'1111'1111}},
        {13, {0x1111'1111'1111'1111, 0x11'1111'1111}},
    };
    for (const auto& [size, expected] : rows) {
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
