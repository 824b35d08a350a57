#pragma once
// Included before everything else in every file that sees Python.h (see src/python/CMakeLists.txt). An interpreter of
// another version lacks some of the functions that pybind11's inline code calls, and the loader would refuse the module
// with "undefined symbol" before its entry can say which version it was built for. Weak, they may be missing: the entry
// refuses such an interpreter before any of them is called. What 3.8 to 3.13 lack of each other:

#pragma weak PyCMethod_New
#pragma weak PyDict_GetItemStringRef
#pragma weak PyFrame_GetBack
#pragma weak PyFrame_GetCode
#pragma weak PyInterpreterState_Get
#pragma weak PyObject_CheckBuffer
#pragma weak PyObject_ClearManagedDict
#pragma weak PyObject_DelAttrString
#pragma weak PyObject_VisitManagedDict
#pragma weak PyThreadState_GetUnchecked
#pragma weak _PyThreadState_UncheckedGet
