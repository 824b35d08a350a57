#pragma once
// Integers from Python, wherever one is wanted: members, arguments, results of calls, lists. An int is accepted, and
// what has __index__ (numpy's integers). What has __int__ alone (numpy.float32(2.7), Decimal, Fraction) would silently
// lose its fraction, so it is refused as a float is.
//
// These replace pybind11's casters, so include this before any header that converts integers, <pybind11/numpy.h> for
// one. The compiler refuses the wrong order.

#include <limits>
#include <type_traits>

#include <pybind11/pybind11.h>

namespace trovi::python {

/// @return false, with no Python error set, for what isn't an integer or is out of range; `value` is then unchanged
bool loadSigned(pybind11::handle source, long long lowest, long long highest, long long& value);
bool loadUnsigned(pybind11::handle source, unsigned long long highest, unsigned long long& value);

template <class T>
struct IntegerCaster {
    PYBIND11_TYPE_CASTER(T, pybind11::detail::const_name("int"));

    bool load(pybind11::handle source, bool)
    {
        using Limits = std::numeric_limits<T>;
        if constexpr (std::is_signed_v<T>) {
            long long number = 0;
            const bool fits = loadSigned(source, Limits::min(), Limits::max(), number);
            value = static_cast<T>(number);
            return fits;
        } else {
            unsigned long long number = 0;
            const bool fits = loadUnsigned(source, Limits::max(), number);
            value = static_cast<T>(number);
            return fits;
        }
    }
    static pybind11::handle cast(T number, pybind11::return_value_policy, pybind11::handle)
    {
        if constexpr (std::is_signed_v<T>)
            return PyLong_FromLongLong(number);
        else
            return PyLong_FromUnsignedLongLong(number);
    }
};

} // namespace trovi::python

#define VORNA_INTEGER_CASTER(T) \
    template <>                 \
    struct pybind11::detail::type_caster<T> : trovi::python::IntegerCaster<T> {};
VORNA_INTEGER_CASTER(signed char)
VORNA_INTEGER_CASTER(unsigned char)
VORNA_INTEGER_CASTER(short)
VORNA_INTEGER_CASTER(unsigned short)
VORNA_INTEGER_CASTER(int)
VORNA_INTEGER_CASTER(unsigned int)
VORNA_INTEGER_CASTER(long)
VORNA_INTEGER_CASTER(unsigned long)
VORNA_INTEGER_CASTER(long long)
VORNA_INTEGER_CASTER(unsigned long long)
#undef VORNA_INTEGER_CASTER
