#include "tessel/family/Family.h"
#include VORNA_FAMILY_HEADER_IN(event, Codec)

#include <array>
#include <cstdio>
#include <limits>
#include <random>
#include <span>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "../Golden.h"
#include "EventText.h"
#include "tessel/family/WordText.h"

namespace VORNA_FAMILY::event {
namespace {

using event_text::text;
using u64 = std::uint64_t;

static_assert(noexcept(decodeOutputEvent(0)) && noexcept(decodeBistValueEvent(0)) && noexcept(
    decodeInputEvent(0, true)) && noexcept(encodeInputInterfaceEvent(InputEvent())));

std::string hex(u64 word)
{
    char digits[24];
    std::snprintf(digits, sizeof digits, "%016llX", static_cast<unsigned long long>(word));
    return digits;
}

TEST(Codec, FieldsOfAllWords)
{
    using namespace words;
    using tessel::word::tableLines;
    using tessel::word::wordLines;
    const std::string lines = "from the chip\n" + tableLines<OutputWords>() + "packets of their own\n" +
                              wordLines<RegisterWord, MemoryWord, ProbeWord, ReadoutWord, BistWord>() +
                              "towards the chip\n" + tableLines<InputWords>() + "only written\n" +
                              wordLines<SpikeWord, WriteRegisterWord>() + "only read\n" + wordLines<TimedSpikeWord>() +
                              "by the board's chip module\n" +
                              wordLines<ModuleSpikeWord, ModuleWriteRegisterWord, ModuleReadRegisterWord,
                                        ModuleWriteMemoryWord, ModuleReadMemoryWord, ModuleReadProbeWord>();
    EXPECT_GOLDEN("chip_words.txt", lines);
}

TEST(Codec, WordsFromTheChip)
{
    std::string lines;
    const auto add = [&](u64 word, const OutputEvent& event) { lines += hex(word) + " " + text(event) + "\n"; };
    for (u64 code = 0; code < 16; ++code)
        for (const u64 rest : {u64{0}, u64{0x1234'5678'5055'5555}, ~u64{0}}) {
            const u64 word = (rest & ~u64{0xF00'0000}) | code << 24;
            add(word, decodeOutputEvent(word));
        }
    for (const u64 word : {u64{0}, u64{0x55AA'5A5A'3C69'A55A}, ~u64{0}}) {
        const auto low = static_cast<std::uint32_t>(word);
        add(low, decodeRegisterValueEvent(low));
        add(low, decodeMemoryValueEvent(low));
        add(low, decodeProbeValueEvent(low));
        add(low, decodeReadoutValueEvent(low));
        add(word, decodeBistValueEvent(word));
    }
    EXPECT_GOLDEN("chip_words_decoded.txt", lines);
}

// The quick way assembles events as their memory, and the tables are read one by one at compile time. Both give the
// same, for whole vectors too.
TEST(Codec, BothWaysToReadAWordAgree)
{
    std::mt19937_64 random(20);
    std::vector<u64> words(1 << 16);
    for (u64& word : words)
        word = random();
    std::vector<OutputEvent> events = {Spike{1}};
    decodeOutputEvents(std::span(words).first(1000), events);
    decodeOutputEvents(std::span(words).subspan(1000), events);
    decodeOutputEvents({}, events);
    ASSERT_EQ(events.size(), words.size() + 1);
    EXPECT_EQ(events[0], OutputEvent(Spike{1}));
    for (std::size_t i = 0; i < words.size(); ++i) {
        ASSERT_EQ(decodeOutputEvent(words[i]), words::OutputWords::cut<OutputEvent>(words[i])) << hex(words[i]);
        ASSERT_EQ(events[i + 1], decodeOutputEvent(words[i])) << hex(words[i]);
    }
}

// "event -> word through the input interface, by the chip module" and how the first word reads, without and with time.
std::string inputLine(const InputEvent& event)
{
    const u64 word = encodeInputInterfaceEvent(event);
    std::string line = text(event) + " -> " + hex(word);
    std::visit(
        [&](const auto& kind) {
            if constexpr (requires { encodeModuleWord(kind); })
                line += ", " + hex(encodeModuleWord(kind));
        },
        event);
    const InputEvent read = decodeInputEvent(word, false), timed = decodeInputEvent(word, true);
    line += read == event ? " -> the same" : " -> " + text(read);
    return line + (timed == read ? "" : ", " + text(timed)) + "\n";
}

// Each kind with nothing, and with one member after the other at its largest: what is too wide reaches its neighbours.
TEST(Codec, WordsTowardsTheChip)
{
    std::string lines;
    trovi::staticFor<std::variant_size_v<InputEvent>>([&](auto index) {
        using Kind = std::variant_alternative_t<index(), InputEvent>;
        lines += inputLine(Kind{});
        trovi::forEach(trovi::MetaHolder<Kind>::members, [&](const auto& member) {
            Kind kind{};
            auto& value = kind.*(member.field);
            using Value = std::remove_reference_t<decltype(value)>;
            value = std::is_signed_v<Value> ? std::numeric_limits<Value>::min() : std::numeric_limits<Value>::max();
            lines += inputLine(kind);
        });
    });
    const InputEvent others[] = {
        Spike{3, 5, 7, 9, 0x11},
        Spike{0, 0, 0, 0, 1 << 6},
        RouterEvent{13, 1, 127, 126},
        KillSensorPixel{127, 1},
        WriteNeuronValue{1, 1, true, -2},
        WriteNeuronValue{12, 0, false, 0}, // the layer fills the bits that tell router and sensor
        WriteNeuronValue{14, 0, false, 0},
        ReadNeuronValue{8, 0x3'FFFF, 31},
        WriteWeightValue{1, 0x1F'FFFF, true, -1},
        ReadWeightValue{11, 1, 2},
        WriteBiasValue{1, 0x3FF, true, -1},
        ReadBiasValue{1, 0x400, 2},
        WriteRegisterValue{13, 2, 0xAB},
    };
    for (const InputEvent& event : others)
        lines += inputLine(event);
    EXPECT_GOLDEN("chip_words_encoded.txt", lines);
}

TEST(Codec, ReadingGivesBackWhatWasWritten)
{
    std::mt19937_64 random(22);
    std::array<int, std::variant_size_v<InputEvent>> seen{};
    for (int i = 0; i < 50'000; ++i) {
        const u64 word = random();
        const InputEvent event = decodeInputEvent(word, false);
        ASSERT_EQ(decodeInputEvent(encodeInputInterfaceEvent(event), false), event) << hex(word);
        ASSERT_EQ(std::holds_alternative<Spike>(decodeInputEvent(word, true)),
                  std::holds_alternative<RouterEvent>(event));
        ++seen.at(event.index());
    }
    EXPECT_THAT(std::span(seen).subspan(1, 9), testing::Each(testing::Gt(1000)));
    EXPECT_EQ(seen[0], 0) << "a spike only with a time";
    EXPECT_THAT(std::span(seen).subspan(10), testing::Each(0));
}

// A time is read from around the bits that tell a kind, where it is not written.
TEST(Codec, EachBitOfATimedSpike)
{
    std::string lines;
    for (int bit = 0; bit < 64; ++bit) {
        const u64 word = u64{0b11} << 39 | u64{1} << bit;
        lines += std::to_string(bit) + ": " + text(decodeInputEvent(word, true)) + "\n";
    }
    EXPECT_GOLDEN("chip_words_timed.txt", lines);
}

} // namespace
} // namespace VORNA_FAMILY::event
