#include "core/parallel.h"
#include "module/callback_lock.h"
#include "module/conversions.h"
#include "module/pickling.h"
#include "module/registration.h"
#include "selection/covariance_error.h"
#include "selection/covariance_search.h"
#include "selection/cross_validation.h"
#include "selection/ellipsoid_fit.h"
#include "selection/ellipsoid_search.h"
#include "selection/fold.h"
#include "selection/local_ellipsoids.h"

#include <pybind11/pybind11.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace py = pybind11;

// A fold is a pair of a list of locations and a list of values.
template <>
struct pybind11::detail::type_caster<talvorix::Fold> {
  using Pair = std::pair<talvorix::Locations, std::vector<double>>;

  PYBIND11_TYPE_CASTER(talvorix::Fold, make_caster<Pair>::name);
  bool load(handle source, bool convert) {
    make_caster<Pair> pair;
    if (!pair.load(source, convert)) {
      return false;
    }
    std::tie(value.locations, value.values) = cast_op<Pair>(std::move(pair));
    return true;
  }
  static handle cast(talvorix::Fold fold, return_value_policy policy, handle parent) {
    return make_caster<Pair>::cast(Pair(std::move(fold.locations), std::move(fold.values)), policy,
                                   parent);
  }
};

namespace talvorix::python {

// A fold of a recipe is not read back as such: it is an argument.
template <>
struct Packed<Fold> {
  static py::object pack(const Fold& fold) {
    return py::make_tuple(Packed<Locations>::pack(fold.locations),
                          Packed<std::vector<double>>::pack(fold.values));
  }
};

namespace {

void bind_folds(py::module_& m) {
  m.def("create_folds", &create_folds, py::arg("data_locs"), py::arg("data"),
        py::arg("max_distance"), py::arg("max_size"), py::arg("n_centers"), py::arg("seed") = 21315,
        py::call_guard<py::gil_scoped_release>(), R"(
Cut folds out of a data set: the neighbourhoods of its highest value and of others.

Parameters
----------
data_locs : list of numpy.ndarray, or array of shape (n, 3)
data : list of float, or array of shape (n,)
max_distance : float
    How far a fold reaches from its centre.
max_size : int
    Largest number of data in a fold; below 1, and at n or more, all within `max_distance`.
n_centers : int
    Number of folds. The centres after the first are drawn from the upper half of the values, and may
    repeat.
seed : int, default 21315

Returns
-------
list of tuple of (list of numpy.ndarray, list of float)
    Locations and values of each fold. When there is none, one fold of all data.

Raises
------
ValueError
    When `data_locs` and `data` are not equally many, or there are none and `n_centers` is positive.
)");
}

void bind_cross_validation(py::module_& m) {
  m.def(
      "kfold_cross_validation_using_idw",
      [](const Locations& data_locs, std::vector<double> data_values, const CovarianceModel& covs,
         double max_distance, int max_size, double power_a, int min_partition_size,
         int max_partition_size, int n_partition_size, int n_threads, std::int64_t seed) {
        return kfold_cross_validation_using_idw(
            data_locs, std::move(data_values), covs,
            {max_distance, max_size, {min_partition_size, max_partition_size, n_partition_size}},
            power_a, seed, n_threads);
      },
      py::arg("data_locs"), py::arg("data_values"), py::arg("covs"), py::arg("max_distance"),
      py::arg("max_size") = -1, py::arg("power_a") = 3.0, py::arg("min_partition_size") = 10,
      py::arg("max_partition_size") = 40, py::arg("n_partition_size") = 15,
      py::arg("n_threads") = 0, py::arg("seed") = 123451, py::call_guard<py::gil_scoped_release>(),
      R"(
Predict every datum from random subsets of the data near it by inverse distance.

The model takes the part of the distance: a datum whose covariance with the predicted one is c has
the weight 1 / (1 - c)^power_a, and none when c is 1. The sills should add up to 1; nothing checks
that.

Parameters
----------
data_locs : list of numpy.ndarray, or array of shape (n, 3)
data_values : list of float, or array of shape (n,)
    Standardised before use: errors come in standard deviations.
covs : list of Covariance
    The model.
max_distance : float
    Data at this distance or further away are not used; Euclidean.
max_size : int, default -1
    How many of the nearest data, the datum itself among them, may be used. 0 stands for all within
    `max_distance`; so do negative numbers and those of n or more, which search nothing and look at
    every datum.
power_a : float, default 3
    Power of the inverse distance.
min_partition_size, max_partition_size : int, default 10 and 40
    Size of a random subset; drawn anew for each, and never more than there are data to use.
n_partition_size : int, default 15
    Number of subsets from which each datum is predicted.
n_threads : int, default 0
    Number of threads; 0 stands for all. The result depends on it, since each draws from an engine
    of its own.
seed : int, default 123451

Returns
-------
list of list of float
    For each datum and subset the estimate minus the value; NaN where there are fewer than three
    data to use, or where none of them has a weight.

Raises
------
ValueError
    When lists are not equally long, `covs` is empty, a count is negative or `max_partition_size` is
    below `min_partition_size`.

References
----------
Shepard, D. (1968). A two-dimensional interpolation function for irregularly-spaced data.
Proceedings of the 23rd ACM National Conference, 517-524.
)");
  m.def(
      "kfold_cross_validation_using_sk",
      [](const Locations& data_locs, std::vector<double> data_values, const CovarianceModel& covs,
         double max_distance, int max_size, int min_partition_size, int max_partition_size,
         int n_partition_size, int n_threads, std::int64_t seed) {
        return kfold_cross_validation_using_sk(
            data_locs, std::move(data_values), covs,
            {max_distance, max_size, {min_partition_size, max_partition_size, n_partition_size}},
            seed, n_threads);
      },
      py::arg("data_locs"), py::arg("data_values"), py::arg("covs"), py::arg("max_distance"),
      py::arg("max_size") = -1, py::arg("min_partition_size") = 10,
      py::arg("max_partition_size") = 40, py::arg("n_partition_size") = 15,
      py::arg("n_threads") = 0, py::arg("seed") = 123451, py::call_guard<py::gil_scoped_release>(),
      R"(
Predict every datum from random subsets of the data near it by simple kriging.

The known mean is that of the data.

Parameters
----------
data_locs : list of numpy.ndarray, or array of shape (n, 3)
data_values : list of float, or array of shape (n,)
    Standardised before use: errors come in standard deviations.
covs : list of Covariance
    The model.
max_distance : float
    Data at this distance or further away are not used; Euclidean.
max_size : int, default -1
    How many of the nearest data, the datum itself among them, may be used. 0 stands for all within
    `max_distance`; so do negative numbers and those of n or more, which search nothing and look at
    every datum.
min_partition_size, max_partition_size : int, default 10 and 40
    Size of a random subset; drawn anew for each, and never more than there are data to use.
n_partition_size : int, default 15
    Number of subsets from which each datum is predicted.
n_threads : int, default 0
    Number of threads; 0 stands for all. The result depends on it, since each draws from an engine
    of its own.
seed : int, default 123451

Returns
-------
list of list of float
    For each datum and subset the estimate minus the value; NaN where there are fewer than three
    data to use.

Raises
------
ValueError
    When lists are not equally long, `covs` is empty, a count is negative or `max_partition_size` is
    below `min_partition_size`.

References
----------
Chiles, J.-P. and Delfiner, P. (2012). Geostatistics: Modeling Spatial Uncertainty, 2nd ed.,
section 2.6.
)");
  m.def(
      "kfold_cross_validation_using_ok",
      [](const Locations& data_locs, std::vector<double> data_values, const CovarianceModel& covs,
         double max_distance, int max_size, int min_partition_size, int max_partition_size,
         int n_partition_size, int n_threads, std::int64_t seed) {
        return kfold_cross_validation_using_ok(
            data_locs, std::move(data_values), covs,
            {max_distance, max_size, {min_partition_size, max_partition_size, n_partition_size}},
            seed, n_threads);
      },
      py::arg("data_locs"), py::arg("data_values"), py::arg("covs"), py::arg("max_distance"),
      py::arg("max_size") = -1, py::arg("min_partition_size") = 10,
      py::arg("max_partition_size") = 40, py::arg("n_partition_size") = 15,
      py::arg("n_threads") = 0, py::arg("seed") = 123451, py::call_guard<py::gil_scoped_release>(),
      R"(
Predict every datum from random subsets of the data near it by ordinary kriging.

The estimate includes the Lagrange multiplier, as `compute_ordinary_kriging` does.

Parameters
----------
data_locs : list of numpy.ndarray, or array of shape (n, 3)
data_values : list of float, or array of shape (n,)
    Standardised before use: errors come in standard deviations.
covs : list of Covariance
    The model.
max_distance : float
    Data at this distance or further away are not used; Euclidean.
max_size : int, default -1
    How many of the nearest data, the datum itself among them, may be used. 0 stands for all within
    `max_distance`; so do negative numbers and those of n or more, which search nothing and look at
    every datum.
min_partition_size, max_partition_size : int, default 10 and 40
    Size of a random subset; drawn anew for each, and never more than there are data to use.
n_partition_size : int, default 15
    Number of subsets from which each datum is predicted.
n_threads : int, default 0
    Number of threads; 0 stands for all. The result depends on it, since each draws from an engine
    of its own.
seed : int, default 123451

Returns
-------
list of list of float
    For each datum and subset the estimate minus the value; NaN where there are fewer than three
    data to use.

Raises
------
ValueError
    When lists are not equally long, `covs` is empty, a count is negative or `max_partition_size` is
    below `min_partition_size`.

References
----------
Chiles, J.-P. and Delfiner, P. (2012). Geostatistics: Modeling Spatial Uncertainty, 2nd ed.,
section 2.6.
)");
}

// A Python callable that may be copied and dropped by any thread, with or without the interpreter
// lock.
std::shared_ptr<const py::function> shareable(py::function callback) {
  return {new py::function(std::move(callback)), [](const py::function* held) {
            const py::gil_scoped_acquire interpreter_lock;
            delete held;
          }};
}

CovarianceErrorFunction custom_error(py::function python_callback) {
  const bool needs_interpreter = true;
  return CovarianceErrorFunction(
      [callback = shareable(std::move(python_callback))](const CovarianceModel& covariance,
                                                         int n_threads, PollRef) {
        const CallbackGuard guard;
        return returned_number((*callback)(covariance, n_threads),
                               [] { return "python_callback"; });
      },
      needs_interpreter);
}

void bind_error_function(py::module_& m) {
  py::class_<CovarianceErrorFunction> cls(m, "CovarianceErrorFunction", R"(
How badly a covariance model predicts: what a search makes small. Made by `IDW` or `Custom`.
)");
  def_static_factory(
      cls, "IDW",
      [](const std::vector<Fold>& folds, double max_distance, double power_a,
         int min_partition_size, int max_partition_size, int n_partitions,
         double regularization_const, std::int64_t seed) {
        constexpr int every_datum = -1;
        return create_covariance_idw_error(
            folds,
            {{max_distance, every_datum, {min_partition_size, max_partition_size, n_partitions}},
             power_a,
             regularization_const,
             seed},
            0);
      },
      py::arg("folds"), py::arg("max_distance"), py::arg("power_a") = 3.0,
      py::arg("min_partition_size") = 15, py::arg("max_partition_size") = 25,
      py::arg("n_partitions") = 5, py::arg("regularization_const") = 0.001, py::arg("seed") = 21314,
      R"(
Make the error of `compute_covariance_error_idw` on given folds, of which it keeps a copy.

Parameters
----------
folds : list of tuple of (locations, values)
    As `create_folds` makes them.
max_distance : float
    Data at this distance or further away are not used; Euclidean.
power_a : float, default 3
min_partition_size, max_partition_size, n_partitions : int, default 15, 25 and 5
regularization_const : float, default 0.001
seed : int, default 21314

Returns
-------
CovarianceErrorFunction

Raises
------
ValueError
    When the lists of a fold are not equally long, a count is negative or `max_partition_size` is
    below `min_partition_size`.
)");
  def_static_factory(cls, "Custom", &custom_error, py::arg("python_callback"), R"(
Make an error out of a function of your own.

Parameters
----------
python_callback : callable
    Is given a model, as a list of Covariance, and the number of threads it may use, and returns a
    number; a model of error NaN is never the best. Whatever the number of threads of a search, it is
    called by one at a time. What it raises arrives at the caller of the search.

Returns
-------
CovarianceErrorFunction
)");
  cls.def(
      "__call__",
      [](const CovarianceErrorFunction& self, const CovarianceModel& covariance, int n_threads) {
        return self(covariance, n_threads);
      },
      py::arg("covariance"), py::arg("n_threads") = 0, R"(
Compute the error of a model.

Parameters
----------
covariance : list of Covariance
n_threads : int, default 0
    Number of threads; 0 stands for all.

Returns
-------
float
)");
  define_recipe(cls);
}

constexpr auto error_doc = R"(
Measure how badly a model predicts, by cross-validation with inverse distances in its own metric.

Each fold is cross-validated as by `kfold_cross_validation_using_idw` on one thread, and the mean
absolute error is taken. It is multiplied by 1 + regularization_const R, where R is the sum of
log(1 + range^2) over the three ranges of every structure. With several threads the means of each
thread's folds are added up: compare errors of one thread count only.

Parameters
----------
cov : list of Covariance
    The model; `compute_ellipsoid_error_idw` takes an `ellipsoid` and a `cov_kernel` in its place and
    makes the model of one structure with sill 1.
folds : list of tuple of (locations, values)
    As `create_folds` makes them.
max_distance : float
max_size : int
power_a : float
min_partition_size, max_partition_size, n_partitions : int
    As for `kfold_cross_validation_using_idw`.
regularization_const : float
n_threads : int, default 0
    Number of threads; 0 stands for all.
seed : int, default 2131
    Seed of the subsets, the same for every fold.

Returns
-------
float
    0 when nothing at all could be predicted.

Raises
------
ValueError
    When `cov` is empty, the lists of a fold are not equally long, a count is negative or
    `max_partition_size` is below `min_partition_size`.
)";

void bind_errors(py::module_& m) {
  m.def(
      "compute_covariance_error_idw",
      [](const CovarianceModel& cov, const std::vector<Fold>& folds, double max_distance,
         int max_size, double power_a, int min_partition_size, int max_partition_size,
         int n_partitions, double regularization_const, int n_threads, std::int64_t seed) {
        return compute_covariance_error_idw(
            cov, folds,
            {{max_distance, max_size, {min_partition_size, max_partition_size, n_partitions}},
             power_a,
             regularization_const,
             seed},
            n_threads);
      },
      py::arg("cov"), py::arg("folds"), py::arg("max_distance"), py::arg("max_size"),
      py::arg("power_a"), py::arg("min_partition_size"), py::arg("max_partition_size"),
      py::arg("n_partitions"), py::arg("regularization_const"), py::arg("n_threads") = 0,
      py::arg("seed") = 2131, py::call_guard<py::gil_scoped_release>(), error_doc);
  m.def(
      "compute_ellipsoid_error_idw",
      [](const Ellipsoid& ellipsoid, const Kernel& cov_kernel, const std::vector<Fold>& folds,
         double max_distance, int max_size, double power_a, int min_partition_size,
         int max_partition_size, int n_partitions, double regularization_const, int n_threads,
         std::int64_t seed) {
        return compute_ellipsoid_error_idw(
            ellipsoid, cov_kernel, folds,
            {{max_distance, max_size, {min_partition_size, max_partition_size, n_partitions}},
             power_a,
             regularization_const,
             seed},
            n_threads);
      },
      py::arg("ellipsoid"), py::arg("cov_kernel"), py::arg("folds"), py::arg("max_distance"),
      py::arg("max_size"), py::arg("power_a"), py::arg("min_partition_size"),
      py::arg("max_partition_size"), py::arg("n_partitions"), py::arg("regularization_const"),
      py::arg("n_threads") = 0, py::arg("seed") = 2131, py::call_guard<py::gil_scoped_release>(),
      error_doc);
}

auto to_tuple(ScoredCovariance scored) { return std::pair(std::move(scored.model), scored.error); }
auto to_tuple(const ScoredEllipsoid& scored) { return std::pair(scored.ellipsoid, scored.error); }

void bind_searches(py::module_& m) {
  m.def(
      "optimize_covariance",
      [](const std::vector<CovarianceModel>& covs, const CovarianceErrorFunction& error_function,
         int n_iterations, int n_iterations_without_upgrade, int n_threads, bool debug) {
        const CovarianceSearch search{n_iterations, n_iterations_without_upgrade, debug};
        const auto run = [&] {
          return optimize_covariance(covs, error_function, search, n_threads);
        };
        if (error_function.needs_interpreter()) {
          std::optional<SerialRegions> on_this_thread;
          if (inside_callback()) {
            on_this_thread.emplace();
          }
          // The workers take the lock in turn.
          const py::gil_scoped_release released;
          return to_tuple(run());
        }
        return to_tuple(run());
      },
      py::arg("covs"), py::arg("error_function"), py::arg("n_iterations") = 8000,
      py::arg("n_iterations_without_upgrade") = 8000, py::arg("n_threads") = 0,
      py::arg("debug") = false, R"(
Search for the covariance model of the smallest error.

First the given models are scanned, each thread taking a contiguous stretch of them. Then each thread
perturbs the best it knows: ranges shrink to 0.1 to 1 times what they were, angles move by up to 15
degrees, and what is better is kept. Nuggets and sills stay.

Parameters
----------
covs : list of list of Covariance
    The models to try.
error_function : CovarianceErrorFunction
n_iterations : int
    Bound of the models that each thread scans while any thread is active, and number of
    perturbations tried after the scan. A thread stops being active after as many models as there
    are threads, so that usually all are scanned.
n_iterations_without_upgrade : int
    Bound, in the same way, of the models scanned without an improvement.
n_threads : int, default 0
    Number of threads; 0 stands for all. The result depends on it.
debug : bool, default False
    Whether progress is printed, on standard output and on standard error.

Returns
-------
tuple of (list of Covariance, float)
    The best model and its error. The first model is scored with all threads, all others with one.

Raises
------
ValueError
    When `covs` is empty or `n_iterations` is negative.
)");
  m.def(
      "optimize_ellipsoid_using_idw",
      [](const Locations& data_locs, const std::vector<double>& data, const Kernel& cov_kernel,
         double min_range, double max_range, double power_a, double max_distance, int max_nei_size,
         int min_partition_size, int max_partition_size, int n_partitions,
         double regularization_const, int n_centers, int n_rays, int n_scales, int n_iterations,
         int n_iterations_without_upgrade, double tol, std::int64_t seed, int n_threads,
         bool debug) {
        return to_tuple(optimize_ellipsoid_using_idw(
            data_locs, data, cov_kernel, min_range, max_range, max_distance,
            {power_a, max_nei_size, min_partition_size, max_partition_size, n_partitions, n_centers,
             n_rays, n_scales, n_iterations, n_iterations_without_upgrade, tol,
             regularization_const, seed, n_threads, debug}));
      },
      py::arg("data_locs"), py::arg("data"), py::arg("cov_kernel"), py::arg("min_range"),
      py::arg("max_range"), py::arg("power_a"), py::arg("max_distance"), py::arg("max_nei_size"),
      py::arg("min_partition_size"), py::arg("max_partition_size"), py::arg("n_partitions"),
      py::arg("regularization_const"), py::arg("n_centers"), py::arg("n_rays"), py::arg("n_scales"),
      py::arg("n_iterations"), py::arg("n_iterations_without_upgrade"), py::arg("tol"),
      py::arg("seed") = 12315, py::arg("n_threads") = 0, py::arg("debug") = true,
      py::call_guard<py::gil_scoped_release>(), R"(
Search for the ellipsoid in whose metric inverse distances predict the data best.

The candidates of `generate_ellipsoids`, as models of one structure with sill 1, are scored by
cross-validation on folds that `create_folds` cuts out, and searched as by `optimize_covariance`.

Parameters
----------
data_locs : list of numpy.ndarray, or array of shape (n, 3)
data : list of float, or array of shape (n,)
cov_kernel : Kernel
min_range, max_range : float
    Bounds of the length of the vector whose components are a candidate's ranges.
power_a : float
    Power of the inverse distance.
max_distance : float
    Reach of a fold around its centre, and of the data that a prediction may use; Euclidean.
max_nei_size : int
    Largest number of data in a fold; at or below 0 all within `max_distance`.
min_partition_size, max_partition_size, n_partitions : int
    Sizes and number of the random subsets from which each datum of a fold is predicted.
regularization_const : float
    Weight of the penalty on long ranges: the error is multiplied by 1 plus this times the sum of
    log(1 + range^2) over the ranges, in the units of the coordinates. Where those are small beside
    the field, even a small weight outweighs the fit and drives the ranges toward 0.
n_centers : int
    Number of folds.
n_rays, n_scales, tol
    Of the candidates; see `generate_ellipsoids`.
n_iterations : int
    Bound of the models that each thread scans while any thread is active, and number of
    perturbations tried after the scan. A thread stops being active after as many models as there
    are threads, so that usually all are scanned.
n_iterations_without_upgrade : int
    Bound, in the same way, of the models scanned without an improvement.
seed : int, default 12315
n_threads : int, default 0
    Number of threads; 0 stands for all. The result depends on it.
debug : bool, default True
    Whether progress is printed, on standard output and on standard error.

Returns
-------
tuple of (Ellipsoid, float)
    The best ellipsoid and its error.

Raises
------
ValueError
    When lists are not equally long, there is no candidate, a count is negative or
    `max_partition_size` is below `min_partition_size`.
)");
  m.def(
      "optimize_covariance_using_idw",
      [](const Locations& data_locs, const std::vector<double>& data, const Ellipsoid& ellipsoid,
         const Kernel& cov_kernel, int n_kernels, int n_covs, double delta_angle,
         double min_str_range, double max_str_range, double min_sill, double max_sill,
         double /*min_range*/, double /*max_range*/, double power_a, double max_distance,
         int max_nei_size, int min_partition_size, int max_partition_size, int n_partitions,
         double regularization_const, int n_centers, int n_rays, int n_scales, int n_iterations,
         int n_iterations_without_upgrade, double tol, std::int64_t seed, int n_threads,
         bool debug) {
        return to_tuple(optimize_covariance_using_idw(
            data_locs, data, ellipsoid, cov_kernel,
            {n_kernels, n_covs, delta_angle, min_str_range, max_str_range, min_sill, max_sill},
            max_distance,
            {power_a, max_nei_size, min_partition_size, max_partition_size, n_partitions, n_centers,
             n_rays, n_scales, n_iterations, n_iterations_without_upgrade, tol,
             regularization_const, seed, n_threads, debug}));
      },
      py::arg("data_locs"), py::arg("data"), py::arg("ellipsoid"), py::arg("cov_kernel"),
      py::arg("n_kernels"), py::arg("n_covs"), py::arg("delta_angle"), py::arg("min_str_range"),
      py::arg("max_str_range"), py::arg("min_sill"), py::arg("max_sill"), py::arg("min_range"),
      py::arg("max_range"), py::arg("power_a"), py::arg("max_distance"), py::arg("max_nei_size"),
      py::arg("min_partition_size"), py::arg("max_partition_size"), py::arg("n_partitions"),
      py::arg("regularization_const"), py::arg("n_centers"), py::arg("n_rays"), py::arg("n_scales"),
      py::arg("n_iterations"), py::arg("n_iterations_without_upgrade"), py::arg("tol"),
      py::arg("seed") = 12315, py::arg("n_threads") = 0, py::arg("debug") = true, R"(
Search for the nested covariance model whose inverse distances predict the data best.

The candidates of `generate_covariances` are scored as by `optimize_ellipsoid_using_idw`.

Parameters
----------
data_locs : list of numpy.ndarray, or array of shape (n, 3)
data : list of float, or array of shape (n,)
ellipsoid, cov_kernel, n_kernels, n_covs, delta_angle
    Of the candidates; see `generate_covariances`.
min_str_range, max_str_range, min_sill, max_sill
    The same.
power_a : float
    Power of the inverse distance.
max_distance : float
    Reach of a fold around its centre, and of the data that a prediction may use; Euclidean.
max_nei_size : int
    Largest number of data in a fold; at or below 0 all within `max_distance`.
min_partition_size, max_partition_size, n_partitions : int
    Sizes and number of the random subsets from which each datum of a fold is predicted.
regularization_const : float
    Weight of the penalty on long ranges: the error is multiplied by 1 plus this times the sum of
    log(1 + range^2) over the ranges, in the units of the coordinates. Where those are small beside
    the field, even a small weight outweighs the fit and drives the ranges toward 0.
n_centers : int
    Number of folds.
n_iterations : int
    Bound of the models that each thread scans while any thread is active, and number of
    perturbations tried after the scan. A thread stops being active after as many models as there
    are threads, so that usually all are scanned.
n_iterations_without_upgrade : int
    Bound, in the same way, of the models scanned without an improvement.
min_range, max_range, n_rays, n_scales, tol
    Have no effect; they make the arguments those of `optimize_ellipsoid_using_idw`.
seed : int, default 12315
n_threads : int, default 0
    Number of threads; 0 stands for all. The result depends on it.
debug : bool, default True
    Whether progress is printed, on standard output and on standard error.

Returns
-------
tuple of (list of Covariance, float)
    The best model and its error.

Raises
------
ValueError
    As for `optimize_ellipsoid_using_idw`.
)");
  using Parameters = EllipsoidOptimizationParameters;
  const Parameters defaults;
  py::class_<Parameters> cls(m, "EllipsoidOptimizationParameters", R"(
Settings of `optimize_ellipsoid`, as fields that can be read and written; see
`optimize_ellipsoid_using_idw` for what they mean.
)");
  cls.def(py::init([](double power_a, int max_nei_size, int min_partition_size,
                      int max_partition_size, int n_partitions, int n_centers, int n_rays,
                      int n_scales, int n_iterations, int n_iterations_without_upgrade, double tol,
                      double regularization_const, std::int64_t seed, int n_threads, bool debug) {
            return Parameters{power_a,
                              max_nei_size,
                              min_partition_size,
                              max_partition_size,
                              n_partitions,
                              n_centers,
                              n_rays,
                              n_scales,
                              n_iterations,
                              n_iterations_without_upgrade,
                              tol,
                              regularization_const,
                              seed,
                              n_threads,
                              debug};
          }),
          py::arg("power_a") = defaults.power_a, py::arg("max_nei_size") = defaults.max_nei_size,
          py::arg("min_partition_size") = defaults.min_partition_size,
          py::arg("max_partitions_size") = defaults.max_partition_size,
          py::arg("n_partitions") = defaults.n_partitions,
          py::arg("n_centers") = defaults.n_centers, py::arg("n_rays") = defaults.n_rays,
          py::arg("n_scales") = defaults.n_scales, py::arg("n_iterations") = defaults.n_iterations,
          py::arg("n_iterations_without_upgrade") = defaults.n_iterations_without_upgrade,
          py::arg("tol") = defaults.tol,
          py::arg("regularization_const") = defaults.regularization_const,
          py::arg("seed") = defaults.seed, py::arg("n_threads") = defaults.n_threads,
          py::arg("debug") = defaults.debug,
          "Make settings. The field `max_partition_size` is spelt `max_partitions_size` here.")
      .def_readwrite("power_a", &Parameters::power_a, "Power of the inverse distance.")
      .def_readwrite("max_nei_size", &Parameters::max_nei_size, "Largest number of data in a fold.")
      .def_readwrite("min_partition_size", &Parameters::min_partition_size,
                     "Smallest random subset.")
      .def_readwrite("max_partition_size", &Parameters::max_partition_size,
                     "Largest random subset.")
      .def_readwrite("n_partitions", &Parameters::n_partitions, "Number of subsets for each datum.")
      .def_readwrite("n_centers", &Parameters::n_centers, "Number of folds.")
      .def_readwrite("n_rays", &Parameters::n_rays, "Half the number of directions.")
      .def_readwrite("n_scales", &Parameters::n_scales, "Half the number of shapes for each frame.")
      .def_readwrite("n_iterations", &Parameters::n_iterations,
                     "Number of perturbations, and bound of the scan.")
      .def_readwrite("n_iterations_without_upgrade", &Parameters::n_iterations_without_upgrade,
                     "Bound of the scan without improvement.")
      .def_readwrite("tol", &Parameters::tol, "Largest cosine between the axes of a frame.")
      .def_readwrite("regularization_const", &Parameters::regularization_const,
                     "Weight of the penalty on long ranges.")
      .def_readwrite("seed", &Parameters::seed, "Seed of candidates and folds.")
      .def_readwrite("n_threads", &Parameters::n_threads, "Number of threads; 0 stands for all.")
      .def_readwrite("debug", &Parameters::debug, "Whether progress is printed.");
  cls.def("__repr__", [](const Parameters& p) {
    const py::dict fields(
        py::arg("power_a") = p.power_a, py::arg("max_nei_size") = p.max_nei_size,
        py::arg("min_partition_size") = p.min_partition_size,
        py::arg("max_partitions_size") = p.max_partition_size,
        py::arg("n_partitions") = p.n_partitions, py::arg("n_centers") = p.n_centers,
        py::arg("n_rays") = p.n_rays, py::arg("n_scales") = p.n_scales,
        py::arg("n_iterations") = p.n_iterations,
        py::arg("n_iterations_without_upgrade") = p.n_iterations_without_upgrade,
        py::arg("tol") = p.tol, py::arg("regularization_const") = p.regularization_const,
        py::arg("seed") = p.seed, py::arg("n_threads") = p.n_threads, py::arg("debug") = p.debug);
    return shown_call("EllipsoidOptimizationParameters", fields);
  });
  define_value(
      cls,
      [](const Parameters& p) {
        return std::tie(p.power_a, p.max_nei_size, p.min_partition_size, p.max_partition_size,
                        p.n_partitions, p.n_centers, p.n_rays, p.n_scales, p.n_iterations,
                        p.n_iterations_without_upgrade, p.tol, p.regularization_const, p.seed,
                        p.n_threads, p.debug);
      },
      [](auto... fields) { return Parameters{fields...}; }, Hashing::none);
  m.def(
      "optimize_ellipsoid",
      [](const Locations& data_locs, const std::vector<double>& data, const Kernel& cov_kernel,
         double min_range, double max_range, const Parameters& parameters) {
        return to_tuple(
            optimize_ellipsoid(data_locs, data, cov_kernel, min_range, max_range, parameters));
      },
      py::arg("data_locs"), py::arg("data"), py::arg("cov_kernel"), py::arg("min_range"),
      py::arg("max_range"), py::arg_v("parameters", defaults, "EllipsoidOptimizationParameters()"),
      py::call_guard<py::gil_scoped_release>(), R"(
Search for the ellipsoid in whose metric inverse distances predict the data best, in parts of the
field's size.

Parameters
----------
data_locs : list of numpy.ndarray, or array of shape (n, 3)
data : list of float, or array of shape (n,)
cov_kernel : Kernel
min_range, max_range : float
    As for `optimize_ellipsoid_using_idw`, in parts of the diagonal of the data's bounding box. The
    diagonal is also the `max_distance`.
parameters : EllipsoidOptimizationParameters, optional
    All other settings.

Returns
-------
tuple of (Ellipsoid, float)
    The best ellipsoid and its error.

Raises
------
ValueError
    As for `optimize_ellipsoid_using_idw`, or when there are no data.
)");
}

void bind_ellipsoid_fit(py::module_& m) {
  using Parameters = EllipsoidLBFGSParameters;
  const Parameters defaults;
  py::class_<Parameters> cls(m, "EllipsoidLBFGSParameters", R"(
Settings of `optimize_local_ellipsoids_using_lbfgs`, as fields that can be read and written; see
`optimize_ellipsoid_using_kfold` for what they mean.
)");
  cls.def(py::init([](double regularization_const, double cauchy_loss, int min_partition_size,
                      int max_partition_size, int n_partitions, int n_iterations, std::int64_t seed,
                      int n_threads, bool debug) {
            return Parameters{regularization_const,
                              cauchy_loss,
                              min_partition_size,
                              max_partition_size,
                              n_partitions,
                              n_iterations,
                              seed,
                              n_threads,
                              debug};
          }),
          py::arg("regularization_const") = defaults.regularization_const,
          py::arg("cauchy_loss") = defaults.cauchy_loss,
          py::arg("min_partition_size") = defaults.min_partition_size,
          py::arg("max_partition_size") = defaults.max_partition_size,
          py::arg("n_partitions") = defaults.n_partitions,
          py::arg("n_iterations") = defaults.n_iterations, py::arg("seed") = defaults.seed,
          py::arg("n_threads") = defaults.n_threads, py::arg("debug") = defaults.debug,
          "Make settings.")
      .def_readwrite("regularization_const", &Parameters::regularization_const,
                     "Weight of the regularisation of the ranges.")
      .def_readwrite("cauchy_loss", &Parameters::cauchy_loss,
                     "Scale of Cauchy's loss; below 1e-10 none.")
      .def_readwrite("min_partition_size", &Parameters::min_partition_size,
                     "Smallest number of data that predict the others of a fold.")
      .def_readwrite("max_partition_size", &Parameters::max_partition_size, "Bound of that number.")
      .def_readwrite("n_partitions", &Parameters::n_partitions,
                     "Number of random partitions of each fold.")
      .def_readwrite("n_iterations", &Parameters::n_iterations, "Largest number of iterations.")
      .def_readwrite("seed", &Parameters::seed, "Seed of folds and partitions.")
      .def_readwrite("n_threads", &Parameters::n_threads, "Number of threads; 0 stands for all.")
      .def_readwrite("debug", &Parameters::debug, "Whether progress is printed.");
  cls.def("__repr__", [](const Parameters& p) {
    const py::dict fields(py::arg("regularization_const") = p.regularization_const,
                          py::arg("cauchy_loss") = p.cauchy_loss,
                          py::arg("min_partition_size") = p.min_partition_size,
                          py::arg("max_partition_size") = p.max_partition_size,
                          py::arg("n_partitions") = p.n_partitions,
                          py::arg("n_iterations") = p.n_iterations, py::arg("seed") = p.seed,
                          py::arg("n_threads") = p.n_threads, py::arg("debug") = p.debug);
    return shown_call("EllipsoidLBFGSParameters", fields);
  });
  define_value(
      cls,
      [](const Parameters& p) {
        return std::tie(p.regularization_const, p.cauchy_loss, p.min_partition_size,
                        p.max_partition_size, p.n_partitions, p.n_iterations, p.seed, p.n_threads,
                        p.debug);
      },
      [](auto... fields) { return Parameters{fields...}; }, Hashing::none);
  m.def(
      "optimize_ellipsoid_using_kfold",
      [](const std::vector<Fold>& folds, const std::string& cov_type, double r1_max, double r2_max,
         double r3_max, double regularization_const, double cauchy_loss, int min_partition_size,
         int max_partition_size, int n_partitions, int n_iterations, std::int64_t seed,
         int n_threads, bool debug) {
        const FittedEllipsoid fitted = optimize_ellipsoid_using_kfold(
            folds, parse_covariance_type(cov_type), Vector3(r1_max, r2_max, r3_max),
            {regularization_const, cauchy_loss, min_partition_size, max_partition_size,
             n_partitions, n_iterations, seed, n_threads, debug});
        return std::pair(fitted.ellipsoid,
                         std::vector<double>(fitted.parameters.begin(), fitted.parameters.end()));
      },
      py::arg("folds"), py::arg("cov_type"), py::arg("r1_max"), py::arg("r2_max"),
      py::arg("r3_max"), py::arg("regularization_const"), py::arg("cauchy_loss"),
      py::arg("min_partition_size"), py::arg("max_partition_size"), py::arg("n_partitions"),
      py::arg("n_iterations"), py::arg("seed"), py::arg("n_threads"), py::arg("debug"), R"(
Fit the ellipsoid in whose metric inverse distances predict the data of folds best, by bounded least
squares.

Every fold is cut at random, `n_partitions` times, into data that predict and data that are
predicted. A datum whose covariance with the predicted one is c has the weight (1 - c)^-3, where c
is the sill times the correlation. The errors of the predictions, twice as large and those above 1
brought down to 2 sqrt(|r|) - 1, are the residuals, and so is twice their mean for each partition.
The search starts from a sill of 0.5, half the largest ranges and angles of 0; it follows exact
derivatives and finds the nearest minimum.

Parameters
----------
folds : list of tuple of (locations, values)
    As `create_folds` makes them. Values are standardised, all folds together. Folds of fewer than
    three data are left out.
cov_type : str
    "spherical", "gaussian", "exponential" or "idw"; any other text is a nugget, which has no
    metric to be found.
r1_max, r2_max, r3_max : float
    Largest ranges; the smallest are 0.001 of them.
regularization_const : float
    Weight c of three more residuals, c / (1 + t^2) with t = (range - largest) / largest, and of a
    faint one that draws the sill to 1. 0 or less leaves them out.
cauchy_loss : float
    Scale of Cauchy's loss of each partition, which lets those that fit badly count less; below
    1e-10 there is none.
min_partition_size, max_partition_size : int
    The number of data that predict is drawn from the first up to, but not including, the second.
    In a fold of no more data than that, all but two predict.
n_partitions : int
    Number of random partitions of each fold.
n_iterations : int
    Largest number of iterations.
seed : int
n_threads : int
    Number of threads; 0 stands for all. The result does not depend on it.
debug : bool
    Whether the solver's progress is printed on standard output and its report on standard error.

Returns
-------
tuple of (Ellipsoid, list of float)
    The ellipsoid, with its axes in order, and what was fitted: the sill, the ranges r1, r2 and r3
    and three angles a, b and c in radians, such that azimuth = 90 - a, dip = -b and rake = c in
    degrees. Where the fit cannot start, as for equal values, it is the start.

Raises
------
ValueError
    When there are no folds, the lists of a fold are not equally long, a location or a value is not
    finite, a largest range is not above 0, a count is negative or `max_partition_size` is below
    `min_partition_size`.

Notes
-----
An iteration costs one covariance for each pair of a datum that predicts and one that is predicted,
and about twice that for the derivatives.

References
----------
Levenberg, K. (1944). A method for the solution of certain non-linear problems in least squares.
Quarterly of Applied Mathematics 2, 164-168.
Marquardt, D. W. (1963). An algorithm for least-squares estimation of nonlinear parameters. Journal
of the Society for Industrial and Applied Mathematics 11, 431-441.
)");
}

void bind_local_ellipsoids(py::module_& m) {
  m.def(
      "optimize_local_ellipsoids",
      [](const Locations& data_locs, const std::vector<double>& data, const Kernel& cov_kernel,
         double min_range, double max_range, int n_centers, double center_max_size, int center_size,
         const EllipsoidOptimizationParameters& ellipsoid_opt_params) {
        return optimize_local_ellipsoids(data_locs, data, cov_kernel, min_range, max_range,
                                         {n_centers, center_max_size, center_size},
                                         ellipsoid_opt_params);
      },
      py::arg("data_locs"), py::arg("data"), py::arg("cov_kernel"), py::arg("min_range"),
      py::arg("max_range"), py::arg("n_centers"), py::arg("center_max_size"),
      py::arg("center_size"),
      py::arg_v("ellipsoid_opt_params", EllipsoidOptimizationParameters(),
                "EllipsoidOptimizationParameters()"),
      py::call_guard<py::gil_scoped_release>(), R"(
Search for an ellipsoid of its own in each of several areas of the data, by random search.

The areas are folds as `create_folds` makes them, around the highest value and others of the upper
half. In each of them `optimize_ellipsoid_using_idw` searches.

Parameters
----------
data_locs : list of numpy.ndarray, or array of shape (n, 3)
data : list of float, or array of shape (n,)
cov_kernel : Kernel
min_range, max_range : float
    Shortest and longest ranges to try, in parts of the diagonal of an area's bounding box. The
    diagonal is also the `max_distance` of the search.
n_centers : int
    Number of areas. Below 1 all data are one.
center_max_size : float
    How far an area reaches from its centre: this many times the diagonal of all data over
    `n_centers`.
center_size : int
    Largest number of data in an area; below 1, and at n or more, all within reach.
ellipsoid_opt_params : EllipsoidOptimizationParameters, optional
    All other settings. Its `n_centers` and `max_nei_size` are those of the folds within an area.
    With `debug`, progress is printed on standard output and on standard error.

Returns
-------
LocalCovariances
    For each area the mean of its locations, a model of one structure with sill 1 and its error.
    Depends on the number of threads, as `optimize_ellipsoid_using_idw` does.

Raises
------
ValueError
    As for `optimize_ellipsoid_using_idw`, or when there are no data.

Notes
-----
The areas are searched one after the other; the cost is that of so many searches.
)");
  m.def(
      "optimize_local_ellipsoids_using_lbfgs",
      [](const Locations& data_locs, const std::vector<double>& data, const std::string& cov_type,
         int n_centers, int n_local_centers, double center_max_size, int center_size,
         int local_center_size, double max_local_range,
         const EllipsoidLBFGSParameters& ellipsoid_opt_params) {
        return optimize_local_ellipsoids_using_lbfgs(
            data_locs, data, parse_covariance_type(cov_type),
            {n_centers, center_max_size, center_size},
            {n_local_centers, local_center_size, max_local_range}, ellipsoid_opt_params);
      },
      py::arg("data_locs"), py::arg("data"), py::arg("cov_type"), py::arg("n_centers"),
      py::arg("n_local_centers"), py::arg("center_max_size"), py::arg("center_size"),
      py::arg("local_center_size"), py::arg("max_local_range"), py::arg("ellipsoid_opt_params"),
      py::call_guard<py::gil_scoped_release>(), R"(
Fit an ellipsoid of its own in each of several areas of the data, by bounded least squares.

The areas are folds as `create_folds` makes them, and each is cut into folds again, to which
`optimize_ellipsoid_using_kfold` fits. Its `regularization_const` is that of the settings times
their `n_partitions` and the number of folds. The error of an ellipsoid is that of
`compute_ellipsoid_error_idw` on all areas, with the power 3 and the radius of an area as the
`max_distance`.

Parameters
----------
data_locs : list of numpy.ndarray, or array of shape (n, 3)
data : list of float, or array of shape (n,)
cov_type : str
    "spherical", "gaussian", "exponential" or "idw"; any other text is a nugget, which has no
    metric to be found.
n_centers : int
    Number of areas. Below 1 all data are one.
n_local_centers : int
    Number of folds of an area.
center_max_size : float
    How far an area, or a fold of it, reaches from its centre: this many times the diagonal of all
    data over `n_centers`.
center_size, local_center_size : int
    Largest number of data in an area and in a fold of it; below 1, and at their number or more, all
    within reach.
max_local_range : float
    Largest range, in the units of the coordinates.
ellipsoid_opt_params : EllipsoidLBFGSParameters
    All other settings. With `debug`, progress is printed on standard output and on standard error.

Returns
-------
LocalCovariances
    For each area the mean of its locations, a model of one structure with sill 1 and its error. The
    errors add up to 1. The ellipsoids do not depend on the number of threads; the errors do, as
    those of `compute_ellipsoid_error_idw`.

Raises
------
ValueError
    When `data_locs` and `data` are not equally many, there are none or one is not finite,
    `max_local_range` is not above 0, a count is negative or `max_partition_size` is below
    `min_partition_size`.

Notes
-----
The areas are fitted one after the other, and each is scored on all: fits cost in proportion to
`n_centers`, scoring to its square.
)");
}

}  // namespace

void register_kfold_module(py::module_& m) {
  bind_folds(m);
  bind_cross_validation(m);
}

void register_optimization_module(py::module_& m) {
  bind_error_function(m);
  bind_errors(m);
  bind_searches(m);
  bind_ellipsoid_fit(m);
  bind_local_ellipsoids(m);
}

}  // namespace talvorix::python
