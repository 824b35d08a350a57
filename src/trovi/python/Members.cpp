#include "trovi/python/Members.h"

#include <functional>
#include <memory>
#include <vector>

#include "trovi/python/GilRelease.h"

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

// A list of which some elements are dicts: those name members of the element that is there, the others stay as they
// are. All or nothing. False when it isn't such a list.
bool loadElements(void* list, const ValueOps& ops, py::handle source, const std::string& what)
{
    if (ops.elements == nullptr || ops.elements->element->reflected == nullptr ||
        !(PyList_Check(source.ptr()) || PyTuple_Check(source.ptr())))
        return false;
    const auto items = py::reinterpret_borrow<py::sequence>(source);
    const std::size_t count = items.size();
    bool anyDict = false;
    for (std::size_t i = 0; i < count; ++i) {
        const py::object item = items[i];
        if (item.is_none())
            throwWrongValue(what + "[" + std::to_string(i) + "]", ops.elements->element->expectation(), item);
        anyDict = anyDict || isDictLike(item);
    }
    if (!anyDict)
        return false;
    const std::shared_ptr<void> changed = ops.clone(list);
    if (!ops.elements->resize(changed.get(), count))
        return false;
    auto* const first = static_cast<char*>(ops.elements->first(changed.get()));
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

// What isn't a value of the type itself: a dict for an object, or a list with dicts in it.
void loadOtherForm(void* value, const ValueOps& ops, py::handle source, const std::string& what)
{
    if (loadElements(value, ops, source, what))
        return;
    if (ops.reflected == nullptr || !isDictLike(source))
        throwWrongValue(what, ops.expectation(), source);
    memberValueFromDictionary(value, ops.reflected(), py::dict(py::reinterpret_borrow<py::object>(source)));
}

} // namespace

const ValueOps* MemberOps::lastElement() const
{
    const ValueOps* last = nullptr;
    for (const ElementsOps* elements = value->elements; elements != nullptr; elements = last->elements)
        last = elements->element;
    return last;
}

// A mapping, and what else dict() takes, such as a list of pairs; but no text, and no iterator, which would be used up.
bool isDictLike(py::handle value)
{
    if (PyMapping_Check(value.ptr()) != 0 && py::hasattr(value, "keys"))
        return true;
    if (PyUnicode_Check(value.ptr()) || PyBytes_Check(value.ptr()) || PyIter_Check(value.ptr()))
        return false;
    auto* const dictType = reinterpret_cast<PyObject*>(&PyDict_Type);
    const auto dict = py::reinterpret_steal<py::object>(
        withoutUnwinding([&] { return PyObject_CallFunctionObjArgs(dictType, value.ptr(), nullptr); }));
    if (!dict && !PyErr_ExceptionMatches(PyExc_TypeError) && !PyErr_ExceptionMatches(PyExc_ValueError))
        throw py::error_already_set();
    PyErr_Clear();
    return static_cast<bool>(dict);
}

void loadValue(void* value, const ValueOps& ops, py::handle source, const std::string& what)
{
    if (!ops.load(value, source))
        loadOtherForm(value, ops, source, what);
}

void setMember(void* object, const ClassOps& owner, const MemberOps& member, py::handle value)
{
    void* const field = member.address(object);
    if (member.convertedSet != nullptr ? member.convertedSet(object, value) : member.value->load(field, value))
        return;
    const std::string what = owner.registeredName() + "." + pythonName(member.name);
    if (member.convertedSet != nullptr)
        throwWrongValue(what, member.pythonForm->expectation(), value);
    loadOtherForm(field, *member.value, value, what);
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
        } catch (const std::exception&) {
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

} // namespace trovi::python
