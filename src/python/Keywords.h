#pragma once
// A described class of options, filled from keyword arguments: plug_virtual_davis(seed=1).

#include <pybind11/pybind11.h>

#include "trovi/python/Local.h"

/// @throws py::type_error naming the members that there are, or what a member expects
template <class Options>
Options optionsFrom(const pybind11::kwargs& keywords)
{
    Options options;
    trovi::python::membersFromKeywords(&options, trovi::python::classOps<Options>(), keywords);
    return options;
}
