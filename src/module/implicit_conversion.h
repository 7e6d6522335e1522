#pragma once

#include <pybind11/pybind11.h>

#include <typeinfo>

namespace talvorix::python {

// Lets a class be asked for where Python gives something that its constructor takes. is_source
// tells what that may be; anything else is left to other overloads.
template <class T>
void convert_implicitly(bool (*is_source)(PyObject*)) {
  static bool (*accepts)(PyObject*) = nullptr;
  accepts = is_source;
  const auto convert = [](PyObject* object, PyTypeObject* type) -> PyObject* {
    // The constructor must not come back here for its own argument.
    static thread_local bool is_converting = false;
    if (is_converting || !accepts(object)) {
      return nullptr;
    }
    is_converting = true;
    PyObject* const result = PyObject_CallOneArg(reinterpret_cast<PyObject*>(type), object);
    is_converting = false;
    if (result == nullptr) {
      PyErr_Clear();
    }
    return result;
  };
  pybind11::detail::get_type_info(typeid(T))->implicit_conversions.emplace_back(convert);
}

// Numbers, and what turns itself into one, but no arrays.
inline bool is_number(PyObject* object) {
  return PyFloat_Check(object) != 0 || PyIndex_Check(object) != 0 ||
         (PyObject_HasAttrString(object, "__float__") != 0 && PySequence_Check(object) == 0);
}

inline bool is_list_like(PyObject* object) {
  return PySequence_Check(object) != 0 && PyUnicode_Check(object) == 0 &&
         PyBytes_Check(object) == 0;
}

}  // namespace talvorix::python
