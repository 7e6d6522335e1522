#pragma once

#include <Python.h>

// Functions of the interpreter that only some minor versions have, and that the binding library
// uses under the others. Weak references let the module load into any interpreter, so that the
// wrong one is refused by the check at its entry and not by the loader with a missing name.

#pragma weak PyCMethod_New
#pragma weak PyFrame_GetBack
#pragma weak PyFrame_GetCode
#pragma weak PyInterpreterState_Get
#pragma weak PyObject_CheckBuffer
#if PY_VERSION_HEX < 0x030D0000
#pragma weak _PyThreadState_UncheckedGet
#else
#pragma weak PyDict_GetItemStringRef
#pragma weak PyObject_ClearManagedDict
#pragma weak PyObject_VisitManagedDict
#pragma weak PyThreadState_GetUnchecked
#endif
