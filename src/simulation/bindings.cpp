#include "estimation/estimator.h"
#include "estimation/local_covariances.h"
#include "module/conversions.h"
#include "module/pickling.h"
#include "module/registration.h"
#include "simulation/conditioning.h"
#include "simulation/ensemble_simulator.h"
#include "simulation/fourier_integral.h"
#include "simulation/simulator_factory.h"
#include "simulation/simulator_generator.h"
#include "simulation/turning_bands.h"

#include <pybind11/pybind11.h>

#include <cstdint>
#include <utility>
#include <vector>

namespace py = pybind11;

namespace talvorix::python {

namespace {

// In each family of overloads below, the forms with three counts come before those with one, which
// would take the first of three for it.

void bind_factory(py::module_& m) {
  py::class_<SimulatorFactory> cls(m, "SimulatorFactory", R"(
A method of simulation with its parameters bound, which makes a field of any covariance model.
)");
  define_recipe(cls);
  def_method_factory(
      cls, "__call__",
      [](const SimulatorFactory& self, const CovarianceModel& cov, std::int64_t seed) {
        return self(cov, seed);
      },
      py::arg("cov"), py::arg("seed"), R"(
Make the field of a model.

Parameters
----------
cov : list of Covariance
    The covariance model.
seed : int
    Taken modulo 2^32.

Returns
-------
SpatialFunction
    What `FIM` or `TBSIM` makes of the model and the seed.
)");
  def_static_factory(
      cls, "FIM",
      [](Locations corners, int nx, int ny, int nz, int n_threads) {
        return create_fim_factory(std::move(corners), {nx, ny, nz}, n_threads);
      },
      py::arg("corners"), py::arg("nx"), py::arg("ny"), py::arg("nz"), py::arg("n_threads") = 0,
      R"(
Bind the parameters of `FIM`.

Parameters
----------
corners, nx, ny, nz, n, n_threads
    As for `FIM`.

Returns
-------
SimulatorFactory

Raises
------
ValueError
    When `corners` is empty.
)");
  def_static_factory(
      cls, "FIM",
      [](Locations corners, int n, int n_threads) {
        return create_fim_factory(std::move(corners), {n, n, n}, n_threads);
      },
      py::arg("corners"), py::arg("n") = 128, py::arg("n_threads") = 0);
  def_static_factory(cls, "TBSIM", &create_tbsim_factory, py::arg("corners"), py::arg("n") = 600,
                     R"(
Bind the parameters of `TBSIM`.

Parameters
----------
corners, n
    As for `TBSIM`.

Returns
-------
SimulatorFactory

Raises
------
ValueError
    When `corners` is empty or `n` is below 1.
)");
}

template <class Structures>
void bind_fim_generators(py::class_<SimulatorGenerator>& generator, const char* structures,
                         const char* doc) {
  def_static_factory(
      generator, "FIM",
      [](const Locations& corners, const Structures& covs, std::int64_t seed, int nx, int ny,
         int nz, int n_threads, int n_base_simulation_points) {
        return create_fim_simulator_generator(corners, covs, seed, {nx, ny, nz}, n_threads,
                                              n_base_simulation_points);
      },
      py::arg("corners"), py::arg(structures), py::arg("seed"), py::arg("nx"), py::arg("ny"),
      py::arg("nz"), py::arg("n_threads") = 0, py::arg("n_base_simulation_points") = 100, doc);
  def_static_factory(
      generator, "FIM",
      [](const Locations& corners, const Structures& covs, std::int64_t seed, int n, int n_threads,
         int n_base_simulation_points) {
        return create_fim_simulator_generator(corners, covs, seed, {n, n, n}, n_threads,
                                              n_base_simulation_points);
      },
      py::arg("corners"), py::arg(structures), py::arg("seed"), py::arg("n") = 128,
      py::arg("n_threads") = 0, py::arg("n_base_simulation_points") = 100);
}

template <class Structures>
void bind_tbsim_generator(py::class_<SimulatorGenerator>& generator, const char* structures,
                          const char* doc) {
  def_static_factory(
      generator, "TBSIM",
      [](const Locations& corners, const Structures& covs, std::int64_t seed, int n, int n_threads,
         int n_base_simulation_points) {
        return create_tbsim_simulator_generator(corners, covs, seed, n, n_threads,
                                                n_base_simulation_points);
      },
      py::arg("corners"), py::arg(structures), py::arg("seed"), py::arg("n") = 600,
      py::arg("n_threads") = 0, py::arg("n_base_simulation_points") = 100, doc);
}

void bind_generator(py::module_& m) {
  py::class_<SimulatorGenerator> generator(m, "SimulatorGenerator", R"(
Makes one field after the other, each out of a seed.

`FIM` and `TBSIM` simulate one field for each structure, in units of its ranges, on a lattice, and
turn it at random for every seed; `Pool` mixes given fields; `Ensemble` blends fields of local
models.
)");
  define_recipe(generator);
  def_method_factory(
      generator, "__call__",
      [](const SimulatorGenerator& self, std::int64_t seed) { return self(seed); }, py::arg("seed"),
      R"(
Make a field.

Parameters
----------
seed : int
    Taken modulo 2^32. The same seed gives the same field.

Returns
-------
SpatialFunction
    It shares what the generator has simulated.
)");
  def_static_factory(generator, "Pool", &create_simulator_pool, py::arg("simulators"), R"(
Mix given fields at random.

Each seed draws weights whose squares add up to 1, so that a mixture of independent fields of one
variance has that variance too. Nothing is simulated anew: fields of a small pool are alike.

Parameters
----------
simulators : list of SpatialFunction

Returns
-------
SimulatorGenerator
)");
  bind_fim_generators<Covariance>(generator, "cov", R"(
Turn one field of each structure, simulated by the Fourier integral method, at random.

The field is simulated once, in the space of the structure, and kept on a lattice of
`n_base_simulation_points` nodes along each axis. Each seed draws a rotation of that space about the
origin of the coordinates. A field that is made then costs nothing but a matrix product and a read
for each location; its values change in steps, at the planes between nodes.

The lattice covers the box of `corners`, made larger so as to hold its rotations, if `corners` are
centred on the origin. Where a rotated location falls outside of it all the same, the field is 0.0:
subtract the middle of the field from all coordinates first.

Parameters
----------
corners : list of numpy.ndarray, or array of shape (n, 3)
    Locations whose box is to be covered, in coordinates centred on the field.
cov : Covariance
    The structure; a nugget draws a new value each time it is evaluated, as in `TBSIM`.
covs : list of Covariance
    In the forms for a model. The seeds of its structures are drawn from one.
seed : int
    Of the fields that are turned, taken modulo 2^32.
nx, ny, nz : int
    Nodes along the axes of the lattice of the Fourier integral method.
n : int, default 128
    The three of them in one. Three integers after `seed` are read as `nx`, `ny` and `nz`: name
    `n_base_simulation_points` after a single count.
n_threads : int, default 0
    Number of threads; 0 stands for all. Phases depend on it, as in `FIM`.
n_base_simulation_points : int, default 100
    Nodes along each axis of the lattice that is turned; 8 bytes are kept for each.

Returns
-------
SimulatorGenerator

Raises
------
ValueError
    When `corners` is empty or `n_base_simulation_points` is below 1.
MemoryError
    When a lattice does not fit into memory.
)");
  bind_fim_generators<CovarianceModel>(generator, "covs", "");
  bind_tbsim_generator<Covariance>(generator, "cov", R"(
Turn one field of each structure, simulated by turning bands, at random.

Parameters
----------
corners, cov, covs, seed, n_base_simulation_points
    As for `SimulatorGenerator.FIM`.
n : int, default 600
    Number of lines.
n_threads : int, default 0
    Number of threads; 0 stands for all. The result does not depend on it, unless lines fall back to
    white noise as in `TBSIM`.

Returns
-------
SimulatorGenerator

Raises
------
ValueError
    When `corners` is empty, or `n` or `n_base_simulation_points` is below 1.
MemoryError
    When the lattice does not fit into memory.
)");
  bind_tbsim_generator<CovarianceModel>(generator, "covs", "");
}

template <class Structures>
void bind_fim(py::module_& m, const char* structures, const char* doc) {
  def_factory(
      m, "FIM",
      [](const Locations& corners, const Structures& covs, std::int64_t seed, int nx, int ny,
         int nz, int n_threads) {
        return create_fim_simulator(corners, covs, seed, {nx, ny, nz}, n_threads);
      },
      py::arg("corners"), py::arg(structures), py::arg("seed"), py::arg("nx"), py::arg("ny"),
      py::arg("nz"), py::arg("n_threads") = 0, doc);
  def_factory(
      m, "FIM",
      [](const Locations& corners, const Structures& covs, std::int64_t seed, int n,
         int n_threads) {
        return create_fim_simulator(corners, covs, seed, {n, n, n}, n_threads);
      },
      py::arg("corners"), py::arg(structures), py::arg("seed"), py::arg("n") = 128,
      py::arg("n_threads") = 0);
}

template <class Structures>
void bind_tbsim(py::module_& m, const char* structures, const char* doc) {
  def_factory(m, "TBSIM",
              py::overload_cast<const Locations&, const Structures&, std::int64_t, int>(
                  &create_tbsim_simulator),
              py::arg("corners"), py::arg(structures), py::arg("seed"), py::arg("n") = 600, doc);
}

void bind_conditioning(py::module_& m) {
  m.def("simulate",
        py::overload_cast<const Estimator&, const Locations&, const Neighborhood&, const Locations&,
                          const std::vector<double>&, const SpatialFunction&, int>(&simulate),
        py::arg("estimator"), py::arg("target_locs"), py::arg("neighborhood"), py::arg("data_locs"),
        py::arg("data"), py::arg("simulator"), py::arg("n_threads") = 0, R"(
Condition a field to data.

What the data differ from the field is estimated at the targets and added to the field there. Where
the estimator is exact at data, as kriging is, so is the result, but for a field with a nugget: that
part is drawn anew at the targets, so that a target at a datum differs from it by two draws. The
field and the data should have one mean and one variance: transform the data to normal scores first,
and the result back.

Parameters
----------
estimator : Estimator
    Kriging with the covariance model of the field.
target_locs : list of numpy.ndarray, or array of shape (n, 3)
neighborhood : Neighborhood
    The search structure over `data_locs`.
data_locs : list of numpy.ndarray, or array of shape (m, 3)
data : list of float, or array of shape (m,)
simulator : SpatialFunction
    The unconditional field. All randomness is in it.
simulators : list of SpatialFunction
    In the second form, a field for each of several realisations. Kriging then weighs the data once
    for all of them.
n_threads : int, default 0
    Number of threads; 0 stands for all. The result does not depend on it, unless the field has a
    nugget.

Returns
-------
list of float
    One value for each target; NaN where the estimate is. In the second form a list of such lists,
    one for each field.

Raises
------
ValueError
    When `data_locs`, `data`, the neighborhood and the estimator's `dhids` are not equally many.

References
----------
Journel, A. G. (1974). Geostatistics for conditional simulation of ore bodies. Economic Geology
69(5), 673-687.
)");
  m.def("simulate",
        py::overload_cast<const Estimator&, const Locations&, const Neighborhood&, const Locations&,
                          const std::vector<double>&, const std::vector<SpatialFunction>&, int>(
            &simulate),
        py::arg("estimator"), py::arg("target_locs"), py::arg("neighborhood"), py::arg("data_locs"),
        py::arg("data"), py::arg("simulators"), py::arg("n_threads") = 0);
}

void bind_ensembles(py::module_& m) {
  m.def(
      "unconditional_ensemble_simulation",
      [](const Locations& locs, const LocalCovariances& local_covs,
         const SimulatorFactory& simulator_factory, double max_weight, double power_a,
         std::int64_t seed) {
        return unconditional_ensemble_simulation(locs, local_covs, simulator_factory,
                                                 {max_weight, power_a}, seed, 0);
      },
      py::arg("locs"), py::arg("local_covs"), py::arg("simulator_factory"), py::arg("max_weight"),
      py::arg("power_a"), py::arg("seed"), R"(
Simulate with covariance models that differ from place to place.

There is a field for every local model. At a location at the distance d from the centre of a model,
its field counts with the root of its share of the sum of 1 / d^power_a over all models, which keeps
the variance of independent fields.

Parameters
----------
locs : list of numpy.ndarray, or array of shape (n, 3)
local_covs : LocalCovariances
    The local models; their errors have no effect.
simulator_factory : SimulatorFactory
    Makes the field of each model. It must cover `locs`.
max_weight : float
    Share of the variance that models centred at the very location have when there are others.
power_a : float
    The common powers 1, 2 and 3 are taken when this is within a millionth of them.
seed : int
    Taken modulo 2^32; the seeds of the fields are drawn from it.

Returns
-------
list of float
    One value for each location: 0 where no model has a weight.
)");
  m.def(
      "ensemble_simulation",
      [](const Locations& target_locs, const Locations& data_locs, const std::vector<double>& data,
         const LocalCovariances& local_covs, const Ellipsoid& search_ellipsoid,
         const SimulatorFactory& simulator_factory, int max_size, double max_distance,
         int max_cov_neis, int max_neis_octant, double power_a, double max_weight,
         std::int64_t seed, int n_threads) {
        const Neighborhood data_nei(data_locs, search_ellipsoid);
        return ensemble_simulation({target_locs, data_nei, data_locs, data}, local_covs,
                                   {search_ellipsoid, max_cov_neis, power_a, max_weight},
                                   {max_size, max_distance, max_neis_octant}, simulator_factory,
                                   seed, n_threads);
      },
      py::arg("target_locs"), py::arg("data_locs"), py::arg("data"), py::arg("local_covs"),
      py::arg("search_ellipsoid"), py::arg("simulator_factory"), py::arg("max_size"),
      py::arg("max_distance"), py::arg("max_cov_neis"), py::arg("max_neis_octant"),
      py::arg("power_a"), py::arg("max_weight"), py::arg("seed"), py::arg("n_threads") = 0,
      py::call_guard<py::gil_scoped_release>(), R"(
Simulate with covariance models that differ from place to place, conditioned to data.

To the field of `unconditional_ensemble_simulation` is added what `ensemble_estimation` makes of the
data's differences from it. Kriging is of the differences less their mean, in standard deviations.
Ordinary kriging with the multiplier as an added term is exact at data; a target elsewhere need not
be reached by any datum, and is NaN then.

Parameters
----------
target_locs, data_locs, data, local_covs, search_ellipsoid, max_size, max_distance
    As for `ensemble_estimation`.
simulator_factory : SimulatorFactory
    Makes the field of each model. It must cover the targets and the data.
max_cov_neis, max_neis_octant
    As for `ensemble_estimation`. The field blends all models nonetheless.
power_a, max_weight : float
    Of the blends of estimates and of fields.
seed : int
    Taken modulo 2^32; the seeds of the fields are drawn from it.
n_threads : int, default 0
    Number of threads; 0 stands for all. The result does not depend on it, unless a model has a
    nugget.

Returns
-------
list of float
    One value for each target; NaN where the estimate is.

Raises
------
ValueError
    When `data_locs` and `data` are not equally many, or a location of a datum or a centre is not
    finite.
)");
}

}  // namespace

void register_simulation_module(py::module_& m) {
  bind_factory(m);
  bind_generator(m);
}

void register_fim_module(py::module_& m) {
  bind_fim<Covariance>(m, "cov", R"(
Simulate a Gaussian field of mean 0 by the Fourier integral method.

One realisation is drawn at once, on a lattice in the space of the structure that is 1.5 times as
long along each axis as the box of `corners` there. The function then looks locations up at the next
lower node: its values change in steps. Beyond the lattice its edge goes on.

The lattice should resolve the ranges and be long beside them: the covariance of a field is that of
the structure repeated with the lattice's lengths, and what of it reaches beyond half of them is
lost. See the notes for the part of the variance that is missing.

Parameters
----------
corners : list of numpy.ndarray, or array of shape (n, 3)
    Locations whose box is to be covered; its corners are enough.
cov : Covariance
    The structure.
covs : list of Covariance
    In the forms for a model. The field is the sum of one for each structure, with seeds drawn from
    one; a nugget draws a new value each time it is evaluated, as in `TBSIM`.
seed : int
    Taken modulo 2^32.
nx, ny, nz : int
    Nodes along the axes of the lattice; below 1 they count as 1. An axis along which all `corners`
    are in one place has 1.
n : int, default 128
    The three of them in one.
n_threads : int, default 0
    Number of threads; 0 stands for all. Phases are drawn by every thread for itself, so the field
    depends on it.

Returns
-------
SpatialFunction
    It keeps 8 bytes for each node. While it is made, it takes three times as much.

Raises
------
ValueError
    When `corners` is empty.
MemoryError
    When the lattice does not fit into memory.

Notes
-----
Phases are drawn for the half of the spectrum that a real field needs, without regard to the entries
in it that mirror each other: those of frequency 0 along the third axis and, when `nz` is even, of
the highest one. Only half of the variance of these reaches the field. What is missing, in parts of
the sill, is about a third (exponential) to a half (gaussian) of a range over the length of the
lattice along the third axis. When `nz` is 1, as for `corners` in one level, half of the sill is:
multiply such a field by the root of 2.

The correlation of spherical, gaussian and exponential structures is read from a table of steps of
1/2000000 of the range, one for each of the three types in the process, which the first structure
of the type fills. A structure of `generate_covariances` counts as spherical, whatever its kernel.

References
----------
Pardo-Iguzquiza, E. and Chica-Olmo, M. (1993). The Fourier integral method: an efficient spectral
method for simulation of random fields. Mathematical Geology 25(2), 177-217.
)");
  bind_fim<CovarianceModel>(m, "covs", "");
}

void register_tbsim_module(py::module_& m) {
  bind_tbsim<Covariance>(m, "cov", R"(
Simulate a Gaussian field of mean 0 by turning bands.

The field is the sum of random processes on `n` lines, whose directions are spread over the half
sphere. It is known exactly at every location, and costs a few operations a line there.

Fields of spherical and exponential structures are made for the box of `corners`; elsewhere their
values grow without bound. A line that would have more than 10000 cells, because the range is tiny
beside the box, gives white noise instead.

Parameters
----------
corners : list of numpy.ndarray, or array of shape (m, 3)
    Locations whose projections on each line are to be covered. All eight corners of a box cover
    it; two opposite ones do not.
cov : Covariance
    The structure: gaussian, exponential or spherical. Any other type gives white noise.
covs : list of Covariance
    In the form for a model. The field is the sum of one for each structure, with seeds drawn from
    one. A nugget is white noise: it draws a new value each time it is evaluated, even at the same
    location, and its values depend on the number of threads.
seed : int
    Taken modulo 2^32.
n : int, default 600
    Number of lines.

Returns
-------
SpatialFunction

Raises
------
ValueError
    When `corners` is empty or `n` is below 1.
MemoryError
    When the lines do not fit into memory.

Notes
-----
The line of an exponential structure changes its sign from cell to cell with a probability of 5/18
instead of 1/2, and a third of the lines have no scale of their own. The covariance of the field
therefore differs from that of the structure; its variance is the sill.

References
----------
Matheron, G. (1973). The intrinsic random functions and their applications. Advances in Applied
Probability 5(3), 439-468.
Emery, X. and Lantuejoul, C. (2006). TBSIM: A computer program for conditional simulation of
three-dimensional Gaussian random fields via the turning bands method. Computers & Geosciences
32(10), 1615-1628.
)");
  bind_tbsim<CovarianceModel>(m, "covs", "");
}

void register_conditioning(py::module_& m) {
  bind_conditioning(m);
  bind_ensembles(m);
  auto generator =
      py::reinterpret_borrow<py::class_<SimulatorGenerator>>(m.attr("SimulatorGenerator"));
  def_static_factory(
      generator, "Ensemble",
      [](const LocalCovariances& local_covs, const SimulatorFactory& sim_factory, double max_weight,
         double power_a, std::int64_t /*seed*/) {
        return SimulatorGenerator(
            [local_covs, sim_factory,
             blend = BlendParameters{max_weight, power_a}](std::int64_t seed) {
              return create_ensemble_simulator(local_covs, sim_factory, blend, seed);
            });
      },
      py::arg("local_covs"), py::arg("sim_factory"), py::arg("max_weight"), py::arg("power_a"),
      py::arg("seed"), R"(
Make fields with covariance models that differ from place to place.

Parameters
----------
local_covs, max_weight, power_a
    As for `unconditional_ensemble_simulation`.
sim_factory : SimulatorFactory
    Makes the field of each model.
seed : int
    Has no effect: the seed that the generator is called with draws those of the fields.

Returns
-------
SimulatorGenerator
    Its fields have at each location the value of `unconditional_ensemble_simulation`.
)");
}

}  // namespace talvorix::python
