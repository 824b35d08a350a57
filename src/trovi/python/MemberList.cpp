#include "trovi/python/MemberList.h"

#include <memory>
#include <stdexcept>
#include <unordered_set>
#include <utility>

#include "trovi/python/GilRelease.h"
#include "trovi/python/Members.h"
#include "util/ScopeGuard.h"

namespace trovi::python {
namespace {

// Python's list object, and behind it where the list belongs.
struct MemberList {
    PyListObject list;
    ListPlace place;     // its owner is a strong reference here
    bool ended;          // part of nothing any more
    bool holdsDescribed; // and is in listsOfDescribed()
};

PyTypeObject& listType();

MemberList& asList(PyObject* object) { return *reinterpret_cast<MemberList*>(object); }

bool holdsDescribed(const ListPlace& place)
{
    const ListSource& source = *place.source;
    return source.member != nullptr && place.depth + 1 == source.shape.levels &&
           source.member->lastElement() != nullptr && source.member->lastElement()->reflected != nullptr;
}

// Lists whose items are objects of described classes. Such an item refers to the element in its owner; when the element
// gets a new object, every list has to show that one.
std::unordered_set<MemberList*>& listsOfDescribed()
{
    static auto* const lists = new std::unordered_set<MemberList*>;
    return *lists;
}

std::string nameOf(const ListPlace& place)
{
    std::string text = place.source->what;
    for (std::size_t i = 0; i < place.depth; ++i)
        text += "[" + std::to_string(place.path[i]) + "]";
    return dotted(text);
}

[[noreturn]] void throwIndex(const ListPlace& place, std::size_t size)
{
    throw py::index_error(nameOf(place) + ": assignment index out of range, it has " + std::to_string(size) +
                          (size == 1 ? " element" : " elements"));
}

// Copies of lists within lists, as plain ones.
py::list plainCopy(py::handle list, std::size_t levels)
{
    auto copy = py::reinterpret_steal<py::list>(PyList_GetSlice(list.ptr(), 0, PyList_GET_SIZE(list.ptr())));
    if (!copy)
        throw py::error_already_set();
    for (std::size_t i = 0; levels > 1 && i < copy.size(); ++i)
        copy[i] = plainCopy(PyList_GET_ITEM(copy.ptr(), static_cast<Py_ssize_t>(i)), levels - 1);
    return copy;
}

// The list at the place, inside the outermost one.
py::handle innerList(py::handle outermost, const ListPlace& place)
{
    py::handle list = outermost;
    for (std::size_t i = 0; i < place.depth; ++i) {
        if (static_cast<Py_ssize_t>(place.path[i]) >= PyList_GET_SIZE(list.ptr()))
            throw py::index_error(nameOf(place) + ": the member has no such list any more");
        list = PyList_GET_ITEM(list.ptr(), static_cast<Py_ssize_t>(place.path[i]));
    }
    return list;
}

// A subclass in Python may give something else under the member's name. Then the list can't be changed, and a list that
// others hold must not be taken apart.
py::object readMember(const ListPlace& place)
{
    py::object list = py::getattr(place.owner, place.source->attribute);
    if (!isMemberList(list) || Py_REFCNT(list.ptr()) != 1)
        throw py::type_error(dotted(place.source->what) + ": the object's class gives something else under this name");
    return list;
}

void end(PyObject* object)
{
    if (!isMemberList(object))
        return;
    asList(object).ended = true;
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(object); ++i)
        end(PyList_GET_ITEM(object, i));
}

constexpr Py_ssize_t everyIndex = -1;

// Takes the items from the member as it is. Inner lists end, all or the one at the index; the others stay.
void refresh(MemberList& self, Py_ssize_t changedIndex)
{
    const py::object outermost = readMember(self.place);
    PyObject* const fresh = innerList(outermost, self.place).ptr();
    PyListObject& old = asList(fresh).list; // gets the items that are here, and frees them
    std::swap(self.list.ob_item, old.ob_item);
    std::swap(self.list.allocated, old.allocated);
    const Py_ssize_t size = Py_SIZE(&self.list);
    Py_SET_SIZE(&self.list, Py_SIZE(&old));
    Py_SET_SIZE(&old, size);
    const bool sameSize = Py_SIZE(&self.list) == size;
    for (Py_ssize_t i = 0; i < size; ++i) {
        if (sameSize && changedIndex != everyIndex && i != changedIndex && isMemberList(old.ob_item[i]))
            std::swap(self.list.ob_item[i], old.ob_item[i]);
        else
            end(old.ob_item[i]);
    }
}

void requireChangeable(const MemberList& self)
{
    if (!self.place.source->writable)
        throw py::attribute_error(nameOf(self.place) + ": the member is read-only");
    if (self.ended)
        throw std::runtime_error("This list is part of " + dotted(self.place.source->what) +
                                 " no more, since a list around it changed: read the member again");
}

py::object callPython(const py::object& function, const py::tuple& arguments, const py::dict& keywords)
{
    auto result = py::reinterpret_steal<py::object>(
        withoutUnwinding([&] { return PyObject_Call(function.ptr(), arguments.ptr(), keywords.ptr()); }));
    if (!result)
        throw py::error_already_set();
    return result;
}

// Does to the member what `method` does to a plain list.
py::object change(MemberList& self, const char* method, const py::tuple& arguments, const py::dict& keywords,
                  Py_ssize_t changedIndex = everyIndex)
{
    requireChangeable(self);
    const ListPlace& place = self.place;
    const py::list outermost = plainCopy(readMember(place), place.source->shape.levels);
    const auto list = py::reinterpret_borrow<py::list>(innerList(outermost, place));
    const std::size_t size = list.size();
    py::object result = callPython(list.attr(method), arguments, keywords);
    const std::size_t fixed = place.source->shape.fixed[place.depth];
    if (fixed != 0 && list.size() != size)
        throw py::type_error(nameOf(place) + ": it always has " + std::to_string(fixed) +
                             " elements; they can be replaced, but none added or removed");
    py::setattr(place.owner, place.source->attribute, outermost);
    refresh(self, changedIndex);
    return result;
}

// Shows the element's new object in every list that has the old one.
void replaceEverywhere(const py::object& old, const ListPlace& place, std::size_t index)
{
    const py::object outermost = readMember(place);
    PyObject* const fresh = PyList_GET_ITEM(innerList(outermost, place).ptr(), static_cast<Py_ssize_t>(index));
    for (MemberList* const list : listsOfDescribed())
        for (Py_ssize_t i = 0; i < Py_SIZE(&list->list); ++i)
            if (list->list.ob_item[i] == old.ptr()) {
                Py_INCREF(fresh);
                list->list.ob_item[i] = fresh;
                Py_DECREF(old.ptr()); // `old` itself keeps it alive
            }
}

// An element of a described class gets another value: a script's object of it keeps the old one.
void replaceDescribed(const ListPlace& place, void* element, const ValueOps& ops, std::size_t index, py::handle value)
{
    const ClassOps& members = ops.reflected();
    if (loadInstance(value, *members.type) == element)
        return;
    void* before = members.copy != nullptr ? members.copy(element) : nullptr;
    const util::ScopeGuard discard([&] {
        if (before != nullptr)
            members.discard(before);
    });
    loadValue(element, ops, value, nameOf(place.inner(index)));
    if (before == nullptr)
        return;
    if (const py::object old = handOver(element, *members.type, before)) {
        before = nullptr; // owned by `old`
        replaceEverywhere(old, place, index);
    }
}

// The index from the front.
std::size_t indexIn(const ListPlace& place, Py_ssize_t index, std::size_t size)
{
    const Py_ssize_t normal = index < 0 ? index + static_cast<Py_ssize_t>(size) : index;
    if (normal < 0 || normal >= static_cast<Py_ssize_t>(size))
        throwIndex(place, size);
    return static_cast<std::size_t>(normal);
}

// An element, or a part of the array that keeps its shape. False for a part of another shape.
bool setTensorElement(MemberList& self, void* tensor, const TensorOps& ops, Py_ssize_t at, py::handle value)
{
    const ListPlace& place = self.place;
    const std::span<const std::uint64_t> dimensions = ops.dimensions(tensor);
    const auto size = static_cast<std::size_t>(dimensions[place.depth]);
    const std::size_t index = indexIn(place, at, size);
    const ListPlace inner = place.inner(index);
    py::object item;
    if (place.depth + 1U == dimensions.size()) {
        const std::size_t offset = place.offset(dimensions) + index;
        if (!ops.loadElement(tensor, offset, value))
            throwWrongValue(nameOf(inner), ops.elementExpectation(), value);
        item = ops.element(tensor, offset);
    } else {
        const auto rest = dimensions.subspan(inner.depth);
        if (!ops.loadPart(tensor, inner.offset(dimensions), {rest.begin(), rest.end()}, value))
            return false;
        item = ops.lists(tensor, inner);
    }
    if (static_cast<std::size_t>(Py_SIZE(&self.list)) != size) {
        refresh(self, everyIndex);
        return true;
    }
    const auto old = py::reinterpret_steal<py::object>(std::exchange(self.list.ob_item[index], item.release().ptr()));
    end(old.ptr());
    return true;
}

// An element where it is in memory.
struct Element {
    void* address = nullptr; // null when it can't be reached
    const ValueOps* ops = nullptr;
    std::size_t index = 0;
    bool stays = true; // whatever Python's code does, as all lists on the way have a fixed size
};

Element elementAt(const ListPlace& place, void* container, const ValueOps* list, Py_ssize_t at)
{
    Element result;
    for (std::size_t i = 0; list->elements != nullptr; ++i) {
        const ElementsOps& elements = *list->elements;
        const std::size_t count = elements.count(container);
        result.index = i < place.depth ? place.path[i] : indexIn(place, at, count);
        if (result.index >= count)
            throw py::index_error(nameOf(place) + ": the member has no such list any more");
        result.stays = result.stays && elements.fixed;
        container = static_cast<char*>(elements.first(container)) + result.index * elements.size;
        list = elements.element;
        if (i == place.depth) {
            result.address = container;
            result.ops = list;
            break;
        }
    }
    return result;
}

// Sets one element where it is in memory. False when that can't be done: the whole member is assigned then.
bool setInPlace(MemberList& self, Py_ssize_t at, py::handle value)
{
    const ListPlace& place = self.place;
    const MemberOps* const member = place.source->member;
    if (member == nullptr || member->convertedSet != nullptr)
        return false;
    void* const object = loadInstance(place.owner, *place.source->owner->type);
    if (object == nullptr)
        return false;
    void* const field = member->address(object);
    if (member->value->tensor != nullptr)
        return setTensorElement(self, field, *member->value->tensor, at, value);
    const Element element = elementAt(place, field, member->value, at);
    if (element.address == nullptr)
        return false;
    const ValueOps& ops = *element.ops;
    const std::string what = nameOf(place.inner(element.index));
    if (ops.reflected != nullptr && loadInstance(value, *ops.reflected().type) != nullptr) {
        replaceDescribed(place, element.address, ops, element.index, value);
    } else if (element.stays) {
        loadValue(element.address, ops, value, what);
    } else { // a conversion that runs Python's code may move it
        const std::shared_ptr<void> changed = ops.clone(element.address);
        loadValue(changed.get(), ops, value, what);
        ops.assign(elementAt(place, field, member->value, at).address, changed.get());
    }
    refresh(self, static_cast<Py_ssize_t>(element.index));
    return true;
}

void setItem(MemberList& self, Py_ssize_t index, py::handle value)
{
    requireChangeable(self);
    if (!setInPlace(self, index, value))
        change(self, "__setitem__", py::make_tuple(index, value), py::dict(),
               index < 0 ? index + Py_SIZE(&self.list) : index);
}

// ---- the Python type ----------------------------------------------------------------------------------------------

// What C++ threw, as Python's error.
template <class Result, class Body>
Result guarded(Result failed, Body body)
{
    try {
        return body();
    } catch (py::error_already_set& e) {
        e.restore();
    } catch (const py::builtin_exception& e) {
        e.set_error();
    } catch (const std::invalid_argument& e) {
        PyErr_SetString(PyExc_ValueError, e.what());
    } catch (const std::exception& e) {
        PyErr_SetString(PyExc_RuntimeError, e.what());
    }
    return failed;
}

int assignSubscript(PyObject* self, PyObject* key, PyObject* value)
{
    return guarded(-1, [&] {
        if (value != nullptr && PyIndex_Check(key) != 0) {
            const Py_ssize_t index = PyNumber_AsSsize_t(key, PyExc_IndexError);
            if (index == -1 && PyErr_Occurred() != nullptr)
                throw py::error_already_set();
            setItem(asList(self), index, value);
        } else if (value != nullptr) {
            change(asList(self), "__setitem__", py::make_tuple(py::handle(key), py::handle(value)), py::dict());
        } else {
            change(asList(self), "__delitem__", py::make_tuple(py::handle(key)), py::dict());
        }
        return 0;
    });
}

int assignItem(PyObject* self, Py_ssize_t index, PyObject* value)
{
    return guarded(-1, [&] {
        if (value != nullptr)
            setItem(asList(self), index, value);
        else
            change(asList(self), "__delitem__", py::make_tuple(index), py::dict());
        return 0;
    });
}

PyObject* extendInPlace(PyObject* self, PyObject* items)
{
    return guarded<PyObject*>(nullptr, [&] {
        change(asList(self), "extend", py::make_tuple(py::handle(items)), py::dict());
        return py::handle(self).inc_ref().ptr();
    });
}

PyObject* repeatInPlace(PyObject* self, Py_ssize_t times)
{
    return guarded<PyObject*>(nullptr, [&] {
        change(asList(self), "__imul__", py::make_tuple(times), py::dict());
        return py::handle(self).inc_ref().ptr();
    });
}

struct Append {
    static constexpr const char* name = "append";
};
struct Clear {
    static constexpr const char* name = "clear";
};
struct Extend {
    static constexpr const char* name = "extend";
};
struct Insert {
    static constexpr const char* name = "insert";
};
struct Pop {
    static constexpr const char* name = "pop";
};
struct Remove {
    static constexpr const char* name = "remove";
};
struct Reverse {
    static constexpr const char* name = "reverse";
};
struct Sort {
    static constexpr const char* name = "sort";
};

template <class Method>
PyObject* callMethod(PyObject* self, PyObject* arguments, PyObject* keywords)
{
    return guarded<PyObject*>(nullptr, [&] {
        return change(asList(self), Method::name, py::reinterpret_borrow<py::tuple>(arguments),
                      keywords != nullptr ? py::reinterpret_borrow<py::dict>(keywords) : py::dict())
            .release()
            .ptr();
    });
}

template <class Method>
PyMethodDef methodDef()
{
    return {Method::name, reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(&callMethod<Method>)),
            METH_VARARGS | METH_KEYWORDS, "As list's, and changes the member."};
}

