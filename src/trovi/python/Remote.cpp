#include "trovi/python/Remote.h"

#include <stdexcept>

#include "trovi/python/GilRelease.h"
#include "trovi/python/Waiting.h"

namespace trovi::python {
namespace {

using namespace std::chrono_literals;

constexpr auto callLimit = 10s;

const RemoteClassOps& classOf(const py::detail::function_call& call)
{
    return *static_cast<const RemoteClassOps*>(call.func.data[0]);
}

const RemoteMember& memberOf(const py::detail::function_call& call)
{
    return *static_cast<const RemoteMember*>(call.func.data[1]);
}

remote::Element* selfOf(const py::detail::function_call& call)
{
    void* const object = loadInstance(call.args[0], *classOf(call).type);
    return object == nullptr ? nullptr : classOf(call).element(object);
}

// Sends with the interpreter lock released: a full socket makes it wait.
template <class Send>
void post(Send&& send)
{
    const GilRelease release;
    send();
}

// With the interpreter lock released while sending and waiting: a socket may be full, and what brings the answer may
// need the lock for an update that came first.
Bytes callAndWait(remote::Element& element, StoreCommand command, std::uint64_t id, Bytes arguments)
{
    std::future<Bytes> reply;
    post([&] { reply = element.callAsync(command, id, std::move(arguments)); });
    if (waitWithSignals(reply, callLimit) == std::future_status::timeout)
        throw std::runtime_error("RPC timeout!");
    return valueOf(reply);
}

// A chained proxy keeps the proxy that it was got from alive, and with it the channel.
py::handle keepingParent(py::object made, py::handle parent)
{
    py::detail::keep_alive_impl(made, parent);
    return made.release();
}

py::handle callFunction(py::detail::function_call& call)
{
    remote::Element* const self = selfOf(call);
    Bytes arguments;
    const auto& function = *static_cast<const RemoteFunction*>(call.func.data[1]);
    if (self == nullptr || !function.encodeArguments(call, arguments))
        return PYBIND11_TRY_NEXT_OVERLOAD;
    if (function.makeChained != nullptr)
        return keepingParent(function.makeChained(self->child(function.id, arguments)), call.args[0]);
    return function.decodeReply(callAndWait(*self, StoreCommand::call, function.id, std::move(arguments)));
}

py::handle getMember(py::detail::function_call& call)
{
    remote::Element* const self = selfOf(call);
    if (self == nullptr)
        return PYBIND11_TRY_NEXT_OVERLOAD;
    const RemoteMember& member = memberOf(call);
    if (member.makeProxy != nullptr)
        return keepingParent(member.makeProxy(*self, member.id), call.args[0]);
    auto value =
        py::reinterpret_steal<py::object>(member.decodeReply(callAndWait(*self, StoreCommand::get, member.id, {})));
    const auto* const source = static_cast<const ListSource*>(call.func.data[2]);
    if (source != nullptr)
        value = asMemberList(std::move(value), {call.args[0].ptr(), source, 0, {}});
    return value.release();
}

[[noreturn]] void throwWrongValue(const RemoteClassOps& owner, const RemoteMember& member, py::handle value)
{
    trovi::python::throwWrongValue(owner.registeredName() + "." + pythonName(member.name), member.expectation(), value);
}

py::handle setMember(py::detail::function_call& call)
{
    remote::Element* const self = selfOf(call);
    if (self == nullptr)
        return PYBIND11_TRY_NEXT_OVERLOAD;
    const RemoteMember& member = memberOf(call);
    Bytes value;
    if (!member.encodeValue(call.args[1], value))
        throwWrongValue(classOf(call), member, call.args[1]);
    post([&] { self->set(member.id, std::move(value)); });
    return py::none().release();
}

py::handle getPropertyValue(py::detail::function_call& call)
{
    auto* const self = static_cast<remote::Member*>(selfOf(call));
    if (self == nullptr)
        return PYBIND11_TRY_NEXT_OVERLOAD;
    return memberOf(call).decodeReply(callAndWait(*self, StoreCommand::get, self->id(), {}));
}

py::handle setPropertyValue(py::detail::function_call& call)
{
    auto* const self = static_cast<remote::Member*>(selfOf(call));
    if (self == nullptr)
        return PYBIND11_TRY_NEXT_OVERLOAD;
    Bytes value;
    if (!memberOf(call).encodeValue(call.args[1], value))
        throwWrongValue(classOf(call), memberOf(call), call.args[1]);
    post([&] { self->setBytes(std::move(value)); });
    return py::none().release();
}

FunctionDescription describe(const char* name, const RemoteClassOps& ops, FunctionImplementation implementation,
                             SignatureText signature, std::size_t arity, const void* data)
{
    FunctionDescription d;
    d.name = name;
    d.implementation = implementation;
    d.signature = std::move(signature);
    d.arity = arity;
    d.data[0] = const_cast<RemoteClassOps*>(&ops);
    d.data[1] = const_cast<void*>(data);
    d.isMethod = true;
    return d;
}

SignatureText getterSignature(const RemoteClassOps& ops, const SignatureText& value)
{
    SignatureText text{"({%}) -> " + value.text, {ops.type}};
    text.types.insert(text.types.end(), value.types.begin(), value.types.end());
    return text;
}

SignatureText setterSignature(const RemoteClassOps& ops) { return {"({%}, {object}) -> None", {ops.type, nullptr}}; }

} // namespace

std::string remoteClassName(const std::string& registeredName, const char* kind)
{
    return std::string("__Remote__") + kind + splitNamespaceString(registeredName).back() + "__";
}

py::handle scopeOfProxyClass(const py::module_& module, const std::string& name)
{
    return module.attr("__dict__").contains(name) ? py::handle() : py::handle(module);
}

void addRemoteFunction(py::handle cls, const RemoteClassOps& ops, const RemoteFunction& function)
{
    const std::string name = pythonName(function.name);
    FunctionDescription d = describe(name.c_str(), ops, &callFunction, function.signature(), function.arity, &function);
    d.doc = function.doc;
    d.arguments = function.arguments;
    addMethod(cls, d);
}

void addRemoteMember(py::handle cls, const RemoteClassOps& ops, const RemoteMember& member)
{
    const std::string name = pythonName(member.name);
    FunctionDescription get =
        describe(name.c_str(), ops, &getMember, getterSignature(ops, member.signature()), 1, &member);
    if (member.lists.levels > 0) // stays for good, as the class does
        get.data[2] = new ListSource{ops.registeredName() + "." + name, py::str(name), member.lists, member.writable};
    py::object set = py::none();
    if (member.writable)
        set = makeFunction(describe(name.c_str(), ops, &setMember, setterSignature(ops), 2, &member));
    const py::handle property(reinterpret_cast<PyObject*>(&PyProperty_Type));
    py::setattr(cls, name.c_str(), property(makeFunction(get), set, py::none(), member.doc));
}

void addPropertyMethods(py::handle cls, const RemoteClassOps& ops, const RemoteMember& value)
{
    FunctionDescription get =
        describe("get", ops, &getPropertyValue, getterSignature(ops, value.signature()), 1, &value);
    get.doc = "The value, asked of the object's node.";
    addMethod(cls, get);
    FunctionDescription set = describe("set", ops, &setPropertyValue, setterSignature(ops), 2, &value);
    set.doc = "Sends a new value; there is no answer.";
    addMethod(cls, set);
}

void finishProxyClass(py::handle cls, const py::module_& module, const RemoteClassOps& ops)
{
    SignatureText signature{"({%}) -> %", {ops.type, &typeid(StoreRef), nullptr}};
    FunctionDescription d = describe(
        "get_store_reference", ops,
        [](py::detail::function_call& call) -> py::handle {
            remote::Element* const self = selfOf(call);
            return self == nullptr ? PYBIND11_TRY_NEXT_OVERLOAD : py::cast(self->getReference()).release();
        },
        std::move(signature), 1, nullptr);
    d.doc = "Where the object is: its store and its number there.";
    addMethod(cls, d);
    py::setattr(cls, "__trovi_proxy_object__", py::bool_(true));
    py::setattr(cls, "__module__", module.attr("__name__"));
    cls.inc_ref();
}

std::unordered_map<std::string, Remote::Rule>& Remote::rules()
{
    static std::unordered_map<std::string, Rule> table;
    return table;
}

void Remote::place(py::module_& module, const std::shared_ptr<MessageChannel>& channel, const std::string& name,
                   const py::object& proxy)
{
    const py::capsule share(new std::shared_ptr<MessageChannel>(channel),
                            [](void* p) { delete static_cast<std::shared_ptr<MessageChannel>*>(p); });
    py::detail::keep_alive_impl(proxy, share);
    py::setattr(module, name.c_str(), proxy);
}

void Remote::executeBindingRule(py::module_& module, const std::shared_ptr<MessageChannel>& channel,
                                const ElementDescription& element)
{
    if (element.name.empty())
        throw std::runtime_error("Trying to bind element with empty name!");
    const auto rule = rules().find(element.type);
    if (rule == rules().end())
        throw std::runtime_error("No remote binding rule has been provided for element type: " + element.type);
    rule->second(module, channel, element);
}

} // namespace trovi::python
