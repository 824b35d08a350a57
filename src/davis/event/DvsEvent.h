#pragma once
// One polarity event of a dynamic vision sensor.

#include <cstdint>

#include "trovi/Reflect.h"

namespace davis::event {

struct DvsEvent {
    std::uint16_t x = 0;
    std::uint16_t y = 0;
    bool polarity = false;
    std::int64_t timestamp = 0;

    friend bool operator==(const DvsEvent&, const DvsEvent&) = default;
};

} // namespace davis::event

// The order is wire order: 2 + 2 + 1 + 8 bytes, packed.
template <>
constexpr auto trovi::registerMembers<davis::event::DvsEvent>()
{
    using davis::event::DvsEvent;
    return members(member("x", &DvsEvent::x, "pixel column, from 0 at the left"),
                   member("y", &DvsEvent::y, "pixel row, from 0, which is the row that the camera sends as 0"),
                   member("polarity", &DvsEvent::polarity, "True for ON: the pixel became brighter"),
                   member("timestamp", &DvsEvent::timestamp,
                          "microseconds, as the camera gives them; wraps with the camera's 32-bit counter"));
}

template <>
constexpr const char* trovi::registerDoc<davis::event::DvsEvent>()
{
    return "One polarity event of a dynamic vision sensor: a pixel became brighter or darker.";
}
