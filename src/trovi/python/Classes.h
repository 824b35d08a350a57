#pragma once
// What a class offers in Python beside its methods: constructor, properties, JSON, equality, text, copies, pickling.
// All of it is compiled once, in Classes.cpp, and works from the tables of a class.

#include <string>
#include <string_view>

#include <pybind11/pybind11.h>

#include "trovi/python/Members.h"

namespace trovi::python {

/// What Python does with whole objects of a class; null for what the class can't do.
struct ObjectOps {
    const ClassOps* members = nullptr;
    bool keywords = false;                                ///< the constructor takes members by name
    void* (*make)() = nullptr;                            ///< a default object, for Python to own
    void (*discard)(void* made) = nullptr;                ///< ends an object that make() gave
    std::string (*toBytes)(const void* object) = nullptr; ///< the binary form
    void* (*fromBytes)(std::string_view bytes) = nullptr; ///< a new object, for Python to own
    bool (*equal)(const void* a, const void* b) = nullptr;
    std::string (*text)(const void* object) = nullptr;
};

void addConstructor(py::handle cls, const ObjectOps& ops);
void addProperties(py::handle cls, const ClassOps& ops);
/// weights_array() for each member of an array type.
void addNumpyArrays(py::handle cls, const ClassOps& ops);
void addJson(py::handle cls, const ClassOps& ops);
void addEquality(py::handle cls, const ObjectOps& ops);
void addText(py::handle cls, const ObjectOps& ops);
void addRepresentation(py::handle cls, const ClassOps& ops);
void addPickling(py::handle cls, const ObjectOps& ops);
void addCopying(py::handle cls, const ClassOps& ops);

/// @throws std::invalid_argument for an empty registered name
void checkTypeName(const std::string& registeredName, const char* compilersName);

} // namespace trovi::python
