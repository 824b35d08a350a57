#pragma once
// Words as text, for docstrings: one line each, from the tables that encode and decode them.

#include <string>
#include <type_traits>

#include "tessel/family/EventWord.h"
#include "trovi/Reflect.h"

namespace tessel::word {

namespace detail {

/// The described name. The one member that events have without a description is their time.
template <auto Member>
std::string memberName()
{
    std::string name = "timestamp";
    trovi::forEach(trovi::MetaHolder<typename Pointee<decltype(Member)>::Owner>::members, [&](const auto& described) {
        if constexpr (std::is_same_v<std::remove_cv_t<decltype(described.field)>, std::remove_cv_t<decltype(Member)>>)
            if (described.field == Member)
                name = described.name;
    });
    return name;
}

inline std::string bitsText(unsigned low, unsigned high)
{
    return low == high ? "bit " + std::to_string(low) : "bits " + std::to_string(low) + "-" + std::to_string(high);
}

} // namespace detail

/// "DvsEvent: x bits 0-6, y bits 7-13, p bit 14, bits 24-27 = 9, layer is 9, timestamp bits 32-63"
template <class Word>
std::string wordText()
{
    const std::string type = trovi::registeredName<typename Word::Event>();
    std::string text = type.substr(type.rfind(':') + 1) + ":";
    const char* separator = " ";
    Word::forEachPart([&]<class Part>(Part) {
        text += separator;
        separator = ", ";
        if constexpr (Part::isTag) {
            text += detail::bitsText(Part::low, Part::high) + " = " + std::to_string(Part::tagBits >> Part::low);
        } else if constexpr (Part::isField) {
            text += detail::memberName<Part::member>() + " " + detail::bitsText(Part::low, Part::high);
            if constexpr (Part::into != 0)
                text += " (its bits from " + std::to_string(Part::into) + " up)";
        } else {
            text += detail::memberName<Part::member>() + " is " + std::to_string(Part::value);
        }
    });
    return text;
}

/// The lines of a WordTable, or of some words: each ends in a newline.
template <class... Words>
std::string wordLines()
{
    return ((wordText<Words>() + "\n") + ...);
}
template <class Table>
std::string tableLines()
{
    std::string text;
    Table::forEachWord([&]<class Word>(Word) { text += wordText<Word>() + "\n"; });
    return text;
}

} // namespace tessel::word
