#pragma once
// Members of described classes: a constant table for each class, by which properties, dicts and keyword arguments set
// and read them. What is large is compiled once, in Members.cpp.

#include <array>
#include <cstddef>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include "trovi/Json.h"
#include "trovi/Reflect.h"
#include "trovi/python/Values.h"

namespace trovi::python {

struct MemberOps {
    const char* name;
    const char* doc;
    bool writable;
    const ValueOps* value;
    void* (*address)(void* object);
    const ValueOps* pythonForm;                     ///< of the form that Python sees; `value` where they are the same
    py::object (*convertedGet)(const void* object); ///< null: no other form
    bool (*convertedSet)(void* object, py::handle source);

    /// What the innermost of nested lists holds; null for a member that isn't a list, and for an array.
    const ValueOps* lastElement() const;
};

struct MemberTable {
    const MemberOps* first;
    std::size_t count;
    const MemberOps* begin() const { return first; }
    const MemberOps* end() const { return first + count; }
};

/// What the binder needs of one described class; one constant for each class.
struct ClassOps {
    const std::type_info* type;
    std::string (*registeredName)();
    MemberTable members;
    void (*saveJson)(const void* object, const std::string& path);
    void (*loadJson)(void* object, const std::string& path);
    void* (*copy)(const void* object); ///< made with new; null where the class can't be copied
    void (*discard)(void* made);       ///< ends what copy() gave
};

/// Sets a member from any Python object: by conversion to its type, else from a dict that names some of its
/// sub-members.
/// @throws py::type_error naming class, property, what was expected and what was given; the object is then unchanged
void setMember(void* object, const ClassOps& owner, const MemberOps& member, py::handle value);

/// Loads a value from any Python object: by conversion, else from a dict or from a list with dicts in it.
/// @throws py::type_error naming `what`; the value is then unchanged
void loadValue(void* value, const ValueOps& ops, py::handle source, const std::string& what);

/// True for what a dict can be made of.
bool isDictLike(py::handle value);

/// Fills the members that `dict` has as keys (reflected names); all or nothing.
void memberValueFromDictionary(void* object, const ClassOps& owner, const py::dict& dict);

/// Fills members from keyword arguments (Python names); used by constructors.
void membersFromKeywords(void* object, const ClassOps& owner, const py::kwargs& keywords);

namespace detail {

template <class T, std::size_t I>
inline constexpr auto memberDescriptor = std::get<I>(MetaHolder<T>::members);

template <class T, std::size_t I>
struct MemberAccess {
    using Descriptor = std::remove_cvref_t<decltype(memberDescriptor<T, I>)>;
    using Value = typename Descriptor::Type;
    using Argument = std::remove_cvref_t<typename Descriptor::PythonArgument>;
    using Result = std::remove_cvref_t<typename Descriptor::PythonResult>;
    // an array has a caster of its own, which is quicker than the way through nested vectors
    static constexpr bool converted = !std::is_same_v<Argument, Value> && !isTensor<Value>;

    static void* address(void* object) { return &(static_cast<T*>(object)->*(memberDescriptor<T, I>.field)); }
    static py::object get(const void* object)
    {
        return py::cast(memberDescriptor<T, I>.pyGetter(*static_cast<const T*>(object)));
    }
    static bool set(void* object, py::handle source)
    {
        py::detail::make_caster<Argument> caster;
        if (!loadsInto(&caster, source, [](void* c, py::handle form) {
                return static_cast<py::detail::make_caster<Argument>*>(c)->load(form, true);
            }))
            return false;
        setAside(static_cast<const Value*>(address(object)));
        memberDescriptor<T, I>.pySetter(*static_cast<T*>(object), py::detail::cast_op<Argument>(std::move(caster)));
        return true;
    }
    static constexpr MemberOps make()
    {
        constexpr bool writable = Descriptor::access == property::PythonAccessSpecifier::readWrite;
        constexpr const auto& d = memberDescriptor<T, I>;
        if constexpr (converted)
            return {d.name, d.doc, writable, &ValueOpsOf<Value>::ops, address, &ValueOpsOf<Argument>::ops, get, set};
        else
            return {d.name,  d.doc,  writable, &ValueOpsOf<Value>::ops, address, &ValueOpsOf<Value>::ops,
                    nullptr, nullptr};
    }
};

template <class T, std::size_t... I>
MemberTable memberTable(std::index_sequence<I...>)
{
    static constexpr std::array<MemberOps, sizeof...(I)> table{MemberAccess<T, I>::make()...};
    return {table.data(), table.size()};
}

template <class T>
void saveJson(const void* object, const std::string& path)
{
    saveStateToJSON(*static_cast<const T*>(object), path);
}
template <class T>
void loadJson(void* object, const std::string& path)
{
    setAside(static_cast<const T*>(object));
    loadStateFromJSON(*static_cast<T*>(object), path);
}

} // namespace detail

template <class T>
const ClassOps& classOps()
{
    static const ClassOps ops = [] {
        ClassOps table{&typeid(T),
                       &registeredName<T>,
                       detail::memberTable<T>(std::make_index_sequence<memberCount<T>>()),
                       &detail::saveJson<T>,
                       &detail::loadJson<T>,
                       nullptr,
                       nullptr};
        if constexpr (trovi::detail::membersDescribed<T> && std::is_copy_constructible_v<T>) {
            table.copy = [](const void* object) -> void* { return new T(*static_cast<const T*>(object)); };
            table.discard = [](void* made) { delete static_cast<T*>(made); };
        }
        return table;
    }();
    return ops;
}
} // namespace trovi::python