PyObject* plainSlice(PyObject* self) { return PyList_GetSlice(self, 0, PyList_GET_SIZE(self)); }

PyObject* copyList(PyObject* self, PyObject*) { return plainSlice(self); }

PyObject* deepCopyList(PyObject* self, PyObject* memo)
{
    return guarded<PyObject*>(nullptr, [&] {
        const auto plain = py::reinterpret_steal<py::object>(plainSlice(self));
        const py::object deepcopy = py::module_::import("copy").attr("deepcopy");
        return callPython(deepcopy, py::make_tuple(plain, py::handle(memo)), py::dict()).release().ptr();
    });
}

PyObject* reduceList(PyObject* self, PyObject*)
{
    return guarded<PyObject*>(nullptr, [&] {
        const auto plain = py::reinterpret_steal<py::object>(plainSlice(self));
        return py::make_tuple(py::handle(reinterpret_cast<PyObject*>(&PyList_Type)), py::make_tuple(plain))
            .release()
            .ptr();
    });
}

PyObject* refuseNew(PyTypeObject*, PyObject*, PyObject*)
{
    PyErr_SetString(PyExc_TypeError, "a member's list is made by reading the member");
    return nullptr;
}

int refuseInit(PyObject* self, PyObject*, PyObject*)
{
    static_cast<void>(refuseNew(Py_TYPE(self), nullptr, nullptr));
    return -1;
}

