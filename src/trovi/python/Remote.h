#pragma once
// From a description to a Python class of proxies: the same members and methods under the same names, each access a
// message to the node that holds the object.
//
//   VORNA_BIND_REMOTE(device::DeviceController)   // at file scope of a binding file
//
// A class adds a constant table of its functions, and a signature the conversion of its arguments and result; messages
// and waiting are compiled once, in Remote.cpp.

#include <array>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <utility>

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "trovi/Reflect.h"
#include "trovi/Remote.h"
#include "trovi/Serial.h"
#include "trovi/Store.h"
#include "trovi/python/Binder.h"
#include "trovi/python/ErasedFunction.h"
#include "trovi/python/Local.h"

namespace trovi::python {

/// Holds for enumerations and plain values: what has no members of its own.
template <class T>
inline constexpr bool is_property_v = !isReflected<T>;

/// The proxy of a value that has no members of its own. Reading waits for the answer, at most 10 seconds.
template <class T>
class Property : public remote::Member {
public:
    explicit Property(remote::Member member) : remote::Member(std::move(member)) {}
};

/// What a proxy class needs to know of itself.
struct RemoteClassOps {
    const std::type_info* type;
    remote::Element* (*element)(void* object);
    std::string (*registeredName)(); ///< of the far class
};

/// One function of a class, as its proxies call it.
struct RemoteFunction {
    const char* name;
    const char* doc;
    const char* arguments;
    std::uint64_t id;
    std::size_t arity; ///< with self
    SignatureText (*signature)();
    bool (*encodeArguments)(py::detail::function_call& call, Bytes& out); ///< false: they don't fit
    py::handle (*decodeReply)(const Bytes& reply);      ///< null for a function that gives a reference
    py::object (*makeChained)(remote::Element element); ///< null for a function that gives a value
};

/// One member of a class, as its proxies read and write it.
struct RemoteMember {
    const char* name;
    const char* doc;
    std::uint64_t id;
    bool writable;
    SignatureText (*signature)();
    std::string (*expectation)();
    bool (*encodeValue)(py::handle value, Bytes& out);
    py::handle (*decodeReply)(const Bytes& reply); ///< null when reading gives a proxy
    py::object (*makeProxy)(const remote::Element& owner, std::uint64_t id);
    ListShape lists; ///< of the value
};

void addRemoteFunction(py::handle cls, const RemoteClassOps& ops, const RemoteFunction& function);
void addRemoteMember(py::handle cls, const RemoteClassOps& ops, const RemoteMember& member);
/// Completes a proxy class. It then lives until the process ends, since a script may keep a proxy of a store that it
/// has closed, and the proxy still needs the classes of its members and results.
void finishProxyClass(py::handle cls, const py::module_& module, const RemoteClassOps& ops);
void addPropertyMethods(py::handle cls, const RemoteClassOps& ops, const RemoteMember& value);

/// "__Remote__" + the last piece of the name + "__"
std::string remoteClassName(const std::string& registeredName, const char* kind = "");

/// Where the proxy class `name` is put: `module`, or nowhere when that has a class of this name already, as it may with
/// classes of both chip families.
py::handle scopeOfProxyClass(const py::module_& module, const std::string& name);

class Remote {
public:
    using Rule = std::function<void(py::module_&, const std::shared_ptr<MessageChannel>&, const ElementDescription&)>;

    /// Registers the rule for objects of type T.
    template <class T>
    static void addType();

    /// Makes the proxy for the element and sets it as an attribute of `module`. Needs the interpreter lock.
    /// @throws std::runtime_error for an element without a name or of a type without a rule
    static void executeBindingRule(py::module_& module, const std::shared_ptr<MessageChannel>& channel,
                                   const ElementDescription& element);

private:
    static std::unordered_map<std::string, Rule>& rules();
    /// The proxy keeps the channel: a call through it stays defined when the node is gone, and times out.
    static void place(py::module_& module, const std::shared_ptr<MessageChannel>& channel, const std::string& name,
                      const py::object& proxy);
};

template <class T>
void bindRemoteClass(py::module_& module);

namespace detail {

template <class T>
bool encodeValue(py::handle source, Bytes& out)
{
    py::detail::make_caster<T> caster;
    if (!loadsInto(&caster, source, [](void* c, py::handle object) {
            return static_cast<py::detail::make_caster<T>*>(c)->load(object, true);
        }))
        return false;
    ByteWriter writer(out);
    trovi::encode(writer, py::detail::cast_op<T&>(caster));
    return true;
}

template <class R>
py::handle decodeReply(const Bytes& reply)
{
    if constexpr (std::is_void_v<R>) {
        return py::none().release();
    } else {
        R value{};
        ByteReader reader(reply);
        trovi::decode(reader, value);
        return castResult<R>(std::move(value), py::handle());
    }
}

// A reference to a described class stays on the far side, and its caller gets a chained proxy.
template <class R>
inline constexpr bool isChained = std::is_lvalue_reference_v<R>&& isReflected<std::remove_cvref_t<R>>;

template <class T, class R, class... Args>
struct RemoteCall {
    using Result = std::remove_cvref_t<R>;
    using Loader = py::detail::argument_loader<remote::Class<T>&, Args...>;

