#pragma once
// Compile-time names of types and their run-time identity.
//
// The spelling of typeName<T>() is the compiler's own ("short unsigned int", "davis::event::DvsEvent") and is data: it
// travels in messages, names Python classes and is compared by BoxedPtr and by remote calls. So both ends of a
// connection must be built by compilers that spell names the same way.

#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <typeinfo>

// The compiler leaves out namespaces that a type shares with the function whose text this is, so this function is in a
// namespace that holds no type. Its name and its `auto` result are part of the text that is cut here: keep both.
namespace vorna_type_names {

template <class T>
constexpr auto typeName()
{
    constexpr std::string_view text = __PRETTY_FUNCTION__;
    constexpr std::size_t begin = text.find("T = ") + 4;
    return std::string_view(text.substr(begin, text.size() - begin - 1));
}

} // namespace vorna_type_names

namespace trovi {

/// An empty tag that carries the argument list of a function.
template <class... Args>
struct FunctionParams {};

/// The compiler's spelling of T. The view points into a longer literal: it has no terminator of its own.
template <class T>
constexpr auto typeName()
{
    return vorna_type_names::typeName<T>();
}

namespace traits {

// Classification of a type; used by equality and by the text alone.
template <class T>
constexpr std::uint32_t metaOf()
{
    if constexpr (std::is_void_v<T>)
        return 0x10002;
    else if constexpr (std::is_integral_v<T>)
        return 0xF0008;
    else if constexpr (std::is_floating_point_v<T>)
        return 0xF0010;
    else
        return 0x180100;
}

/// Run-time identity of a type.
struct TypeInfo {
    const std::type_info* type = nullptr; ///< null: unknown
    std::uint32_t meta = 0xFFFFFFFF;      ///< classification of metaOf(); all ones before it is set
    std::string_view name;                ///< typeName<T>()

    /// "trovi::traits::TypeInfo {name = davis::event::DvsEvent, meta = 1573120}"
    std::string operator()() const;
};

/// Equal when both types are known and of one mangled name, and classification and name agree. Two libraries that hold
/// records of their own for one type still compare equal.
bool operator==(const TypeInfo& left, const TypeInfo& right);

template <class T>
TypeInfo getTypeInfo()
{
    return {&typeid(T), metaOf<T>(), typeName<T>()};
}

} // namespace traits
} // namespace trovi
