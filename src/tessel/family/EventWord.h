#pragma once
// The words of events on their way to and from a chip, as data: which bits hold each member of an event, and which bits
// say the kind of event.
//
//   using WriteWeightWord = Word<WriteWeightValue,
//                                Field<&WriteWeightValue::weight, 0, 7>, Field<&WriteWeightValue::kill, 8>,
//                                Field<&WriteWeightValue::address, 9, 29>, Clear<30>, Tag<35, 36, 2>,
//                                Field<&WriteWeightValue::layer, 37, 40>>;
//
//   WriteWeightWord::spilled(event)  // towards the chip: members in full, too wide ones overwrite their neighbours
//   WriteWeightWord::cut(word)       // from a word: each member is its own bits
//   WriteWeightWord::matches(word)   // the tag bits are this event's
//
// Bits count from 0 at the least significant one; a range includes both ends. The compiler checks that fields and tags
// of a word don't overlap and that a field fits its member.

#include <cstdint>
#include <limits>
#include <type_traits>

namespace tessel::word {

namespace detail {

template <class Pointer>
struct Pointee;
template <class Class, class T>
struct Pointee<T Class::*> {
    using Owner = Class;
    using Type = T;
};

/// `low` to `high`, both of them.
constexpr std::uint64_t bitRange(unsigned low, unsigned high)
{
    return (~std::uint64_t{0} >> (63 - (high - low))) << low;
}

/// The bits of a member, with nothing above its width.
template <class T>
constexpr std::uint64_t pattern(T value)
{
    if constexpr (std::is_same_v<T, bool>)
        return value ? 1 : 0;
    else
        return static_cast<std::make_unsigned_t<T>>(value);
}

} // namespace detail

/// The bits Low to High of a word are a member, or those of its bits that begin at bit Into.
template <auto Member, unsigned Low, unsigned High = Low, unsigned Into = 0>
struct Field {
    using Event = typename detail::Pointee<decltype(Member)>::Owner;
    using Type = typename detail::Pointee<decltype(Member)>::Type;
    static constexpr auto member = Member;
    static constexpr unsigned low = Low, high = High, into = Into;
    static constexpr std::uint64_t mask = detail::bitRange(Low, High);
    static constexpr std::uint64_t tagBits = 0;
    static constexpr bool isField = true, isTag = false;

    static_assert(Low <= High && High < 64, "the field lies outside the word");
    static_assert(High - Low + Into <
                      unsigned{std::numeric_limits<
                          std::make_unsigned_t<std::conditional_t<std::is_same_v<Type, bool>, char, Type>>>::digits},
                  "the field is wider than its member");
    static_assert(!std::is_same_v<Type, bool> || Low == High, "a bool is one bit");

    /// The member at its place, as wide as it is.
    static constexpr std::uint64_t spilled(const Event& event) noexcept
    {
        static_assert(Into == 0, "a member that lies in several pieces can only be read");
        return detail::pattern(event.*Member) << Low;
    }
    static constexpr void cut(std::uint64_t word, Event& event) noexcept
    {
        event.*Member = static_cast<Type>(detail::pattern(event.*Member) | (word & mask) >> Low << Into);
    }
};

/// The bits Low to High are Value in every word of the kind.
template <unsigned Low, unsigned High, std::uint64_t Value>
struct Tag {
    static constexpr unsigned low = Low, high = High;
    static constexpr std::uint64_t mask = detail::bitRange(Low, High);
    static constexpr std::uint64_t tagBits = Value << Low;
    static constexpr bool isField = false, isTag = true;

    static_assert(Low <= High && High < 64, "the tag lies outside the word");
    static_assert((tagBits & ~mask) == 0 && tagBits >> Low == Value, "the tag's value is wider than its bits");

