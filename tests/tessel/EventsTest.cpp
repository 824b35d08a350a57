// The events of both families: what they are called, what they hold, and their forms. One list of types serves all.

#include "ravik/event/Events.h"

#include <string>

#include <gmock/gmock.h>

#include "tessel/event/Events.h"
#include "trovi/Json.h"
#include "trovi/Serial.h"

namespace {

struct Tessel {
    using Input = tessel::event::InputEvent;
    using Output = tessel::event::OutputEvent;
    using Dvs = tessel::event::DvsEvent;
    static std::string prefix() { return "tessel::event::"; }
};
struct Ravik {
    using Input = ravik::event::InputEvent;
    using Output = ravik::event::OutputEvent;
    using Dvs = ravik::event::DvsEvent;
    static std::string prefix() { return "ravik::event::"; }
};

template <class Family>
class ChipEvents : public testing::Test {};
using Families = testing::Types<Tessel, Ravik>;
TYPED_TEST_SUITE(ChipEvents, Families);

/// "Spike(layer:u8 feature:u16 ...)" for each alternative in order.
template <class... Alternatives>
std::vector<std::string> describe(const std::variant<Alternatives...>*, const std::string& prefix)
{
    const auto typeText = [](auto value) -> std::string {
        using T = decltype(value);
        if constexpr (std::is_same_v<T, bool>)
            return "bool";
        else
            return (std::is_signed_v<T> ? "i" : "u") + std::to_string(8 * sizeof(T));
    };
    std::vector<std::string> lines;
    (
        [&] {
            const std::string name(trovi::typeName<Alternatives>());
            EXPECT_EQ(name.substr(0, prefix.size()), prefix);
            EXPECT_EQ(name, trovi::registeredName<Alternatives>());
            std::string line = name.substr(prefix.size()) + "(";
            trovi::forEach(trovi::MetaHolder<Alternatives>::members, [&](const auto& member) {
                EXPECT_STRNE(member.doc, "") << name << "." << member.name;
                EXPECT_EQ(Alternatives{}.*(member.field), 0) << name << "." << member.name;
                line += (line.back() == '(' ? "" : " ") + std::string(member.name) + ":" +
                        typeText(Alternatives{}.*(member.field));
            });
            lines.push_back(line + ")");
        }(),
        ...);
    return lines;
}

TYPED_TEST(ChipEvents, HaveTheirNamesMembersAndOrder)
{
    EXPECT_EQ(trovi::registeredName<typename TypeParam::Input>(), TypeParam::prefix() + "InputEvent");
    EXPECT_EQ(trovi::registeredName<typename TypeParam::Output>(), TypeParam::prefix() + "OutputEvent");
    EXPECT_THAT(
        describe(static_cast<typename TypeParam::Input*>(nullptr), TypeParam::prefix()),
        testing::ElementsAre("Spike(layer:u8 feature:u16 y:u8 x:u8 timestamp:u32)",
                             "RouterEvent(layer:u8 feature:u16 y:u8 x:u8)", "KillSensorPixel(y:u8 x:u8)",
                             "ResetSensorPixel()", "WriteNeuronValue(layer:u8 address:u32 kill:bool neuron_state:i16)",
                             "ReadNeuronValue(layer:u8 address:u32 monitor_tag:u8)",
                             "WriteWeightValue(layer:u8 address:u32 kill:bool weight:i8)",
                             "ReadWeightValue(layer:u8 address:u32 monitor_tag:u8)",
                             "WriteBiasValue(layer:u8 address:u32 kill:bool bias:i16)",
                             "ReadBiasValue(layer:u8 address:u32 monitor_tag:u8)",
                             "WriteRegisterValue(layer:u8 index:u8 data:u16)", "ReadRegisterValue(layer:u8 index:u8)",
                             "WriteMemoryValue(layer:u8 address:u16 data:u16)", "ReadMemoryValue(layer:u8 address:u16)",
                             "ReadProbe(core:u8)"));
    EXPECT_THAT(describe(static_cast<typename TypeParam::Output*>(nullptr), TypeParam::prefix()),
                testing::ElementsAre(
                    "Spike(layer:u8 feature:u16 y:u8 x:u8 timestamp:u32)", "DvsEvent(p:bool y:u8 x:u8 layer:u8)",
                    "InputInterfaceEvent(value:u32 msp:bool)", "NeuronValue(monitor_tag:u8 kill:bool neuron_state:i16)",
                    "BiasValue(monitor_tag:u8 kill:bool bias:i16)", "WeightValue(monitor_tag:u8 kill:bool weight:i8)",
                    "RegisterValue(layer:u8 index:u8 data:u16 timestamp:u32)",
                    "MemoryValue(layer:u8 address:u16 data:u32 timestamp:u32)",
                    "BistValue(layer:u8 address:u16 block:u8 wordPart:u8 type:u8 data:u16 "
                    "expected:u16 errorCode:u8)",
                    "ProbeValue(core:u8 value:u8)", "ReadoutValue(value:u32)"));
}

/// A variant of this alternative with every described member at its highest value.
template <class Variant, std::size_t Index>
Variant filled()
{
    using Alternative = std::variant_alternative_t<Index, Variant>;
    Alternative event{};
    trovi::forEach(trovi::MetaHolder<Alternative>::members, [&](const auto& member) {
        auto& value = event.*(member.field);
        value = std::numeric_limits<std::remove_reference_t<decltype(value)>>::max();
    });
    return event;
}

template <class Variant>
void checkForms()
{
    std::vector<Variant> events;
    trovi::staticFor<std::variant_size_v<Variant>>([&](auto index) {
        using Alternative = std::variant_alternative_t<index(), Variant>;
        const Variant event = filled<Variant, index()>();
        if constexpr (trovi::memberCount<Alternative> != 0) {
            EXPECT_NE(event, Variant(Alternative{}));
        }
        EXPECT_EQ(event, event);
        events.push_back(event);

        const trovi::Bytes bytes = trovi::serializeToBuffer(event);
        EXPECT_EQ(bytes[0], index()) << "the index is 32 bits, and the order of alternatives is its meaning";
        EXPECT_EQ(trovi::deserializeBytes<Variant>(bytes), event);
        const Alternative& alternative = std::get<index()>(event);
        EXPECT_EQ(trovi::deserializeBytes<Alternative>(trovi::serializeToBuffer(alternative)), alternative);

        Alternative back{};
        trovi::fromJson(back, trovi::toJson(alternative));
        EXPECT_EQ(back, alternative);
    });
    EXPECT_EQ(trovi::deserializeBytes<std::vector<Variant>>(trovi::serializeToBuffer(events)), events);
}

TYPED_TEST(ChipEvents, KeepTheirMembersInBothForms)
{
    checkForms<typename TypeParam::Input>();
    checkForms<typename TypeParam::Output>();
}

TYPED_TEST(ChipEvents, CompareTheTimeThatHasNoDescription)
{
    using Dvs = typename TypeParam::Dvs;
    const Dvs late{true, 1, 2, 9, 77};
    EXPECT_NE(late, (Dvs{true, 1, 2, 9, 78}));
    EXPECT_EQ(trovi::serializeToBuffer(late), (trovi::Bytes{1, 1, 2, 9})) << "and it does not travel";
    EXPECT_EQ(trovi::deserializeBytes<Dvs>(trovi::serializeToBuffer(late)), (Dvs{true, 1, 2, 9, 0}));
}

} // namespace
