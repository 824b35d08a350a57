#include "trovi/python/Local.h"

#include <cstring>
#include <stdexcept>
#include <utility>

namespace trovi::python {
namespace {

// Runs undo steps, first to last, unless dismissed.
class Rollback {
public:
    Rollback() = default;
    Rollback(const Rollback&) = delete;
    Rollback& operator=(const Rollback&) = delete;
    ~Rollback()
    {
        for (const auto& step : steps)
            step();
    }
    void add(std::function<void()> step) { steps.push_back(std::move(step)); }
    void dismiss() { steps.clear(); }

private:
    std::vector<std::function<void()>> steps;
};

std::string shortRepr(py::handle value)
{
    constexpr std::size_t longest = 120;
    std::string text;
    try {
        text = py::repr(value).cast<std::string>();
    } catch (const py::error_already_set&) {
        text = "an object without a printable form"; // its __repr__ raises
    }
    if (text.size() > longest) {
        std::size_t end = longest; // not inside a character
        while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U)
            --end;
        text = text.substr(0, end) + "...";
    }
    return text;
}

// "davis::event::DvsEvent" is vorna.davis.event.DvsEvent to the user who reads the error
std::string dotted(std::string name)
{
    for (std::size_t at; (at = name.find("::")) != std::string::npos;)
        name.replace(at, 2, ".");
    return name;
}

bool loadMember(void* object, const MemberOps& member, py::handle value)
{
    if (member.convertedSet != nullptr)
        return member.convertedSet(object, value);
    return member.value->load(member.address(object), value);
}

bool isDictLike(py::handle value) { return PyMapping_Check(value.ptr()) != 0 && py::hasattr(value, "keys"); }

// A list of which some elements are dicts: those name members of the element that is there, the others stay as they
// are. All or nothing. False when it is no such list.
bool loadElements(void* list, const ValueOps& ops, py::handle source, const std::string& what)
{
    if (ops.elements == nullptr || !(PyList_Check(source.ptr()) || PyTuple_Check(source.ptr())))
        return false;
    const auto items = py::reinterpret_borrow<py::sequence>(source);
    const std::size_t count = items.size();
    bool anyDict = false;
    for (const py::handle item : items)
        anyDict = anyDict || isDictLike(item);
    if (!anyDict)
        return false;
    const std::shared_ptr<void> changed = ops.clone(list);
    auto* const first = static_cast<char*>(ops.elements->withCount(changed.get(), count));
    if (first == nullptr)
        return false;
    const ValueOps& element = *ops.elements->element;
    for (std::size_t i = 0; i < count; ++i) {
        void* const target = first + i * ops.elements->size;
        const py::object item = items[i];
        if (element.load(target, item))
            continue;
        if (!isDictLike(item))
            throwWrongValue(what + "[" + std::to_string(i) + "]", element.expectation(), item);
        memberValueFromDictionary(target, element.reflected(), py::dict(item));
    }
    ops.assign(list, changed.get());
    return true;
}

const ClassOps& classOpsOf(const py::detail::function_call& call)
{
    return *static_cast<const ClassOps*>(call.func.data[0]);
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
    if (member.convertedGet != nullptr)
        return member.convertedGet(object).release();
    return member.value->toPython(member.address(object), call.args[0]).release();
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

const SignatureText textOfStr{"str", {nullptr}};
const SignatureText textOfBool{"bool", {nullptr}};
const SignatureText textOfObject{"object", {nullptr}};

} // namespace

void throwWrongValue(const std::string& what, const std::string& expectation, py::handle value)
{
    throw py::type_error(dotted(what) + ": expected " + dotted(expectation) + ", got " + shortRepr(value) + " (" +
                         Py_TYPE(value.ptr())->tp_name + bufferText(value) + ")");
}

void setMember(void* object, const ClassOps& owner, const MemberOps& member, py::handle value)
{
    if (loadMember(object, member, value))
        return;
    const std::string what = owner.registeredName() + "." + pythonName(member.name);
    if (member.convertedSet == nullptr && loadElements(member.address(object), *member.value, value, what))
        return;
    if (member.value->reflected == nullptr || !isDictLike(value))
        throwWrongValue(what, member.pythonForm->expectation(), value);
    memberValueFromDictionary(member.address(object), member.value->reflected(),
                              py::dict(py::reinterpret_borrow<py::object>(value)));
}

void memberValueFromDictionary(void* object, const ClassOps& owner, const py::dict& dict)
{
    Rollback rollback;
    for (const MemberOps& member : owner.members) {
        if (!dict.contains(member.name))
            continue;
        void* const field = member.address(object);
        rollback.add(
            [field, &member, saved = member.value->clone(field)] { member.value->assign(field, saved.get()); });
        try {
            setMember(object, owner, member, dict[member.name]);
        } catch (...) {
            py::print("Failed reading dictionary member '", member.name, "'",
                      "Value could not be casted to the expected type", "(", std::string(member.value->typeName), ")",
                      " nor to a sub-dictionary.");
            throw;
        }
    }
    rollback.dismiss();
}

void membersFromKeywords(void* object, const ClassOps& owner, const py::kwargs& keywords)
{
    for (const auto& [key, value] : keywords) {
        const auto wanted = key.cast<std::string>();
        const MemberOps* found = nullptr;
        for (const MemberOps& member : owner.members)
            if (member.writable && pythonName(member.name) == wanted)
                found = &member;
        if (found == nullptr) {
            std::string known;
            for (const MemberOps& member : owner.members)
                if (member.writable)
                    known.append(known.empty() ? "" : ", ").append(pythonName(member.name));
            throw py::type_error(dotted(owner.registeredName())
                                     .append(" has no member '")
                                     .append(wanted)
                                     .append("'; it has: ")
                                     .append(known));
        }
        setMember(object, owner, *found, value);
    }
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
        "Reads every member from the JSON file at `path`. A RuntimeError names the first that is missing or wrong; "
        "members before it keep their new values.";
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

void addText(py::handle cls, const ClassOps& ops, std::string (*text)(const void*))
{
    FunctionDescription d = describe(
        "__str__", ops,
        [](py::detail::function_call& call) -> py::handle {
            void* const object = loadInstance(call.args[0], *classOpsOf(call).type);
            if (object == nullptr)
                return PYBIND11_TRY_NEXT_OVERLOAD;
            std::string (*textOf)(const void*) = nullptr;
            std::memcpy(&textOf, &call.func.data[1], sizeof textOf);
            return py::str(textOf(object)).release();
        },
        nullptr, &textOfStr);
    std::memcpy(&d.data[1], &text, sizeof text);
    addMethod(cls, d);
}

void addEquality(py::handle cls, const ClassOps& ops, bool (*equal)(const void*, const void*))
{
    FunctionDescription d = describe(
        "__eq__", ops,
        [](py::detail::function_call& call) -> py::handle {
            void* const left = loadInstance(call.args[0], *classOpsOf(call).type);
            void* const right = loadInstance(call.args[1], *classOpsOf(call).type);
            if (left == nullptr || right == nullptr)
                return PYBIND11_TRY_NEXT_OVERLOAD;
            bool (*equalOf)(const void*, const void*) = nullptr;
            std::memcpy(&equalOf, &call.func.data[1], sizeof equalOf);
            return py::bool_(equalOf(left, right)).release();
        },
        &textOfObject, &textOfBool);
    std::memcpy(&d.data[1], &equal, sizeof equal);
    d.isOperator = true;
    addMethod(cls, d);
}

std::string joinedEnumerators(const std::string& name, const std::vector<std::string>& enumerators)
{
    std::string text = name + " (";
    for (const std::string& enumerator : enumerators)
        text += (enumerator == enumerators.front() ? "" : ", ") + enumerator;
    return text + ")";
}

void checkTypeName(const std::string& registeredName, const char* compilersName)
{
    if (registeredName.empty())
        throw std::invalid_argument(std::string("The type T = ") + compilersName +
                                    " is registered with an empty name!" +
                                    " Ensure that the correct trovi bindings are included in the module source." +
                                    " Verify the class registration and recompile the module!");
}

namespace detail {

py::handle castShared(std::shared_ptr<void> owner, py::handle instance)
{
    // One share for each Python object, however often it is handed out: it sits in the object's own dictionary-free
    // patient list, so it must be added only when the object was made just now.
    if (instance && Py_REFCNT(instance.ptr()) == 1) {
        const py::capsule share(new std::shared_ptr<void>(std::move(owner)),
                                [](void* p) { delete static_cast<std::shared_ptr<void>*>(p); });
        py::detail::keep_alive_impl(instance, share);
    }
    return instance;
}

} // namespace detail

} // namespace trovi::python