void deallocate(PyObject* self)
{
    PyObject_GC_UnTrack(self);
    if (asList(self).holdsDescribed)
        listsOfDescribed().erase(&asList(self));
    Py_CLEAR(asList(self).place.owner);
    PyList_Type.tp_dealloc(self);
}

int traverse(PyObject* self, visitproc visit, void* arg)
{
    Py_VISIT(asList(self).place.owner);
    return PyList_Type.tp_traverse(self, visit, arg);
}

PyTypeObject makeListType()
{
    static PyMethodDef methods[] = {methodDef<Append>(),
                                    methodDef<Clear>(),
                                    methodDef<Extend>(),
                                    methodDef<Insert>(),
                                    methodDef<Pop>(),
                                    methodDef<Remove>(),
                                    methodDef<Reverse>(),
                                    methodDef<Sort>(),
                                    {"__copy__", &copyList, METH_NOARGS, "A plain list."},
                                    {"__deepcopy__", &deepCopyList, METH_O, "A plain list of copies."},
                                    {"__reduce_ex__", &reduceList, METH_O, "Pickled as a plain list."},
                                    {nullptr, nullptr, 0, nullptr}};
    static PyMappingMethods mapping{nullptr, nullptr, &assignSubscript};
    static PySequenceMethods sequence{};
    sequence.sq_ass_item = &assignItem;
    sequence.sq_inplace_concat = &extendInPlace;
    sequence.sq_inplace_repeat = &repeatInPlace;
    PyTypeObject type{};
    Py_SET_REFCNT(&type, 1);
    type.tp_name = "vorna.MemberList";
    type.tp_doc = "A list member as it was read. What changes the list changes the member.";
    type.tp_basicsize = sizeof(MemberList);
    type.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC;
    type.tp_base = &PyList_Type;
    type.tp_new = &refuseNew;
    type.tp_init = &refuseInit;
    type.tp_dealloc = &deallocate;
    type.tp_traverse = &traverse;
    type.tp_clear = PyList_Type.tp_clear;
    type.tp_as_mapping = &mapping;
    type.tp_as_sequence = &sequence;
    type.tp_methods = methods;
    return type;
}

