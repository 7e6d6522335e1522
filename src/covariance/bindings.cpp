#include "covariance/covariance.h"
#include "covariance/covariance_computer.h"
#include "covariance/model_generator.h"
#include "module/conversions.h"
#include "module/pickling.h"
#include "module/registration.h"
#include "spatial/spatial_function.h"

#include <pybind11/pybind11.h>

#include <string>
#include <tuple>

namespace py = pybind11;

namespace talvorix::python {

namespace {

std::string kernel_name(const Kernel& kernel) {
  switch (kernel.form()) {
    case Kernel::Form::spherical:
      return "spherical";
    case Kernel::Form::gaussian:
      return "gaussian";
    case Kernel::Form::exponential:
      return "exponential";
    case Kernel::Form::nugget:
      return "nugget";
    case Kernel::Form::idw:
      return "idw";
    case Kernel::Form::function:
      break;
  }
  return "function";
}

void bind_kernel(py::module_& m) {
  const auto plain = [](Kernel (*make)()) { return [make](const py::object&) { return make(); }; };
  py::class_<Kernel> cls(m, "Kernel", R"(
A correlation as a function of distance in units of the range: 1 at zero, and at 1 the practical
range. Kernels are taken from the class: `Kernel.spherical`, `Kernel.gaussian` and
`Kernel.exponential`.
)");
  cls.def("__call__", &Kernel::operator(), py::arg("h"), R"(
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
  cls.def("__repr__", [](const Kernel& self) { return "Kernel." + kernel_name(self); });
  define_value(
      cls, [](const Kernel& self) { return std::tuple(number_of(self)); }, &kernel_of,
      Hashing::by_value);
}

void bind_covariance(py::module_& m) {
  const auto structure = [](Covariance::Type type) {
    return [type](double sill, const Ellipsoid& ellipsoid) {
      return Covariance::of_type(type, sill, ellipsoid);
    };
  };
  py::class_<Covariance> cls(m, "Covariance", R"(
One structure of a covariance model. A model is a list of structures, nuggets included, and its
covariance is their sum.
)");
  cls.def_static("spherical", structure(Covariance::Type::spherical), py::arg("sill"),
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
  cls.def("__repr__", [](const Covariance& self) {
    const EllipsoidInfo e = self.ellipsoid.info();
    return "<Covariance " + to_text(self.type) + ", sill " + shown(self.sill) + ", ranges " +
           shown(Vector3(e.r1, e.r2, e.r3)) + ", azimuth " + shown(e.azimuth) + ", dip " +
           shown(e.dip) + ", rake " + shown(e.rake) + ">";
  });
  define_value(
      cls,
      [](const Covariance& self) {
        return std::tuple(static_cast<int>(self.type), self.sill, self.ellipsoid.matrix(),
                          number_of(self.kernel));
      },
      [](int type, double sill, const Matrix3& matrix, int kernel) {
        return Covariance{covariance_type_of(type), sill, Ellipsoid(matrix), kernel_of(kernel)};
      },
      Hashing::by_value);
}

}  // namespace

void register_covariance_module(py::module_& m) {
  bind_kernel(m);
  bind_covariance(m);
  def_factory(
      m, "covariance_computer",
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
