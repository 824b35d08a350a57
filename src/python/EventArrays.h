#pragma once
// Events to and from numpy, without a Python object for each event. numpy itself is imported only when an array is
// asked for. Include this in every binding file that passes vectors of events: it changes how they are converted.

#include <cstddef>
#include <cstring>
#include <string_view>
#include <vector>

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "davis/event/DvsEvent.h"

namespace vorna_python {

/// The memory of a DvsEvent as the buffer protocol spells it. numpy calls its 64-bit integers l, others q.
inline constexpr std::string_view dvsEventFormat = "T{H:x:H:y:?:polarity:xxxl:timestamp:}";
inline constexpr std::string_view dvsEventFormatOfOthers = "T{H:x:H:y:?:polarity:xxxq:timestamp:}";
static_assert(sizeof(davis::event::DvsEvent) == 16 && offsetof(davis::event::DvsEvent, y) == 2 &&
              offsetof(davis::event::DvsEvent, polarity) == 4 && offsetof(davis::event::DvsEvent, timestamp) == 8);

/// True when `buffer` is a contiguous row of events: 16 bytes each, with the fields where they lie in memory.
inline bool holdsEvents(const Py_buffer& buffer)
{
    return buffer.ndim == 1 && buffer.itemsize == sizeof(davis::event::DvsEvent) && buffer.format != nullptr &&
           (buffer.format == dvsEventFormat || buffer.format == dvsEventFormatOfOthers) &&
           (buffer.len == 0 || buffer.strides == nullptr || buffer.strides[0] == buffer.itemsize);
}

} // namespace vorna_python

// A vector of events is taken from any sequence of DvsEvent, and from an array that has their layout.
template <>
struct pybind11::detail::type_caster<std::vector<davis::event::DvsEvent>>
    : list_caster<std::vector<davis::event::DvsEvent>, davis::event::DvsEvent> {
    using Base = list_caster<std::vector<davis::event::DvsEvent>, davis::event::DvsEvent>;

    bool load(handle source, bool convert)
    {
        if (PyObject_CheckBuffer(source.ptr()) == 0)
            return Base::load(source, convert);
        Py_buffer buffer;
        if (PyObject_GetBuffer(source.ptr(), &buffer, PyBUF_STRIDES | PyBUF_FORMAT) != 0) {
            PyErr_Clear();
            return false;
        }
        const bool fits = vorna_python::holdsEvents(buffer);
        if (fits) {
            // The polarity is read as a byte: an array may hold any, and a bool only 0 or 1.
            constexpr std::size_t size = sizeof(davis::event::DvsEvent);
            const auto* bytes = static_cast<const unsigned char*>(buffer.buf);
            value.resize(static_cast<std::size_t>(buffer.len) / size);
            for (davis::event::DvsEvent& event : value) {
                std::memcpy(&event.x, bytes, sizeof event.x);
                std::memcpy(&event.y, bytes + 2, sizeof event.y);
                event.polarity = bytes[4] != 0;
                std::memcpy(&event.timestamp, bytes + 8, sizeof event.timestamp);
                bytes += size;
            }
        }
        PyBuffer_Release(&buffer);
        return fits;
    }
};
