#pragma once
// The descriptors of which a class's description is made. All of it is constant data.

#include <cstddef>
#include <tuple>
#include <type_traits>
#include <utility>

#include "trovi/TypeInfo.h"

namespace trovi {

namespace property {

enum class PythonAccessSpecifier { readOnly = 0, readWrite = 1 };

} // namespace property

/// One data member of Class. PySetArg and PyGetRet differ from T only where Python sees another form of the value
/// (a tensor as nested lists); pySetter and pyGetter are then set, and null otherwise.
template <class Class, class T, class Getter = std::nullptr_t, class PySetArg = T, class PyGetRet = T,
          property::PythonAccessSpecifier Access = property::PythonAccessSpecifier::readWrite>
struct Member {
    using Owner = Class;
    using Type = T;
    using PythonArgument = PySetArg;
    using PythonResult = PyGetRet;
    static constexpr property::PythonAccessSpecifier access = Access;

    const char* name; ///< key in JSON and in a dict; the Python attribute is pythonName(name)
    T Class::*field;
    T Class::*altField = nullptr;         ///< reserved
    T (Class::*getter)() const = nullptr; ///< reserved
    void (Class::*setter)(T) = nullptr;   ///< reserved
    void (*pySetter)(Class&, PySetArg) = nullptr;
    PyGetRet (*pyGetter)(const Class&) = nullptr;
    const char* doc = ""; ///< meaning, unit, range
};

/// A member that Python reads and writes in its own form.
template <class Class, class T>
constexpr Member<Class, T> member(const char* name, T Class::*field, const char* doc = "")
{
    Member<Class, T> result{name, field};
    result.doc = doc;
    return result;
}

/// A member that Python may only read.
template <class Class, class T>
constexpr auto readOnlyMember(const char* name, T Class::*field, const char* doc = "")
{
    Member<Class, T, std::nullptr_t, T, T, property::PythonAccessSpecifier::readOnly> result{name, field};
    result.doc = doc;
    return result;
}

/// A member that has another form in Python. For a form that it can't convert the setter throws std::invalid_argument
/// and leaves the member as it was.
template <class Class, class T, class Argument, class Result>
constexpr auto convertedMember(const char* name, T Class::*field, void (*pySetter)(Class&, Argument),
                               Result (*pyGetter)(const Class&), const char* doc = "")
{
    Member<Class, T, std::nullptr_t, Argument, Result> result{name, field};
    result.pySetter = pySetter;
    result.pyGetter = pyGetter;
    result.doc = doc;
    return result;
}

/// Whether a call returns at once or may wait. Python's interpreter lock is released around a blocking one.
enum class CallKind { immediate, blocking };

/// One member function. Signature is the exact pointer-to-member type, const and noexcept included; a function of a
/// base class may be registered on a derived one.
template <class Signature, class Extra = std::nullptr_t>
struct MemberFunction {
    using Pointer = Signature;

    const char* name;
    Signature function;
    Extra extra = {};           ///< reserved
    const char* doc = "";       ///< first line: what it does; then units, errors
    const char* arguments = ""; ///< names of the arguments, "xtl, ytl, xbr, ybr"; empty: unnamed
    CallKind kind = CallKind::immediate;

    /// A callable that takes the object and the arguments.
    template <class Class, class... Args>
    constexpr auto makeInvoker(FunctionParams<Args...>) const
    {
        return [f = function](Class& object, Args... args) -> decltype(auto) {
            return (object.*f)(std::forward<Args>(args)...);
        };
    }
};

template <class Signature>
constexpr MemberFunction<Signature> function(const char* name, Signature f, const char* doc = "",
                                             const char* arguments = "")
{
    return {name, f, {}, doc, arguments, CallKind::immediate};
}

/// A function that waits (for a thread, a device, a batch): Python calls it with the interpreter lock released.
template <class Signature>
constexpr MemberFunction<Signature> blockingFunction(const char* name, Signature f, const char* doc = "",
                                                     const char* arguments = "")
{
    return {name, f, {}, doc, arguments, CallKind::blocking};
}

/// A description's list of members; the order is wire order and Python's order.
template <class... Members>
constexpr std::tuple<Members...> members(Members... list)
{
    return {list...};
}

/// A description's list of functions; the index in it is the function's number on the wire.
template <class... Functions>
constexpr std::tuple<Functions...> functions(Functions... list)
{
    return {list...};
}

/// Parts of a pointer-to-member-function type: Class, Return, Params (FunctionParams of the decayed arguments),
/// Arguments (FunctionParams as declared).
template <class Signature>
struct SignatureTraits;

namespace detail {

template <class C, class R, class... Args>
struct SignatureParts {
    using Class = C;
    using Return = R;
    using Params = FunctionParams<std::decay_t<Args>...>;
    using Arguments = FunctionParams<Args...>;
};

} // namespace detail

template <class C, class R, class... Args>
struct SignatureTraits<R (C::*)(Args...)> : detail::SignatureParts<C, R, Args...> {};
template <class C, class R, class... Args>
struct SignatureTraits<R (C::*)(Args...) const> : detail::SignatureParts<C, R, Args...> {};
template <class C, class R, class... Args>
struct SignatureTraits<R (C::*)(Args...) noexcept> : detail::SignatureParts<C, R, Args...> {};
template <class C, class R, class... Args>
struct SignatureTraits<R (C::*)(Args...) const noexcept> : detail::SignatureParts<C, R, Args...> {};

} // namespace trovi
