#include "covariance/covariance.h"
#include "covariance/covariance_computer.h"
#include "covariance/model_generator.h"
#include "module/conversions.h"
#include "module/registration.h"
#include "spatial/spatial_function.h"

#include <pybind11/pybind11.h>

namespace py = pybind11;

namespace talvorix::python {

namespace {

void bind_kernel(py::module_& m) {
  const auto plain = [](Kernel (*make)()) { return [make](const py::object&) { return make(); }; };
  py::class_<Kernel>(m, "Kernel", R"(
A correlation as a function of distance in units of the range: 1 at zero, and at 1 the practical
range. Kernels are taken from the class: `Kernel.spherical`, `Kernel.gaussian` and
`Kernel.exponential`.
)")
      .def("__call__", &Kernel::operator(), py::arg("h"), R"(
Evaluate the kernel.

Parameters
----------
h : float
    Distance in units of the range.

Returns
-------
float
)")
      .def_property_readonly_static("spherical", plain(&Kernel::spherical),
                                    "1 - 1.5 h + 0.5 h^3, and 0 above 1.")
      .def_property_readonly_static("gaussian", plain(&Kernel::gaussian), "exp(-3 h^2).")
      .def_property_readonly_static("exponential", plain(&Kernel::exponential), "exp(-3 h).");
}

void bind_covariance(py::module_& m) {
  const auto structure = [](Covariance::Type type) {
    return [type](double sill, const Ellipsoid& ellipsoid) {
      return Covariance::of_type(type, sill, ellipsoid);
    };
  };
  py::class_<Covariance>(m, "Covariance", R"(
One structure of a covariance model. A model is a list of structures, nuggets included, and its
covariance is their sum.
)")
      .def_static("spherical", structure(Covariance::Type::spherical), py::arg("sill"),
                  py::arg("ellipsoid"), R"(
Make a structure with the spherical kernel.

Parameters
----------
sill : float
ellipsoid : Ellipsoid
    Its ranges are the practical ranges.

Returns
-------
Covariance
)")
      .def_static("gaussian", structure(Covariance::Type::gaussian), py::arg("sill"),
                  py::arg("ellipsoid"),
                  "Make a structure with the gaussian kernel; arguments as for `spherical`.")
      .def_static("exponential", structure(Covariance::Type::exponential), py::arg("sill"),
                  py::arg("ellipsoid"),
                  "Make a structure with the exponential kernel; arguments as for `spherical`.")
      .def_static("nugget", &Covariance::nugget, py::arg("sill"), R"(
Make a nugget: its sill at lags shorter than 1e-8, else 0.

Parameters
----------
sill : float

Returns
-------
Covariance
)")
      .def_property_readonly(
          "type", [](const Covariance& self) { return to_text(self.type); },
          "'spherical', 'gaussian', 'exponential', 'nugget' or 'idw'.")
      .def_property_readonly(
          "ellipsoid", [](const Covariance& self) { return self.ellipsoid; }, "Its ranges.")
      .def_property_readonly(
          "sill", [](const Covariance& self) { return self.sill; }, "Its covariance at lag 0.")
      .def("__call__", &Covariance::operator(), py::arg("h"), R"(
Evaluate the structure.

Parameters
----------
h : numpy.ndarray, shape (3, 1)
    Lag, in the units of the ranges.

Returns
-------
float
    The sill times the kernel of the length of the lag in isotropic space.
)");
}

}  // namespace

void register_covariance_module(py::module_& m) {
  bind_kernel(m);
  bind_covariance(m);
  m.def(
      "covariance_computer",
      [](const CovarianceModel& covs) { return SpatialFunction(create_cov_computer(covs, -1)); },
      py::arg("covs"), R"(
Make a function of the lag from a model.

Parameters
----------
covs : list of Covariance
    The model; an empty one is 0 everywhere.

Returns
-------
SpatialFunction
    The sum of the structures.
)");
  m.def("generate_covariances", &generate_covariances, py::arg("ellipsoid"), py::arg("n_kernels"),
        py::arg("cov_kernel"), py::arg("n_covs"), py::arg("seed"), py::arg("delta_angle"),
        py::arg("min_str_range"), py::arg("max_str_range"), py::arg("min_sill"),
        py::arg("max_sill"), R"(
Draw random nested models around an ellipsoid.

Parameters
----------
ellipsoid : Ellipsoid
    One of the models has it unchanged in every structure, and no nugget.
n_kernels : int
    Structures of a model, besides the nugget.
cov_kernel : Kernel
    The kernel of all structures. Their `type` reads 'spherical' whatever it is.
n_covs : int
    Number of models.
seed : int
delta_angle : float
    Degrees by which each angle may differ from the ellipsoid's, either way.
min_str_range, max_str_range : float
    Bounds of the sum of the structures' range vectors, as fractions of the largest range.
min_sill, max_sill : float
    Bounds of the sills before they are scaled to add up to 1.

Returns
-------
list of list of Covariance
    Each model has `n_kernels` structures and then a nugget. The order of models is random.
)");
}

}  // namespace talvorix::python
