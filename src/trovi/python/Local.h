#pragma once
// From a description to a Python class in this process.
//
//   VORNA_BIND_LOCAL(davis::event::DvsEvent)                  // at file scope of a binding file
//   VORNA_BIND_LOCAL_WITH(device::DeviceInfo, [](auto& cls) { cls.def(py::init<...>()); })
//   VORNA_BIND_ENUM(device::DriverReferenceType)
//   VORNA_BIND_FREE_FUNCTION("graph::nodes::detail::f", &f, "What it does.", "a, b")
//
// A class adds a constant table of its members and functions; what is large (properties, dict assignment, error texts)
// is compiled once, in Local.cpp, and conversions once for each value type.

#include <array>
#include <concepts>
#include <limits>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include <magic_enum/magic_enum.hpp>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "trovi/Json.h"
#include "trovi/Reflect.h"
#include "trovi/python/ArrayCaster.h"
#include "trovi/python/Binder.h"
#include "trovi/python/ElementOwner.h"
#include "trovi/python/ErasedFunction.h"
#include "trovi/python/GilRelease.h"
#include "trovi/python/LiveObjects.h"

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

struct MemberOps {
    const char* name;
    const char* doc;
    bool writable;
    const ValueOps* value;
    void* (*address)(void* object);
    const ValueOps* pythonForm;                     ///< of the form that Python sees; `value` where they are the same
    py::object (*convertedGet)(const void* object); ///< null: no other form
    bool (*convertedSet)(void* object, py::handle source);
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
};

/// Sets a member from any Python object: by conversion to its type, else from a dict that names some of its
/// sub-members.
/// @throws py::type_error naming class, property, what was expected and what was given; the object is as it was then
void setMember(void* object, const ClassOps& owner, const MemberOps& member, py::handle value);

/// Fills the members that `dict` has as keys (reflected names); all or nothing.
void memberValueFromDictionary(void* object, const ClassOps& owner, const py::dict& dict);

/// Fills members from keyword arguments (Python names); used by constructors.
void membersFromKeywords(void* object, const ClassOps& owner, const py::kwargs& keywords);

/// @throws py::type_error "davis.event.DvsEvent.x: expected int in [0, 65535], got 70000 (int)"
[[noreturn]] void throwWrongValue(const std::string& what, const std::string& expectation, py::handle value);

void addProperties(py::handle cls, const ClassOps& ops);
void addJson(py::handle cls, const ClassOps& ops);
void addRepresentation(py::handle cls, const ClassOps& ops);
void addText(py::handle cls, const ClassOps& ops, std::string (*text)(const void*));
void addEquality(py::handle cls, const ClassOps& ops, bool (*equal)(const void*, const void*));
std::string joinedEnumerators(const std::string& name, const std::vector<std::string>& enumerators);

/// @throws std::invalid_argument for an empty registered name
void checkTypeName(const std::string& registeredName, const char* compilersName);

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
        if (!caster.load(source, true))
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
    static const ClassOps ops{&typeid(T), &registeredName<T>,
                              detail::memberTable<T>(std::make_index_sequence<memberCount<T>>()), &detail::saveJson<T>,
                              &detail::loadJson<T>};
    return ops;
}

/// Specialise as true for a class whose destruction joins threads: Python then destroys it with the interpreter lock
/// released, and stops it at the interpreter's exit by its stop().
template <class T>
inline constexpr bool ownsThreads = false;

/// Specialise as true for a class whose objects C++ shares: Python's instances then hold a share.
template <class T>
inline constexpr bool isShared = false;

/// Owner of a Python instance whose class owns threads.
template <class T>
struct ThreadOwnerDeleter {
    void operator()(T* object) const
    {
        if (!LiveObjects::forget(object))
            return; // a forked child: the threads are the parent's, and so is the object
        const GilRelease release;
        delete object;
    }
};

template <class T>
using Holder = std::conditional_t<
    isShared<T>, std::shared_ptr<T>,
    std::conditional_t<ownsThreads<T>, std::unique_ptr<T, ThreadOwnerDeleter<T>>, std::unique_ptr<T>>>;

