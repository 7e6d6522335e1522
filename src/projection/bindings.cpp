#include "core/interrupt.h"
#include "module/conversions.h"
#include "module/pickling.h"
#include "module/registration.h"
#include "projection/isomorphism.h"
#include "projection/projection.h"
#include "projection/projection_fit.h"

#include <pybind11/pybind11.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace py = pybind11;

namespace talvorix::python {

namespace {

using Values = std::vector<double>;

void bind_projection(py::module_& m) {
  py::class_<Projection> cls(m, "Projection", R"(
A smooth map of numbers: the mean of the weights of some centres, each counted by a kernel of its
distance times its beta. Everywhere the map lies between the smallest and the largest weight.
)");
  cls.def(py::init([](const Values& parameters, const std::string& kernel) {
            return Projection(parameters, parse_covariance_type(kernel));
          }),
          py::arg("parameters"), py::arg("kernel") = "exponential", R"(
Make the map of known parameters.

Parameters
----------
parameters : list of float, or array of shape (3 n,)
    Centre, beta and weight of each centre in turn; beta is one over a length.
kernel : str, default "exponential"
    "spherical", "gaussian", "exponential", "idw", or anything else for the nugget.

Raises
------
ValueError
    When the parameters do not come in threes.
)")
      .def("serialize", &Projection::serialize, R"(
Give the parameters that the map can be made of again.

Returns
-------
list of float
    Centre, beta and weight of each centre in turn.
)")
      .def("forward", py::overload_cast<double>(&Projection::forward, py::const_), py::arg("u"), R"(
Map a number.

Parameters
----------
u : float
    A number; the second form takes a list, or an array of shape (n,), and maps each.
n_threads : int, default 0
    Number of threads of the second form; 0 stands for all.

Returns
-------
float or list of float
    NaN where no centre counts.
)")
      .def("forward", py::overload_cast<Values, int>(&Projection::forward, py::const_),
           py::arg("u"), py::arg("n_threads") = 0, py::call_guard<py::gil_scoped_release>())
      .def("__repr__", [](const Projection& self) {
        return "<Projection of " + std::to_string(self.serialize().size() / 3) +
               " centers, kernel \"" + to_text(self.kernel()) + "\">";
      });
  define_value(
      cls,
      [](const Projection& self) {
        return std::tuple(self.serialize(), static_cast<int>(self.kernel()));
      },
      [](const Values& parameters, int kernel) {
        return Projection(parameters, covariance_type_of(kernel));
      },
      Hashing::by_value);

  m.def(
      "optimize_projection",
      [](const Values& source, const Values& target, const std::string& kernel, int n_centers,
         double min_weight, double max_weight, double min_beta, double max_beta, double min_center,
         double max_center, int n_partitions, int min_partition_size, int max_partition_size,
         double cauchy_loss, int n_iterations, int n_threads, std::int64_t seed, bool debug) {
        InterruptPoller poll;
        return optimize_projection(source, target,
                                   {parse_covariance_type(kernel),
                                    n_centers,
                                    {min_weight, max_weight},
                                    {min_beta, max_beta},
                                    {min_center, max_center}},
                                   {n_partitions, min_partition_size, max_partition_size,
                                    cauchy_loss, n_iterations, n_threads, seed, debug},
                                   poll);
      },
      py::arg("source"), py::arg("target"), py::arg("kernel"), py::arg("n_centers"),
      py::arg("min_weight"), py::arg("max_weight"), py::arg("min_beta"), py::arg("max_beta"),
      py::arg("min_center"), py::arg("max_center"), py::arg("n_partitions"),
      py::arg("min_partition_size"), py::arg("max_partition_size"), py::arg("cauchy_loss"),
      py::arg("n_iterations"), py::arg("n_threads"), py::arg("seed"), py::arg("debug"),
      py::call_guard<py::gil_scoped_release>(), R"(
Fit a smooth map to pairs of values, by bounded least squares on random subsets of the pairs.

An error e, in standard deviations of the source, counts by 2 e while that is at most 1 in size and
beyond it by 2 sqrt(|2 e|) - 1, so that outliers pull little. Each subset adds one residual for every
pair and one for their root mean square. The search starts from centres at random pairs.

Time grows with the number of pairs in all subsets times the square of the number of centres.

Parameters
----------
source, target : list of float, or array of shape (n,)
    What is mapped, and what it is to be mapped to.
kernel : str
    As for `Projection`.
n_centers : int
min_weight, max_weight : float
    Bounds of the weights, in units of the target.
min_beta, max_beta : float
    Bounds of the betas, in one over units of the source; the search starts half-way.
min_center, max_center : float
    Bounds of the centres, in units of the source.
n_partitions : int
    Number of random subsets. With none the result is the start.
min_partition_size, max_partition_size : int
    A subset has from `min_partition_size` + 1 to `max_partition_size` + 1 pairs, but no more than
    n - 1; pairs are drawn with repetition.
cauchy_loss : float
    Above 0, the scale of Cauchy's loss, which makes subsets with large residuals count less.
n_iterations : int
    Largest number of steps of the solver.
n_threads : int
    Number of threads; 0 stands for all. The result does not depend on it.
seed : int
debug : bool
    Whether the solver reports on standard output.

Returns
-------
Projection
    The start when it is out of bounds, or when a residual is not finite there, as with a constant
    source.

Raises
------
ValueError
    When `source` and `target` are not equally many or empty, a count is negative or
    `max_partition_size` is below `min_partition_size`.

References
----------
Nadaraya, E. A. (1964). On estimating regression. Theory of Probability and its Applications 9(1),
141-142 (the form of the map).
)");
}

// A field of a record that is a kernel there and a text in Python.
template <Covariance::Type IsomorphismParameters::*field>
void bind_kernel_field(py::class_<IsomorphismParameters>& cls, const char* name, const char* doc) {
  cls.def_property(
      name, [](const IsomorphismParameters& self) { return to_text(self.*field); },
      [](IsomorphismParameters& self, const std::string& kernel) {
        self.*field = parse_covariance_type(kernel);
      },
      doc);
}

std::string text_of(const IsomorphismParameters& p) {
  std::ostringstream text;
  text << "IsomorphismParameters(kernel_forward=\"" << to_text(p.kernel_forward)
       << "\", n_centers_forward=" << p.n_centers_forward << ", kernel_backward=\""
       << to_text(p.kernel_backward) << "\", n_centers_backward=" << p.n_centers_backward
       << ", weight_tol=" << p.weight_tol << ", center_tol=" << p.center_tol
       << ", min_beta=" << p.min_beta << ", max_beta=" << p.max_beta
       << ", min_partition_size=" << p.min_partition_size
       << ", max_partition_size=" << p.max_partition_size << ", n_partitions=" << p.n_partitions
       << ", cauchy_loss=" << p.cauchy_loss << ", n_iterations=" << p.n_iterations
       << ", n_threads=" << p.n_threads << ", seed=" << p.seed
       << ", debug=" << (p.debug ? "True" : "False") << ")";
  return text.str();
}

void bind_isomorphism_parameters(py::module_& m) {
  using Parameters = IsomorphismParameters;
  const Parameters defaults;
  py::class_<Parameters> cls(m, "IsomorphismParameters", R"(
How an `Isomorphism` is fitted to samples. The fields are the arguments.
)");
  cls.def(
         py::init([](const std::string& kernel_forward, int n_centers_forward,
                     const std::string& kernel_backward, int n_centers_backward, double weight_tol,
                     double center_tol, double min_beta, double max_beta, double min_partition_size,
                     double max_partition_size, int n_partitions, double cauchy_loss,
                     int n_iterations, int n_threads, std::int64_t seed, bool debug) {
           return Parameters{parse_covariance_type(kernel_forward),
                             n_centers_forward,
                             parse_covariance_type(kernel_backward),
                             n_centers_backward,
                             weight_tol,
                             center_tol,
                             min_beta,
                             max_beta,
                             min_partition_size,
                             max_partition_size,
                             n_partitions,
                             cauchy_loss,
                             n_iterations,
                             n_threads,
                             seed,
                             debug};
         }),
         py::arg("kernel_forward") = "exponential",
         py::arg("n_centers_forward") = defaults.n_centers_forward,
         py::arg("kernel_backward") = "exponential",
         py::arg("n_centers_backward") = defaults.n_centers_backward,
         py::arg("weight_tol") = defaults.weight_tol, py::arg("center_tol") = defaults.center_tol,
         py::arg("min_beta") = defaults.min_beta, py::arg("max_beta") = defaults.max_beta,
         py::arg("min_partition_size") = defaults.min_partition_size,
         py::arg("max_partition_size") = defaults.max_partition_size,
         py::arg("n_partitions") = defaults.n_partitions,
         py::arg("cauchy_loss") = defaults.cauchy_loss,
         py::arg("n_iterations") = defaults.n_iterations, py::arg("n_threads") = defaults.n_threads,
         py::arg("seed") = defaults.seed, py::arg("debug") = defaults.debug, R"(
Set how an isomorphism is fitted.

Both kernels are exponential unless said otherwise. Where a record is itself left out, as in
`optimize_isomorphism`, the backward kernel is spherical.

Parameters
----------
kernel_forward, kernel_backward : str, default "exponential"
    As for `Projection`.
n_centers_forward, n_centers_backward : int, default 27 and 33
weight_tol, center_tol : float, default 10
    How far weights and centres may lie beyond the samples, in spans of the samples.
min_beta, max_beta : float, default 1e-6 and 4
    Bounds of the betas, per span of the samples.
min_partition_size, max_partition_size : float, default 0.5 and 2
    Size of a random subset in equal shares of the sample, n / `n_partitions`.
n_partitions : int, default 20
    Number of random subsets.
cauchy_loss : float, default 0
    Above 0, the scale of Cauchy's loss, which makes subsets with large residuals count less.
n_iterations : int, default 50
    Largest number of steps of the solver.
n_threads : int, default 0
    Number of threads; 0 stands for all.
seed : int, default 123154
debug : bool, default False
    Whether the solver reports on standard output.
)")
      .def_readwrite("n_centers_forward", &Parameters::n_centers_forward,
                     "Number of centres of the way forward.")
      .def_readwrite("n_centers_backward", &Parameters::n_centers_backward,
                     "Number of centres of the way back.")
      .def_readwrite("weight_tol", &Parameters::weight_tol,
                     "How far weights may lie beyond the samples, in spans.")
      .def_readwrite("center_tol", &Parameters::center_tol,
                     "How far centres may lie beyond the samples, in spans.")
      .def_readwrite("min_beta", &Parameters::min_beta, "Lower bound of the betas, per span.")
      .def_readwrite("max_beta", &Parameters::max_beta, "Upper bound of the betas, per span.")
      .def_readwrite("min_partition_size", &Parameters::min_partition_size,
                     "Least size of a subset, in equal shares of the sample.")
      .def_readwrite("max_partition_size", &Parameters::max_partition_size,
                     "Largest size of a subset, in equal shares of the sample.")
      .def_readwrite("n_partitions", &Parameters::n_partitions, "Number of random subsets.")
      .def_readwrite("cauchy_loss", &Parameters::cauchy_loss, "Scale of Cauchy's loss; 0 for none.")
      .def_readwrite("n_iterations", &Parameters::n_iterations, "Largest number of steps.")
      .def_readwrite("n_threads", &Parameters::n_threads, "Number of threads; 0 stands for all.")
      .def_readwrite("seed", &Parameters::seed, "Seed of centres and subsets.")
      .def_readwrite("debug", &Parameters::debug, "Whether the solver reports.")
      .def("__repr__", &text_of);
  bind_kernel_field<&Parameters::kernel_forward>(cls, "kernel_forward",
                                                 "Kernel of the way forward, as a text.");
  bind_kernel_field<&Parameters::kernel_backward>(cls, "kernel_backward",
                                                  "Kernel of the way back, as a text.");
  define_value(
      cls,
      [](const Parameters& p) {
        return std::tuple(static_cast<int>(p.kernel_forward), p.n_centers_forward,
                          static_cast<int>(p.kernel_backward), p.n_centers_backward, p.weight_tol,
                          p.center_tol, p.min_beta, p.max_beta, p.min_partition_size,
                          p.max_partition_size, p.n_partitions, p.cauchy_loss, p.n_iterations,
                          p.n_threads, p.seed, p.debug);
      },
      [](int kernel_forward, int n_centers_forward, int kernel_backward, int n_centers_backward,
         auto... others) {
        return Parameters{covariance_type_of(kernel_forward), n_centers_forward,
                          covariance_type_of(kernel_backward), n_centers_backward, others...};
      },
      Hashing::none);
}

void bind_isomorphism(py::module_& m) {
  using Flat = std::pair<Values, Values>;
  py::class_<Isomorphism> cls(m, "Isomorphism", R"(
A smooth map of numbers together with the way back: two `Projection`.
)");
  cls.def(py::init([](const Flat& parameters, const std::string& kernel) {
            const Covariance::Type type = parse_covariance_type(kernel);
            return Isomorphism(Projection(parameters.first, type),
                               Projection(parameters.second, type));
          }),
          py::arg("parameters"), py::arg("kernel") = "exponential", R"(
Make the pair of known parameters, or of two maps.

Parameters
----------
parameters : tuple of (list of float, list of float)
    The parameters of the way forward and of the way back, as `serialize` gives them.
kernel : str, default "exponential"
    Kernel of both, as for `Projection`.
forward_proj, backward_proj : Projection
    In the second form the two maps themselves.

Raises
------
ValueError
    When parameters do not come in threes.
)")
      .def(py::init<Projection, Projection>(), py::arg("forward_proj"), py::arg("backward_proj"))
      .def_property_readonly("forward_proj", &Isomorphism::forward_proj, "The way forward.")
      .def_property_readonly("backward_proj", &Isomorphism::backward_proj, "The way back.")
      .def(
          "serialize",
          [](const Isomorphism& self) {
            return Flat(self.forward_proj().serialize(), self.backward_proj().serialize());
          },
          R"(
Give the parameters of both maps; their kernels are not among them.

Returns
-------
tuple of (list of float, list of float)
)")
      .def(
          "forward",
          [](const Isomorphism& self, double u) { return self.forward_proj().forward(u); },
          py::arg("u"), R"(
Map a number from source to target.

Parameters
----------
u : float
    A number; the second form takes a list, or an array of shape (n,), and maps each.
n_threads : int, default 0
    Number of threads of the second form; 0 stands for all.

Returns
-------
float or list of float
    NaN where no centre counts.
)")
      .def(
          "forward",
          [](const Isomorphism& self, Values u, int n_threads) {
            return self.forward_proj().forward(std::move(u), n_threads);
          },
          py::arg("u"), py::arg("n_threads") = 0, py::call_guard<py::gil_scoped_release>())
      .def(
          "backward",
          [](const Isomorphism& self, double u) { return self.backward_proj().forward(u); },
          py::arg("u"), R"(
Map a number from target to source; takes and returns what `forward` does.
)")
      .def(
          "backward",
          [](const Isomorphism& self, Values u, int n_threads) {
            return self.backward_proj().forward(std::move(u), n_threads);
          },
          py::arg("u"), py::arg("n_threads") = 0, py::call_guard<py::gil_scoped_release>())
      .def("__repr__", [](const Isomorphism& self) {
        return "<Isomorphism of " + std::to_string(self.forward_proj().serialize().size() / 3) +
               " centers forward and " +
               std::to_string(self.backward_proj().serialize().size() / 3) + " back>";
      });
  define_value(
      cls,
      [](const Isomorphism& self) { return std::tie(self.forward_proj(), self.backward_proj()); },
      [](Projection forward, Projection backward) {
        return Isomorphism(std::move(forward), std::move(backward));
      },
      Hashing::by_value);

  m.def(
      "optimize_isomorphism",
      [](const Values& source, const Values& target, const std::string& kernel_type_forward,
         int n_centers_forward, double min_beta_forward, double max_beta_forward,
         const std::string& kernel_type_backward, int n_centers_backward, double min_beta_backward,
         double max_beta_backward, double min_weight, double max_weight, double min_center,
         double max_center, int n_partitions, int min_partition_size, int max_partition_size,
         double cauchy_loss, int n_iterations, int n_threads, std::int64_t seed, bool debug) {
        InterruptPoller poll;
        const Interval values{min_weight, max_weight};
        const Interval places{min_center, max_center};
        return optimize_isomorphism(source, target,
                                    {parse_covariance_type(kernel_type_forward),
                                     n_centers_forward,
                                     values,
                                     {min_beta_forward, max_beta_forward},
                                     places},
                                    {parse_covariance_type(kernel_type_backward),
                                     n_centers_backward,
                                     places,
                                     {min_beta_backward, max_beta_backward},
                                     values},
                                    {n_partitions, min_partition_size, max_partition_size,
                                     cauchy_loss, n_iterations, n_threads, seed, debug},
                                    poll);
      },
      py::arg("source"), py::arg("target"), py::arg("kernel_type_forward"),
      py::arg("n_centers_forward"), py::arg("min_beta_forward"), py::arg("max_beta_forward"),
      py::arg("kernel_type_backward"), py::arg("n_centers_backward"), py::arg("min_beta_backward"),
      py::arg("max_beta_backward"), py::arg("min_weight"), py::arg("max_weight"),
      py::arg("min_center"), py::arg("max_center"), py::arg("n_partitions"),
      py::arg("min_partition_size"), py::arg("max_partition_size"), py::arg("cauchy_loss"),
      py::arg("n_iterations"), py::arg("n_threads"), py::arg("seed"), py::arg("debug"),
      py::call_guard<py::gil_scoped_release>(), R"(
Fit a smooth map to pairs of values, and the way back to what the map makes of the source.

Parameters
----------
source, target : list of float, or array of shape (n,)
    What is mapped, and what it is to be mapped to.
kernel_type_forward, kernel_type_backward : str
    As for `Projection`.
n_centers_forward, n_centers_backward : int
min_beta_forward, max_beta_forward, min_beta_backward, max_beta_backward : float
    Bounds of the betas: per unit of the source forward, and per unit of the target back.
min_weight, max_weight : float
    Bounds of the weights forward and of the centres back, in units of the target.
min_center, max_center : float
    Bounds of the centres forward and of the weights back, in units of the source.
n_partitions, min_partition_size, max_partition_size : int
cauchy_loss : float
n_iterations, n_threads, seed : int
debug : bool
    As for `optimize_projection`.
source_data, target_data : list of float, or array of shape (n,)
    In the second form, the samples that bounds and sizes are derived from as well.
iso_params : IsomorphismParameters
    In the second form, how. Left out, the way forward has the exponential kernel and the way back
    the spherical one.

Returns
-------
Isomorphism

Raises
------
ValueError
    When the samples are not equally many or empty, a count is negative or `max_partition_size` is
    below `min_partition_size`.
)");
  m.def(
      "optimize_isomorphism",
      [](const Values& source_data, const Values& target_data,
         const IsomorphismParameters& iso_params) {
        InterruptPoller poll;
        return optimize_isomorphism(source_data, target_data, iso_params, poll);
      },
      py::arg("source_data"), py::arg("target_data"),
      py::arg("iso_params") = IsomorphismParameters(), py::call_guard<py::gil_scoped_release>());
}

}  // namespace

void register_projection_module(py::module_& m) {
  bind_projection(m);
  bind_isomorphism_parameters(m);
  bind_isomorphism(m);
}

}  // namespace talvorix::python
