// Python classes of the event graph and its nodes.

#include <memory>

#include <pybind11/numpy.h>

#include "davis/event/DvsEvent.h"
#include "graph/EventFilterGraph.h"
#include "graph/nodes/BufferSinkNode.h"
#include "graph/nodes/EventCounterSink.h"
#include "graph/nodes/EventCropNode.h"
#include "graph/nodes/EventDecimateNode.h"
#include "graph/nodes/EventRescaleNode.h"
#include "graph/nodes/SplittingNode.h"
#include "python/EventArrays.h"
#include "trovi/python/Local.h"

namespace py = pybind11;
using davis::event::DvsEvent;

template <>
inline constexpr bool trovi::python::ownsThreads<graph::EventFilterGraph> = true;

namespace {

using BufferSink = graph::nodes::BufferSinkNode<DvsEvent>;

// The array refers to the events where the sink gathered them, and owns them.
py::array eventArray(BufferSink& sink)
{
    auto events = std::make_unique<std::vector<DvsEvent>>();
    {
        const py::gil_scoped_release release;
        *events = sink.getBuf();
    }
    const auto names = py::make_tuple("x", "y", "polarity", "timestamp");
    const auto formats = py::make_tuple("u2", "u2", "?", "i8");
    const auto offsets = py::make_tuple(offsetof(DvsEvent, x), offsetof(DvsEvent, y), offsetof(DvsEvent, polarity),
                                        offsetof(DvsEvent, timestamp));
    const py::dtype type(py::list(names), py::list(formats), py::list(offsets), sizeof(DvsEvent));
    std::vector<DvsEvent>* const kept = events.get();
    const py::capsule owner(events.release(), [](void* p) { delete static_cast<std::vector<DvsEvent>*>(p); });
    return py::array(type, {kept->size()}, {sizeof(DvsEvent)}, kept->data(), owner);
}

} // namespace

VORNA_BIND_LOCAL(ondra::NodeInterface)
VORNA_BIND_LOCAL(graph::nodes::EventCropNode<DvsEvent>)
VORNA_BIND_LOCAL(graph::nodes::EventDecimateNode<DvsEvent>)
VORNA_BIND_LOCAL(graph::nodes::EventRescaleNode<DvsEvent>)
VORNA_BINDING("trovi_bind_local_type_" + trovi::registeredName<BufferSink>(), [](py::module_& m) {
    trovi::python::Local<BufferSink>::bindClass(m, [](auto& cls) {
        cls.def(
            "get_buf_array", &eventArray,
            "As get_buf, but as one numpy array with the fields x, y, polarity and timestamp. No event is copied, and "
            "no Python object is made for each, so this is the form for much data. Needs numpy.");
    });
    trovi::python::addAlias<BufferSink>(m, "graph::nodes");
})
VORNA_BIND_LOCAL_ALIASED("graph::nodes", graph::nodes::EventCounterSink<DvsEvent>)
VORNA_BIND_LOCAL_ALIASED("graph::nodes", graph::nodes::SplittingNode<DvsEvent>)
VORNA_BIND_LOCAL_WITH(graph::EventFilterGraph, [](auto& cls) {
    cls.def("__enter__", [](py::object self) { return self; });
    cls.def("__exit__", [](graph::EventFilterGraph& self, const py::args&) {
        const py::gil_scoped_release release;
        self.stop();
    });
})
VORNA_BIND_FREE_FUNCTION("graph::nodes::detail::rescalingCoefficient", &graph::nodes::detail::rescalingCoefficient,
                         "The coefficients that map a sensor of a x b pixels to one of c x d: (a / c, b / d).",
                         "a, b, c, d")
