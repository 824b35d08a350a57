#include "trovi/python/Values.h"

#include "trovi/Names.h"
#include "trovi/python/GilRelease.h"

namespace trovi::python {

std::string shortRepr(py::handle value)
{
    constexpr std::size_t longest = 120;
    std::string text;
    try {
        const auto repr =
            py::reinterpret_steal<py::object>(withoutUnwinding([value] { return PyObject_Repr(value.ptr()); }));
        if (!repr)
            throw py::error_already_set();
        text = repr.cast<std::string>();
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

std::string dotted(std::string name)
{
    for (std::size_t at; (at = name.find("::")) != std::string::npos;)
        name.replace(at, 2, ".");
    return name;
}

void throwUnmade(const std::string& registeredName)
{
    throw py::type_error(dotted(registeredName) + ": this object was made without __init__ and has no value");
}

bool loadsInto(void* caster, py::handle source, bool (*load)(void* caster, py::handle source))
{
    try {
        return load(caster, source);
    } catch (const py::reference_cast_error&) {
        return false;
    }
}

void throwWrongValue(const std::string& what, const std::string& expectation, py::handle value)
{
    throw py::type_error(dotted(what) + ": expected " + dotted(expectation) + ", got " + shortRepr(value) + " (" +
                         (isMemberList(value) ? "list" : Py_TYPE(value.ptr())->tp_name) + bufferText(value) + ")");
}

std::string joinedEnumerators(const std::string& name, const std::vector<std::string>& enumerators)
{
    std::string text = name + " (";
    for (const std::string& enumerator : enumerators)
        text += (enumerator == enumerators.front() ? "" : ", ") + enumerator;
    return text + ")";
}

} // namespace trovi::python
