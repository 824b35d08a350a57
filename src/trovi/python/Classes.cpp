#include "trovi/python/Classes.h"

#include <cstring>
#include <stdexcept>
#include <utility>

namespace trovi::python {
namespace {

const ClassOps& classOpsOf(const py::detail::function_call& call)
{
    return *static_cast<const ClassOps*>(call.func.data[0]);
}

const ObjectOps& objectOpsOf(const py::detail::function_call& call)
{
    return *static_cast<const ObjectOps*>(call.func.data[1]);
}

const MemberOps& memberOpsOf(const py::detail::function_call& call)
{
    return *static_cast<const MemberOps*>(call.func.data[1]);
}

py::handle getProperty(py::detail::function_call& call)
{
    void* const object = loadInstance(call.args[0], *classOpsOf(call).type);
    if (object == nullptr)
        return PYBIND11_TRY_NEXT_OVERLOAD;
    const MemberOps& member = memberOpsOf(call);
    const ListPlace place{call.args[0].ptr(), static_cast<const ListSource*>(call.func.data[2]), 0, {}};
    if (member.value->tensor != nullptr)
        return member.value->tensor->lists(member.address(object), place).release();
    py::object value = member.convertedGet != nullptr ? member.convertedGet(object)
                                                      : member.value->toPython(member.address(object), call.args[0]);
    return (place.source != nullptr ? asMemberList(std::move(value), place) : std::move(value)).release();
}

py::handle getNumpyArray(py::detail::function_call& call)
{
    void* const object = loadInstance(call.args[0], *classOpsOf(call).type);
    if (object == nullptr)
        return PYBIND11_TRY_NEXT_OVERLOAD;
    const MemberOps& member = memberOpsOf(call);
    return member.value->tensor->numpy(member.address(object), call.args[0]).release();
}

py::handle setProperty(py::detail::function_call& call)
{
    void* const object = loadInstance(call.args[0], *classOpsOf(call).type);
    if (object == nullptr)
        return PYBIND11_TRY_NEXT_OVERLOAD;
    setMember(object, classOpsOf(call), memberOpsOf(call), call.args[1]);
    return py::none().release();
}

SignatureText signatureOf(const ClassOps& ops, const SignatureText* argument, const SignatureText* result)
{
    SignatureText text{"({%}", {ops.type}};
    const auto append = [&](const SignatureText& piece) {
        text.text += piece.text;
        for (const std::type_info* type : piece.types)
            if (type != nullptr)
                text.types.push_back(type);
    };
    if (argument != nullptr) {
        text.text += ", {";
        append(*argument);
        text.text += "}";
    }
    text.text += ") -> ";
    if (result != nullptr)
        append(*result);
    else
        text.text += "None";
    text.types.push_back(nullptr);
    return text;
}

FunctionDescription describe(const char* name, const ClassOps& ops, FunctionImplementation implementation,
                             const SignatureText* argument, const SignatureText* result)
{
    FunctionDescription d;
    d.name = name;
    d.signature = signatureOf(ops, argument, result);
    d.arity = argument != nullptr ? 2 : 1;
    d.implementation = implementation;
    d.data[0] = const_cast<ClassOps*>(&ops);
    return d;
}

FunctionDescription describe(const char* name, const ObjectOps& ops, FunctionImplementation implementation,
                             const SignatureText* argument, const SignatureText* result)
{
    FunctionDescription d = describe(name, *ops.members, implementation, argument, result);
    d.data[1] = const_cast<ObjectOps*>(&ops);
    return d;
}

// The place for the object in an instance under construction.
py::detail::value_and_holder& newInstance(const py::detail::function_call& call)
{
    return *reinterpret_cast<py::detail::value_and_holder*>(call.args[0].ptr());
}

// pybind11 has the place for the object as the first argument of a constructor, and shows it as self.
FunctionDescription describeConstructor(const char* name, const ObjectOps& ops, FunctionImplementation implementation,
                                        const char* arguments)
{
    FunctionDescription d = describe(name, ops, implementation, nullptr, nullptr);
    d.signature = {std::string("({%}").append(arguments).append(") -> None"),
                   {&typeid(py::detail::value_and_holder), nullptr}};
    d.arity = *arguments == 0 ? 1 : 2;
    d.isConstructor = true;
    return d;
}

py::handle construct(py::detail::function_call& call)
{
    const ObjectOps& ops = objectOpsOf(call);
    void* const made = ops.make();
    try {
        if (ops.keywords)
            membersFromKeywords(made, *ops.members, py::reinterpret_borrow<py::kwargs>(call.args[1]));
    } catch (...) {
        ops.discard(made);
        throw;
    }
    newInstance(call).value_ptr() = made;
    return py::none().release();
}

// A Python object that owns what `made` points to.
py::handle owning(void* made, const ClassOps& ops)
{
    return py::detail::type_caster_generic::cast(made, py::return_value_policy::take_ownership, py::handle(),
                                                 py::detail::get_type_info(*ops.type), nullptr, nullptr);
}

py::handle copyObject(py::detail::function_call& call)
{
    const ClassOps& ops = classOpsOf(call);
    void* const object = loadInstance(call.args[0], *ops.type);
    return object == nullptr ? PYBIND11_TRY_NEXT_OVERLOAD : owning(ops.copy(object), ops);
}

py::handle pickleObject(py::detail::function_call& call)
{
    void* const object = loadInstance(call.args[0], *classOpsOf(call).type);
    return object == nullptr ? PYBIND11_TRY_NEXT_OVERLOAD : py::bytes(objectOpsOf(call).toBytes(object)).release();
}

py::handle unpickleObject(py::detail::function_call& call)
{
    if (!PyBytes_Check(call.args[1].ptr()))
        return PYBIND11_TRY_NEXT_OVERLOAD;
    const auto bytes = py::reinterpret_borrow<py::bytes>(call.args[1]);
    newInstance(call).value_ptr() = objectOpsOf(call).fromBytes(bytes);
    return py::none().release();
}

const SignatureText textOfStr{"str", {nullptr}};
const SignatureText textOfBool{"bool", {nullptr}};
const SignatureText textOfObject{"object", {nullptr}};
const SignatureText textOfBytes{"bytes", {nullptr}};
const SignatureText textOfDict{"dict", {nullptr}};

} // namespace

void addConstructor(py::handle cls, const ObjectOps& ops)
{
    if (ops.make == nullptr)
        return;
    FunctionDescription d = describeConstructor("__init__", ops, &construct, ops.keywords ? ", {**kwargs}" : "");
    d.hasKeywords = ops.keywords;
    if (ops.keywords)
        d.doc = "Every member at its default, or as named: name=value.";
    addMethod(cls, d);
}

void addProperties(py::handle cls, const ClassOps& ops)
{
    const py::handle property(reinterpret_cast<PyObject*>(&PyProperty_Type));
    for (const MemberOps& member : ops.members) {
        const std::string name = pythonName(member.name);
        const SignatureText type = member.pythonForm->signature();
        FunctionDescription get = describe(name.c_str(), ops, &getProperty, nullptr, &type);
        get.isMethod = true;
        get.data[1] = const_cast<MemberOps*>(&member);
        if (member.pythonForm->lists.levels > 0) // stays for good, as the class does
            get.data[2] = new ListSource{ops.registeredName() + "." + name,
                                         py::str(name),
                                         member.pythonForm->lists,
                                         member.writable,
                                         &ops,
                                         &member};
        py::object setter = py::none();
        if (member.writable) {
            FunctionDescription set = describe(name.c_str(), ops, &setProperty, &textOfObject, nullptr);
            set.isMethod = true;
            set.data[1] = const_cast<MemberOps*>(&member);
            setter = makeFunction(set);
        }
        const std::string doc = dotted(member.pythonForm->expectation()) + (*member.doc != 0 ? ": " : "") + member.doc;
        py::setattr(cls, name.c_str(), property(makeFunction(get), setter, py::none(), doc));
    }
}

void addNumpyArrays(py::handle cls, const ClassOps& ops)
{
    for (const MemberOps& member : ops.members) {
        if (member.value->tensor == nullptr)
            continue;
        const std::string attribute = pythonName(member.name);
        const std::string name = attribute + "_array";
        const std::string doc =
            member.value->tensor->inPlace
                ? attribute + " as a numpy array that refers to the elements in place: writing to it writes to the "
                              "member. It keeps the object alive. When the member gets another shape, or is replaced "
                              "as part of a larger value or from a file, the array keeps the old elements and is part "
                              "of nothing any more. Needs numpy."
                : attribute + " as a numpy array: a read-only copy, as the bits are packed. To change them, assign "
                              "the member or elements of its lists. Needs numpy.";
        const SignatureText type{"numpy.ndarray", {nullptr}};
        FunctionDescription get = describe(name.c_str(), ops, &getNumpyArray, nullptr, &type);
        get.data[1] = const_cast<MemberOps*>(&member);
        get.doc = doc.c_str();
        addMethod(cls, get);
    }
}

void addJson(py::handle cls, const ClassOps& ops)
{
    FunctionDescription save = describe(
        "to_json", ops,
        [](py::detail::function_call& call) -> py::handle {
            void* const object = loadInstance(call.args[0], *classOpsOf(call).type);
            std::string path;
            if (object == nullptr || !loadPath(call.args[1], path))
                return PYBIND11_TRY_NEXT_OVERLOAD;
            classOpsOf(call).saveJson(object, path);
            return py::none().release();
        },
        &textOfStr, nullptr);
    save.doc = "Writes every member to the JSON file at `path`, which is replaced as a whole.";
    save.arguments = "path";
    addMethod(cls, save);
    FunctionDescription load = describe(
        "from_json", ops,
        [](py::detail::function_call& call) -> py::handle {
            void* const object = loadInstance(call.args[0], *classOpsOf(call).type);
            std::string path;
            if (object == nullptr || !loadPath(call.args[1], path))
                return PYBIND11_TRY_NEXT_OVERLOAD;
            classOpsOf(call).loadJson(object, path);
            return py::none().release();
        },
        &textOfStr, nullptr);
    load.doc =
        "Reads every member from the JSON file at `path`, of at most 64 MiB and 512 levels. A RuntimeError names the "
        "first that is missing or wrong; members before it keep their new values.";
    load.arguments = "path";
    addMethod(cls, load);
}

void addRepresentation(py::handle cls, const ClassOps& ops)
{
    addMethod(cls, describe(
                       "__repr__", ops,
                       [](py::detail::function_call& call) -> py::handle {
                           const ClassOps& owner = classOpsOf(call);
                           std::string text = "vorna." + dotted(owner.registeredName()) + "(";
                           bool first = true;
                           for (const MemberOps& member : owner.members) {
                               const std::string name = pythonName(member.name);
                               text += (first ? "" : ", ") + name + "=" + shortRepr(call.args[0].attr(name.c_str()));
                               first = false;
                           }
                           return py::str(text + ")").release();
                       },
                       nullptr, &textOfStr));
}

void addText(py::handle cls, const ObjectOps& ops)
{
    if (ops.text == nullptr)
        return;
    addMethod(cls, describe(
                       "__str__", ops,
                       [](py::detail::function_call& call) -> py::handle {
                           void* const object = loadInstance(call.args[0], *classOpsOf(call).type);
                           if (object == nullptr)
                               return PYBIND11_TRY_NEXT_OVERLOAD;
                           return py::str(objectOpsOf(call).text(object)).release();
                       },
                       nullptr, &textOfStr));
}

void addEquality(py::handle cls, const ObjectOps& ops)
{
    if (ops.equal == nullptr)
        return;
    FunctionDescription d = describe(
        "__eq__", ops,
        [](py::detail::function_call& call) -> py::handle {
            void* const left = loadInstance(call.args[0], *classOpsOf(call).type);
            void* const right = loadInstance(call.args[1], *classOpsOf(call).type);
            if (left == nullptr || right == nullptr)
                return PYBIND11_TRY_NEXT_OVERLOAD;
            return py::bool_(objectOpsOf(call).equal(left, right)).release();
        },
        &textOfObject, &textOfBool);
    d.isOperator = true;
    addMethod(cls, d);
}

void addPickling(py::handle cls, const ObjectOps& ops)
{
    if (ops.fromBytes == nullptr)
        return;
    addMethod(cls, describe("__getstate__", ops, &pickleObject, nullptr, &textOfBytes));
    addMethod(cls, describeConstructor("__setstate__", ops, &unpickleObject, ", {bytes}"));
}

void addCopying(py::handle cls, const ClassOps& ops)
{
    if (ops.copy == nullptr)
        return;
    const SignatureText self{"%", {ops.type, nullptr}};
    addMethod(cls, describe("__copy__", ops, &copyObject, nullptr, &self));
    FunctionDescription deep = describe("__deepcopy__", ops, &copyObject, &textOfDict, &self);
    deep.arguments = "memo";
    addMethod(cls, deep);
}

void checkTypeName(const std::string& registeredName, const char* compilersName)
{
    if (registeredName.empty())
        throw std::invalid_argument(std::string("The type T = ") + compilersName +
                                    " is registered with an empty name!" +
                                    " Ensure that the correct trovi bindings are included in the module source." +
                                    " Verify the class registration and recompile the module!");
}

} // namespace trovi::python