    template <class Event>
    static constexpr std::uint64_t spilled(const Event&) noexcept
    {
        return tagBits;
    }
    template <class Event>
    static constexpr void cut(std::uint64_t, Event&) noexcept
    {}
};
template <unsigned Bit>
using Set = Tag<Bit, Bit, 1>;
template <unsigned Bit>
using Clear = Tag<Bit, Bit, 0>;

/// A member that has no bits in the word: it follows from the kind.
template <auto Member, auto Value>
struct Given {
    using Event = typename detail::Pointee<decltype(Member)>::Owner;
    static constexpr auto member = Member;
    static constexpr auto value = static_cast<typename detail::Pointee<decltype(Member)>::Type>(Value);
    static constexpr std::uint64_t mask = 0, tagBits = 0;
    static constexpr bool isField = false, isTag = false;

    static_assert(value == Value, "the value does not fit the member");

    static constexpr std::uint64_t spilled(const Event&) noexcept { return 0; }
    static constexpr void cut(std::uint64_t, Event& event) noexcept { event.*Member = value; }
};

namespace detail {

template <class E, class... Parts>
struct WordOf {
    using Event = E;
    static constexpr std::uint64_t tagMask = ((Parts::isTag ? Parts::mask : 0) | ... | std::uint64_t{0});
    static constexpr std::uint64_t tagBits = (Parts::tagBits | ... | std::uint64_t{0});

    /// True when no bit belongs to two parts.
    static constexpr bool partsLieApart = [] {
        std::uint64_t taken = 0;
        bool apart = true;
        ((apart = apart && (taken & Parts::mask) == 0, taken |= Parts::mask), ...);
        return apart;
    }();

    static constexpr bool matches(std::uint64_t word) noexcept { return (word & tagMask) == tagBits; }
    static constexpr std::uint64_t spilled(const Event& event) noexcept
    {
        return (Parts::spilled(event) | ... | std::uint64_t{0});
    }
    static constexpr Event cut(std::uint64_t word) noexcept
    {
        Event event{};
        (Parts::cut(word, event), ...);
        return event;
    }

    /// Calls visitor(Part{}) for each part, in order.
    template <class Visitor>
    static constexpr void forEachPart(Visitor&& visitor)
    {
        (visitor(Parts{}), ...);
    }
};

} // namespace detail

/// A word whose parts lie apart, so that a spilled event whose members are in range is what cut() gives back.
template <class Event, class... Parts>
struct Word : detail::WordOf<Event, Parts...> {
    static_assert(detail::WordOf<Event, Parts...>::partsLieApart, "two parts of the word share a bit");
};

/// A word in which parts lie over each other, as an exception that is meant: it can be written, not read back.
template <class Event, class... Parts>
struct OverlaidWord : detail::WordOf<Event, Parts...> {
    static_assert(!detail::WordOf<Event, Parts...>::partsLieApart, "the parts lie apart: this is a Word");
};

/// The words of several kinds, with tags that differ. Of two that match, the first counts.
template <class... Words>
struct WordTable {
    static constexpr unsigned size = sizeof...(Words);

    /// Bits on which the choice depends.
    static constexpr std::uint64_t tagMask = (Words::tagMask | ...);
    static constexpr bool isMatched(std::uint64_t word) noexcept { return (Words::matches(word) || ...); }
    static constexpr unsigned matchCount(std::uint64_t word) noexcept { return (unsigned{Words::matches(word)} + ...); }

    /// The event of a word that isMatched(); Variant has all kinds as alternatives.
    template <class Variant>
    static constexpr Variant cut(std::uint64_t word) noexcept
    {
        return cutFirst<Variant, Words...>(word);
    }

    template <class Visitor>
    static constexpr void forEachWord(Visitor&& visitor)
    {
        (visitor(Words{}), ...);
    }

private:
    template <class Variant, class First, class... Others>
    static constexpr Variant cutFirst(std::uint64_t word) noexcept
    {
        if constexpr (sizeof...(Others) != 0)
            if (!First::matches(word))
                return cutFirst<Variant, Others...>(word);
        return First::cut(word);
    }
};

} // namespace tessel::word
