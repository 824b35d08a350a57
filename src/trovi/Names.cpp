#include "trovi/Names.h"

#include <algorithm>

namespace trovi {
namespace {

// ASCII only, whatever the locale: names of C++ types and members hold nothing else.
constexpr bool isDigit(char c) { return c >= '0' && c <= '9'; }
constexpr bool isUpper(char c) { return c >= 'A' && c <= 'Z'; }
constexpr bool isLowerOrDigit(char c) { return (c >= 'a' && c <= 'z') || isDigit(c); }
constexpr bool isUpperOrDigit(char c) { return isUpper(c) || isDigit(c); }
constexpr char lower(char c) { return isUpper(c) ? static_cast<char>(c - 'A' + 'a') : c; }

template <class Predicate>
std::size_t runLength(std::string_view text, std::size_t begin, Predicate holds)
{
    std::size_t end = begin;
    while (end < text.size() && holds(text[end]))
        ++end;
    return end - begin;
}

// An acronym ends before the capital that opens the next word, before a digit, or with the text.
bool endsAcronym(std::string_view text, std::size_t at)
{
    if (at == text.size() || isDigit(text[at]))
        return true;
    return isUpperOrDigit(text[at]) && at + 1 < text.size() && isLowerOrDigit(text[at + 1]);
}

// Length of the word that begins at `at`, by the first alternative of the expression that fits; 0 if none does.
std::size_t wordLength(std::string_view text, std::size_t at)
{
    if (at == 0)
        if (const std::size_t n = runLength(text, at, isLowerOrDigit))
            return n;
    if (const std::size_t n = runLength(text, at, isDigit))
        return n;
    if (isUpper(text[at])) {
        if (const std::size_t n = runLength(text, at + 1, isLowerOrDigit))
            return n + 1;
        for (std::size_t n = runLength(text, at, isUpperOrDigit); n > 0; --n)
            if (endsAcronym(text, at + n))
                return n;
        return 0;
    }
    if (const std::size_t n = runLength(text, at, isLowerOrDigit))
        return n;
    return runLength(text, at, [](char c) { return c == '_'; });
}

} // namespace

std::string snakeCase(std::string_view name)
{
    std::string result;
    for (std::size_t at = 0; at < name.size();) {
        const std::size_t length = wordLength(name, at);
        if (length == 0) {
            ++at;
            continue;
        }
        if (!result.empty())
            result += '_';
        std::transform(name.begin() + static_cast<std::ptrdiff_t>(at),
                       name.begin() + static_cast<std::ptrdiff_t>(at + length), std::back_inserter(result), lower);
        at += length;
    }
    return result;
}

std::string pythonName(std::string_view name)
{
    std::string result = snakeCase(name);
    result.erase(std::unique(result.begin(), result.end(), [](char a, char b) { return a == '_' && b == '_'; }),
                 result.end());
    return result;
}

std::vector<std::string> splitNamespaceString(std::string_view name)
{
    std::vector<std::string> pieces;
    std::size_t begin = 0;
    for (std::size_t end; (end = name.find("::", begin)) != std::string_view::npos; begin = end + 2)
        pieces.emplace_back(name.substr(begin, end - begin));
    pieces.emplace_back(name.substr(begin));
    return pieces;
}

} // namespace trovi
