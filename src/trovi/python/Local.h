#pragma once
// From a description to a Python class in this process.
//
//   VORNA_BIND_LOCAL(davis::event::DvsEvent)                  // at file scope of a binding file
//   VORNA_BIND_LOCAL_WITH(device::DeviceInfo, [](auto& cls) { cls.def(py::init<...>()); })
//   VORNA_BIND_ENUM(device::DriverReferenceType)
//   VORNA_BIND_FREE_FUNCTION("graph::nodes::detail::f", &f, "What it does.", "a, b")
//
// A class adds constant tables (Values.h, Members.h, Classes.h) and a thin caller for each signature (Calls.h); what
// works from these is compiled once.

#include <concepts>
#include <memory>
#include <sstream>
#include <string>
#include <type_traits>

#include <pybind11/pybind11.h>

#include "trovi/python/Calls.h"
#include "trovi/python/Classes.h"
#include "trovi/python/Holder.h"
#include "trovi/python/Members.h"

namespace trovi::python {

namespace detail {

template <class T>
concept Streamable = requires(const T& value, std::ostream& stream)
{
    {
        stream << value
        } -> std::same_as<std::ostream&>;
};

template <class T>
std::string textOf(const void* object)
{
    std::ostringstream text;
    text << *static_cast<const T*>(object);
    return text.str();
}

template <class T>
bool areEqual(const void* a, const void* b)
{
    return static_cast<bool>(*static_cast<const T*>(a) == *static_cast<const T*>(b));
}

template <class T>
std::string bytesOf(const void* object)
{
    const Bytes bytes = serializeToBuffer(*static_cast<const T*>(object));
    return {bytes.begin(), bytes.end()};
}

template <class T>
void* fromBytes(std::string_view bytes)
{
    auto made = std::make_unique<T>();
    ByteReader reader({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
    decode(reader, *made);
    return made.release();
}

template <class T>
const ObjectOps& objectOps()
{
    constexpr bool makes = std::is_default_constructible_v<T> && std::is_destructible_v<T>;
    constexpr bool copies = std::is_copy_constructible_v<T>;
    static const ObjectOps table = [] {
        ObjectOps ops;
        ops.members = &classOps<T>();
        ops.keywords = memberCount<T> != 0 && copies;
        if constexpr (makes) {
            ops.make = []() -> void* { return makeForPython<T>(); };
            ops.discard = [](void* made) { static_cast<void>(Holder<T>(static_cast<T*>(made))); };
        }
        if constexpr (makes && copies && trovi::detail::membersDescribed<T>) {
            ops.toBytes = &bytesOf<T>;
            ops.fromBytes = &fromBytes<T>;
        }
        if constexpr (std::equality_comparable<T>)
            ops.equal = &areEqual<T>;
        if constexpr (Streamable<T>)
            ops.text = &textOf<T>;
        return ops;
    }();
    return table;
}

} // namespace detail

template <class T>
struct Local {
    /// @throws std::invalid_argument for an empty registered name
    static void validateTypeName() { checkTypeName(registeredName<T>(), typeid(T).name()); }

    static bool isBound() { return py::detail::get_type_info(typeid(T)) != nullptr; }

    using Base = typename RegisterBase<T>::type;
    using Class = std::conditional_t<std::is_void_v<Base>, py::class_<T, Holder<T>>, py::class_<T, Base, Holder<T>>>;

    /// Binds T in the submodule of its namespace; `extend(cls)` adds what the description doesn't hold.
    template <class Extend>
    static void bindClass(py::module_& module, Extend&& extend)
    {
        if (isBound())
            return;
        validateTypeName();
        if constexpr (!std::is_void_v<Base>)
            Binder::getInstance().bindLocalTypeEarly(registeredName<Base>());
        const auto [target, name] = bindingDetails(registeredName<T>(), module);
        Class cls(target, name.c_str(), registerDoc<T>());
        refuseUnmade<T>();
        forEach(MetaHolder<T>::members,
                [](const auto& m) { bindEarly<typename std::remove_cvref_t<decltype(m)>::Type>(); });
        const ClassOps& members = classOps<T>();
        const ObjectOps& object = detail::objectOps<T>();
        addConstructor(cls, object);
        addProperties(cls, members);
        addMethods(cls);
        addNumpyArrays(cls, members);
        if constexpr (std::is_default_constructible_v<T>)
            addJson(cls, members);
        addEquality(cls, object);
        addText(cls, object);
        if constexpr (trovi::detail::membersDescribed<T>) {
            addRepresentation(cls, members);
            addPickling(cls, object);
            addCopying(cls, members);
        }
        extend(cls);
    }

    static void bindClass(py::module_& module)
    {
        bindClass(module, [](auto&) {});
    }

private:
    static void addMethods(py::handle cls)
    {
        forEach(MetaFunctionHolder<T>::memberFuncs, [cls](const auto& f) {
            using Pointer = typename std::remove_cvref_t<decltype(f)>::Pointer;
            using Traits = SignatureTraits<Pointer>;
            detail::bindArgumentsEarly(typename Traits::Params());
            bindEarly<std::remove_cvref_t<typename Traits::Return>>();
            const std::string pythonicName = pythonName(f.name);
            FunctionDescription description = detail::MethodCallOf<T, Pointer>::describe(f.function, f.kind);
            description.name = pythonicName.c_str();
            description.doc = f.doc;
            description.arguments = f.arguments;
            addMethod(cls, std::move(description));
        });
    }
};

/// The class is in the root module. This also sets it as an attribute of the submodule where users look for it.
template <class T>
void addAlias(py::module_& module, const char* submodule)
{
    Local<T>::bindClass(module);
    const auto [target, name] = bindingDetails(std::string(submodule) + "::" + registeredName<T>(), module);
    py::setattr(target, name.c_str(), module.attr(name.c_str()));
}

template <class E>
void bindEnum(py::module_& module)
{
    if (py::detail::get_type_info(typeid(E)) != nullptr)
        return;
    checkTypeName(registeredName<E>(), typeid(E).name());
    const auto [target, name] = bindingDetails(registeredName<E>(), module);
    py::enum_<E> e(target, name.c_str(), registerDoc<E>());
    refuseUnmade<E>();
    for (const auto& [value, text] : magic_enum::enum_entries<E>())
        e.value(std::string(text).c_str(), value);
}

} // namespace trovi::python

#define VORNA_JOIN_(a, b) a##b
#define VORNA_JOIN(a, b) VORNA_JOIN_(a, b)
#define VORNA_BINDING(key, ...)                                                                    \
    [[maybe_unused]] static const bool VORNA_JOIN(trovi_pybind11_binding_function_, __COUNTER__) = \
        ::trovi::python::Binder::getInstance().addBindingFunction(key, __VA_ARGS__);

#define VORNA_BIND_LOCAL(...)                                                        \
    VORNA_BINDING("trovi_bind_local_type_" + ::trovi::registeredName<__VA_ARGS__>(), \
                  [](::pybind11::module_& m) { ::trovi::python::Local<__VA_ARGS__>::bindClass(m); })
#define VORNA_BIND_LOCAL_WITH(T, ...)                                      \
    VORNA_BINDING("trovi_bind_local_type_" + ::trovi::registeredName<T>(), \
                  [](::pybind11::module_& m) { ::trovi::python::Local<T>::bindClass(m, __VA_ARGS__); })
#define VORNA_BIND_LOCAL_ALIASED(submodule, ...)                                     \
    VORNA_BINDING("trovi_bind_local_type_" + ::trovi::registeredName<__VA_ARGS__>(), \
                  [](::pybind11::module_& m) { ::trovi::python::addAlias<__VA_ARGS__>(m, submodule); })
#define VORNA_BIND_ENUM(...)                                                         \
    VORNA_BINDING("trovi_bind_local_type_" + ::trovi::registeredName<__VA_ARGS__>(), \
                  [](::pybind11::module_& m) { ::trovi::python::bindEnum<__VA_ARGS__>(m); })
// The key holds the argument as it is spelled, its macros expanded, quotes and all; it is compared with itself alone.
#define VORNA_BIND_FREE_FUNCTION_(name, ...)                         \
    VORNA_BINDING(std::string("trovi_bind_free_function_ ") + #name, \
                  [](::pybind11::module_& m) { ::trovi::python::bindFreeFunction(m, name, __VA_ARGS__); })
#define VORNA_BIND_FREE_FUNCTION(name, ...) VORNA_BIND_FREE_FUNCTION_(name, __VA_ARGS__)
