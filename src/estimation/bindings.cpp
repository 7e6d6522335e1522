#include "estimation/estimator.h"
#include "estimation/idw.h"
#include "estimation/kriging.h"
#include "module/conversions.h"
#include "module/registration.h"

#include <pybind11/pybind11.h>

namespace py = pybind11;

namespace talvorix::python {

namespace {

std::pair<std::vector<double>, std::vector<double>> to_pair(KrigingResult result) {
  return {std::move(result.estimates), std::move(result.variances)};
}

void bind_estimator(py::module_& m) {
  py::class_<Estimator>(m, "Estimator", R"(
A method of estimation with its parameters bound, made by `IDW`, `SimpleKriging` or
`OrdinaryKriging`.
)")
      .def("__call__", &Estimator::operator(), py::arg("target_locs"), py::arg("neighborhood"),
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
    One estimate for each target: NaN where no datum was found, the datum where one was.

Raises
------
ValueError
    When `data_locs`, `data`, the neighborhood and the estimator's `dhids` are not equally many.
)");
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
  m.def(
      "SimpleKriging",
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
  m.def(
      "OrdinaryKriging",
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
  m.def(
      "IDW",
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
  m.def(
      "IDW",
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

}  // namespace

void register_estimation_module(py::module_& m) {
  bind_estimator(m);
  bind_kriging(m);
  bind_idw(m);
}

}  // namespace talvorix::python
