#pragma once
// The list that reading a list member gives. It is Python's own list, with the values as they were read, and what
// changes it changes the member:
//
//   layer.destinations[1] = {"enable": True}
//   layer.weights[0][0][1][2] = 5
//   layer.biases.append(7)
//
// A change is made to the member as it is now, with the checks and texts of assigning the member, and the list then
// shows what the member holds. When the member refuses, both are as they were. So two lists of one member may be used
// in turn, and a list that was read before the member got another value changes the new value. An index that the member
// no longer has raises IndexError.
//
// An inner list refers to its place. When its outer list changes, other than at one other index, it ends: it then
// raises RuntimeError. An element of a described class is replaced as in any list: a script's object of the element
// that was there stays as it was, and no longer belongs to it. A dict changes the element that is there.
//
// Copies of every kind (slices, copy, deepcopy, pickle, list(x)) are plain lists.
//
// Threads: everything needs the interpreter lock.

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include <pybind11/pybind11.h>

namespace trovi::python {

namespace py = pybind11;

/// How deep the lists of a type are nested, and which of them can't change their length.
struct ListShape {
    static constexpr std::size_t maxLevels = 5;

    std::uint8_t levels = 0;
    std::array<std::size_t, maxLevels> fixed{}; ///< a level's only length; 0 for any
};

struct ClassOps;
struct MemberOps;

/// The member that lists belong to; lives as long as its class.
struct ListSource {
    std::string what;  ///< "tessel::configuration::CNNLayerConfig.weights", for error texts
    py::str attribute; ///< of the owner
    ListShape shape;
    bool writable = true;
    const ClassOps* owner = nullptr;   ///< null for a member on another node
    const MemberOps* member = nullptr; ///< as `owner`
};

/// One list of a member: the outermost, or an inner one with the indices that lead to it.
struct ListPlace {
    PyObject* owner = nullptr; ///< borrowed; a list holds its own reference
    const ListSource* source = nullptr;
    std::uint8_t depth = 0;
    std::array<std::uint32_t, ListShape::maxLevels> path{};

    /// Where the list begins in an array of this shape.
    /// @throws py::index_error when the array has no such list
    std::size_t offset(std::span<const std::uint64_t> dimensions) const;

    ListPlace inner(std::size_t index) const
    {
        ListPlace result = *this;
        result.path[result.depth++] = static_cast<std::uint32_t>(index);
        return result;
    }
};

/// A list of `size` null items at the place, to be filled and then finished; null with a Python error set when memory
/// ends.
PyObject* newMemberList(const ListPlace& place, Py_ssize_t size);

/// To be called for a list that is filled. The garbage collector then sees it. A list of numbers whose owner the
/// collector doesn't see can't be part of a cycle, so it is left out.
void finishMemberList(PyObject* list, bool ofNumbers);

/// The plain list, and the lists in it as deep as the member's type goes, as lists of the member.
py::object asMemberList(py::object plain, const ListPlace& place);

bool isMemberList(py::handle object);

} // namespace trovi::python
