#include "module/conversions.h"
#include "module/registration.h"
#include "spatial/ellipsoid.h"
#include "variography/exp_variogram_search.h"
#include "variography/experimental_variogram.h"
#include "variography/variogram_computer.h"

#include <pybind11/pybind11.h>

#include <cstdint>
#include <tuple>
#include <utility>

namespace py = pybind11;

namespace talvorix::python {

namespace {

auto to_tuple(ExperimentalVariogram::Entries entries) {
  return std::tuple(std::move(entries.lags), std::move(entries.variogram),
                    std::move(entries.npairs));
}

void bind_variogram_computer(py::module_& m) {
  m.def("variogram_computer", &create_variogram_computer, py::arg("cov"), py::arg("data_var"), R"(
Make the variogram of a covariance model, scaled to the variance of data.

Parameters
----------
cov : list of Covariance
    The covariance model.
data_var : float
    Variance that the variogram rises to.

Returns
-------
SpatialFunction
    (1 - C(d) / C(0)) `data_var` of a lag d.
)");
}

void bind_experimental_variogram(py::module_& m) {
  py::class_<ExperimentalVariogram>(m, "ExperimentalVariogram", R"(
Semivariances by direction and lag.

The entries stand in parallel lists, one entry for each lag bin that has pairs; those of one
direction together, by ascending lag.
)")
      .def(py::init([](Locations lags, std::vector<double> variogram, std::vector<int> npairs,
                       std::vector<int> direction_id, Locations directions) {
             return ExperimentalVariogram(
                 {std::move(lags), std::move(variogram), std::move(npairs)},
                 std::move(direction_id), std::move(directions));
           }),
           py::arg("lags"), py::arg("variogram"), py::arg("npairs"), py::arg("direction_id"),
           py::arg("directions"), R"(
Put a variogram together from its entries.

Parameters
----------
lags : list of numpy.ndarray, or array of shape (n, 3)
    Lag vectors: distance times direction.
variogram : list of float
    Semivariances.
npairs : list of int
direction_id : list of int
    For each entry the position of its direction in `directions`.
directions : list of numpy.ndarray, or array of shape (m, 3)

Raises
------
ValueError
    When the lists of entries are not equally long.
IndexError
    When an entry's direction is none of the directions.
)")
      .def_property_readonly("lags_by_dir", &ExperimentalVariogram::lags_by_dir,
                             "For each direction the list of the positions of its entries.")
      .def_property_readonly("lags", &ExperimentalVariogram::lags,
                             "Lag vectors, one for each entry, shape (3, 1).")
      .def_property_readonly("variogram", &ExperimentalVariogram::variogram,
                             "Semivariances, one for each entry.")
      .def_property_readonly("npairs", &ExperimentalVariogram::npairs,
                             "Contributions of pairs to each entry.")
      .def_property_readonly("direction_ids", &ExperimentalVariogram::direction_ids,
                             "For each entry the position of its direction in `directions`.")
      .def_property_readonly("directions", &ExperimentalVariogram::directions,
                             "All directions that were searched, shape (3, 1).")
      .def(
          "get_variogram",
          [](const ExperimentalVariogram& self, double azimuth, double dip) {
            return to_tuple(self.get_variogram(direction(azimuth, dip)));
          },
          py::arg("azimuth"), py::arg("dip"), R"(
The entries of the direction nearest to a given one, among those that have any.

Parameters
----------
azimuth, dip : float
    Degrees, as for `Direction`.
dir : numpy.ndarray, shape (3, 1)
    In the second form the direction itself, of any length. A direction and its opposite are two.

Returns
-------
tuple of (list of numpy.ndarray, list of float, list of int)
    Lags, semivariances and numbers of pairs; three empty lists when there are no entries.
)")
      .def(
          "get_variogram",
          [](const ExperimentalVariogram& self, const Vector3& dir) {
            return to_tuple(self.get_variogram(dir));
          },
          py::arg("dir"))
      .def(
          "get_variogram_by_direction_id",
          [](const ExperimentalVariogram& self, int direction_id) {
            return to_tuple(self.get_variogram_by_direction_id(direction_id));
          },
          py::arg("direction_id"), R"(
The entries of one direction.

Parameters
----------
direction_id : int
    Its position in `directions`.

Returns
-------
tuple of (list of numpy.ndarray, list of float, list of int)
    Lags, semivariances and numbers of pairs; three empty lists when it has no entries.
)");
}

void bind_exp_variogram_search(py::module_& m) {
  m.def(
      "compute_exp_variogram",
      [](const Locations& data_locs, const std::vector<double>& data_values, int n_centers,
         double angle_tol, int n_lags, double lag_tol, double bandwidth, int window_size,
         int n_directions, double tol, int n_threads, std::int64_t /*seed*/) {
        return compute_exp_variogram(
            data_locs, data_values,
            {n_centers, angle_tol, n_lags, lag_tol, bandwidth, window_size, n_directions, tol},
            n_threads);
      },
      py::arg("data_locs"), py::arg("data_values"), py::arg("n_centers") = 60,
      py::arg("angle_tol") = 5.0, py::arg("n_lags") = 75, py::arg("lag_tol") = 0.001,
      py::arg("bandwidth") = 0.02, py::arg("window_size") = 2, py::arg("n_directions") = 300,
      py::arg("tol") = 0.01, py::arg("n_threads") = 0, py::arg("seed") = 12415,
      py::call_guard<py::gil_scoped_release>(), R"(
Compute the directional experimental variogram of scattered data in many directions.

Pairs are looked for in thin tubes, one for each direction, around a few centres: the highest value
and others drawn from the upper part of the values. A pair counts when it stands along the direction
within the tolerance. The lags of each direction are random, with a half-normal distribution in
units of the data's box, so that short ones come dense.

Parameters
----------
data_locs : list of numpy.ndarray, or array of shape (n, 3)
data_values : list of float, or array of shape (n,)
n_centers : int, default 60
    Number of centres. With n - 1 or more, or a negative number, every datum is one.
angle_tol : float, default 5
    Largest angle between a pair and the direction, in degrees.
n_lags : int, default 75
    Number of lags of a direction.
lag_tol : float, default 0.001
    Shortest lag, in units of the data's box along the direction.
bandwidth : float, default 0.02
    Half the width of a tube, in the same units.
window_size : int, default 2
    A pair also counts for so many lags on either side of its own.
n_directions : int, default 300
    Half the number of directions.
tol : float, default 0.01
    The second axis of a tube is drawn until its cosine with the first is further from 1 than this.
    At 1 and above there is none, and the search goes on until it is interrupted.
n_threads : int, default 0
    Number of threads; 0 stands for all. The result does not depend on it.
seed : int, default 12415
    Has no effect: the same data always give the same result.

Returns
-------
ExperimentalVariogram
    `npairs` counts contributions: a pair found around several centres or in the window of several
    lags counts as often.

Raises
------
ValueError
    When `data_locs` and `data_values` are not equally many or a count is negative.
)");
}

}  // namespace

void register_variogram_module(py::module_& m) {
  bind_variogram_computer(m);
  bind_experimental_variogram(m);
  bind_exp_variogram_search(m);
}

}  // namespace talvorix::python
