#pragma once
// What keeps Python's references into a list or dict member valid.
//
// An element of a described class is shown to Python as an object that refers into the container. Such an object keeps
// the container's "element owner" alive, which in turn keeps the object alive that has the container. When the member
// is replaced (assigned, filled from a dict, read from a file) while an element owner lives, it takes the old content
// over, at its old address, and the member goes on with content of its own. So an element that a script got before
// stays as it was, but no longer belongs to the member. The old content is freed with the last such element.
//
// What a function of the class itself does to its containers is not seen here: a function that is registered must not
// take elements away that a script may hold.
//
// Threads: everything needs the interpreter lock.

#include <cstddef>
#include <memory>
#include <typeinfo>
#include <utility>

#include <pybind11/pybind11.h>

namespace trovi::python {

namespace py = pybind11;

/// Moves a container's content out, without moving any element in memory, and leaves a copy in its place.
using TakeContent = std::shared_ptr<void> (*)(void* container);

template <class V>
std::shared_ptr<void> takeContent(void* container)
{
    auto& content = *static_cast<V*>(container);
    V copy = content;
    auto taken = std::make_shared<V>(std::move(content));
    content = std::move(copy);
    return taken;
}

/// What the elements of `container` keep alive; the same object while any of them lives.
py::object elementOwner(void* container, py::handle owner, TakeContent take);

/// To be called before anything in the memory at `begin` is replaced.
void setElementsAside(const void* begin, std::size_t size);

/// Python's object for the element at that address gets `copy`, which it owns from now on, as its value.
/// @return the object; none when Python has no object for the element, and then `copy` stays the caller's
py::object handOver(const void* element, const std::type_info& type, void* copy);

} // namespace trovi::python
