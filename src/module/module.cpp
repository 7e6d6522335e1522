#include "core/interrupt.h"
#include "core/parallel.h"
#include "module/callback_lock.h"
#include "module/processor.h"
#include "module/registration.h"
#include "simulation/fft_threads.h"

#include <pybind11/pybind11.h>

#include <cctype>
#include <cstring>

namespace py = pybind11;

namespace talvorix::python {

namespace {

constexpr const char* documentation = R"(
Geostatistics for ore bodies, reservoirs and soils.

Locations are arrays of shape (n, 3) or lists of points, with x east, y north and z up; angles are
in degrees. What estimates, simulates or searches takes ``n_threads``, 0 for all of the machine's.
Models larger than one call or one machine are for the package `talvorix_dask`.
)";

// Patch releases of the minor version that the module was built for are as good as its own.
bool interpreter_is_the_right_one() {
  const char* built_for =
      PYBIND11_TOSTRING(PY_MAJOR_VERSION) "." PYBIND11_TOSTRING(PY_MINOR_VERSION);
  const char* running = Py_GetVersion();
  const std::size_t length = std::strlen(built_for);
  if (std::strncmp(running, built_for, length) == 0 &&
      std::isdigit(static_cast<unsigned char>(running[length])) == 0) {
    return true;
  }
  PyErr_Format(PyExc_ImportError,
               "Python version mismatch: module was compiled for Python %s, but the interpreter "
               "version is incompatible: %s.",
               built_for, running);
  return false;
}

void check_signals() {
  const py::gil_scoped_acquire interpreter_lock;
  if (PyErr_CheckSignals() != 0) {
    throw py::error_already_set();
  }
}

void wait_without_interpreter_lock(void (*wait)()) {
  if (PyGILState_Check() != 0) {
    const py::gil_scoped_release released;
    wait();
  } else {
    wait();
  }
}

void define_thread_functions(py::module_& m) {
  m.def("set_fft_n_threads", &fft::set_fft_n_threads, py::arg("n_threads") = 0, R"(
Set how many threads Fourier transforms use from now on, in the whole process.

Parameters
----------
n_threads : int, default 0
    The wanted count, as `check_n_threads` reads it.
)");
  m.def("check_n_threads", &check_n_threads, py::arg("n_threads") = 0, R"(
Tell how many threads a call given this `n_threads` runs on.

Parameters
----------
n_threads : int, default 0
    0, every negative count and every count above the machine's stand for all of its threads.

Returns
-------
int
    The effective count.
)");
}

void register_families(py::module_& m) {
  register_spatial_module(m);
  register_covariance_module(m);
  register_grid_module(m);
  register_simulation_module(m);
  register_fim_module(m);
  register_tbsim_module(m);
  register_distribution_module(m);
  register_estimation_module(m);
  register_conditioning(m);
  register_variogram_module(m);
  register_kfold_module(m);
  register_optimization_module(m);
  register_spectral_module(m);
  register_projection_module(m);
  register_ppmt_module(m);
  register_algebra_module(m);
  register_ceres_module(m);
  register_transiogram_module(m);
  register_markov_chain_module(m);
}

// An object made by __new__ alone holds no value. Where one is asked for, the binding library would
// hand out raw memory in its place.
void refuse_objects_without_value(const py::module_& m) {
  for (const auto& [name, thing] : m.attr("__dict__").cast<py::dict>()) {
    if (py::isinstance<py::module_>(thing)) {
      refuse_objects_without_value(thing.cast<py::module_>());
    }
    if (PyType_Check(thing.ptr()) == 0) {
      continue;
    }
    if (auto* type = py::detail::get_type_info(reinterpret_cast<PyTypeObject*>(thing.ptr()))) {
      type->operator_new = [](std::size_t) -> void* {
        throw py::type_error("the object was never initialised: its class was not called");
      };
    }
  }
}

// The body runs again when the module is imported after its removal from sys.modules. Classes can
// be made only once a process, so a later module is given those of the first.
void module_body(py::module_& m) {
  static PyObject* registered = nullptr;
  renew_callback_lock();
  fft::init_threads();
  fft::set_fft_n_threads(0);
  set_interrupt_check(check_signals);
  set_host_yield(wait_without_interpreter_lock);
  if (registered == nullptr) {
    const py::set own_names(m.attr("__dict__"));
    m.attr("__version__") = TALVORIX_VERSION;
    define_thread_functions(m);
    register_families(m);
    refuse_objects_without_value(m);
    py::dict names;
    for (const auto& [name, value] : m.attr("__dict__").cast<py::dict>()) {
      if (!own_names.contains(name)) {
        names[name] = value;
      }
    }
    registered = names.release().ptr();
  } else {
    m.attr("__dict__").attr("update")(py::handle(registered));
  }
}

}  // namespace

}  // namespace talvorix::python

extern "C" PYBIND11_EXPORT PyObject* PyInit_talvorix() {
  using namespace talvorix::python;
  if (!interpreter_is_the_right_one() || !processor_is_able()) {
    return nullptr;
  }
#ifdef TALVORIX_WIDE_COPY
  const WideCopy wide = find_wide_copy();
  if (wide.failed) {
    return nullptr;
  }
  if (wide.entry != nullptr) {
    return wide.entry();
  }
#endif
  py::detail::get_internals();
  // Single-phase initialisation. The state size of 0, not -1, lets a repeated import run the body.
  static PyModuleDef definition = {PyModuleDef_HEAD_INIT,
                                   "talvorix",
                                   documentation,
                                   0,
                                   nullptr,
                                   nullptr,
                                   nullptr,
                                   nullptr,
                                   nullptr};
  auto m = py::reinterpret_steal<py::module_>(PyModule_Create2(&definition, PYTHON_API_VERSION));
  if (!m) {
    return nullptr;
  }
  try {
    module_body(m);
    return m.release().ptr();
  }
  PYBIND11_CATCH_INIT_EXCEPTIONS
  return nullptr;
}
