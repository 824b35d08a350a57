#pragma once
// Methods and functions as Python calls them. A signature adds the conversion of its arguments and result; the rest is
// compiled once, in ErasedFunction.cpp.

#include <cstring>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include <pybind11/pybind11.h>

#include "trovi/Reflect.h"
#include "trovi/python/ErasedFunction.h"
#include "trovi/python/GilRelease.h"
#include "trovi/python/Holder.h"
#include "trovi/python/Values.h"

namespace trovi::python {

namespace detail {

// How a result crosses to Python. A described class by reference stays where it is and keeps its owner alive.
template <class Result>
py::handle castResult(Result&& result, py::handle parent)
{
    using Plain = std::remove_cvref_t<Result>;
    if constexpr (std::is_lvalue_reference_v<Result>)
        return castInPlace<Plain>(result, parent);
    else
        return py::detail::make_caster<Plain>::cast(std::forward<Result>(result), py::return_value_policy::move,
                                                    parent);
}

/// Shared objects stay shared: the Python object keeps the owner's count up for as long as it lives.
py::handle castShared(std::shared_ptr<void> owner, py::handle instance);

template <class T>
struct IsSharedPointer : std::false_type {};
template <class T>
struct IsSharedPointer<std::shared_ptr<T>> : std::true_type {
    using Element = T;
};

template <class R>
struct ResultText {
    static constexpr auto name =
        py::detail::make_caster<std::conditional_t<std::is_void_v<R>, py::detail::void_type, R>>::name;
};
template <class T>
struct ResultText<std::shared_ptr<T>> {
    static constexpr auto name = py::detail::make_caster<T>::name;
};

/// @throws py::type_error for a None in a list of objects, naming argument and index
bool loadsArguments(void* loader, py::detail::function_call& call, bool (*load)(void*, py::detail::function_call&));

template <class Loader>
bool loadWith(void* loader, py::detail::function_call& call)
{
    return static_cast<Loader*>(loader)->load_args(call);
}

template <class T, class Pointer, class R, class... Args>
struct MethodCall {
    using Loader = py::detail::argument_loader<T&, Args...>;

    static py::handle call(py::detail::function_call& call)
    {
        Loader loader;
        if (!loadsArguments(&loader, call, &loadWith<Loader>))
            return PYBIND11_TRY_NEXT_OVERLOAD;
        Pointer pointer;
        std::memcpy(&pointer, static_cast<const void*>(call.func.data), sizeof pointer);
        const bool blocking = call.func.data[2] != nullptr;
        const auto invoke = [pointer, blocking](T& object, Args... args) -> R {
            if constexpr (ownsThreads<T>)
                LiveObjects::requireOwnProcess(&object);
            const GilRelease release(blocking);
            return (object.*pointer)(std::forward<Args>(args)...);
        };
        if constexpr (std::is_void_v<R>) {
            std::move(loader).template call<void, py::detail::void_type>(invoke);
            return py::none().release();
        } else if constexpr (IsSharedPointer<std::remove_cvref_t<R>>::value) {
            auto shared = std::move(loader).template call<R, py::detail::void_type>(invoke);
            if (!shared)
                return py::none().release();
            auto* const plain = shared.get();
            return castShared(std::move(shared), castResult<decltype(*plain)>(*plain, call.parent));
        } else {
            return castResult<R>(std::move(loader).template call<R, py::detail::void_type>(invoke), call.parent);
        }
    }

    static inline char blockingMark = 0; // its address is the flag

    static FunctionDescription describe(Pointer pointer, CallKind kind)
    {
        static constexpr auto text =
            py::detail::const_name("(") + Loader::arg_names + py::detail::const_name(") -> ") + ResultText<R>::name;
        const auto types = decltype(text)::types();
        FunctionDescription description;
        description.signature = {text.text, {types.begin(), types.end()}};
        description.arity = 1 + sizeof...(Args);
        description.implementation = &call;
        static_assert(sizeof pointer <= 2 * sizeof(void*));
        std::memcpy(static_cast<void*>(description.data), &pointer, sizeof pointer);
        description.data[2] = kind == CallKind::blocking ? &blockingMark : nullptr;
        return description;
    }
};

template <class T, class Pointer>
struct MethodCallOf;
template <class T, class C, class R, class... Args>
struct MethodCallOf<T, R (C::*)(Args...)> : MethodCall<T, R (C::*)(Args...), R, Args...> {};
template <class T, class C, class R, class... Args>
struct MethodCallOf<T, R (C::*)(Args...) const> : MethodCall<T, R (C::*)(Args...) const, R, Args...> {};
template <class T, class C, class R, class... Args>
struct MethodCallOf<T, R (C::*)(Args...) noexcept> : MethodCall<T, R (C::*)(Args...) noexcept, R, Args...> {};
template <class T, class C, class R, class... Args>
struct MethodCallOf<T, R (C::*)(Args...) const noexcept> : MethodCall<T, R (C::*)(Args...) const noexcept, R, Args...> {
};

template <class... Args>
void bindArgumentsEarly(FunctionParams<Args...>)
{
    (bindEarly<std::remove_cvref_t<Args>>(), ...);
}
} // namespace detail

template <class R, class... Args>
void bindFreeFunction(py::module_& module, const char* registeredAs, R (*function)(Args...), const char* doc,
                      const char* arguments = "")
{
    (bindEarly<std::remove_cvref_t<Args>>(), ...);
    bindEarly<std::remove_cvref_t<R>>();
    auto [target, name] = bindingDetails(registeredAs, module);
    const std::string pythonicName = pythonName(name);
    using Loader = py::detail::argument_loader<Args...>;
    static constexpr auto text =
        py::detail::const_name("(") + Loader::arg_names + py::detail::const_name(") -> ") + detail::ResultText<R>::name;
    const auto types = decltype(text)::types();
    FunctionDescription description;
    description.name = pythonicName.c_str();
    description.doc = doc;
    description.arguments = arguments;
    description.signature = {text.text, {types.begin(), types.end()}};
    description.arity = sizeof...(Args);
    description.scope = target;
    std::memcpy(static_cast<void*>(description.data), &function, sizeof function);
    description.implementation = [](py::detail::function_call& call) -> py::handle {
        Loader loader;
        if (!detail::loadsArguments(&loader, call, &detail::loadWith<Loader>))
            return PYBIND11_TRY_NEXT_OVERLOAD;
        R (*pointer)(Args...);
        std::memcpy(&pointer, static_cast<const void*>(call.func.data), sizeof pointer);
        if constexpr (std::is_void_v<R>) {
            std::move(loader).template call<void, py::detail::void_type>(pointer);
            return py::none().release();
        } else {
            return detail::castResult<R>(std::move(loader).template call<R, py::detail::void_type>(pointer),
                                         py::handle());
        }
    };
    py::setattr(target, description.name, makeFunction(description));
}

} // namespace trovi::python