/// Makes an object for Python and, if it owns threads, has it stopped at the interpreter's exit.
template <class T, class... Args>
Holder<T> makeHeld(Args&&... args)
{
    if constexpr (ownsThreads<T>) {
        std::unique_ptr<T> made;
        {
            const GilRelease release;
            made = std::make_unique<T>(std::forward<Args>(args)...);
        }
        T* const object = made.release();
        LiveObjects::remember(object, [object] { object->stop(); });
        return Holder<T>(object);
    } else {
        return std::make_unique<T>(std::forward<Args>(args)...);
    }
}

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

template <class T, class Pointer, class R, class... Args>
struct MethodCall {
    using Loader = py::detail::argument_loader<T&, Args...>;

    static py::handle call(py::detail::function_call& call)
    {
        Loader loader;
        if (!loader.load_args(call))
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

template <class T>
concept Streamable = requires(const T& value, std::ostream& stream)
{
    {
        stream << value
        } -> std::same_as<std::ostream&>;
};

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
        const ClassOps& ops = classOps<T>();
        const auto [target, name] = bindingDetails(registeredName<T>(), module);
        Class cls(target, name.c_str(), registerDoc<T>());
        forEach(MetaHolder<T>::members,
                [](const auto& m) { bindEarly<typename std::remove_cvref_t<decltype(m)>::Type>(); });
        if constexpr (std::is_default_constructible_v<T> && std::is_destructible_v<T>) {
            if constexpr (memberCount<T> != 0 && std::is_copy_constructible_v<T>)
                cls.def(py::init([](const py::kwargs& keywords) {
                            auto made = makeHeld<T>();
                            membersFromKeywords(made.get(), classOps<T>(), keywords);
                            return made;
                        }),
                        "Every member at its default, or as named: name=value.");
            else
                cls.def(py::init([] { return makeHeld<T>(); }));
        }
        addProperties(cls, ops);
        forEach(MetaFunctionHolder<T>::memberFuncs, [&](const auto& f) {
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
        if constexpr (std::is_default_constructible_v<T>)
            addJson(cls, ops);
        if constexpr (std::equality_comparable<T>)
            addEquality(cls, ops, [](const void* a, const void* b) {
                return static_cast<bool>(*static_cast<const T*>(a) == *static_cast<const T*>(b));
            });
        if constexpr (detail::Streamable<T>)
            addText(cls, ops, [](const void* object) {
                std::ostringstream text;
                text << *static_cast<const T*>(object);
                return text.str();
            });
        if constexpr (trovi::detail::membersDescribed<T>) {
            addRepresentation(cls, ops);
            if constexpr (std::is_copy_constructible_v<T>) {
                if constexpr (std::is_default_constructible_v<T>)
                    cls.def(py::pickle(
                        [](const T& self) {
                            const Bytes bytes = serializeToBuffer(self);
                            return py::bytes(reinterpret_cast<const char*>(bytes.data()), bytes.size());
                        },
                        [](const py::bytes& state) {
                            const std::string_view text = state;
                            T object;
                            ByteReader reader({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
                            decode(reader, object);
                            return object;
                        }));
                cls.def("__copy__", [](const T& self) { return T(self); });
                cls.def(
                    "__deepcopy__", [](const T& self, const py::dict&) { return T(self); }, py::arg("memo"));
            }
        }
        extend(cls);
    }

    static void bindClass(py::module_& module)
    {
        bindClass(module, [](auto&) {});
    }
};

/// Also sets the class, which stands in the root module, as an attribute of the submodule where a user looks for it.
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
    for (const auto& [value, text] : magic_enum::enum_entries<E>())
        e.value(std::string(text).c_str(), value);
}

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
        if (!loader.load_args(call))
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
// The key holds the argument as it is spelled, quotes and all; it is compared with itself alone.
#define VORNA_BIND_FREE_FUNCTION(name, ...)                          \
    VORNA_BINDING(std::string("trovi_bind_free_function_ ") + #name, \
                  [](::pybind11::module_& m) { ::trovi::python::bindFreeFunction(m, name, __VA_ARGS__); })
