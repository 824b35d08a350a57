#include "trovi/python/ArrayCaster.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string_view>
#include <type_traits>

#include "trovi/python/NumpyArray.h"

namespace trovi::python {
namespace {

template <class T>
struct Element;
template <>
struct Element<signed char> {
    static constexpr char format = 'b'; // the letter of the buffer protocol
    static constexpr const char* text = "int in [-128, 127]";
    static constexpr const char* array = "int8";
};
template <>
struct Element<short> {
    static constexpr char format = 'h';
    static constexpr const char* text = "int in [-32768, 32767]";
    static constexpr const char* array = "int16";
};
template <>
struct Element<bool> {
    static constexpr char format = '?';
    static constexpr const char* text = "bool";
    static constexpr const char* array = "bool";
};

// ---- buffers -----------------------------------------------------------------------------------------------------

class Buffer {
public:
    explicit Buffer(py::handle source) : held(PyObject_GetBuffer(source.ptr(), &view, PyBUF_RECORDS_RO) == 0)
    {
        if (!held)
            PyErr_Clear(); // what can't be shown with strides isn't taken
    }
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;
    ~Buffer()
    {
        if (held)
            PyBuffer_Release(&view);
    }

    bool isHeld() const { return held; }
    std::size_t rank() const { return static_cast<std::size_t>(view.ndim); }
    std::uint64_t size(std::size_t level) const { return static_cast<std::uint64_t>(view.shape[level]); }
    Py_ssize_t stride(std::size_t level) const { return view.strides[level]; }
    const char* begin() const { return static_cast<const char*>(view.buf); }
    const char* format() const { return view.format != nullptr ? view.format : "B"; }

    template <class T>
    bool holds() const
    {
        std::string_view text = format();
        constexpr char native = std::endian::native == std::endian::little ? '<' : '>';
        if (text.starts_with('@') || text.starts_with('=') || text.starts_with(native))
            text.remove_prefix(1);
        return text.size() == 1 && text[0] == Element<T>::format && view.itemsize == static_cast<Py_ssize_t>(sizeof(T));
    }
    template <class T>
    bool isBlock() const
    {
        return PyBuffer_IsContiguous(&view, 'C') != 0 && std::bit_cast<std::uintptr_t>(view.buf) % alignof(T) == 0;
    }

private:
    Py_buffer view{};
    bool held;
};

template <class T, class Iterator = typename std::vector<T>::iterator>
Iterator copyStrided(const Buffer& buffer, const char* from, std::size_t level, Iterator out)
{
    const std::uint64_t size = buffer.size(level);
    const Py_ssize_t stride = buffer.stride(level);
    if (level + 1 < buffer.rank()) {
        for (std::uint64_t i = 0; i < size; ++i, from += stride)
            out = copyStrided<T>(buffer, from, level + 1, out);
        return out;
    }
    for (std::uint64_t i = 0; i < size; ++i, from += stride) {
        if constexpr (std::is_same_v<T, bool>) {
            *out++ = *from != 0;
        } else {
            T element;
            std::memcpy(&element, from, sizeof element); // an element of a view may lie at any address
            *out++ = element;
        }
    }
    return out;
}

template <class T>
bool loadBuffer(py::handle source, std::span<std::uint64_t> dimensions, std::vector<T>& data)
{
    const Buffer buffer(source);
    if (!buffer.isHeld() || buffer.rank() != dimensions.size() || !buffer.holds<T>())
        return false;
    std::vector<std::uint64_t> shape(dimensions.size());
    bool empty = false; // as nested lists show it: no sizes below a size of zero
    for (std::size_t i = 0; i < shape.size(); ++i) {
        shape[i] = empty ? 0 : buffer.size(i);
        empty = shape[i] == 0;
    }
    const auto count = static_cast<std::size_t>(util::tensor::elementCount(shape));
    util::tensor::detail::checkShape(shape, count);
    if (std::is_same_v<T, bool> || !buffer.isBlock<T>()) {
        std::vector<T> copy(count);
        if (count > 0)
            copyStrided<T>(buffer, buffer.begin(), 0, copy.begin());
        data = std::move(copy);
    } else {
        const auto* const first = static_cast<const T*>(static_cast<const void*>(buffer.begin()));
        data.assign(first, first + count);
    }
    std::ranges::copy(shape, dimensions.begin());
    return true;
}

// ---- nested sequences --------------------------------------------------------------------------------------------

template <class T>
bool loadIndex(PyObject* source, T& element)
{
    int overflow = 0;
    const long number = PyLong_AsLongAndOverflow(source, &overflow);
    if (overflow != 0 || (number == -1 && PyErr_Occurred() != nullptr)) {
        PyErr_Clear();
        return false;
    }
    if (number < std::numeric_limits<T>::min() || number > std::numeric_limits<T>::max())
        return false;
    element = static_cast<T>(number);
    return true;
}

// What Python takes as an index: no float. For a bool, True and False (numpy's too), or 0 and 1.
template <class T>
bool loadElement(PyObject* source, T& element)
{
    if constexpr (std::is_same_v<T, bool>) {
        if (PyBool_Check(source)) {
            element = source == Py_True;
            return true;
        }
        const std::string_view type = Py_TYPE(source)->tp_name;
        if (type == "numpy.bool_" || type == "numpy.bool") {
            const int truth = PyObject_IsTrue(source);
            element = truth == 1;
            if (truth < 0)
                PyErr_Clear();
            return truth >= 0;
        }
    }
    if (PyLong_CheckExact(source))
        return loadIndex(source, element);
    const auto kept = py::reinterpret_borrow<py::object>(source); // its code may take it out of the list
    const auto index = py::reinterpret_steal<py::object>(PyNumber_Index(source));
    if (!index) {
        PyErr_Clear();
        return false;
    }
    return loadIndex(index.ptr(), element);
}

template <class T>
class NestedReader {
public:
    explicit NestedReader(std::size_t rank) : dimensions(rank) {}

