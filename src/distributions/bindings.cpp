#include "core/random.h"
#include "distributions/cdf.h"
#include "distributions/distribution.h"
#include "distributions/distribution_transform.h"
#include "distributions/linear_algebra.h"
#include "distributions/pdf.h"
#include "distributions/ppmt.h"
#include "module/conversions.h"
#include "module/pickling.h"
#include "module/registration.h"

#include <pybind11/pybind11.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace py = pybind11;

namespace talvorix::python {

using StepHandle = std::shared_ptr<const PPMT::Step>;

template <>
struct Packed<StepHandle> {
  using Fields =
      std::tuple<Eigen::MatrixXd, Eigen::MatrixXd, std::vector<double>, std::vector<double>,
                 std::vector<double>, std::vector<double>, std::vector<Isomorphism>>;

  static py::object pack(const StepHandle& step) {
    return pack_state(std::tie(step->rotation, step->inverse_rotation, step->mean, step->std,
                               step->post_mean, step->post_std, step->isomorphisms));
  }
  static StepHandle unpack(py::handle item) {
    constexpr std::size_t n_fields = std::tuple_size_v<Fields>;
    auto fields =
        unpack_state<Fields>(checked_state(py::reinterpret_borrow<py::object>(item), n_fields),
                             std::make_index_sequence<n_fields>());
    return std::apply(
        [](auto&&... field) {
          return std::make_shared<const PPMT::Step>(PPMT::Step{std::move(field)...});
        },
        std::move(fields));
  }
};

namespace {

using Values = std::vector<double>;

constexpr long long default_table_size = 800000;
constexpr std::int64_t default_table_seed = 12145;
constexpr std::int64_t default_draw_seed = 12515;

void bind_rng(py::module_& m) {
  py::class_<RandomEngine> cls(m, "RNG", R"(
A random engine that successive draws advance: the 32-bit Mersenne Twister (Matsumoto and Nishimura
1998) with its standard seeding.
)");
  cls.def(py::init(&seeded_engine), py::arg("seed"), R"(
Seed an engine.

Parameters
----------
seed : int
    Taken modulo 2^32.
)");
  cls.def("__repr__", [](const RandomEngine& self) {
    return "<RNG at word " + std::to_string(engine_state(self).back()) + " of " +
           std::to_string(RandomEngine::state_size) + ">";
  });
  define_value(
      cls, [](const RandomEngine& self) { return std::tuple(engine_state(self)); },
      &engine_from_state, Hashing::none);
}

// The name before "_distribution", the parameters, the gaussian's kept value, and the sorted data
// with their cumulated weights.
using DistributionFields = std::tuple<std::string, Values, std::optional<double>, Values, Values>;

struct FieldsOfSampler {
  using Fields = DistributionFields;
  Fields operator()(const sampler::Gaussian& s) const {
    return {"gaussian", {s.mean, s.std_dev}, s.normal.kept(), {}, {}};
  }
  Fields operator()(const sampler::Uniform& s) const { return plain("uniform", {s.a, s.b}); }
  Fields operator()(const sampler::Lognormal& s) const { return plain("lognormal", {s.m, s.s}); }
  Fields operator()(const sampler::Gamma& s) const { return plain("gamma", {s.alpha(), s.beta()}); }
  Fields operator()(const sampler::Exponential& s) const {
    return plain("exponential", {s.lambda});
  }
  Fields operator()(const sampler::Weibull& s) const { return plain("weibull", {s.a, s.b}); }
  Fields operator()(const sampler::ExtremeValue& s) const {
    return plain("extreme_value", {s.a, s.b});
  }
  Fields operator()(const sampler::Cauchy& s) const { return plain("cauchy", {s.a, s.b}); }
  Fields operator()(const sampler::FisherF& s) const { return plain("fisher_f", {s.m(), s.n()}); }
  Fields operator()(const sampler::StudentT& s) const { return plain("student_t", {s.n}); }
  Fields operator()(const sampler::Data& s) const {
    return {"data", {}, std::nullopt, s.data(), s.cumulative()};
  }

