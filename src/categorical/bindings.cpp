#include "algebra/jet.h"
#include "algebra/jet_list.h"
#include "algebra/jet_matrix.h"
#include "categorical/expression_transiogram.h"
#include "categorical/markov_chain.h"
#include "categorical/transiogram.h"
#include "core/interrupt.h"
#include "module/callback_lock.h"
#include "module/conversions.h"
#include "module/pickling.h"
#include "module/registration.h"

#include <pybind11/pybind11.h>

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <span>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace py = pybind11;

namespace talvorix::python {

namespace {

template <class NameOf>
double scalar_from(const py::object& result, double, NameOf&& kernel_name) {
  return returned_number(result, kernel_name);
}

template <class NameOf>
Jet scalar_from(const py::object& result, const Jet&, NameOf&& kernel_name) {
  return py::isinstance<Jet>(result) ? result.cast<Jet>()
                                     : Jet(returned_number(result, kernel_name));
}

// A transiogram whose entries are Python callables.
template <class T>
class CallableTransiogram final : public AbstractTransiogram<T> {
 public:
  using Kernels = std::vector<std::vector<py::object>>;

  explicit CallableTransiogram(Kernels kernels)
      : AbstractTransiogram<T>(row_sizes(kernels)), kernels_(std::move(kernels)) {}

  const Kernels& kernels() const { return kernels_; }

 private:
  // The callables cannot change what they are given, so those of a row are given the same.
  void evaluate(std::size_t row, std::size_t first, const JetList<T>& u, const JetList<T>& v,
                PollRef poll, std::span<T> values) const override {
    const py::gil_scoped_acquire interpreter_lock;
    const py::object given_u = py::cast(u);
    const py::object given_v = py::cast(v);
    PyObject* const given[] = {given_u.ptr(), given_v.ptr()};
    for (std::size_t j = 0; j < values.size(); ++j) {
      poll();
      const CallbackGuard guard;
      const py::object& kernel = kernels_[row][first + j];
      const auto result = py::reinterpret_steal<py::object>(
          PyObject_Vectorcall(kernel.ptr(), given, std::size(given), nullptr));
      if (!result) {
        throw py::error_already_set();
      }
      values[j] = scalar_from(result, T(0.0), [&] {
        return "kernel_matrix[" + std::to_string(row) + "][" + std::to_string(first + j) + "]";
      });
    }
  }