    /// False when something is of the wrong kind. A ragged sequence is still read to its end, since an element of the
    /// wrong kind is reported first.
    bool read(PyObject* source, std::size_t level)
    {
        if (PyList_Check(source) || PyTuple_Check(source))
            return readItems(source, level);
        if (PySequence_Check(source) == 0 || PyUnicode_Check(source) || PyBytes_Check(source))
            return false;
        const auto list = py::reinterpret_steal<py::object>(PySequence_List(source));
        if (!list)
            throw py::error_already_set();
        return readItems(list.ptr(), level);
    }

    std::vector<std::uint64_t> dimensions;
    std::vector<T> data;
    bool ragged = false;

private:
    // The size is asked for anew each time, as an element's own code may change the list.
    bool readItems(PyObject* items, std::size_t level)
    {
        const bool isList = PyList_Check(items);
        const bool innermost = level + 1 == dimensions.size();
        note(static_cast<std::uint64_t>(Py_SIZE(items)), level);
        for (Py_ssize_t i = 0; i < Py_SIZE(items); ++i) {
            PyObject* const item = isList ? PyList_GET_ITEM(items, i) : PyTuple_GET_ITEM(items, i);
            if (innermost) {
                T element{};
                if (!loadElement(item, element))
                    return false;
                data.push_back(element);
            } else {
                const auto kept = py::reinterpret_borrow<py::object>(item);
                if (!read(item, level + 1))
                    return false;
            }
        }
        return true;
    }

    void note(std::uint64_t size, std::size_t level)
    {
        if (level >= known) {
            dimensions[level] = size;
            known = level + 1;
            if (known == dimensions.size()) // the sizes of the first elements promise this much, but may be wrong
                data.reserve(static_cast<std::size_t>(
                    std::min<std::uint64_t>(util::tensor::elementCount(dimensions), reserveMost)));
        } else if (dimensions[level] != size) {
            ragged = true;
        }
    }

