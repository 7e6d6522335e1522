#pragma once

#include <Python.h>

namespace talvorix::python {

// Without this, a processor that lacks the vector units would end the process at the first use.
// Raises ImportError where it does.
bool processor_is_able();

#ifdef TALVORIX_WIDE_COPY

struct WideCopy {
  PyObject* (*entry)();  // null where this copy of the module has to serve
  bool failed;           // with ImportError raised
};

// The entry of the copy that was compiled for wider vector units, if this process is to use it.
WideCopy find_wide_copy();

#endif

}  // namespace talvorix::python
