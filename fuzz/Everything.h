#pragma once
// A described class with every kind of value that has one form: a hash map is left out, since its order is its own.
// Fuzzers and tests share it.

#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <variant>
#include <vector>

#include "davis/event/DvsEvent.h"
#include "trovi/StoreRef.h"

struct Everything {
    bool flag = false;
    std::int8_t i8 = 0;
    std::uint16_t u16 = 0;
    std::int32_t i32 = 0;
    std::uint64_t u64 = 0;
    float real = 0;
    std::string text;
    std::vector<bool> flags;
    std::vector<std::uint16_t> numbers;
    std::vector<davis::event::DvsEvent> events;
    std::vector<std::string> texts;
    std::array<trovi::StoreRef, 2> refs{};
    std::map<std::string, std::vector<std::int32_t>> map;
    std::set<std::uint8_t> set;
    std::pair<char, std::string> pair;
    std::tuple<std::int16_t, std::string> tuple;
    std::vector<std::variant<std::uint8_t, std::string, trovi::StoreRef>> variants;
    friend bool operator==(const Everything&, const Everything&) = default;
};

/// With a value other than the default in every member.
inline Everything filledEverything()
{
    return {true,
            -1,
            2,
            -3,
            4,
            0.1F,
            "a \"name\"\n",
            {true, false},
            {5, 6},
            {{1, 2, true, 3}, {4, 5, false, -6}},
            {"", "x"},
            {{{7, 8}, {9, 10}}},
            {{"high", {}}, {"low", {-1, 1}}},
            {11, 12},
            {'c', "y"},
            {-13, "z"},
            {std::uint8_t{14}, "v", trovi::StoreRef{15, 16}}};
}

template <>
constexpr auto trovi::registerMembers<Everything>()
{
    using E = Everything;
    return members(member("flag", &E::flag), member("i8", &E::i8), member("u16", &E::u16), member("i32", &E::i32),
                   member("u64", &E::u64), member("real", &E::real), member("text", &E::text),
                   member("flags", &E::flags), member("numbers", &E::numbers), member("events", &E::events),
                   member("texts", &E::texts), member("refs", &E::refs), member("map", &E::map), member("set", &E::set),
                   member("pair", &E::pair), member("tuple", &E::tuple), member("variants", &E::variants));
}
