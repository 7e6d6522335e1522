#pragma once

// Functions of the interpreter that only some minor versions have, and that the binding library
// uses under the others. Weak references let the module load into any interpreter, so that the
// wrong one is refused by the check at its entry and not by the loader with a missing name.

#pragma weak _PyThreadState_UncheckedGet
#pragma weak PyThreadState_GetUnchecked
#pragma weak PyDict_GetItemStringRef
#pragma weak PyInterpreterState_Get
#pragma weak PyObject_ClearManagedDict
#pragma weak PyObject_VisitManagedDict
#pragma weak PyCMethod_New
#pragma weak PyFrame_GetBack
#pragma weak PyFrame_GetCode
#pragma weak PyObject_CheckBuffer
