#pragma once
// Values between C++ and Python: conversion both ways, references into their owner, and the texts of errors. One
// constant table for each type of value, so that what uses it is compiled once.

#include <array>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include <magic_enum/magic_enum.hpp>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "trovi/Reflect.h"
#include "trovi/Serial.h"
#include "trovi/python/ArrayCaster.h"
#include "trovi/python/Binder.h"
#include "trovi/python/ElementOwner.h"
#include "trovi/python/ErasedFunction.h"

namespace trovi::python {

struct ClassOps;
struct ElementsOps;

/// What the binder needs of one value type; one constant for each type.
struct ValueOps {
    std::string_view typeName;                                    ///< as the compiler spells it
    SignatureText (*signature)();                                 ///< in docstrings
    std::string (*expectation)();                                 ///< in error texts: "int in [0, 65535]"
    py::object (*toPython)(const void* value, py::handle parent); ///< refers into `parent` where it can
    bool (*load)(void* value, py::handle source);                 ///< false: does not fit, value unchanged
    std::shared_ptr<void> (*clone)(const void* value);
    void (*assign)(void* value, const void* saved);
    const ClassOps& (*reflected)(); ///< null for a type without a description
    const ElementsOps* elements;    ///< null unless a list of a described class
};

/// What the binder needs of a list (vector or array) whose elements are of a described class.
struct ElementsOps {
    const ValueOps* element;
    std::size_t size;                                       ///< of an element, in bytes
    void* (*withCount)(void* container, std::size_t count); ///< the first element; null: can't have so many
};
/// @throws py::type_error "davis.event.DvsEvent.x: expected int in [0, 65535], got 70000 (int)"
[[noreturn]] void throwWrongValue(const std::string& what, const std::string& expectation, py::handle value);

std::string joinedEnumerators(const std::string& name, const std::vector<std::string>& enumerators);

/// "davis::event::DvsEvent" is vorna.davis.event.DvsEvent to the user who reads an error.
std::string dotted(std::string name);

/// What stands for a value in an error text: its repr, cut to a readable length.
std::string shortRepr(py::handle value);

template <class T>
const ClassOps& classOps();
namespace detail {

template <class V>
struct Elements {
    static constexpr bool isContainer = false;
};
template <class V, class A>
struct Elements<std::vector<V, A>> {
    static constexpr bool isContainer = true;
    using Element = V;
    static std::string prefix() { return "list of "; }
};
template <class V, std::size_t N>
struct Elements<std::array<V, N>> {
    static constexpr bool isContainer = true;
    using Element = V;
    static std::string prefix() { return "list of " + std::to_string(N) + " "; }
};

template <class V>
std::string expectationOf()
{
    if constexpr (std::is_same_v<V, bool>) {
        return "bool";
    } else if constexpr (std::is_integral_v<V>) {
        return "int in [" + std::to_string(std::numeric_limits<V>::min()) + ", " +
               std::to_string(std::numeric_limits<V>::max()) + "]";
    } else if constexpr (std::is_floating_point_v<V>) {
        return "float";
    } else if constexpr (std::is_same_v<V, std::string>) {
        return "str";
    } else if constexpr (std::is_enum_v<V>) {
        std::vector<std::string> names;
        for (const auto name : magic_enum::enum_names<V>())
            names.emplace_back(name);
        return joinedEnumerators(registeredName<V>(), names);
    } else if constexpr (isTensor<V>) {
        return arrayExpectation<typename decltype(V::data)::value_type>(V::rank);
    } else if constexpr (Elements<V>::isContainer) {
        return Elements<V>::prefix() + expectationOf<typename Elements<V>::Element>();
    } else if constexpr (isReflected<V>) {
        return registeredName<V>() + ", or a dict of its members";
    } else {
        return std::string(typeName<V>());
    }
}

} // namespace detail

/// Binds the described types inside V, so that signatures show their Python names.
template <class V>
void bindEarly()
{
    if constexpr (detail::Elements<V>::isContainer)
        bindEarly<typename detail::Elements<V>::Element>();
    else if constexpr (trovi::detail::isA<V, std::variant>)
        []<class... Alternatives>(const std::variant<Alternatives...>*) {
            (bindEarly<Alternatives>(), ...);
        }(static_cast<const V*>(nullptr));
    else if constexpr (isReflected<V> || std::is_enum_v<V>)
        Binder::getInstance().bindLocalTypeEarly(registeredName<V>());
}

namespace detail {

/// How a value without a description refers to objects of described classes.
struct References {
    bool any = false;     ///< there are some
    bool outside = false; ///< in memory that the value lets go of when it is replaced
    bool variant = false; ///< in memory that may hold another type when it is replaced
};

template <class V>
constexpr References referencesOf();

template <class... Vs>
constexpr References joinedReferences()
{
    References all;
    [[maybe_unused]] const auto join = [&all](References r) {
        all = {all.any || r.any, all.outside || r.outside, all.variant || r.variant};
    };
    (join(referencesOf<Vs>()), ...);
    return all;
}

template <class V>
struct ReferencesIn {
    static constexpr References value{isReflected<V>, false, false};
};
template <class V, std::size_t N>
struct ReferencesIn<std::array<V, N>> {
    static constexpr References value = referencesOf<V>();
};
template <class V>
requires trovi::detail::isA<V, std::pair> || trovi::detail::isA<V, std::tuple>
struct ReferencesIn<V> {
    static constexpr References value = []<template <class...> class Template, class... Vs>(const Template<Vs...>*) {
        return joinedReferences<Vs...>();
    }(static_cast<const V*>(nullptr));
};
template <class V>
requires trovi::detail::isA<V, std::variant> || trovi::detail::isA<V, std::optional>
struct ReferencesIn<V> {
    static constexpr References value = []<template <class...> class Template, class... Vs>(const Template<Vs...>*) {
        constexpr References inside = joinedReferences<Vs...>();
        return References{inside.any, inside.outside, inside.any};
    }(static_cast<const V*>(nullptr));
};
template <class V>
requires trovi::detail::isA<V, std::vector> || trovi::detail::SetLike<V> || trovi::detail::MapLike<V>
struct ReferencesIn<V> {
    static constexpr References value = [] {
        References inside;
        if constexpr (trovi::detail::MapLike<V>)
            inside = joinedReferences<typename V::key_type, typename V::mapped_type>();
        else
            inside = referencesOf<typename V::value_type>();
        inside.outside = inside.any;
        return inside;
    }();
};

template <class V>
constexpr References referencesOf()
{
    return ReferencesIn<V>::value;
}

template <class V>
std::shared_ptr<void> takeContent(void* container)
{
    auto& content = *static_cast<V*>(container);
    V copy = content;
    auto taken = std::make_shared<V>(std::move(content));
    content = std::move(copy);
    return taken;
}

/// Casts a value that stays where it is: described objects in it are referred to and keep their owner alive.
template <class V>
py::handle castInPlace(const V& value, py::handle parent)
{
    constexpr References references = referencesOf<V>();
    using Policy = py::return_value_policy;
    if constexpr (references.variant)
        return py::detail::make_caster<V>::cast(value, Policy::copy, parent);
    else if constexpr (references.outside)
        return py::detail::make_caster<V>::cast(value, Policy::reference_internal,
                                                elementOwner(const_cast<V*>(&value), parent, &takeContent<V>));
    else
        return py::detail::make_caster<V>::cast(value, Policy::reference_internal, parent);
}

/// To be called before a value of type V is replaced.
template <class V>
void setAside([[maybe_unused]] const V* value)
{
    if constexpr (isReflected<V> || referencesOf<V>().any)
        setElementsAside(value, sizeof(V));
}

} // namespace detail

namespace detail {

template <class V>
struct ListOfDescribed {
    static constexpr bool value = false;
};

} // namespace detail

template <class V>
struct ValueOpsOf {
    static py::object toPython(const void* value, py::handle parent)
    {
        return py::reinterpret_steal<py::object>(detail::castInPlace(*static_cast<const V*>(value), parent));
    }
    static bool load(void* value, py::handle source)
    {
        py::detail::make_caster<V> caster;
        if (!caster.load(source, true))
            return false;
        // None passes as a null for a class; a member is never null
        if constexpr (std::is_base_of_v<py::detail::type_caster_generic, py::detail::make_caster<V>>)
            if (caster.value == nullptr)
                return false;
        detail::setAside(static_cast<const V*>(value));
        *static_cast<V*>(value) = py::detail::cast_op<V>(std::move(caster));
        return true;
    }
    static std::shared_ptr<void> clone(const void* value) { return std::make_shared<V>(*static_cast<const V*>(value)); }
    static void assign(void* value, const void* saved)
    {
        detail::setAside(static_cast<const V*>(value));
        *static_cast<V*>(value) = *static_cast<const V*>(saved);
    }

    static constexpr auto reflected = []() -> const ClassOps& (*)() {
        if constexpr (isReflected<V>)
            return &classOps<V>;
        else
            return nullptr;
    }();
    static constexpr auto elements = []() -> const ElementsOps* {
        if constexpr (detail::ListOfDescribed<V>::value)
            return &detail::ListOfDescribed<V>::ops;
        else
            return nullptr;
    }();
    static constexpr ValueOps ops{typeName<V>(), &typeText<V>, &detail::expectationOf<V>, toPython, load, clone, assign,
                                  reflected,     elements};
};

template <class V>
requires detail::Elements<V>::isContainer && isReflected<typename detail::Elements<V>::Element>
struct detail::ListOfDescribed<V> {
    using Element = typename Elements<V>::Element;
    static constexpr bool value = trovi::detail::isStdArray<V> || std::is_default_constructible_v<Element>;

    static void* withCount(void* container, std::size_t count)
    {
        auto& list = *static_cast<V*>(container);
        if constexpr (!trovi::detail::isStdArray<V>)
            list.resize(count);
        return list.size() == count ? list.data() : nullptr;
    }
    static constexpr ElementsOps ops{&ValueOpsOf<Element>::ops, sizeof(Element), withCount};
};

} // namespace trovi::python
