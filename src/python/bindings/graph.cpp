// Python classes of the event graph and its nodes.

#include "davis/event/DvsEvent.h"
#include "graph/EventFilterGraph.h"
#include "graph/nodes/EventCounterSink.h"
#include "graph/nodes/EventCropNode.h"
#include "graph/nodes/EventDecimateNode.h"
#include "graph/nodes/EventRescaleNode.h"
#include "graph/nodes/EventSourceNode.h"
#include "graph/nodes/SplittingNode.h"
#include "python/EventArrays.h"
#include "python/EventSinks.h"
#include "trovi/python/GilRelease.h"
#include "trovi/python/Local.h"

namespace py = pybind11;
using davis::event::DvsEvent;

template <>
inline constexpr bool trovi::python::ownsThreads<graph::EventFilterGraph> = true;

VORNA_BIND_LOCAL(ondra::NodeInterface)
VORNA_BIND_LOCAL(graph::nodes::EventCropNode<DvsEvent>)
VORNA_BIND_LOCAL(graph::nodes::EventDecimateNode<DvsEvent>)
VORNA_BIND_LOCAL(graph::nodes::EventRescaleNode<DvsEvent>)
VORNA_BIND_LOCAL(graph::nodes::EventSourceNode<DvsEvent>)
VORNA_BIND_EVENT_SINK(DvsEvent)
VORNA_BIND_LOCAL_ALIASED("graph::nodes", graph::nodes::EventCounterSink<DvsEvent>)
VORNA_BIND_LOCAL_ALIASED("graph::nodes", graph::nodes::SplittingNode<DvsEvent>)
VORNA_BIND_LOCAL_WITH(graph::EventFilterGraph, [](auto& cls) {
    cls.def("__enter__", [](py::object self) { return self; });
    cls.def("__exit__", [](graph::EventFilterGraph& self, const py::args&) {
        const trovi::python::GilRelease release;
        self.stop();
    });
})
VORNA_BIND_FREE_FUNCTION("graph::nodes::detail::rescalingCoefficient", &graph::nodes::detail::rescalingCoefficient,
                         "The coefficients that map a sensor of a x b pixels to one of c x d: (a / c, b / d).",
                         "a, b, c, d")
