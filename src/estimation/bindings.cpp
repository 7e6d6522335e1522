#include "core/arguments.h"
#include "estimation/ensemble_ellipsoid.h"
#include "estimation/ensemble_estimation.h"
#include "estimation/estimator.h"
#include "estimation/idw.h"
#include "estimation/kriging.h"
#include "estimation/local_covariances.h"
#include "module/conversions.h"
#include "module/pickling.h"
#include "module/registration.h"

#include <pybind11/pybind11.h>

#include <cstddef>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace py = pybind11;

namespace talvorix::python {

namespace {

std::pair<std::vector<double>, std::vector<double>> to_pair(KrigingResult result) {
  return {std::move(result.estimates), std::move(result.variances)};
}

void bind_estimator(py::module_& m) {
  py::class_<Estimator> cls(m, "Estimator", R"(
A method of estimation with its parameters bound, made by `IDW`, `SimpleKriging`,
`OrdinaryKriging` or `EnsembleEstimation`.
)");
  cls.def("__call__", &Estimator::operator(), py::arg("target_locs"), py::arg("neighborhood"),
          py::arg("data_locs"), py::arg("data"), py::arg("n_threads") = 0, R"(
Estimate a value at every target.

Parameters
----------
target_locs : list of numpy.ndarray, or array of shape (n, 3)
neighborhood : Neighborhood
    The search structure over `data_locs`.
data_locs : list of numpy.ndarray, or array of shape (m, 3)
data : list of float, or array of shape (m,)
n_threads : int, default 0
    Number of threads; 0 stands for all. The result does not depend on it.

Returns
-------
list of float
    One estimate for each target: NaN where no datum was found and, except with
    `EnsembleEstimation`, the datum where one was.

Raises
------
ValueError
    When `data_locs`, `data`, the neighborhood and the estimator's `dhids` are not equally many.
)");
  define_recipe(cls);
}

void bind_kriging(py::module_& m) {
  m.def(
      "compute_simple_kriging",
      [](const Locations& target_locs, const Locations& data_locs, const std::vector<double>& data,
         const CovarianceModel& covs, double mean, const Neighborhood& neighborhood,
         int max_neighbors, double max_radius, int max_neighbors_octant, int n_threads,
         std::vector<int> dhids, int max_neis_by_dhid) {
        return to_pair(compute_simple_kriging(
            {target_locs, neighborhood, data_locs, data}, covs, mean,
            {max_neighbors, max_radius, max_neighbors_octant, std::move(dhids), max_neis_by_dhid},
            n_threads));
      },
      py::arg("target_locs"), py::arg("data_locs"), py::arg("data"), py::arg("covs"),
      py::arg("mean"), py::arg("neighborhood"), py::arg("max_neighbors"),
      py::arg("max_radius") = -1, py::arg("max_neighbors_octant") = -1, py::arg("n_threads") = 0,
      py::arg("dhids") = std::vector<int>(), py::arg("max_neis_by_dhid") = -1, R"(
Estimate a value at every target by simple kriging.

Parameters
----------
target_locs : list of numpy.ndarray, or array of shape (n, 3)
data_locs : list of numpy.ndarray, or array of shape (m, 3)
data : list of float, or array of shape (m,)
covs : list of Covariance
    The covariance model.
mean : float
    The known mean.
neighborhood : Neighborhood
    The search structure over `data_locs`.
max_neighbors : int
    The search takes the nearest so many, however far they are. At or below 0 it takes all within
    `max_radius` instead.
max_radius : float, default -1
    Radius of that search, in isotropic units when the neighborhood has an ellipsoid; the sign is
    ignored. It has no effect when `max_neighbors` is positive.
max_neighbors_octant : int, default -1
    Of the data found, keep at most so many an octant of the offset from the target; at or below 0
    all. Limits thin what the search found and never fetch further data.
n_threads : int, default 0
    Number of threads; 0 stands for all. The result does not depend on it.
dhids : list of int, default []
    Drillhole of each datum.
max_neis_by_dhid : int, default -1
    Of what is left then, keep at most so many a drillhole; at or below 0 all.

Returns
-------
tuple of (list of float, list of float)
    Estimates and kriging variances, one of each for every target. Where no datum was found the
    estimate is NaN, where one was it is the datum; both have variance 0. Other variances are at
    least 1e-10. Of data that coincide, the first found has all the weight.

Raises
------
ValueError
    When `data_locs`, `data`, `dhids` and the neighborhood are not equally many.

References
----------
Chiles, J.-P. and Delfiner, P. (2012). Geostatistics: Modeling Spatial Uncertainty, 2nd ed.,
chapter 3.
)");
  m.def(
      "compute_ordinary_kriging",
      [](const Locations& target_locs, const Locations& data_locs, const std::vector<double>& data,
         const CovarianceModel& covs, const Neighborhood& neighborhood, int max_neighbors,
         double max_radius, int max_neighbors_octant, int n_threads, std::vector<int> dhids,
         int max_neis_by_dhid) {
        return to_pair(compute_ordinary_kriging(
            {target_locs, neighborhood, data_locs, data}, covs,
            {max_neighbors, max_radius, max_neighbors_octant, std::move(dhids), max_neis_by_dhid},
            n_threads));
      },
      py::arg("target_locs"), py::arg("data_locs"), py::arg("data"), py::arg("covs"),
      py::arg("neighborhood"), py::arg("max_neighbors"), py::arg("max_radius") = -1,
      py::arg("max_neighbors_octant") = -1, py::arg("n_threads") = 0,
      py::arg("dhids") = std::vector<int>(), py::arg("max_neis_by_dhid") = -1, R"(
Estimate a value at every target by ordinary kriging.

Parameters
----------
target_locs, data_locs, data, covs, neighborhood, max_neighbors, max_radius
    As for `compute_simple_kriging`.
max_neighbors_octant, n_threads, dhids, max_neis_by_dhid
    As for `compute_simple_kriging`.

Returns
-------
tuple of (list of float, list of float)
    As for `compute_simple_kriging`. The estimate includes the Lagrange multiplier as an added
    term: it is the weighted sum of the data plus the multiplier.

Raises
------
ValueError
    As for `compute_simple_kriging`.

References
----------
Chiles, J.-P. and Delfiner, P. (2012). Geostatistics: Modeling Spatial Uncertainty, 2nd ed.,
chapter 3.
)");
  def_factory(
      m, "SimpleKriging",
      [](CovarianceModel covs, double mean, int max_neighbors, double max_radius,
         int max_neighbors_octant, std::vector<int> dhids, int max_neis_by_dhid) {
        return create_sk_estimator(
            std::move(covs), mean,
            {max_neighbors, max_radius, max_neighbors_octant, std::move(dhids), max_neis_by_dhid});
      },
      py::arg("covs"), py::arg("mean"), py::arg("max_neighbors"), py::arg("max_radius") = -1,
      py::arg("max_neighbors_octant") = -1, py::arg("dhids") = std::vector<int>(),
      py::arg("max_neis_by_dhid") = -1, R"(
Bind the parameters of simple kriging.

Parameters
----------
covs, mean, max_neighbors, max_radius, max_neighbors_octant, dhids, max_neis_by_dhid
    As for `compute_simple_kriging`.

Returns
-------
Estimator
    Gives the estimates without the variances.
)");
  def_factory(
      m, "OrdinaryKriging",
      [](CovarianceModel covs, int max_neighbors, double max_radius, int max_neighbors_octant,
         std::vector<int> dhids, int max_neis_by_dhid) {
        return create_ok_estimator(
            std::move(covs),
            {max_neighbors, max_radius, max_neighbors_octant, std::move(dhids), max_neis_by_dhid});
      },
      py::arg("covs"), py::arg("max_neighbors"), py::arg("max_radius") = -1,
      py::arg("max_neighbors_octant") = -1, py::arg("dhids") = std::vector<int>(),
      py::arg("max_neis_by_dhid") = -1, R"(
Bind the parameters of ordinary kriging.

Parameters
----------
covs, max_neighbors, max_radius, max_neighbors_octant, dhids, max_neis_by_dhid
    As for `compute_ordinary_kriging`.

Returns
-------
Estimator
    Gives the estimates without the variances.
)");
}

void bind_idw(py::module_& m) {
  def_factory(
      m, "IDW",
      [](double power_a, double max_weight, int max_neighbors, double max_radius,
         int max_neighbors_octant, std::vector<int> dhids, int max_neis_by_dhid) {
        return create_idw_estimator(
            {power_a, max_weight},
            {max_neighbors, max_radius, max_neighbors_octant, std::move(dhids), max_neis_by_dhid});
      },
      py::arg("power_a") = 2, py::arg("max_weight") = 0.9, py::arg("max_neighbors") = -1,
      py::arg("max_radius") = -1, py::arg("max_neighbors_octant") = -1,
      py::arg("dhids") = std::vector<int>(), py::arg("max_neis_by_dhid") = -1, R"(
Bind the parameters of inverse distance weighting.

A neighbour at distance d has the weight 1 / d^power_a, where d is the real distance, or with
`covs` 1 minus the covariance of the lag, which takes the model's variogram for a distance.

Parameters
----------
covs : list of Covariance
    In the second form. Its sills should add up to 1; nothing checks that.
power_a : float, default 2
max_weight : float, default 0.9
    Share of the estimate that data at the very place of the target have, when there are others.
max_neighbors, max_radius, max_neighbors_octant, dhids, max_neis_by_dhid
    As for `compute_simple_kriging`.

Returns
-------
Estimator

References
----------
Shepard, D. (1968). A two-dimensional interpolation function for irregularly-spaced data.
Proceedings of the 23rd ACM National Conference, 517-524.
)");
  def_factory(
      m, "IDW",
      [](CovarianceModel covs, double power_a, double max_weight, int max_neighbors,
         double max_radius, int max_neighbors_octant, std::vector<int> dhids,
         int max_neis_by_dhid) {
        return create_idw_estimator(
            std::move(covs), {power_a, max_weight},
            {max_neighbors, max_radius, max_neighbors_octant, std::move(dhids), max_neis_by_dhid});
      },
      py::arg("covs"), py::arg("power_a") = 2, py::arg("max_weight") = 0.9,
      py::arg("max_neighbors") = -1, py::arg("max_radius") = -1,
      py::arg("max_neighbors_octant") = -1, py::arg("dhids") = std::vector<int>(),
      py::arg("max_neis_by_dhid") = -1);
}

// The models laid out flat: how many structures each has, and of the structures the types, sills,
// kernels and matrices by columns. There may be very many.
using LocalFields = std::tuple<Locations, std::vector<double>, std::vector<int>, std::vector<int>,
                               std::vector<double>, std::vector<int>, std::vector<double>>;

LocalFields fields_of(const LocalCovariances& local_covs) {
  LocalFields fields;
  auto& [centers, errors, sizes, types, sills, kernels, matrices] = fields;
  centers = local_covs.centers();
  errors = local_covs.errors();
  for (const CovarianceModel& model : local_covs.covariances()) {
    sizes.push_back(static_cast<int>(model.size()));
    for (const Covariance& structure : model) {
      types.push_back(static_cast<int>(structure.type));
      sills.push_back(structure.sill);
      kernels.push_back(number_of(structure.kernel));
      const Matrix3& matrix = structure.ellipsoid.matrix();
      matrices.insert(matrices.end(), matrix.data(), matrix.data() + matrix.size());
    }
  }
  return fields;
}

LocalCovariances local_covariances_of(Locations centers, std::vector<double> errors,
                                      const std::vector<int>& sizes, const std::vector<int>& types,
                                      const std::vector<double>& sills,
                                      const std::vector<int>& kernels,
                                      const std::vector<double>& matrices) {
  const std::size_t n = types.size();
  require_state(sills.size() == n && kernels.size() == n && matrices.size() == 9 * n,
                "the lists of structures are not equally long");
  std::vector<CovarianceModel> models;
  std::size_t next = 0;
  for (const int size : sizes) {
    require_state(size >= 0 && static_cast<std::size_t>(size) <= n - next,
                  "the models have more structures than there are");
    CovarianceModel& model = models.emplace_back();
    for (int k = 0; k < size; ++k, ++next) {
      const Matrix3 matrix = Eigen::Map<const Matrix3>(&matrices[9 * next]);
      const Ellipsoid ellipsoid(matrix);
      model.push_back(
          {covariance_type_of(types[next]), sills[next], ellipsoid, kernel_of(kernels[next])});
    }
  }
  require_state(next == n, "the models have fewer structures than there are");
  return {std::move(centers), std::move(models), std::move(errors)};
}

void bind_local_covariances(py::module_& m) {
  py::class_<LocalCovariances> cls(m, "LocalCovariances", R"(
Covariance models of local areas, and how well each predicts the data there.
)");
  cls.def(py::init<Locations, std::vector<CovarianceModel>, std::vector<double>>(),
          py::arg("centers"), py::arg("covariances"), py::arg("errors"), R"(
Keep three lists of one entry for each local area.

Parameters
----------
centers : list of numpy.ndarray, or array of shape (n, 3)
    The middle of each area.
covariances : list of list of Covariance
    The model of each.
errors : list of float, or array of shape (n,)
    The cross-validation error of each: the smaller, the more a model is trusted.

Raises
------
ValueError
    When the lists are not equally long.
)")
      .def_property_readonly("centers", &LocalCovariances::centers, "The middle of each area.")
      .def_property_readonly(
          "covariances", [](const LocalCovariances& self) { return self.covariances(); },
          "The model of each area.")
      .def_property_readonly("errors", &LocalCovariances::errors,
                             "The cross-validation error of each model.");
  cls.def("__repr__", [](const LocalCovariances& self) {
    return "<LocalCovariances of " + std::to_string(self.centers().size()) + " centers>";
  });
  define_value(cls, &fields_of, &local_covariances_of, Hashing::by_value);
}

void bind_ensemble_estimation(py::module_& m) {
  m.def(
      "ensemble_estimation",
      [](const Locations& target_locs, const Locations& data_locs, const std::vector<double>& data,
         const LocalCovariances& local_covs, const Ellipsoid& search_ellipsoid, int max_size,
         double max_distance, int max_cov_neis, int max_neis_octant, double power_a,
         double max_weight, int n_threads, bool run_normalization,
         std::optional<Neighborhood> data_nei, bool use_sk, double sk_mean, std::vector<int> dhids,
         int max_neis_by_dhid) {
        if (!data_nei) {
          data_nei.emplace(data_locs, search_ellipsoid);
        }
        return ensemble_estimation(
            {target_locs, *data_nei, data_locs, data}, local_covs,
            {search_ellipsoid, max_cov_neis, power_a, max_weight, run_normalization, use_sk,
             sk_mean},
            {max_size, max_distance, max_neis_octant, std::move(dhids), max_neis_by_dhid},
            n_threads);
      },
      py::arg("target_locs"), py::arg("data_locs"), py::arg("data"), py::arg("local_covs"),
      py::arg("search_ellipsoid"), py::arg("max_size"), py::arg("max_distance"),
      py::arg("max_cov_neis"), py::arg("max_neis_octant"), py::arg("power_a"),
      py::arg("max_weight"), py::arg("n_threads") = 0, py::arg("run_normalization") = true,
      py::arg("data_nei") = py::none(), py::arg("use_sk") = false, py::arg("sk_mean") = 0.0,
      py::arg("dhids") = std::vector<int>(), py::arg("max_neis_by_dhid") = -1,
      py::call_guard<py::gil_scoped_release>(), R"(
Estimate a value at every target by kriging with every local model near it, and blend the results.

A model whose centre is at the distance d from the target counts with the weight
1 / (d * error)^power_a, where error is its cross-validation error.

Parameters
----------
target_locs : list of numpy.ndarray, or array of shape (n, 3)
data_locs : list of numpy.ndarray, or array of shape (m, 3)
data : list of float, or array of shape (m,)
local_covs : LocalCovariances
    The local models. Without any, all estimates are NaN.
search_ellipsoid : Ellipsoid
    The metric in which the nearest centres are found, and the nearest data too when there is no
    `data_nei`.
max_size : int
    The search takes the nearest so many data, however far they are. At or below 0 it takes all
    within `max_distance` instead.
max_distance : float
    Radius of that search, in units of the search ellipsoid; the sign is ignored. It has no effect
    when `max_size` is positive.
max_cov_neis : int
    By how many of the nearest local models a target is kriged; below 1 by all.
max_neis_octant : int
    Of the data found, keep at most so many an octant of the offset from the target; at or below 0
    all.
power_a : float
    The common powers 1, 2 and 3 are taken when this is within a millionth of them.
max_weight : float
    Share of the estimate that models centred at the very target, and those of error 0, have when
    there are others.
n_threads : int, default 0
    Number of threads; 0 stands for all. The result does not depend on it.
run_normalization : bool, default True
    Krige the data less their mean in standard deviations; constant data then give NaN. Estimates
    are in the units of `data` either way.
data_nei : Neighborhood, optional
    The search structure over `data_locs`; by default one with `search_ellipsoid`.
use_sk : bool, default False
    Simple kriging instead of ordinary kriging.
sk_mean : float, default 0
    The known mean of what simple kriging is given: with `run_normalization` in standard deviations
    from the mean of the data.
dhids : list of int, default []
    Drillhole of each datum.
max_neis_by_dhid : int, default -1
    Of what is left then, keep at most so many a drillhole; at or below 0 all.

Returns
-------
list of float
    One estimate for each target. NaN where no datum was found, and where the weights of the models
    add up to no more than 1e-10, as high powers of long distances do. One datum is kriged like
    several. In ordinary kriging the estimate includes the Lagrange multiplier as an added term, as
    in `compute_ordinary_kriging`.

Raises
------
ValueError
    When `data_locs`, `data`, `dhids` and `data_nei` are not equally many, or a location of a datum
    or a centre is not finite.

References
----------
Chiles, J.-P. and Delfiner, P. (2012). Geostatistics: Modeling Spatial Uncertainty, 2nd ed.,
chapter 3, for the kriging. Shepard, D. (1968). A two-dimensional interpolation function for
irregularly-spaced data. Proceedings of the 23rd ACM National Conference, 517-524, for the weights.
)");
  def_factory(
      m, "EnsembleEstimation",
      [](const LocalCovariances& local_covs, const Ellipsoid& ellipsoid_search, int max_neighbors,
         double max_distance, int max_cov_neis, int max_neis_octant, double power_a,
         double max_weight, bool run_normalization, bool use_sk, double sk_mean,
         std::vector<int> dhids, int max_neis_by_dhid) {
        return create_ensemble_estimator(
            local_covs,
            {ellipsoid_search, max_cov_neis, power_a, max_weight, run_normalization, use_sk,
             sk_mean},
            {max_neighbors, max_distance, max_neis_octant, std::move(dhids), max_neis_by_dhid});
      },
      py::arg("local_covs"), py::arg("ellipsoid_search"), py::arg("max_neighbors"),
      py::arg("max_distance"), py::arg("max_cov_neis"), py::arg("max_neis_octant"),
      py::arg("power_a"), py::arg("max_weight"), py::arg("run_normalization") = true,
      py::arg("use_sk") = false, py::arg("sk_mean") = 0.0, py::arg("dhids") = std::vector<int>(),
      py::arg("max_neis_by_dhid") = -1, R"(
Bind the parameters of ensemble estimation.

Parameters
----------
local_covs, max_distance, max_cov_neis, max_neis_octant, power_a, max_weight
    As for `ensemble_estimation`.
ellipsoid_search : Ellipsoid
    The metric in which the nearest centres are found. Data are found by the neighborhood that the
    estimator is called with.
max_neighbors : int
    The `max_size` of `ensemble_estimation`.
run_normalization, use_sk, sk_mean, dhids, max_neis_by_dhid
    As for `ensemble_estimation`.

Returns
-------
Estimator
)");
}

std::vector<EllipsoidInfo> to_infos(std::size_t n, const std::vector<double>& r1,
                                    const std::vector<double>& r2, const std::vector<double>& r3,
                                    const std::vector<double>& azimuth,
                                    const std::vector<double>& dip,
                                    const std::vector<double>& rake) {
  const std::pair<const char*, const std::vector<double>&> lists[] = {
      {"r1", r1}, {"r2", r2}, {"r3", r3}, {"azimuth", azimuth}, {"dip", dip}, {"rake", rake}};
  for (const auto& [name, list] : lists) {
    require_equal_lengths(name, list.size(), "w", n);
  }
  std::vector<EllipsoidInfo> infos;
  infos.reserve(n);
  for (std::size_t i = 0; i < n; ++i) {
    infos.push_back({r1[i], r2[i], r3[i], azimuth[i], dip[i], rake[i]});
  }
  return infos;
}

void bind_ensemble_ellipsoids(py::module_& m) {
  m.def(
      "ensemble_model",
      [](const std::vector<double>& w, const std::vector<double>& r1, const std::vector<double>& r2,
         const std::vector<double>& r3, const std::vector<double>& azimuth,
         const std::vector<double>& dip, const std::vector<double>& rake) {
        return ensemble_model(w, to_infos(w.size(), r1, r2, r3, azimuth, dip, rake));
      },
      py::arg("w"), py::arg("r1"), py::arg("r2"), py::arg("r3"), py::arg("azimuth"), py::arg("dip"),
      py::arg("rake"), py::call_guard<py::gil_scoped_release>(), R"(
Blend ellipsoids given by their ranges and angles.

The heaviest comes first, then one after the other the one whose axes, renamed and reversed as may
be, come closest to the blend so far. Axes with their ranges are averaged, so that ranges blend
linearly.

Parameters
----------
w : list of float, or array of shape (n,)
    Weights. The ellipsoids are sorted by them from the heaviest on; the one at place k of that
    order then counts with `w[k]`, which is its own weight only when `w` descends.
r1, r2, r3 : list of float, or array of shape (n,)
    Ranges.
azimuth, dip, rake : list of float, or array of shape (n,)
    Angles in degrees.

Returns
-------
Ellipsoid
    For a single entry, the ellipsoid of its ranges plus 1e-6.

Raises
------
ValueError
    When the lists are not equally long, or empty.
)");
  m.def("ensemble_ellipsoid",
        py::overload_cast<const std::vector<double>&, const std::vector<Ellipsoid>&>(
            &ensemble_ellipsoid),
        py::arg("w"), py::arg("ellipsoids"), py::call_guard<py::gil_scoped_release>(), R"(
Blend ellipsoids.

Parameters
----------
w : list of float, or array of shape (n,)
    Weights, as for `ensemble_model`.
ellipsoids : list of Ellipsoid

Returns
-------
Ellipsoid
    What `ensemble_model` makes of their ranges and angles.

Raises
------
ValueError
    When the lists are not equally long, or empty.
)");
  m.def(
      "ensemble_local_ellipsoids",
      [](const Locations& target_locs, const Locations& ellipsoid_locs,
         const std::vector<Ellipsoid>& ellipsoids, const std::vector<double>& ellipsoid_weights,
         int n_neis, double max_radius, int max_neis_octant, double eps, int n_threads,
         std::vector<int> dhids, int max_neis_by_dhid) {
        return ensemble_local_ellipsoids(
            target_locs, {ellipsoid_locs, ellipsoids, ellipsoid_weights},
            {n_neis, max_radius, max_neis_octant, std::move(dhids), max_neis_by_dhid}, eps,
            n_threads);
      },
      py::arg("target_locs"), py::arg("ellipsoid_locs"), py::arg("ellipsoids"),
      py::arg("ellipsoid_weights"), py::arg("n_neis"), py::arg("max_radius"),
      py::arg("max_neis_octant"), py::arg("eps") = 0.01, py::arg("n_threads") = 0,
      py::arg("dhids") = std::vector<int>(), py::arg("max_neis_by_dhid") = -1,
      py::call_guard<py::gil_scoped_release>(), R"(
Blend at every target the ellipsoids near it.

An ellipsoid at the distance d has the weight of its place divided by d^3 + `eps`.

Parameters
----------
target_locs : list of numpy.ndarray, or array of shape (n, 3)
ellipsoid_locs : list of numpy.ndarray, or array of shape (m, 3)
    Where the ellipsoids are.
ellipsoids : list of Ellipsoid
ellipsoid_weights : list of float, or array of shape (m,)
n_neis : int
    The search takes the nearest so many, however far they are; distances are Euclidean. At or below
    0 it takes all within `max_radius` instead.
max_radius : float
    Radius of that search; the sign is ignored. It has no effect when `n_neis` is positive.
max_neis_octant : int
    Of those found, keep at most so many an octant of the offset from the target; at or below 0 all.
eps : float, default 0.01
    In cubed units of length. With 0 an ellipsoid at the very target makes the blend NaN.
n_threads : int, default 0
    Number of threads; 0 stands for all. The result does not depend on it.
dhids : list of int, default []
    Drillhole of each ellipsoid.
max_neis_by_dhid : int, default -1
    Of what is left then, keep at most so many a drillhole; at or below 0 all.

Returns
-------
list of Ellipsoid
    For each target what `ensemble_ellipsoid` makes of the weights, which are made to add up to 1;
    `Ellipsoid(1, 1, 1, 0, 0, 0)` where none was found.

Raises
------
ValueError
    When `ellipsoid_locs`, `ellipsoids`, `ellipsoid_weights` and `dhids` are not equally many, or a
    location of an ellipsoid is not finite.
)");
}

}  // namespace

void register_estimation_module(py::module_& m) {
  bind_estimator(m);
  bind_kriging(m);
  bind_idw(m);
  bind_local_covariances(m);
  bind_ensemble_estimation(m);
  bind_ensemble_ellipsoids(m);
}

}  // namespace talvorix::python
