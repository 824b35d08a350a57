#pragma once
// Type reflection: a class that crosses a boundary (Python, wire, file) is described once, by constant tuples. Its
// Python class, its binary and JSON forms and its remote proxy follow from that.
//
//   struct Point { int x = 0; int y = 0; int norm1() const; };
//
//   // The order is wire order and Python's order: moving a line changes the format.
//   template <> constexpr auto trovi::registerMembers<Point>() {
//       return members(member("x", &Point::x, "column, in pixels"),
//                      member("y", &Point::y, "row, in pixels"));
//   }
//   template <> constexpr auto trovi::registerMemberFunctions<Point>() {
//       return functions(function("norm1", &Point::norm1, "Sum of the absolute coordinates."));
//   }
//   template <> constexpr const char* trovi::registerDoc<Point>() { return "A pixel."; }
//
// A class template is described by a partial specialisation of RegisterImplementation, which may hold static functions
// registerName, registerMembers, registerMemberFunctions and registerDoc:
//
//   template <class T> struct trovi::RegisterImplementation<util::Vec2<T>> {
//       static std::string registerName() { return "Vec2_" + snakeCase(typeName<T>()); }
//       static constexpr auto registerMembers() { return members(...); }
//   };
//
// A description belongs in the header of its class, right below it.

#include <concepts>
#include <stdexcept>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

#include "trovi/Member.h"
#include "trovi/Names.h"
#include "trovi/TypeInfo.h"

namespace trovi {

/// The author's specialisation point for a class whose name, members or functions follow from template arguments.
template <class T>
struct RegisterImplementation {};

/// The author's specialisation point for a class whose form in bytes and in JSON is not the list of its members. It
/// holds two static functions that call `part(name, value)` for each part of the form, in order:
///
///   template <class Part> static void save(const T& object, Part&& part);
///   template <class Part> static void load(T& object, Part&& part);   // throws and leaves `object` for a bad form
template <class T>
struct RegisterForm {};

/// The class that is T's base in Python; void for none. It must itself be bound.
template <class T>
struct RegisterBase {
    using type = void;
};

namespace detail {

struct NotDescribed {};

} // namespace detail

/// What the author of a class writes: the list of its members.
template <class T>
constexpr auto registerMembers()
{
    if constexpr (requires { RegisterImplementation<T>::registerMembers(); })
        return RegisterImplementation<T>::registerMembers();
    else
        return detail::NotDescribed{};
}

/// What the author of a class writes: the list of its functions.
template <class T>
constexpr auto registerMemberFunctions()
{
    if constexpr (requires { RegisterImplementation<T>::registerMemberFunctions(); })
        return RegisterImplementation<T>::registerMemberFunctions();
    else
        return detail::NotDescribed{};
}

/// What the author of a class writes: the text of its Python docstring.
template <class T>
constexpr const char* registerDoc()
{
    if constexpr (requires { RegisterImplementation<T>::registerDoc(); })
        return RegisterImplementation<T>::registerDoc();
    else
        return "";
}

namespace detail {

template <class T>
inline constexpr bool membersDescribed = !std::is_same_v<decltype(registerMembers<T>()), NotDescribed>;
template <class T>
inline constexpr bool functionsDescribed = !std::is_same_v<decltype(registerMemberFunctions<T>()), NotDescribed>;

} // namespace detail

/// True for a class that has a description of members, of functions or of both.
template <class T>
inline constexpr bool isReflected = [] {
    if constexpr (std::is_class_v<T>)
        return detail::membersDescribed<T> || detail::functionsDescribed<T>;
    else
        return false;
}();

template <class T>
concept HasOwnForm = requires(const T& object)
{
    RegisterForm<T>::save(object, [](const char*, const auto&) {});
};

namespace detail {

template <class T>
constexpr auto membersOf()
{
    static_assert(isReflected<T>, "this class has no description: write trovi::registerMembers or "
                                  "trovi::registerMemberFunctions for it, right below the class");
    if constexpr (membersDescribed<T>)
        return registerMembers<T>();
    else
        return std::tuple<>();
}

template <class T>
constexpr auto functionsOf()
{
    static_assert(isReflected<T>, "this class has no description: write trovi::registerMembers or "
                                  "trovi::registerMemberFunctions for it, right below the class");
    if constexpr (functionsDescribed<T>)
        return registerMemberFunctions<T>();
    else
        return std::tuple<>();
}

} // namespace detail

/// T's members, a constant tuple of Member; the index is the member's number.
template <class T>
struct MetaHolder {
    static constexpr auto members = detail::membersOf<T>();
};

/// T's functions, a constant tuple of MemberFunction; the index is the function's number on the wire.
template <class T>
struct MetaFunctionHolder {
    static constexpr auto memberFuncs = detail::functionsOf<T>();
};

template <class T>
inline constexpr std::size_t memberCount = std::tuple_size_v<std::remove_cvref_t<decltype(MetaHolder<T>::members)>>;
template <class T>
inline constexpr std::size_t functionCount =
    std::tuple_size_v<std::remove_cvref_t<decltype(MetaFunctionHolder<T>::memberFuncs)>>;

/// The name under which T is known in Python and in binding rules: namespaces become submodules.
template <class T>
std::string registeredName()
{
    if constexpr (requires { RegisterImplementation<T>::registerName(); })
        return RegisterImplementation<T>::registerName();
    else
        return std::string(typeName<T>());
}

/// Calls `visitor` on each element of `tuple`, in index order.
template <class Tuple, class V>
constexpr void forEach(Tuple&& tuple, V&& visitor)
{
    std::apply([&](auto&&... element) { (static_cast<void>(visitor(std::forward<decltype(element)>(element))), ...); },
               std::forward<Tuple>(tuple));
}

/// Calls `visitor` with std::integral_constant<std::size_t, I> for I from 0 to N - 1.
template <std::size_t N, class V>
constexpr void staticFor(V&& visitor)
{
    [&]<std::size_t... I>(std::index_sequence<I...>)
    {
        (static_cast<void>(visitor(std::integral_constant<std::size_t, I>{})), ...);
    }
    (std::make_index_sequence<N>{});
}

/// An overload set of lambdas, for std::visit.
template <class... Lambdas>
struct Visitor : Lambdas... {
    using Lambdas::operator()...;
};
template <class... Lambdas>
Visitor(Lambdas...) -> Visitor<Lambdas...>;

namespace detail {

/// Run-time index into a tuple of N elements, for numbers that come over the wire.
/// @throws std::runtime_error "Tuple index out of range!"
template <std::size_t N>
struct TupleVisitorImpl {
    template <class Tuple, class V>
    static constexpr void visit(Tuple&& tuple, std::size_t index, V&& visitor)
    {
        if constexpr (N == 0) {
            throw std::runtime_error("Tuple index out of range!");
        } else {
            if (index == N - 1)
                visitor(std::get<N - 1>(std::forward<Tuple>(tuple)));
            else
                TupleVisitorImpl<N - 1>::visit(std::forward<Tuple>(tuple), index, std::forward<V>(visitor));
        }
    }
};

} // namespace detail
} // namespace trovi
