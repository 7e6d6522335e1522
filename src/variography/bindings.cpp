#include "module/conversions.h"
#include "module/pickling.h"
#include "module/registration.h"
#include "spatial/ellipsoid.h"
#include "variography/covariance_fit.h"
#include "variography/exp_variogram_search.h"
#include "variography/experimental_variogram.h"
#include "variography/map_variogram.h"
#include "variography/variogram_computer.h"
#include "variography/variogram_smoothing.h"

#include <pybind11/pybind11.h>

#include <cstdint>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace py = pybind11;

namespace talvorix::python {

namespace {

auto to_tuple(ExperimentalVariogram::Entries entries) {
  return std::tuple(std::move(entries.lags), std::move(entries.variogram),
                    std::move(entries.npairs));
}

void bind_variogram_computer(py::module_& m) {
  def_factory(m, "variogram_computer", &create_variogram_computer, py::arg("cov"),
              py::arg("data_var"), R"(
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
  py::class_<ExperimentalVariogram> cls(m, "ExperimentalVariogram", R"(
Semivariances by direction and lag.

The entries stand in parallel lists, one entry for each lag bin that has pairs; those of one
direction together, by ascending lag.
)");
  cls.def(py::init([](Locations lags, std::vector<double> variogram, std::vector<int> npairs,
                      std::vector<int> direction_id, Locations directions) {
            return ExperimentalVariogram({std::move(lags), std::move(variogram), std::move(npairs)},
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
  cls.def("__repr__", [](const ExperimentalVariogram& self) {
    return "<ExperimentalVariogram of " + std::to_string(self.lags().size()) + " lags in " +
           std::to_string(self.directions().size()) + " directions>";
  });
  define_value(
      cls,
      [](const ExperimentalVariogram& self) {
        return std::tie(self.lags(), self.variogram(), self.npairs(), self.direction_ids(),
                        self.directions());
      },
      [](Locations lags, std::vector<double> variogram, std::vector<int> npairs,
         std::vector<int> direction_ids, Locations directions) {
        return ExperimentalVariogram({std::move(lags), std::move(variogram), std::move(npairs)},
                                     std::move(direction_ids), std::move(directions));
      },
      Hashing::by_value);
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

// The forms for a grid and for a block model, which differ in nothing else.
template <class Grid>
void bind_map_variogram_of_grid(py::module_& m, const char* grid_name, const char* doc) {
  m.def(
      "compute_variogram",
      [](const Grid& grid, const std::vector<double>& data, int n_directions, int n_lags,
         double bandwidth, int n_threads, std::int64_t seed, int nx, int ny, int nz) {
        return compute_map_variogram(grid, data, {nx, ny, nz},
                                     {n_directions, n_lags, bandwidth, seed}, n_threads);
      },
      py::arg(grid_name), py::arg("data"), py::arg("n_directions"), py::arg("n_lags"),
      py::arg("bandwidth"), py::arg("n_threads") = 0, py::arg("seed") = 12415, py::arg("nx") = 200,
      py::arg("ny") = 200, py::arg("nz") = 200, doc);
}

// The forms for grids come first: a grid would be copied into a list of locations to be tried for
// the other one's corners.
void bind_map_variogram(py::module_& m) {
  bind_map_variogram_of_grid<CartesianGrid>(m, "cartesian_grid", R"(
Compute directional experimental variograms from a map of the variogram at all lags of a lattice.

The data are put into the cells of the lattice, and Fourier transforms give the variogram of these
cells and the number of pairs at every lag between two of them, cells without data left out. In many
directions, at random lags, the map is then averaged over the cells around each lag, weighted by
their pairs. The lags of each direction have a half-normal distribution in units of the lattice's
box, so that short ones come dense; the map ends at half the box, and lags beyond have no entry.

Parameters
----------
cartesian_grid : CartesianGrid
    In the first form the data stand at its locations, and the lattice covers it, turned as it is.
block_model : BlockModel
    In the second form they stand at its active locations; the lattice is that of its base grid.
corners : list of numpy.ndarray, or array of shape (m, 3)
    In the third form, locations whose box, along the axes of the lattice, is as long as the lattice.
locations : list of numpy.ndarray, or array of shape (n, 3)
    In the third form, those of the data. What is outside of the lattice is left out, and so is what
    is not finite.
data : list of float, or array of shape (n,)
    One value for each location. NaN and infinity are missing values.
nx, ny, nz : int
    Cells of the lattice along its axes; 200 each in the first two forms if not given. Of several
    data in one cell the last one counts, even if it is missing.
n_directions : int
    Half the number of directions.
n_lags : int
    Number of lags of a direction.
bandwidth : float
    Radius around a lag within which the map is averaged, in diagonals of a cell.
n_threads : int, default 0
    Number of threads; 0 stands for all. The result does not depend on it. The transforms have a
    setting of their own, `set_fft_n_threads`.
seed : int, default 12415
    Of the lags, taken modulo 2^32. The directions are always the same.
origin : numpy.ndarray, shape (3, 1), default (0, 0, 0)
    In the third form, the location of the lattice's first corner.
rotation : numpy.ndarray, shape (3, 1), default (90, 0, 0)
    In the third form, azimuth, dip and rake of the lattice in degrees, as for `Ellipsoid`: azimuth
    90 puts its first axis on +x.

Returns
-------
ExperimentalVariogram
    Lags are in real units. `npairs` counts the pairs of all averaged cells, rounded toward zero
    from what the transforms make of it, which may be a trifle below the true number. An entry is
    NaN where the first cells around its lag have no pairs at all.

Raises
------
ValueError
    When `data` is not as long as the locations or active cells are many, `corners` is empty, a
    corner, `origin` or `rotation` is not finite, `nx`, `ny` or `nz` is below 1, or a count is
    negative.
MemoryError
    When the map does not fit into memory: it takes about 270 bytes for each cell of the lattice
    while it is made.

Notes
-----
A datum at the very boundary between two cells is put into one of them by rounding. In a lattice of
as many cells as a grid, or a multiple, all locations of the grid stand at such boundaries, and two
of them may fall into one cell. With one cell more along each axis than the grid has, each has a
cell of its own; lags then come out too short by one part in the number of cells.

References
----------
Marcotte, D. (1996). Fast variogram computation with FFT. Computers & Geosciences 22(10), 1175-1186.
)");
  bind_map_variogram_of_grid<BlockModel>(m, "block_model", "");
  m.def(
      "compute_variogram",
      [](const Locations& corners, const Locations& locations, const std::vector<double>& data,
         int nx, int ny, int nz, int n_directions, int n_lags, double bandwidth, int n_threads,
         std::int64_t seed, const Vector3& origin, const Vector3& rotation) {
        return compute_map_variogram(corners, locations, data, {{nx, ny, nz}, origin, rotation},
                                     {n_directions, n_lags, bandwidth, seed}, n_threads);
      },
      py::arg("corners"), py::arg("locations"), py::arg("data"), py::arg("nx"), py::arg("ny"),
      py::arg("nz"), py::arg("n_directions"), py::arg("n_lags"), py::arg("bandwidth"),
      py::arg("n_threads") = 0, py::arg("seed") = 12415, py::arg("origin") = Vector3(0.0, 0.0, 0.0),
      py::arg("rotation") = Vector3(90.0, 0.0, 0.0));
}

void bind_variogram_smoothing(py::module_& m) {
  m.def(
      "smooth_variogram",
      [](const ExperimentalVariogram& vario, int n_lags, int max_n_neis, double max_r,
         double bandwidth, double power_a, double max_weight, int sampling_size, int n_threads,
         std::int64_t seed) {
        return smooth_variogram(
            vario, {n_lags, max_n_neis, max_r, bandwidth, power_a, max_weight, sampling_size, seed},
            n_threads);
      },
      py::arg("vario"), py::arg("n_lags"), py::arg("max_n_neis"), py::arg("max_r"),
      py::arg("bandwidth"), py::arg("power_a"), py::arg("max_weight"), py::arg("sampling_size"),
      py::arg("n_threads") = 0, py::arg("seed") = 123151, py::call_guard<py::gil_scoped_release>(),
      R"(
Resample an experimental variogram at new lags, as means of the entries around them.

New lags are drawn along each direction from a half-normal distribution, scaled to the direction's
longest lag. Entries near a lag, of whatever direction, count by their pairs and the inverse of
their distance.

Parameters
----------
vario : ExperimentalVariogram
n_lags : int
    Number of new lags of a direction. Below 1, each direction gets as many as it has entries.
max_n_neis : int
    The nearest entries that a new one is made of. Below 1, all that are nearer than `max_r`.
max_r : float
    Largest distance between a lag and an entry, in the units of the lags. The shortest new lag is
    a fiftieth of it.
bandwidth : float
    Largest distance between an entry and the line through the lag along its direction.
power_a : float
    Power of the inverse distance.
max_weight : float
    Weight of the entries at the very lag, from 0 to 1, when there are others.
sampling_size : int
    Number of entries that are drawn before the lags are: no more than another seed.
n_threads : int, default 0
    Number of threads; 0 stands for all. The result does not depend on it.
seed : int, default 123151
    Taken modulo 2^32.

Returns
-------
ExperimentalVariogram
    With the directions of `vario`. `npairs` are means, too, and lags where they are below 1 are
    left out.

Raises
------
RuntimeError
    "No lags found", when no lag is left or `vario` has no entries.
ValueError
    When a lag of `vario` is not finite or `sampling_size` is negative.
)");
}

void bind_covariance_fit(py::module_& m) {
  m.def(
      "extract_covariance_from_varmap",
      [](Locations lags, std::vector<double> variogram, std::vector<double> weight,
         int n_structures, const std::string& cov_kernel, double min_r1, double min_r2,
         double min_r3, double max_r1, double max_r2, double max_r3, double total_sill,
         int n_iterations, double b, double cauchy_loss, double regularization_const,
         double threshold, std::int64_t /*seed*/, int n_threads, bool debug) {
        return extract_covariance_from_varmap(
            {std::move(lags), std::move(variogram), std::move(weight)},
            {n_structures, parse_covariance_type(cov_kernel), Vector3(min_r1, min_r2, min_r3),
             Vector3(max_r1, max_r2, max_r3), total_sill, n_iterations, b, cauchy_loss,
             regularization_const, threshold, n_threads, debug});
      },
      py::arg("lags"), py::arg("variogram"), py::arg("weight"), py::arg("n_structures"),
      py::arg("cov_kernel"), py::arg("min_r1"), py::arg("min_r2"), py::arg("min_r3"),
      py::arg("max_r1"), py::arg("max_r2"), py::arg("max_r3"), py::arg("total_sill"),
      py::arg("n_iterations"), py::arg("b"), py::arg("cauchy_loss"),
      py::arg("regularization_const"), py::arg("threshold"), py::arg("seed"), py::arg("n_threads"),
      py::arg("debug") = true, py::call_guard<py::gil_scoped_release>(), R"(
Fit a nested covariance model to semivariances at many lags, by bounded least squares.

The residual of a lag is twice the difference between the model's variogram, 1 - C(lag), and the
given one over `total_sill`; what is above 1 is brought down to 2 sqrt(|r|) - 1. It is multiplied by
the weight of the lag. The search starts from equal sills, ranges halfway between their bounds,
angles of 0 and no nugget; it follows exact derivatives and finds a minimum nearby. All structures
start alike, and with several of them there are several minima.

The nugget counts at lags of no length alone. Without one among the lags, of semivariance 0, nothing
tells the nugget from a sill below the total, and it stays at its least.

Parameters
----------
lags : list of numpy.ndarray, or array of shape (n, 3)
variogram : list of float, or array of shape (n,)
    Semivariances. Those that are not finite take no part.
weight : list of float, or array of shape (n,)
    For example numbers of pairs. Each is multiplied by (|lag| / (D / 3) + 0.0001)^-b, with D the
    length of (`max_r1`, `max_r2`, `max_r3`), and divided by the mean of all these products.
n_structures : int
    Number of structures besides the nugget.
cov_kernel : str
    "spherical", "gaussian", "exponential" or "idw"; any other text is a nugget, which has no
    ranges to be found.
min_r1, min_r2, min_r3, max_r1, max_r2, max_r3 : float
    Bounds of the ranges, the same for every structure.
total_sill : float
    Total sill of the result.
n_iterations : int
    Largest number of iterations.
b : float
    How much more near lags count.
cauchy_loss : float
    Scale of Cauchy's loss of each residual, which lets lags that fit badly count less; below 1e-10
    there is none.
regularization_const : float
    Weight c of three more residuals for each structure, c / (1 + t^2) over `n_structures` with
    t = (range - largest) / largest, and of a faint one that draws its sill to 1. 0 or less leaves
    them out.
threshold : float
    Semivariances above `total_sill` times this take no part.
seed : int
    Has no effect.
n_threads : int
    Number of threads; 0 stands for all. The result does not depend on it.
debug : bool, default True
    Whether the solver's progress and its report are printed on standard output.

Returns
-------
list of Covariance
    The structures, with r1, r2 and r3 in the order of their bounds, and last a nugget. The sills
    add up to `total_sill`. When no lag takes part, or the fit cannot start, it is the start.

Raises
------
ValueError
    When the lists are not equally long, a lag or a weight is not finite, a lower bound is not below
    its upper one, `n_structures` is below 1 or `n_iterations` negative.

Notes
-----
An iteration costs as many covariances with derivatives as there are lags times structures, and a
share that grows with the lags times the square of the structures.

References
----------
Levenberg, K. (1944). A method for the solution of certain non-linear problems in least squares.
Quarterly of Applied Mathematics 2, 164-168.
Marquardt, D. W. (1963). An algorithm for least-squares estimation of nonlinear parameters. Journal
of the Society for Industrial and Applied Mathematics 11, 431-441.
)");
}

}  // namespace

void register_variogram_module(py::module_& m) {
  bind_variogram_computer(m);
  bind_experimental_variogram(m);
  bind_exp_variogram_search(m);
  bind_map_variogram(m);
  bind_variogram_smoothing(m);
  bind_covariance_fit(m);
}

}  // namespace talvorix::python