    static constexpr std::uint64_t reserveMost = 1U << 20U;
    std::size_t known = 0; // levels whose size is known from their first element
};

template <class T>
PyObject* listOf(std::span<const std::uint64_t> dimensions, typename std::vector<T>::const_iterator& at,
                 const ListPlace* place)
{
    const auto size = static_cast<Py_ssize_t>(dimensions[0]);
    auto list = py::reinterpret_steal<py::object>(place != nullptr ? newMemberList(*place, size) : PyList_New(size));
    if (!list)
        throw py::error_already_set();
    for (Py_ssize_t i = 0; i < size; ++i) {
        PyObject* item = nullptr;
        if (dimensions.size() > 1 && place != nullptr) {
            const ListPlace inner = place->inner(static_cast<std::size_t>(i));
            item = listOf<T>(dimensions.subspan(1), at, &inner);
        } else if (dimensions.size() > 1) {
            item = listOf<T>(dimensions.subspan(1), at, nullptr);
        } else if constexpr (std::is_same_v<T, bool>) {
            item = PyBool_FromLong(*at++);
        } else {
            item = PyLong_FromLong(*at++);
        }
        if (item == nullptr)
            throw py::error_already_set();
        PyList_SET_ITEM(list.ptr(), i, item);
    }
    if (place != nullptr)
        finishMemberList(list.ptr(), true);
    return list.release().ptr();
}

} // namespace

template <class T>
bool loadArray(py::handle source, std::span<std::uint64_t> dimensions, std::vector<T>& data)
{
    if (PyObject_CheckBuffer(source.ptr()) != 0)
        return loadBuffer(source, dimensions, data);
    NestedReader<T> reader(dimensions.size());
    if (!reader.read(source.ptr(), 0))
        return false;
    // a list that an element's own code changed while it was read is ragged too
    if (reader.ragged || reader.data.size() != util::tensor::elementCount(reader.dimensions))
        util::tensor::detail::throwInconsistent();
    data = std::move(reader.data);
    std::ranges::copy(reader.dimensions, dimensions.begin());
    return true;
}

template <class T>
py::object nestedLists(std::span<const std::uint64_t> dimensions, const std::vector<T>& data, const ListPlace* place)
{
    util::tensor::detail::checkShape(dimensions, data.size());
    auto at = data.begin();
    if (place != nullptr) {
        at += static_cast<std::ptrdiff_t>(place->offset(dimensions));
        dimensions = dimensions.subspan(place->depth);
    }
    return py::reinterpret_steal<py::object>(listOf<T>(dimensions, at, place));
}

template <class T>
bool loadArrayPart(std::vector<T>& data, std::size_t offset, std::vector<std::uint64_t> dimensions, py::handle source)
{
    std::vector<std::uint64_t> shape(dimensions.size());
    std::vector<T> part;
    if (!loadArray(source, std::span(shape), part) || shape != dimensions)
        return false;
    if (offset > data.size() || part.size() > data.size() - offset)
        throw std::out_of_range("the array has changed");
    std::copy(part.begin(), part.end(), data.begin() + static_cast<std::ptrdiff_t>(offset));
    return true;
}

template <class T>
bool loadArrayElement(std::vector<T>& data, std::size_t offset, py::handle source)
{
    T element{};
    if (!loadElement(source.ptr(), element))
        return false;
    if (offset >= data.size()) // the element's own code changed it
        throw std::out_of_range("the array has changed");
    data[offset] = element;
    return true;
}

template <class T>
std::string arrayElementExpectation()
{
    return Element<T>::text;
}

template <class T>
py::object numpyArray(std::span<const std::uint64_t> dimensions, std::vector<T>& data, void* array, py::handle owner,
                      TakeContent take)
{
    util::tensor::detail::checkShape(dimensions, data.size());
    py::tuple shape(dimensions.size());
    for (std::size_t i = 0; i < dimensions.size(); ++i)
        shape[i] = dimensions[i];
    const py::str type(Element<T>::array);
    if constexpr (std::is_same_v<T, bool>) {
        const py::bytes copy(std::string(data.begin(), data.end()));
        return NumpyArray(PyBytes_AS_STRING(copy.ptr()), data.size(), type, shape, copy, false);
    } else {
        return NumpyArray(data.data(), data.size() * sizeof(T), type, shape, elementOwner(array, owner, take), true);
    }
}

template <class T>
std::string arrayExpectation(std::size_t rank)
{
    std::string text;
    for (std::size_t i = 0; i < rank; ++i)
        text += "list of ";
    text += Element<T>::text;
    text += std::is_same_v<T, bool> ? ", or a " : ", or an ";
    return text + Element<T>::array + " array of " + std::to_string(rank) + (rank == 1 ? " dimension" : " dimensions");
}

std::string bufferText(py::handle value)
{
    if (PyObject_CheckBuffer(value.ptr()) == 0 || PyBytes_Check(value.ptr()) || PyByteArray_Check(value.ptr()))
        return "";
    const Buffer buffer(value);
    if (!buffer.isHeld() || buffer.rank() == 0) // a number of numpy's
        return "";
    std::string text = std::string(" of format '") + buffer.format() + "' and shape (";
    for (std::size_t i = 0; i < buffer.rank(); ++i)
        text += (i == 0 ? "" : ", ") + std::to_string(buffer.size(i));
    return text + ")";
}

#define VORNA_ARRAY_CASTER(T)                                                                                    \
    template bool loadArray<T>(py::handle, std::span<std::uint64_t>, std::vector<T>&);                           \
    template py::object nestedLists<T>(std::span<const std::uint64_t>, const std::vector<T>&, const ListPlace*); \
    template bool loadArrayPart<T>(std::vector<T>&, std::size_t, std::vector<std::uint64_t>, py::handle);        \
    template bool loadArrayElement<T>(std::vector<T>&, std::size_t, py::handle);                                 \
    template std::string arrayElementExpectation<T>();                                                           \
    template py::object numpyArray<T>(std::span<const std::uint64_t>, std::vector<T>&, void*, py::handle,        \
                                      TakeContent);                                                              \
    template std::string arrayExpectation<T>(std::size_t);
VORNA_ARRAY_CASTER(signed char)
VORNA_ARRAY_CASTER(short)
VORNA_ARRAY_CASTER(bool)
#undef VORNA_ARRAY_CASTER

} // namespace trovi::python