PyTypeObject& listType()
{
    static PyTypeObject* const ready = [] {
        static PyTypeObject type = makeListType();
        if (PyType_Ready(&type) != 0)
            throw py::error_already_set();
        return &type;
    }();
    return *ready;
}

} // namespace

std::size_t ListPlace::offset(std::span<const std::uint64_t> dimensions) const
{
    std::uint64_t result = 0;
    for (std::size_t i = 0; i < dimensions.size(); ++i) {
        if (i < depth && path[i] >= dimensions[i])
            throw py::index_error(nameOf(*this) + ": the member has no such list any more");
        result = result * dimensions[i] + (i < depth ? path[i] : 0);
    }
    return static_cast<std::size_t>(result);
}

bool isMemberList(py::handle object) { return Py_TYPE(object.ptr()) == &listType(); }

PyObject* newMemberList(const ListPlace& place, Py_ssize_t size)
{
    auto* const self = PyObject_GC_New(MemberList, &listType());
    if (self == nullptr)
        return nullptr;
    self->list.ob_item = nullptr;
    self->list.allocated = 0;
    Py_SET_SIZE(&self->list, 0);
    new (&self->place) ListPlace(place);
    Py_INCREF(place.owner);
    self->ended = false;
    self->holdsDescribed = false;
    auto* const object = reinterpret_cast<PyObject*>(self);
    if (size > 0) {
        self->list.ob_item = static_cast<PyObject**>(PyMem_Calloc(static_cast<std::size_t>(size), sizeof(PyObject*)));
        if (self->list.ob_item == nullptr) {
            Py_DECREF(object);
            return PyErr_NoMemory();
        }
        self->list.allocated = size;
        Py_SET_SIZE(&self->list, size);
    }
    return object;
}

