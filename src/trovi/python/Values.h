#pragma once
// Values between C++ and Python: conversion both ways, references into their owner, and the texts of errors. One
// constant table for each type of value, so that what uses it is compiled once.

#include <algorithm>
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
#include "trovi/python/Integers.h"
#include "trovi/python/MemberList.h"

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
    const ElementsOps* elements;    ///< null unless a list whose elements have addresses
    const TensorOps* tensor;        ///< null unless an array
    ListShape lists;                ///< of the lists that Python sees
};

/// What the binder needs of a list, a vector or a std::array.
struct ElementsOps {
    const ValueOps* element;
    std::size_t size; ///< of an element, in bytes
    bool fixed;       ///< elements keep their addresses, and their number
    std::size_t (*count)(const void* container);
    void* (*first)(void* container);
    bool (*resize)(void* container, std::size_t count); ///< false: can't have so many
};
/// @throws py::type_error "davis.event.DvsEvent.x: expected int in [0, 65535], got 70000 (int)"
[[noreturn]] void throwWrongValue(const std::string& what, const std::string& expectation, py::handle value);

std::string joinedEnumerators(const std::string& name, const std::vector<std::string>& enumerators);

/// "davis::event::DvsEvent" is vorna.davis.event.DvsEvent to the user who reads an error.
std::string dotted(std::string name);

/// How an error text shows a value: its repr, cut to a readable length.
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
    bool outside = false; ///< in memory that the value frees when it is replaced
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
    if constexpr (isReflected<V> || isTensor<V> || referencesOf<V>().any)
        setElementsAside(value, sizeof(V));
}

} // namespace detail

/// @throws py::type_error that says that an object was made by __new__ without __init__
[[noreturn]] void throwUnmade(const std::string& registeredName);

/// pybind11 gives an object that was made without its constructor plain memory as soon as it is used. This refuses.
template <class T, class Bound = T>
void refuseUnmade()
{
    py::detail::get_type_info(typeid(Bound))->operator_new = [](std::size_t) -> void* {
        throwUnmade(registeredName<T>());
    };
}

/// Runs a caster's load(), which throws for a None in a list of objects; false then.
bool loadsInto(void* caster, py::handle source, bool (*load)(void* caster, py::handle source));

namespace detail {

template <class V>
constexpr ListShape listShape()
{
    ListShape shape;
    if constexpr (isTensor<V>) {
        shape.levels = V::rank;
    } else if constexpr (Elements<V>::isContainer) {
        constexpr ListShape inner = listShape<typename Elements<V>::Element>();
        static_assert(inner.levels < ListShape::maxLevels, "lists are nested too deep");
        shape.levels = 1 + inner.levels;
        if constexpr (trovi::detail::isStdArray<V>)
            shape.fixed[0] = std::tuple_size_v<V>;
        for (std::size_t i = 0; i < inner.levels; ++i)
            shape.fixed[i + 1] = inner.fixed[i];
    }
    return shape;
}

/// Puts a new value in the place of an old one. An array of the same shape keeps its memory, so views stay valid.
template <class V>
void replaceValue(V& target, V value)
{
    if constexpr (isTensor<V>) {
        if (target.dimensions == value.dimensions && target.data.size() == value.data.size()) {
            std::copy(value.data.begin(), value.data.end(), target.data.begin());
            return;
        }
    }
    setAside(&target);
    target = std::move(value);
}

template <class V>
struct ElementsOf {
    static constexpr const ElementsOps* ops = nullptr;
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
        if (!loadsInto(&caster, source, [](void* c, py::handle object) {
                return static_cast<py::detail::make_caster<V>*>(c)->load(object, true);
            }))
            return false;
        // None passes as a null for a class; a member is never null
        if constexpr (std::is_base_of_v<py::detail::type_caster_generic, py::detail::make_caster<V>>)
            if (caster.value == nullptr)
                return false;
        detail::replaceValue(*static_cast<V*>(value), py::detail::cast_op<V>(std::move(caster)));
        return true;
    }
    static std::shared_ptr<void> clone(const void* value) { return std::make_shared<V>(*static_cast<const V*>(value)); }
    static void assign(void* value, const void* saved)
    {
        detail::replaceValue(*static_cast<V*>(value), V(*static_cast<const V*>(saved)));
    }

    static constexpr auto reflected = []() -> const ClassOps& (*)() {
        if constexpr (isReflected<V>)
            return &classOps<V>;
        else
            return nullptr;
    }();
    static constexpr auto tensor = []() -> const TensorOps* {
        if constexpr (isTensor<V>)
            return &tensorOps<V>;
        else
            return nullptr;
    }();
    static constexpr ValueOps ops{typeName<V>(),
                                  &typeText<V>,
                                  &detail::expectationOf<V>,
                                  toPython,
                                  load,
                                  clone,
                                  assign,
                                  reflected,
                                  detail::ElementsOf<V>::ops,
                                  tensor,
                                  detail::listShape<V>()};
};

// A vector of bool has no addresses.
template <class V>
requires detail::Elements<V>::isContainer &&(!std::is_same_v<V, std::vector<bool>>)struct detail::ElementsOf<V> {
    using Element = typename Elements<V>::Element;

    static std::size_t count(const void* container) { return static_cast<const V*>(container)->size(); }
    static void* first(void* container) { return static_cast<V*>(container)->data(); }
    static bool resize(void* container, std::size_t count)
    {
        auto& list = *static_cast<V*>(container);
        if constexpr (!trovi::detail::isStdArray<V> && std::is_default_constructible_v<Element>)
            list.resize(count);
        return list.size() == count;
    }
    static constexpr ElementsOps table{
        &ValueOpsOf<Element>::ops, sizeof(Element), trovi::detail::isStdArray<V>, count, first, resize};
    static constexpr const ElementsOps* ops = &table;
};

} // namespace trovi::python