 private:
  static Fields plain(const char* name, const Values& parameters) {
    return {name, parameters, std::nullopt, {}, {}};
  }
};

DistributionFields fields_of(const Distribution& distribution) {
  return std::visit(FieldsOfSampler(), distribution.sampler());
}

Distribution distribution_of(const std::string& name, const Values& p,
                             const std::optional<double>& kept, Values data, Values cumulative) {
  if (name == "data") {
    return Distribution(sampler::Data::from_parts(std::move(data), std::move(cumulative)));
  }
  const bool has_one = name == "exponential" || name == "student_t";
  require_state(p.size() == (has_one ? 1U : 2U), "a distribution has not its number of parameters");
  if (name == "gaussian") return Distribution(sampler::Gaussian{p[0], p[1], StandardNormal(kept)});
  if (name == "uniform") return uniform_distribution(p[0], p[1]);
  if (name == "lognormal") return lognormal_distribution(p[0], p[1]);
  if (name == "gamma") return gamma_distribution(p[0], p[1]);
  if (name == "exponential") return exponential_distribution(p[0]);
  if (name == "weibull") return weibull_distribution(p[0], p[1]);
  if (name == "extreme_value") return extreme_value_distribution(p[0], p[1]);
  if (name == "cauchy") return cauchy_distribution(p[0], p[1]);
  if (name == "fisher_f") return fisher_f_distribution(p[0], p[1]);
  require_state(name == "student_t", "there is no distribution of that name");
  return student_t_distribution(p[0]);
}

std::string call_text(const DistributionFields& fields) {
  const auto& [name, parameters, kept, data, cumulative] = fields;
  if (name == "data") {
    return "<data_distribution of " + std::to_string(data.size()) + " data>";
  }
  std::string text = name + "_distribution(";
  for (std::size_t i = 0; i < parameters.size(); ++i) {
    text += (i == 0 ? "" : ", ") + py::repr(py::float_(parameters[i])).cast<std::string>();
  }
  return text + ")";
}

void bind_distribution(py::module_& m) {
  py::class_<Distribution> cls(m, "Distribution", R"(
A source of random numbers, made by a factory such as `gaussian_distribution`.
)");
  cls.def("__call__", &Distribution::operator(), py::arg("rng"), R"(
Draw one value.

Parameters
----------
rng : RNG
    Advanced by the draw.

Returns
-------
float
)")
      .def("simulate",
           py::overload_cast<long long, std::int64_t>(&Distribution::simulate, py::const_),
           py::arg("n"), py::arg("seed") = default_draw_seed, R"(
Draw values, in order, from one engine.

The second form, with `N` or `n_threads`, has an engine for each thread and each draw a contiguous
block: its values depend on the number of threads and differ from those of the first form, also
with one thread. Two positional arguments mean the first form.

Parameters
----------
n, N : int
    Number of values.
seed : int, default 12515
    Taken modulo 2^32.
n_threads : int, default 0
    Number of threads; 0 stands for all.

Returns
-------
list of float

Raises
------
ValueError
    When the number is negative.
)")
      .def("simulate",
           py::overload_cast<long long, std::int64_t, int>(&Distribution::simulate, py::const_),
           py::arg("N"), py::arg("seed") = default_draw_seed, py::arg("n_threads") = 0)
      .def("histogram", &Distribution::histogram, py::arg("n"), py::arg("seed") = default_draw_seed,
           R"(
Draw values from one engine, as `simulate(n, seed)` does, and sort them.

Parameters
----------
n : int
    Number of values.
seed : int, default 12515
    Taken modulo 2^32.

Returns
-------
list of float
    Ascending, NaN last.

Raises
------
ValueError
    When the number is negative.
)")
      .def("cdf", &Distribution::cdf, py::arg("n"), py::arg("seed") = default_draw_seed, R"(
Draw an empirical distribution function.

Parameters
----------
n : int
    Number of values.
seed : int, default 12515
    Taken modulo 2^32.

Returns
-------
tuple of (list of float, list of float)
    The values as of `histogram`, and the probabilities 0, 1/n, 2/n, ... below 1, by repeated
    addition.

Raises
------
ValueError
    When the number is negative.
)");
  cls.def("__repr__", [](const Distribution& self) { return call_text(fields_of(self)); });
  define_value(cls, &fields_of, &distribution_of, Hashing::none);
}

void bind_factories(py::module_& m) {
  m.def("gaussian_distribution", &gaussian_distribution, py::arg("mean") = 0.0,
        py::arg("std_dev") = 1.0, R"(
Make a normal distribution, drawn by the polar method (Marsaglia and Bray 1964).

Normals come in pairs: the second one is kept for the next draw, whichever call makes it and
whatever its seed. With several threads each has a kept value of its own.

Parameters
----------
mean : float, default 0.0
std_dev : float, default 1.0

Returns
-------
Distribution
    Parameters are not checked, here or in the other factories: outside their domain draws are what
    the formulas give, NaN say, or do not end until they are interrupted.
)");
  m.def("uniform_distribution", &uniform_distribution, py::arg("a"), py::arg("b"), R"(
Make a uniform distribution.

Parameters
----------
a, b : float
    Its ends; the second one is not drawn.

Returns
-------
Distribution
)");
  m.def("lognormal_distribution", &lognormal_distribution, py::arg("m"), py::arg("s"), R"(
Make the distribution of the exponential of a normal.

Parameters
----------
m, s : float
    Mean and standard deviation of the logarithm.

Returns
-------
Distribution
)");
  m.def("gamma_distribution", &gamma_distribution, py::arg("alpha"), py::arg("beta"), R"(
Make a gamma distribution, drawn by the methods of Ahrens and Dieter (1974).

Parameters
----------
alpha : float
    Shape.
beta : float
    Scale.

Returns
-------
Distribution
)");
  m.def("exponential_distribution", &exponential_distribution, py::arg("lambda"), R"(
Make an exponential distribution, drawn by inversion.

Parameters
----------
lambda : float
    Rate: 1 over the mean.

Returns
-------
Distribution
)");
  m.def("weibull_distribution", &weibull_distribution, py::arg("a"), py::arg("b"), R"(
Make a Weibull distribution, drawn by inversion.

Parameters
----------
a : float
    Shape.
b : float
    Scale.

Returns
-------
Distribution
)");
  m.def("extreme_value_distribution", &extreme_value_distribution, py::arg("a"), py::arg("b"), R"(
Make a Gumbel distribution of largest values, drawn by inversion.

Parameters
----------
a : float
    Location: its mode.
b : float
    Scale.

Returns
-------
Distribution
)");
  m.def("chi_squared_distribution", &chi_squared_distribution, py::arg("k"), R"(
Make a chi-squared distribution: gamma with shape k / 2 and scale 2.

Parameters
----------
k : float
    Degrees of freedom.

Returns
-------
Distribution
)");
  m.def("cauchy_distribution", &cauchy_distribution, py::arg("a"), py::arg("b"), R"(
Make a Cauchy distribution, drawn by inversion.

Parameters
----------
a : float
    Location: its median.
b : float
    Scale: half the distance between the quartiles.

Returns
-------
Distribution
)");
  m.def("fisher_f_distribution", &fisher_f_distribution, py::arg("m"), py::arg("n"), R"(
Make a Fisher F distribution, drawn from a beta variate (Johnk 1964 for small shapes).

Parameters
----------
m, n : float
    Degrees of freedom of the numerator and the denominator.

Returns
-------
Distribution
)");
  m.def("student_t_distribution", &student_t_distribution, py::arg("n"), R"(
Make a Student t distribution, drawn by the polar method of Bailey (1994).

Parameters
----------
n : float
    Degrees of freedom.

Returns
-------
Distribution
)");
  m.def("data_distribution", &data_distribution, py::arg("data"), py::arg("weight") = Values(), R"(
Make a continuous distribution of weighted data.

A draw chooses a datum by weight and mixes the midpoints to its two neighbours at random; an end
mixes with its only neighbour. No draw lies outside the data.

Parameters
----------
data : list of float, or array of shape (n,)
    At least 2, in any order.
weight : list of float, or array of shape (n,), default []
    Scaled to add up to 1. Empty: all alike.

Returns
-------
Distribution

Raises
------
ValueError
    When there are fewer than 2 data, or when data that are not ascending have weights of another
    number. Beside ascending data a list of another length is used as it is: what reaches beyond
    the last datum draws that one.
)");
}

// What both kinds of table are asked for without arguments; table(self) is the CDF to ask.
template <class Class, class Table>
void bind_summary(Class& cls, Table table) {
  const auto field = [table](double (CDF::*member)() const) {
    return [table, member](const typename Class::type& self) { return (table(self).*member)(); };
  };
  cls.def("min", field(&CDF::min), "Smallest sample.")
      .def("max", field(&CDF::max), "Largest sample.")
      .def("median", field(&CDF::median), "Quantile of the probability 0.5.")
      .def("q90", field(&CDF::q90), "Quantile of the probability 0.9.")
      .def("q75", field(&CDF::q75), "Quantile of the probability 0.75.");
}

std::string table_text(const CDF& table) {
  return "of " + std::to_string(table.sample().size()) + " samples from " + shown(table.min()) +
         " to " + shown(table.max());
}

void bind_pdf(py::module_& m) {
  py::class_<PDF> cls(m, "PDF", R"(
Density and smoothed quantiles of a distribution, tabulated by a sorted sample of it.
)");
  cls.def(py::init<const Distribution&, long long, std::int64_t>(), py::arg("dist"),
          py::arg("N") = default_table_size, py::arg("seed") = default_table_seed, R"(
Draw the sample.

Parameters
----------
dist : Distribution
N : int, default 800000
    Size of the sample.
seed : int, default 12145
    Taken modulo 2^32.

Raises
------
ValueError
    When `N` is not positive.
)")
      .def("prob", &PDF::prob, py::arg("value"), py::arg("dv") = 0.05, R"(
Give the density at a value.

Parameters
----------
value : float
dv : float, default 0.05
    Half the width of the interval over which the density is averaged.

Returns
-------
float
    (F(value + dv) - F(value - dv)) / (2 dv) with F as of `CDF.prob`.
)")
      .def("value", &PDF::value, py::arg("prob"), py::arg("dp") = 0.001, R"(
Give the smoothed quantile of a probability.

Parameters
----------
prob : float
dp : float, default 0.001
    Distance in probability of the two quantiles that are averaged.

Returns
-------
float
    (Q(prob - dp) + Q(prob + dp)) / 2 with Q as of `CDF.value`.
)")
      .def("probs", &PDF::probs, py::arg("values"), py::arg("dv") = 0.05, py::arg("n_threads") = 0,
           R"(
Give the density at each value, in parallel.

Parameters
----------
values : list of float, or array of shape (n,)
dv : float, default 0.05
    As for `prob`.
n_threads : int, default 0
    Number of threads; 0 stands for all.

Returns
-------
list of float
)")
      .def("values", &PDF::values, py::arg("probs"), py::arg("dp") = 0.001,
           py::arg("n_threads") = 0, R"(
Give the smoothed quantile of each probability, in parallel.

Parameters
----------
probs : list of float, or array of shape (n,)
dp : float, default 0.001
    As for `value`.
n_threads : int, default 0
    Number of threads; 0 stands for all.

Returns
-------
list of float
)");
  bind_summary(cls, [](const PDF& self) -> const CDF& { return self.cdf(); });
  cls.def("__repr__", [](const PDF& self) { return "<PDF " + table_text(self.cdf()) + ">"; });
  define_value(
      cls, [](const PDF& self) { return std::tie(self.cdf().sample()); },
      [](Values sample) { return PDF(CDF(std::move(sample))); }, Hashing::by_value);
}

void bind_cdf(py::module_& m) {
  py::class_<CDF> cls(m, "CDF", R"(
Probabilities and quantiles of a distribution, tabulated by a sorted sample of it.
)");
  cls.def(py::init<const Distribution&, long long, std::int64_t>(), py::arg("dist"),
          py::arg("N") = default_table_size, py::arg("seed") = default_table_seed, R"(
Draw the sample.

Parameters
----------
dist : Distribution
N : int, default 800000
    Size of the sample.
seed : int, default 12145
    Taken modulo 2^32.

Raises
------
ValueError
    When `N` is not positive.
)")
      .def("prob", &CDF::prob, py::arg("value"), R"(
Give the probability of a value.

Parameters
----------
value : float

Returns
-------
float
    The mean of the probabilities of the samples on either side, weighted by inverse distance. At
    or below the smallest sample it is 0, at the largest (N - 1) / N, and above it 1.
)")
      .def("value", &CDF::value, py::arg("prob"), R"(
Give the quantile of a probability.

Parameters
----------
prob : float
    Below 0 it reads as 0, and above 1 as 1.

Returns
-------
float
    Linear between samples; from (N - 1) / N on it is the largest one.
)")
      .def("probs", py::overload_cast<std::vector<double>, int>(&CDF::probs, py::const_),
           py::arg("values"), py::arg("n_threads") = 0, R"(
Give the probability of each value, in parallel.

Parameters
----------
values : list of float, or array of shape (n,)
n_threads : int, default 0
    Number of threads; 0 stands for all.

Returns
-------
list of float
)")
      .def("values", py::overload_cast<std::vector<double>, int>(&CDF::values, py::const_),
           py::arg("probs"), py::arg("n_threads") = 0, R"(
Give the quantile of each probability, in parallel.

Parameters
----------
probs : list of float, or array of shape (n,)
n_threads : int, default 0
    Number of threads; 0 stands for all.

Returns
-------
list of float
)");
  bind_summary(cls, [](const CDF& self) -> const CDF& { return self; });
  cls.def("__repr__", [](const CDF& self) { return "<CDF " + table_text(self) + ">"; });
  define_value(
      cls, [](const CDF& self) { return std::tie(self.sample()); },
      [](Values sample) { return CDF(std::move(sample)); }, Hashing::by_value);
}

void bind_nscore(py::module_& m) {
  using Transform = DistributionTransform;
  py::class_<Transform> cls(m, "NScore", R"(
Transform between two distributions by equal probability (Goovaerts 1997, 7.2). Data go to normal
scores when the source is their `data_distribution` and the target a `gaussian_distribution`.
)");
  cls.def(py::init<const Distribution&, const Distribution&, long long, std::int64_t>(),
          py::arg("source"), py::arg("target"), py::arg("n") = default_table_size,
          py::arg("seed") = default_table_seed, R"(
Tabulate both distributions, as `CDF` does.

Parameters
----------
source, target : Distribution
n : int, default 800000
    Size of each of the two samples.
seed : int, default 12145
    Of both samples; taken modulo 2^32.

Raises
------
ValueError
    When `n` is not positive.
)")
      .def("forward", py::overload_cast<double>(&Transform::forward, py::const_), py::arg("z"), R"(
Carry a value of the source to the target.

Parameters
----------
z : float
    A value; the second form takes a list, or an array of shape (n,), and carries each.
n_threads : int, default 0
    Number of threads of the second form; 0 stands for all.

Returns
-------
float or list of float
    The target's quantile of the value's probability in the source; not beyond its samples.
)")
      .def("backward", py::overload_cast<double>(&Transform::backward, py::const_), py::arg("z"),
           R"(
Carry a value of the target back to the source; takes and returns what `forward` does.
)")
      .def("forward", py::overload_cast<Values, int>(&Transform::forward, py::const_), py::arg("z"),
           py::arg("n_threads") = 0)
      .def("backward", py::overload_cast<Values, int>(&Transform::backward, py::const_),
           py::arg("z"), py::arg("n_threads") = 0);
  cls.def("__repr__", [](const Transform& self) {
    return "<NScore from a table " + table_text(self.source()) + " to one " +
           table_text(self.target()) + ">";
  });
  define_value(
      cls,
      [](const Transform& self) {
        return std::tie(self.source().sample(), self.target().sample());
      },
      [](Values source, Values target) {
        return Transform(CDF(std::move(source)), CDF(std::move(target)));
      },
      Hashing::by_value);
}

py::array_t<double> vector_to_array(const Eigen::VectorXd& values) {
  return py::array_t<double>(values.size(), values.data());
}

void bind_linear_algebra(py::module_& m) {
  m.def(
      "create_random_rotation",
      [](long long N, double min_v, double max_v, std::int64_t seed) {
        RandomEngine rng = seeded_engine(seed);
        return create_random_rotation(N, min_v, max_v, rng);
      },
      py::arg("N"), py::arg("min_v"), py::arg("max_v"), py::arg("seed"), R"(
Draw a rotation: a matrix of `create_random_orthogonal_matrix` times itself.

Parameters
----------
N : int
min_v, max_v : float
seed : int
    As for `create_random_orthogonal_matrix`.

Returns
-------
numpy.ndarray, shape (N, N)
    Its inverse is its transpose.

Raises
------
ValueError
    When `N` is not positive, or `min_v` and `max_v` are the same or not finite.
)");
  m.def(
      "create_random_orthogonal_matrix",
      [](long long N, double min_v, double max_v, std::int64_t seed) {
        RandomEngine rng = seeded_engine(seed);
        return create_random_orthogonal_matrix(N, min_v, max_v, rng);
      },
      py::arg("N"), py::arg("min_v"), py::arg("max_v"), py::arg("seed"), R"(
Draw an orthogonal matrix of determinant 1.

Uniform numbers fill a matrix row by row, whose columns are then made orthonormal in turn, by Gram
and Schmidt's rule. The last column is negated when the determinant would be -1.

Parameters
----------
N : int
    Number of rows and of columns.
min_v, max_v : float
    Range of the uniform numbers.
seed : int
    Taken modulo 2^32.

Returns
-------
numpy.ndarray, shape (N, N)

Raises
------
ValueError
    When `N` is not positive, or `min_v` and `max_v` are the same or not finite.
)");
  m.def(
      "compute_svd_decomposition",
      [](const Eigen::MatrixXd& A, bool is_surface) {
        InterruptPoller poll;
        const SvdDecomposition svd = compute_svd_decomposition(A, is_surface, poll);
        return std::tuple(to_array(svd.u), vector_to_array(svd.s), to_array(svd.v));
      },
      py::arg("A"), py::arg("is_surface") = false, R"(
Decompose a matrix by its singular values: A = U diag(s) V^T.

Of each column of V, the first entry that is at least half as large as its largest is positive.

Parameters
----------
A : numpy.ndarray, shape (m, n)
is_surface : bool, default False
    Whether the means of the columns are taken off first, as when a plane is laid through points.

Returns
-------
tuple of (numpy.ndarray, numpy.ndarray, numpy.ndarray)
    U of shape (m, k), s of shape (k,) in descending order and V of shape (n, k), k being the
    smaller of m and n. NaN when an entry of A is not finite.

Raises
------
ValueError
    When A has no entries.
)");
  m.def(
      "compute_optimum_rotation",
      [](const Eigen::MatrixXd& A, bool is_surface) {
        InterruptPoller poll;
        const OptimumRotation optimum = compute_optimum_rotation(A, is_surface, poll);
        return std::tuple(to_array(optimum.rotation), to_array(optimum.inverse),
                          to_array(optimum.u), vector_to_array(optimum.s));
      },
      py::arg("A"), py::arg("is_surface") = false, R"(
Find the rotation that turns the rows of a matrix to their principal axes.

Parameters
----------
A : numpy.ndarray, shape (m, n)
    A sample a row.
is_surface : bool, default False
    Whether the means of the columns are taken off first.

Returns
-------
tuple of (numpy.ndarray, numpy.ndarray, numpy.ndarray, numpy.ndarray)
    The rotation V of shape (n, n), by which A is multiplied from the right, its inverse V^T, and U
    and s of `compute_svd_decomposition`. V is orthogonal; its determinant may be -1. NaN when an
    entry of A is not finite.

Raises
------
ValueError
    When A has no entries.
)");
}

void bind_ppmt(py::module_& m) {
  using Matrix = Eigen::MatrixXd;
  using OfMatrix = Matrix (PPMT::*)(Matrix, int) const;
  using OfSample = Values (PPMT::*)(const Values&) const;
  const PpmtSettings defaults;
  py::class_<PPMT> cls(m, "PPMT", R"(
The projection pursuit multivariate transform: from correlated variables to independent standard
normal ones, and back.

A step standardises the variables, rotates them, and brings each rotated axis to a normal
distribution by an `Isomorphism`. The first rotation is that to the principal axes; later ones are
that or, at random, any other. The maps are smooth and go on beyond the data.
)");
  cls.def(py::init([](const Matrix& data, int n_steps, double prob_random_rotation,
                      const IsomorphismParameters& iso_params, int n_threads, std::int64_t seed,
                      double min_v, double max_v, double extrapolation_tol, int n_bins) {
            return PPMT(data, {n_steps, prob_random_rotation, iso_params, n_threads, seed, min_v,
                               max_v, extrapolation_tol, n_bins});
          }),
          py::arg("data"), py::arg("n_steps"),
          py::arg("prob_random_rotation") = defaults.prob_random_rotation,
          py::arg("iso_params") = defaults.iso_params, py::arg("n_threads") = defaults.n_threads,
          py::arg("seed") = defaults.seed, py::arg("min_v") = defaults.min_v,
          py::arg("max_v") = defaults.max_v,
          py::arg("extrapolation_tol") = defaults.extrapolation_tol,
          py::arg("n_bins") = defaults.n_bins, py::call_guard<py::gil_scoped_release>(), R"(
Fit the steps to data; writes its progress to standard output.

Time grows with the number of steps times that of variables; the number of samples matters little,
since axes are fitted at `n_bins` quantiles.

Parameters
----------
data : numpy.ndarray, shape (n, d)
    A sample a row and a variable a column; at least two rows.
n_steps : int
    With 0 the transform is the identity.
prob_random_rotation : float, default 0.37
    How probable a random rotation is, at every step but the first.
iso_params : IsomorphismParameters
    How the maps of the axes are fitted. Left out, the way forward has the exponential kernel and
    the way back the spherical one. That one ends at a distance, and so the way back may have gaps,
    where samples come out as NaN; `IsomorphismParameters()` has the exponential kernel both ways
    and no gaps.
n_threads : int, default 0
    Number of threads; 0 stands for all. The result does not depend on it.
seed : int, default 123154
min_v, max_v : float, default -10 and 10
    Range of the numbers that random rotations are made from.
extrapolation_tol : float, default 0.1
    How far beyond the data the maps are fitted, in spans of the data.
n_bins : int, default 200
    Number of quantiles that the map of an axis is fitted to.

Raises
------
ValueError
    When `data` has fewer than two rows, no column or an entry that is not finite, `n_steps` or a
    count of `iso_params` is negative, `n_bins` is below 2, or `min_v` and `max_v` are the same. A
    variable that is constant makes everything NaN.

References
----------
Barnett, R. M., Manchuk, J. G. and Deutsch, C. V. (2014). Projection pursuit multivariate transform.
Mathematical Geosciences 46(3), 337-359 (the idea; rotations and maps differ here).
)")
      .def("forward", static_cast<OfSample>(&PPMT::forward), py::arg("u"), R"(
Carry samples to independent normal scores.

Parameters
----------
u : list of float, or array of shape (d,)
    One sample. The second form takes a table of samples.
data : numpy.ndarray, shape (n, d)
n_threads : int, default 0
    Number of threads of the second form; 0 stands for all.

Returns
-------
list of float, or numpy.ndarray of shape (n, d)

Raises
------
ValueError
    When a sample has not as many variables as the transform was fitted to.
)")
      .def("backward", static_cast<OfSample>(&PPMT::backward), py::arg("u"), R"(
Carry independent normal scores back to samples; takes and returns what `forward` does. The round
trip is as exact as the two maps of each axis fit each other.
)")
      .def("forward", static_cast<OfMatrix>(&PPMT::forward), py::arg("data"),
           py::arg("n_threads") = 0, py::call_guard<py::gil_scoped_release>())
      .def("backward", static_cast<OfMatrix>(&PPMT::backward), py::arg("data"),
           py::arg("n_threads") = 0, py::call_guard<py::gil_scoped_release>())
      .def("__repr__", [](const PPMT& self) {
        return "<PPMT of " + std::to_string(self.n_variables()) + " variables in " +
               std::to_string(self.n_steps()) + " steps>";
      });
  define_value(
      cls, [](const PPMT& self) { return std::tuple(self.n_variables(), self.steps()); },
      [](std::size_t n_variables, std::vector<StepHandle> steps) {
        return PPMT(n_variables, std::move(steps));
      },
      Hashing::by_value);
}

}  // namespace

void register_ppmt_module(py::module_& m) {
  bind_linear_algebra(m);
  bind_ppmt(m);
}

void register_distribution_module(py::module_& m) {
  bind_rng(m);
  bind_distribution(m);
  bind_factories(m);
  bind_pdf(m);
  bind_cdf(m);
  bind_nscore(m);
}

}  // namespace talvorix::python