    static SignatureText signature()
    {
        static constexpr auto resultName = [] {
            if constexpr (isChained<R>)
                return py::detail::make_caster<remote::Class<Result>>::name;
            else
                return ResultText<Result>::name;
        }();
        static constexpr auto text =
            py::detail::const_name("(") + Loader::arg_names + py::detail::const_name(") -> ") + resultName;
        const auto types = decltype(text)::types();
        return {text.text, {types.begin(), types.end()}};
    }

    static bool encodeArguments(py::detail::function_call& call, Bytes& out)
    {
        return encodeEach(call, out, std::index_sequence_for<Args...>());
    }

    static py::object makeChained(remote::Element element)
    {
        if constexpr (isChained<R>)
            return py::cast(std::make_unique<remote::Class<Result>>(std::move(element)));
        else
            return py::none();
    }

    static constexpr RemoteFunction make(const char* name, const char* doc, const char* arguments, std::uint64_t id)
    {
        RemoteFunction f{name, doc, arguments, id, 1 + sizeof...(Args), &signature, &encodeArguments, nullptr, nullptr};
        if constexpr (isChained<R>)
            f.makeChained = &makeChained;
        else
            f.decodeReply = &trovi::python::detail::decodeReply<Result>;
        return f;
    }

private:
    template <std::size_t... I>
    static bool encodeEach(py::detail::function_call& call, Bytes& out, std::index_sequence<I...>)
    {
        std::tuple<py::detail::make_caster<Args>...> casters;
        if (!(std::get<I>(casters).load(call.args[I + 1], call.args_convert[I + 1]) && ...))
            return false;
        [[maybe_unused]] ByteWriter writer(out);
        (trovi::encode(writer, py::detail::cast_op<std::remove_cvref_t<Args>&>(std::get<I>(casters))), ...);
        return true;
    }
};

template <class T, class Pointer>
struct RemoteCallOf;
template <class T, class C, class R, class... Args>
struct RemoteCallOf<T, R (C::*)(Args...)> : RemoteCall<T, R, Args...> {};
template <class T, class C, class R, class... Args>
struct RemoteCallOf<T, R (C::*)(Args...) const> : RemoteCall<T, R, Args...> {};
template <class T, class C, class R, class... Args>
struct RemoteCallOf<T, R (C::*)(Args...) noexcept> : RemoteCall<T, R, Args...> {};
template <class T, class C, class R, class... Args>
struct RemoteCallOf<T, R (C::*)(Args...) const noexcept> : RemoteCall<T, R, Args...> {};

template <class T, std::size_t I>
inline constexpr auto functionDescriptor = std::get<I>(MetaFunctionHolder<T>::memberFuncs);

template <class T, std::size_t... I>
std::span<const RemoteFunction> remoteFunctions(std::index_sequence<I...>)
{
    static constexpr std::array<RemoteFunction, sizeof...(I)> table{
        RemoteCallOf<T, typename std::remove_cvref_t<decltype(functionDescriptor<T, I>)>::Pointer>::make(
            functionDescriptor<T, I>.name, functionDescriptor<T, I>.doc, functionDescriptor<T, I>.arguments, I)...};
    return table;
}

template <class T, std::size_t I>
constexpr RemoteMember remoteMember()
{
    using Value = typename MemberAccess<T, I>::Value;
    constexpr const auto& d = memberDescriptor<T, I>;
    RemoteMember m{d.name,
                   d.doc,
                   I,
                   MemberAccess<T, I>::make().writable,
                   &typeText<Value>,
                   &expectationOf<Value>,
                   &encodeValue<Value>,
                   nullptr,
                   nullptr,
                   listShape<Value>()};
    if constexpr (std::is_enum_v<Value>)
        m.makeProxy = [](const remote::Element& owner, std::uint64_t id) {
            return py::cast(std::make_unique<Property<Value>>(remote::Member(owner, id, traits::getTypeInfo<Value>())));
        };
    else if constexpr (isReflected<Value>)
        m.makeProxy = [](const remote::Element& owner, std::uint64_t id) {
            return py::cast(std::make_unique<remote::Class<Value>>(owner.memberChild(id)));
        };
    else
        m.decodeReply = &decodeReply<Value>;
    return m;
}

template <class T, std::size_t... I>
std::span<const RemoteMember> remoteMembers(std::index_sequence<I...>)
{
    static constexpr std::array<RemoteMember, sizeof...(I)> table{remoteMember<T, I>()...};
    return table;
}

template <class R>
void bindResultClass(py::module_& module)
{
    if constexpr (isChained<R>)
        bindRemoteClass<std::remove_cvref_t<R>>(module);
}

} // namespace detail

/// Binds the proxies of T, once; later calls find the class and don't bind it again.
template <class T>
void bindRemoteClass(py::module_& module)
{
    using Proxy = std::conditional_t<is_property_v<T>, Property<T>, remote::Class<T>>;
    if (py::detail::get_type_info(typeid(Proxy)) != nullptr)
        return;
    static const RemoteClassOps ops{&typeid(Proxy),
                                    [](void* object) -> remote::Element* { return static_cast<Proxy*>(object); },
                                    &registeredName<T>};
    if constexpr (is_property_v<T>) {
        static constexpr RemoteMember value{"value",
                                            "",
                                            0,
                                            true,
                                            &typeText<T>,
                                            &detail::expectationOf<T>,
                                            &detail::encodeValue<T>,
                                            &detail::decodeReply<T>,
                                            nullptr,
                                            {}};
        const std::string name = remoteClassName(registeredName<T>(), "Property__");
        py::class_<Proxy> cls(scopeOfProxyClass(module, name), name.c_str());
        refuseUnmade<T, Proxy>();
        addPropertyMethods(cls, ops, value);
        finishProxyClass(cls, module, ops);
    } else {
        const std::string name = remoteClassName(registeredName<T>());
        py::class_<Proxy> cls(scopeOfProxyClass(module, name), name.c_str(), registerDoc<T>());
        refuseUnmade<T, Proxy>();
        forEach(MetaHolder<T>::members, [&](const auto& m) {
            using Value = typename std::remove_cvref_t<decltype(m)>::Type;
            if constexpr (isReflected<Value> || std::is_enum_v<Value>)
                bindRemoteClass<Value>(module);
        });
        for (const RemoteMember& member : detail::remoteMembers<T>(std::make_index_sequence<memberCount<T>>()))
            addRemoteMember(cls, ops, member);
        forEach(MetaFunctionHolder<T>::memberFuncs, [&](const auto& f) {
            using Pointer = typename std::remove_cvref_t<decltype(f)>::Pointer;
            detail::bindResultClass<typename SignatureTraits<Pointer>::Return>(module);
        });
        for (const RemoteFunction& function : detail::remoteFunctions<T>(std::make_index_sequence<functionCount<T>>()))
            addRemoteFunction(cls, ops, function);
        finishProxyClass(cls, module, ops);
    }
}

template <class T>
void Remote::addType()
{
    rules().insert_or_assign(
        std::string(typeName<T>()),
        [](py::module_& module, const std::shared_ptr<MessageChannel>& channel, const ElementDescription& element) {
            bindRemoteClass<T>(module);
            if constexpr (is_property_v<T>)
                place(module, channel, element.name,
                      py::cast(std::make_unique<Property<T>>(
                          remote::Member(remote::Element(channel.get(), element.ref), 0, traits::getTypeInfo<T>()))));
            else
                place(module, channel, element.name,
                      py::cast(std::make_unique<remote::Class<T>>(remote::Element(channel.get(), element.ref))));
        });
}

} // namespace trovi::python

#define VORNA_BIND_REMOTE(...)                                                        \
    VORNA_BINDING("trovi_bind_remote_type_" + ::trovi::registeredName<__VA_ARGS__>(), \
                  [](::pybind11::module_&) { ::trovi::python::Remote::addType<__VA_ARGS__>(); })
