#pragma once
// Adds get_buf_array to the Python class of a sink: its events as one numpy array, without a Python object for each.
// numpy itself is imported only when an array is asked for.

#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "graph/nodes/BufferSinkNode.h"
#include "trovi/python/GilRelease.h"
#include "trovi/python/Local.h"
#include "trovi/python/NumpyArray.h"

namespace vorna_python {

/// As numpy spells it: "u2", "i8", "?".
template <class T>
std::string numpyFormat()
{
    if constexpr (std::is_same_v<T, bool>)
        return "?";
    else
        return (std::is_signed_v<T> ? "i" : "u") + std::to_string(sizeof(T));
}

/// One field for each described member, where it lies in memory.
template <class Event>
pybind11::dict eventDtype()
{
    namespace py = pybind11;
    py::list names, formats, offsets;
    const Event event{};
    trovi::forEach(trovi::MetaHolder<Event>::members, [&](const auto& member) {
        const auto& value = event.*(member.field);
        names.append(trovi::pythonName(member.name));
        formats.append(numpyFormat<std::remove_cvref_t<decltype(value)>>());
        offsets.append(reinterpret_cast<const char*>(&value) - reinterpret_cast<const char*>(&event));
    });
    using py::literals::operator""_a;
    return py::dict("names"_a = names, "formats"_a = formats, "offsets"_a = offsets, "itemsize"_a = sizeof(Event));
}

/// The array refers to the events where the sink gathered them, and owns them.
template <class Event>
trovi::python::NumpyArray eventArray(graph::nodes::BufferSinkNode<Event>& sink)
{
    namespace py = pybind11;
    auto events = std::make_unique<std::vector<Event>>();
    {
        const trovi::python::GilRelease release;
        *events = sink.getBuf();
    }
    std::vector<Event>* const kept = events.get();
    const py::capsule owner(events.release(), [](void* p) { delete static_cast<std::vector<Event>*>(p); });
    return {kept->data(), kept->size() * sizeof(Event), eventDtype<Event>(), py::make_tuple(kept->size()), owner, true};
}

/// Binds the sink, get_buf_array with it, and its alias in graph.nodes.
template <class Event>
void bindEventSink(pybind11::module_& module)
{
    using Sink = graph::nodes::BufferSinkNode<Event>;
    trovi::python::Local<Sink>::bindClass(module, [](auto& cls) {
        std::string doc = "As get_buf, but as one numpy array with the fields ";
        trovi::forEach(trovi::MetaHolder<Event>::members,
                       [&doc](const auto& member) { doc += trovi::pythonName(member.name) + ", "; });
        doc.replace(doc.size() - 2, 1, ".");
        doc += "No event is copied, and no Python object is made for each, so this is the form for much data. "
               "Needs numpy.";
        cls.def("get_buf_array", &eventArray<Event>, doc.c_str());
    });
    trovi::python::addAlias<Sink>(module, "graph::nodes");
}

} // namespace vorna_python

#define VORNA_BIND_EVENT_SINK(...)                                                                                 \
    VORNA_BINDING("trovi_bind_local_type_" + ::trovi::registeredName<graph::nodes::BufferSinkNode<__VA_ARGS__>>(), \
                  [](::pybind11::module_& m) { ::vorna_python::bindEventSink<__VA_ARGS__>(m); })
