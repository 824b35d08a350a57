#include "tessel/family/Family.h"
#include VORNA_FAMILY_HEADER_IN(event, Events)

#include <string>

#include <gmock/gmock.h>

#include "../Golden.h"
#include "trovi/Json.h"
#include "trovi/Serial.h"

namespace VORNA_FAMILY::event {
namespace {

/// "3 NeuronValue(monitor_tag:u8 ...)" for each alternative in order.
template <class... Kinds>
std::string kindLines(const std::variant<Kinds...>*)
{
    std::string lines;
    std::size_t index = 0;
    const auto add = [&]<class Kind>(Kind none) {
        const std::string name = trovi::registeredName<Kind>();
        EXPECT_EQ(name, trovi::typeName<Kind>());
        EXPECT_EQ(name.rfind(VORNA_FAMILY_TEXT "::event::", 0), 0U) << name;
        lines += std::to_string(index++) + " " + name.substr(name.rfind(':') + 1) + "(";
        trovi::forEach(trovi::MetaHolder<Kind>::members, [&](const auto& member) {
            EXPECT_STRNE(member.doc, "") << name << "." << member.name;
            EXPECT_EQ(none.*(member.field), 0) << name << "." << member.name;
            using Value = std::remove_reference_t<decltype(none.*(member.field))>;
            lines += (lines.back() == '(' ? "" : " ") + std::string(member.name) + ":";
            lines += std::is_same_v<Value, bool>
                         ? "bool"
                         : (std::is_signed_v<Value> ? "i" : "u") + std::to_string(8 * sizeof(Value));
        });
        lines += ")\n";
    };
    (add(Kinds{}), ...);
    return lines;
}

TEST(ChipEvents, HaveTheirNamesMembersAndOrder)
{
    EXPECT_EQ(trovi::registeredName<InputEvent>(), VORNA_FAMILY_TEXT "::event::InputEvent");
    EXPECT_EQ(trovi::registeredName<OutputEvent>(), VORNA_FAMILY_TEXT "::event::OutputEvent");
    EXPECT_GOLDEN("chip_event_kinds.txt", "towards the chip\n" + kindLines(static_cast<InputEvent*>(nullptr)) +
                                              "from the chip\n" + kindLines(static_cast<OutputEvent*>(nullptr)));
}

template <class Variant>
void checkForms()
{
    std::vector<Variant> events;
    trovi::staticFor<std::variant_size_v<Variant>>([&](auto index) {
        using Kind = std::variant_alternative_t<index(), Variant>;
        Kind kind{};
        trovi::forEach(trovi::MetaHolder<Kind>::members, [&](const auto& member) {
            auto& value = kind.*(member.field);
            value = std::numeric_limits<std::remove_reference_t<decltype(value)>>::max();
        });
        EXPECT_EQ(kind == Kind{}, trovi::memberCount<Kind> == 0);
        EXPECT_EQ(trovi::deserializeBytes<Kind>(trovi::serializeToBuffer(kind)), kind);
        EXPECT_EQ(trovi::serializeToBuffer(Variant(kind))[0], index()) << "the order of alternatives has a meaning";
        Kind back{};
        trovi::fromJson(back, trovi::toJson(kind));
        EXPECT_EQ(back, kind);
        events.emplace_back(kind);
    });
    EXPECT_EQ(trovi::deserializeBytes<std::vector<Variant>>(trovi::serializeToBuffer(events)), events);
}

TEST(ChipEvents, KeepTheirMembersInBothForms)
{
    checkForms<InputEvent>();
    checkForms<OutputEvent>();
}

TEST(ChipEvents, CompareTheTimeThatHasNoDescription)
{
    const DvsEvent late{true, 1, 2, 9, 77};
    EXPECT_NE(late, (DvsEvent{true, 1, 2, 9, 78}));
    EXPECT_EQ(trovi::serializeToBuffer(late), (trovi::Bytes{1, 1, 2, 9})) << "and it does not travel";
    EXPECT_EQ(trovi::deserializeBytes<DvsEvent>(trovi::serializeToBuffer(late)), (DvsEvent{true, 1, 2, 9, 0}));
}

} // namespace
} // namespace VORNA_FAMILY::event