void finishMemberList(PyObject* list, bool ofNumbers)
{
    if (!ofNumbers || PyObject_IS_GC(asList(list).place.owner))
        PyObject_GC_Track(list);
}

py::object asMemberList(py::object plain, const ListPlace& place)
{
    if (!PyList_CheckExact(plain.ptr()))
        return plain;
    auto list = py::reinterpret_steal<py::object>(newMemberList(place, 0));
    if (!list)
        throw py::error_already_set();
    auto& from = *reinterpret_cast<PyListObject*>(plain.ptr());
    MemberList& self = asList(list.ptr());
    if (Py_REFCNT(plain.ptr()) != 1)
        return asMemberList(plainCopy(plain, 1), place); // somebody else's
    std::swap(self.list.ob_item, from.ob_item);
    std::swap(self.list.allocated, from.allocated);
    Py_SET_SIZE(&self.list, Py_SIZE(&from));
    Py_SET_SIZE(&from, 0);
    if (place.depth + 1 < place.source->shape.levels)
        for (Py_ssize_t i = 0; i < Py_SIZE(&self.list); ++i) {
            auto inner = py::reinterpret_steal<py::object>(std::exchange(self.list.ob_item[i], nullptr));
            inner = asMemberList(std::move(inner), place.inner(static_cast<std::size_t>(i)));
            self.list.ob_item[i] = inner.release().ptr();
        }
    finishMemberList(list.ptr(), false);
    self.holdsDescribed = holdsDescribed(place);
    if (self.holdsDescribed)
        listsOfDescribed().insert(&self);
    return list;
}

} // namespace trovi::python