  Kernels kernels_;
};

// How native code passes shared objects on.
template <class Class>
struct HandleOf {};

template <class Class>
void bind_handle(py::module_& m, const std::string& name) {
  const std::string doc =
      "\nA shared handle of a `" + name + "` in native code. No function takes or returns one.\n";
  py::class_<HandleOf<Class>>(m, (name + "Ptr").c_str(), doc.c_str());
}

// What native objects held by handles are to Python; samplers are a class of their own for each
// scalar.
template <class T>
struct Transiogram {
  TransiogramHandle<T> table;
};

template <class T, class Sampler>
struct BoundSampler : Made {
  std::shared_ptr<Sampler> sampler;
};

template <class T>
void bind_transiogram(py::module_& m) {
  using Self = Transiogram<T>;
  using Vector = JetList<T>;
  bind_handle<Self>(m, "Transiogram");
  py::class_<Self> cls(m, "Transiogram", R"(
Probabilities of transition between classes, by location.

A table with a row and a column for each class. The entry of row i and column j tells how likely
class j is at v when class i is at u. It may depend on how far apart the two are, on the direction
and, where transitions change over the field, on where they are. Nothing makes rows sum to one.

References
----------
Li, W. (2006). Transiogram: a spatial relationship measure for categorical data. International
Journal of Geographical Information Science 20(6), 693-699.
)");
  cls.def(py::init([](typename CallableTransiogram<T>::Kernels kernel_matrix) {
            return Self{std::make_shared<CallableTransiogram<T>>(std::move(kernel_matrix))};
          }),
          py::arg("kernel_matrix"), R"(
Make a table of Python functions.

Parameters
----------
kernel_matrix : list of list of callable
    A row for each class. Each function is given u and v as vectors of the submodule `algebra` and
    returns a number. Only one function runs at a time in the whole process.
u, v : Variable
    In the second form, the variables of the formulas below that stand for the two locations. Each
    evaluation of the table sets them to vectors.
kernels : list of list of Expression
    In the second form, a row of formulas for each class; each yields a scalar. Such a table serves
    one thread at a time, and a simulation reads other variables once, when it begins.
)")
      .def(py::init([](typename ExpressionTransiogram<T>::VariableHandle u,
                       typename ExpressionTransiogram<T>::VariableHandle v,
                       typename ExpressionTransiogram<T>::Expressions kernels) {
             for (const auto& row : kernels) {
               for (const auto& kernel : row) {
                 if (kernel == nullptr) {
                   throw py::type_error("kernels holds None where an Expression was expected");
                 }
               }
             }
             return Self{std::make_shared<ExpressionTransiogram<T>>(std::move(u), std::move(v),
                                                                    std::move(kernels))};
           }),
           py::arg("u").none(false), py::arg("v").none(false), py::arg("kernels"))
      .def(
          "__call__",
          [](const Self& self, int class_u, int class_v, const Vector& u, const Vector& v) {
            InterruptPoller poll;
            return self.table->entry(class_u, class_v, u, v, poll);
          },
          py::arg("class_u"), py::arg("class_v"), py::arg("u"), py::arg("v"), R"(
Evaluate an entry, a row or the whole table.

Parameters
----------
class_u : int
    The row: the class at u. Without it, the whole table.
class_v : int
    The column: the class at v. Without it, the whole row.
u, v : vector
    The two locations.

Returns
-------
number, vector or matrix
    What the functions returned; nothing is normalised.

Raises
------
IndexError
    When the table has no such row or column.
TypeError
    When a function returns no number. What a function raises passes through.
RuntimeError
    When a formula yields a vector.
)")
      .def(
          "__call__",
          [](const Self& self, int class_u, const Vector& u, const Vector& v) {
            InterruptPoller poll;
            return self.table->row(class_u, u, v, poll);
          },
          py::arg("class_u"), py::arg("u"), py::arg("v"))
      .def(
          "__call__",
          [](const Self& self, const Vector& u, const Vector& v) {
            InterruptPoller poll;
            return self.table->rows(u, v, poll);
          },
          py::arg("u"), py::arg("v"));
  cls.def("__repr__", [](const Self& self) {
    return "<Transiogram of " + std::to_string(self.table->n_classes()) + " classes>";
  });
  // Two lists of rows, one of which is empty: callables, or expressions of u and v.
  using Callables = typename CallableTransiogram<T>::Kernels;
  using Formulas = ExpressionTransiogram<T>;
  using Variable = typename Formulas::VariableHandle;
  define_pickling(
      cls,
      [](const Self& self)
          -> std::tuple<Callables, Variable, Variable, typename Formulas::Expressions> {
        if (const auto* table = dynamic_cast<const Formulas*>(self.table.get())) {
          return {{}, table->u(), table->v(), table->expressions()};
        }
        return {dynamic_cast<const CallableTransiogram<T>&>(*self.table).kernels(), {}, {}, {}};
      },
      [](Callables callables, Variable u, Variable v, typename Formulas::Expressions expressions) {
        if (u == nullptr) {
          return Self{std::make_shared<CallableTransiogram<T>>(std::move(callables))};
        }
        require_state(v != nullptr, "there is no variable v");
        for (const auto& row : expressions) {
          for (const auto& expression : row) {
            require_state(expression != nullptr, "a node is None");
          }
        }
        return Self{std::make_shared<Formulas>(std::move(u), std::move(v), std::move(expressions))};
      });
}

template <class T>
void bind_markov_chain(py::module_& m) {
  using Unconditional = BoundSampler<T, UnconditionalSampler>;
  using Conditional = BoundSampler<T, ConditionalSampler>;
  bind_handle<Unconditional>(m, "UnconditionalSampler");
  bind_handle<Conditional>(m, "ConditionalSampler");
  py::class_<Unconditional> unconditional(m, "UnconditionalSampler", R"(
Draws the class of a target that has no neighbours.
)");
  define_recipe(unconditional);
  def_static_factory(
      unconditional, "Default",
      [](const Transiogram<T>& transiogram) {
        return Unconditional{{}, create_default_unconditional_sampler<T>(transiogram.table)};
      },
      py::arg("transiogram"), R"(
Make the sampler that `simulation` uses: every class is equally likely, whatever the transiogram says.

Parameters
----------
transiogram : Transiogram
    Tells how many classes there are.

Returns
-------
UnconditionalSampler

Raises
------
ValueError
    When the table of the transiogram is empty or not square.
)");
  py::class_<Conditional> conditional(m, "ConditionalSampler", R"(
Draws the class of a target from its neighbours.
)");
  define_recipe(conditional);
  def_static_factory(
      conditional, "Default",
      [](const Transiogram<T>& transiogram) {
        return Conditional{{}, create_default_conditional_sampler<T>(transiogram.table)};
      },
      py::arg("transiogram"), R"(
Make the sampler that `simulation` uses: neighbours vote with their rows, by inverse squared distance.

Parameters
----------
transiogram : Transiogram

Returns
-------
ConditionalSampler

Raises
------
ValueError
    When the table of the transiogram is empty or not square.
)");
  m.def(
      "simulation",
      [](const Locations& target_locs, const Locations& data_locs,
         const std::vector<int>& data_values, const Transiogram<T>& transiogram,
         const Ellipsoid& search_ani, double r, int knn, int /* n_previous, not read: deliberate */,
         std::int64_t seed) {
        return simulate_markov_chain<T>(target_locs, data_locs, data_values, transiogram.table,
                                        search_ani, {r, knn}, seed);
      },
      py::arg("target_locs"), py::arg("data_locs"), py::arg("data_values"), py::arg("transiogram"),
      py::arg("search_ani"), py::arg("r") = -1, py::arg("knn") = 32, py::arg("n_previous") = 32,
      py::arg("seed") = 141412, R"(
Simulate a class at each target along a random path.

Each target looks for its neighbours among the data and, apart from them, among the targets simulated
before. Each neighbour's row of the transiogram, from there to the target, counts by the weight
1 / (d^2 + 1e-6), d being the Euclidean distance. The weighted mean of the rows, made to sum to one,
is what the class is drawn from. Without neighbours every class is equally likely.

Parameters
----------
target_locs : list of numpy.ndarray, or array of shape (n, 3)
data_locs : list of numpy.ndarray, or array of shape (m, 3)
    May be empty.
data_values : list of int, or array of shape (m,)
    The classes of the data: rows of the transiogram, counted from 0.
transiogram : Transiogram
    Evaluated at (neighbour, target). Its functions run on the calling thread.
search_ani : Ellipsoid
    In whose metric neighbours are searched; weights do not depend on it.
r : float, default -1
    All data and targets nearer than `r` in the metric of `search_ani` are neighbours. At or below 0
    the `knn` nearest are.
knn : int, default 32
    Largest number of neighbours among the data, and among the targets.
n_previous : int, default 32
    Accepted and not read: `knn` bounds the targets as well.
seed : int, default 141412
    Taken modulo 2^32.

Returns
-------
list of int
    A class for each target. -1 where none could be drawn, since the weighted mean is NaN; such a
    target is no neighbour of others.

Raises
------
ValueError
    When `data_locs` and `data_values` are not equally many, the table of the transiogram is empty or
    not square, `knn` is negative and read, or a location is not finite.
IndexError
    When a class of the data is not in the transiogram.
TypeError
    When a function of the transiogram returns no number. What a function raises passes through.

References
----------
Allard, D., Comunian, A. and Renard, P. (2012). Probability aggregation methods in geoscience.
Mathematical Geosciences 44(5), 545-581: the weighted mean is their linear pooling.
Li, W. (2007). Markov chain random fields for estimation of categorical variables. Mathematical
Geology 39(3), 321-335.
)");
}

}  // namespace

void register_transiogram_module(py::module_& m) {
  auto transiogram = m.def_submodule("transiogram", R"(
Probabilities of transition between classes, as functions of two locations.
)");
  bind_transiogram<double>(transiogram);
  auto jet = transiogram.def_submodule("jet", R"(
The same for numbers with derivatives.
)");
  bind_transiogram<Jet>(jet);
}

void register_markov_chain_module(py::module_& m) {
  auto markov_chain = m.def_submodule("markov_chain", R"(
Simulation of classes along a random path by transiograms.
)");
  bind_markov_chain<double>(markov_chain);
  auto jet = markov_chain.def_submodule("jet", R"(
The same with transiograms for numbers with derivatives, of which the values are read.
)");
  bind_markov_chain<Jet>(jet);
}

}  // namespace talvorix::python
