#include "algebra/expression.h"
#include "algebra/jet.h"
#include "algebra/jet_list.h"
#include "algebra/jet_matrix.h"
#include "algebra/solver.h"
#include "core/interrupt.h"
#include "module/callback_lock.h"
#include "module/conversions.h"
#include "module/implicit_conversion.h"
#include "module/pickling.h"
#include "module/registration.h"

#include <pybind11/pybind11.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace py = pybind11;

namespace talvorix::python {

// A dual number as its value and derivatives.
template <>
struct Packed<Jet> {
  static constexpr std::size_t size = 1 + Jet::DIMENSION;
  static void write(const Jet& jet, double* numbers) {
    numbers[0] = jet.a;
    std::copy_n(jet.v.data(), Jet::DIMENSION, numbers + 1);
  }
  static Jet read(const double* numbers) {
    Jet jet(numbers[0]);
    std::copy_n(numbers + 1, Jet::DIMENSION, jet.v.data());
    return jet;
  }
  static py::object pack(const Jet& jet) {
    std::array<double, size> numbers;
    write(jet, numbers.data());
    return py::tuple(py::cast(numbers));
  }
  static Jet unpack(py::handle item) { return read(item.cast<std::array<double, size>>().data()); }
};

template <>
struct Packed<std::vector<Jet>> {
  static constexpr std::size_t width = Packed<Jet>::size;
  static py::object pack(const std::vector<Jet>& jets) {
    py::array_t<double> array(
        {static_cast<py::ssize_t>(jets.size()), static_cast<py::ssize_t>(width)});
    double* numbers = array.mutable_data();
    for (const Jet& jet : jets) {
      Packed<Jet>::write(jet, numbers);
      numbers += width;
    }
    return array;
  }
  static std::vector<Jet> unpack(py::handle item) {
    const auto array = array_of_state<double>(item, 2);
    require_state(array.shape(1) == static_cast<py::ssize_t>(width),
                  "a dual number has not its number of derivatives");
    std::vector<Jet> jets(static_cast<std::size_t>(array.shape(0)));
    const double* numbers = array.data();
    for (Jet& jet : jets) {
      jet = Packed<Jet>::read(numbers);
      numbers += width;
    }
    return jets;
  }
};

template <class T>
struct Packed<JetList<T>> {
  static py::object pack(const JetList<T>& list) {
    return Packed<std::vector<T>>::pack(list.values());
  }
  static JetList<T> unpack(py::handle item) {
    return JetList<T>(Packed<std::vector<T>>::unpack(item));
  }
};

namespace {

// A float that is a class of its own. Its arithmetic gives plain floats.
struct Real {
  double value;
};

template <class T>
struct Names;

template <>
struct Names<double> {
  static constexpr const char* prefix = "Real";
};

template <>
struct Names<Jet> {
  static constexpr const char* prefix = "Jet";
};

template <class T>
std::string text_of(const T& value) {
  std::ostringstream text;
  text << value;
  return text.str();
}

// What the class of a scalar holds, how it crosses as an operand, and its number.
double operand(const Real& self) { return self.value; }
const Jet& operand(const Jet& self) { return self; }

// numpy hands its arrays' operators over to classes that say so.
template <class Class>
void leave_operators_of_numpy(Class& type) {
  type.attr("__array_ufunc__") = py::none();
}

template <class T, class Class>
void define_arithmetic(Class& type) {
  using Self = typename Class::type;
  const auto add = [](const Self& self, const T& other) { return T(operand(self) + other); };
  const auto multiply = [](const Self& self, const T& other) { return T(operand(self) * other); };
  type.def("__add__", add, py::is_operator())
      .def("__radd__", add, py::is_operator())
      .def("__mul__", multiply, py::is_operator())
      .def("__rmul__", multiply, py::is_operator())
      .def(
          "__sub__", [](const Self& self, const T& other) { return T(operand(self) - other); },
          py::is_operator())
      .def(
          "__rsub__", [](const Self& self, const T& other) { return T(other - operand(self)); },
          py::is_operator())
      .def(
          "__truediv__", [](const Self& self, const T& other) { return T(operand(self) / other); },
          py::is_operator())
      .def(
          "__rtruediv__", [](const Self& self, const T& other) { return T(other / operand(self)); },
          py::is_operator());
  const auto text = [](const Self& self) { return text_of(operand(self)); };
  type.def("__str__", text).def("__repr__", text);
}

void bind_scalar(py::module_& m, double) {
  py::class_<Real> real(m, "Real", R"(
A number. Its arithmetic takes and gives floats.
)");
  real.def(py::init([](double value) { return Real{value}; }), py::arg("value"), R"(
Keep a number.

Parameters
----------
value : float
)");
  define_arithmetic<double>(real);
  real.def("__float__", [](const Real& self) { return self.value; });
  define_value(
      real, [](const Real& self) { return std::tie(self.value); },
      [](double value) { return Real{value}; }, Hashing::none);
  convert_implicitly<Real>(is_number);
}

void bind_scalar(py::module_& m, const Jet&) {
  py::class_<Jet> jet(m, "Jet", R"(
A number with its derivatives by seven parameters.

Its arithmetic takes `Jet` and float and gives `Jet`; the derivatives follow the rules of calculus.
)");
  jet.def(py::init([](double value) { return Jet(value); }), py::arg("value"), R"(
Keep a number whose derivatives are 0.

Parameters
----------
value : float
)");
  // A float is asked for as the class itself, so this comes before the operators.
  convert_implicitly<Jet>(is_number);
  define_arithmetic<Jet>(jet);
  jet.def("__float__", [](const Jet& self) { return self.a; })
      .def_property_readonly(
          "value", [](const Jet& self) { return self.a; }, "The number.")
      .def_property_readonly(
          "derivatives",
          [](const Jet& self) {
            return std::vector<double>(self.v.data(), self.v.data() + self.v.size());
          },
          "The seven derivatives.");
  define_value(
      jet, [](const Jet& self) { return std::tie(self); }, [](const Jet& self) { return self; },
      Hashing::none);
}

std::size_t element_index(std::ptrdiff_t i, std::size_t size) {
  const auto n = static_cast<std::ptrdiff_t>(size);
  if (i < -n || i >= n) {
    throw py::index_error("index " + std::to_string(i) + " is out of range: there are " +
                          std::to_string(size) + " elements");
  }
  return static_cast<std::size_t>(i < 0 ? i + n : i);
}

template <class T>
void bind_vector(py::module_& m) {
  using Vector = JetList<T>;
  const std::string prefix = Names<T>::prefix;
  py::class_<Vector> vector(m, (prefix + "Vector").c_str(), R"(
A list of numbers with element-wise arithmetic.

Operators walk the left operand. They raise `IndexError` where the right one is shorter and do not
read what it has beyond. Reflected operators do not swap: `a - b` is self - other either way.
)");
  vector
      .def(py::init([](std::vector<T> values) { return Vector(std::move(values)); }),
           py::arg("vector"), R"(
Keep a list of numbers.

Parameters
----------
vector : list
    Numbers, or another vector to copy.
)")
      .def(py::init<const Vector&>(), py::arg("vector"));
  convert_implicitly<Vector>(is_list_like);
  const auto add = [](const Vector& self, const Vector& other) { return self + other; };
  const auto subtract = [](const Vector& self, const Vector& other) { return self - other; };
  const auto multiply = [](const Vector& self, const Vector& other) { return T(self * other); };
  const auto scale = [](const Vector& self, const T& factor) { return self * factor; };
  const auto text = [](const Vector& self) { return text_of(self); };
  vector.def("__add__", add, py::is_operator())
      .def("__radd__", add, py::is_operator())
      .def("__mul__", multiply, py::is_operator())
      .def("__mul__", scale, py::is_operator())
      .def("__rmul__", multiply, py::is_operator())
      .def("__rmul__", scale, py::is_operator())
      .def("__sub__", subtract, py::is_operator())
      .def("__rsub__", subtract, py::is_operator())
      .def(
          "__truediv__", [](const Vector& self, const T& divisor) { return self / divisor; },
          py::is_operator())
      .def("norm", &Vector::norm, R"(
The Euclidean norm.

Returns
-------
float or Jet
    0 for an empty vector.
)")
      .def("dot", &Vector::dot, py::arg("vector"), R"(
The sum of the squares of this vector.

Parameters
----------
vector : vector
    Not read: use `*` for the dot product.

Returns
-------
float or Jet
)")
      .def("__str__", text)
      .def("__repr__", text)
      .def("__len__", &Vector::size)
      .def("__getitem__",
           [](const Vector& self, std::ptrdiff_t i) { return self[element_index(i, self.size())]; })
      .def("__iter__", [](const Vector& self) { return py::iter(py::cast(self.values())); });
  leave_operators_of_numpy(vector);
  define_value(
      vector, [](const Vector& self) { return std::tie(self); }, [](Vector self) { return self; },
      Hashing::none);
}

template <class T>
void bind_matrix(py::module_& m) {
  using Vector = JetList<T>;
  using Matrix = JetMatrix<T>;
  const std::string prefix = Names<T>::prefix;
  py::class_<Matrix> matrix(m, (prefix + "Matrix").c_str(), R"(
Rows of numbers with the arithmetic of matrices.

The first row tells the number of columns. Operations raise `ValueError` for rows that are shorter
and for shapes that do not fit, and `IndexError` when there are no rows. Reflected operators do not
swap: a product keeps self on the left.
)");
  matrix.def(py::init([](std::vector<std::vector<T>> rows) { return Matrix(std::move(rows)); }),
             py::arg("matrix"), R"(
Keep rows of numbers.

Parameters
----------
matrix : list of list
)");
  convert_implicitly<Matrix>(is_list_like);
  const auto add = [](const Matrix& self, const Matrix& other) { return self + other; };
  const auto subtract = [](const Matrix& self, const Matrix& other) { return self - other; };
  const auto multiply = [](const Matrix& self, const Matrix& other) { return self * other; };
  const auto scale = [](const Matrix& self, const T& factor) { return self * factor; };
  const auto transform = [](const Matrix& self, const Vector& list) { return self * list; };
  const auto text = [](const Matrix& self) { return text_of(self); };
  matrix.def("__add__", add, py::is_operator())
      .def("__radd__", add, py::is_operator())
      .def("__mul__", multiply, py::is_operator())
      .def("__mul__", scale, py::is_operator())
      .def("__mul__", transform, py::is_operator(), R"(
The product with a matrix, a number or a vector.

With a vector it has three elements, the last ones 0 for a matrix of fewer rows; `ValueError` for
one of more.
)")
      .def("__rmul__", multiply, py::is_operator())
      .def("__rmul__", scale, py::is_operator())
      .def("__rmul__", transform, py::is_operator())
      .def("__sub__", subtract, py::is_operator())
      .def("__rsub__", subtract, py::is_operator())
      .def(
          "__truediv__", [](const Matrix& self, const T& divisor) { return self / divisor; },
          py::is_operator())
      .def(
          "__truediv__", [](const Matrix& self, const Matrix& other) { return self / other; },
          py::is_operator())
      .def(
          "__truediv__", [](const Matrix& self, const Vector& list) { return self / list; },
          py::is_operator(), R"(
The quotient by a number; by a matrix, self times its inverse; by a vector, the inverse of self
times the vector, as a matrix of one column.
)")
      .def("inverse", &Matrix::inverse, R"(
The inverse.

Returns
-------
matrix
    Infinities or NaN for a singular one.
)")
      .def("norm", &Matrix::norm, R"(
The root of the sum of the squares of all elements.

Returns
-------
float or Jet
)")
      .def("__str__", text)
      .def("__repr__", text)
      .def("__len__", &Matrix::size)
      .def("__getitem__",
           [](const Matrix& self, std::ptrdiff_t i) {
             return Vector(self[element_index(i, self.size())]);
           })
      .def("__iter__", [](const Matrix& self) {
        py::list rows;
        for (const std::vector<T>& row : self.rows()) {
          rows.append(Vector(row));
        }
        return py::iter(rows);
      });
  leave_operators_of_numpy(matrix);
  define_value(
      matrix, [](const Matrix& self) { return std::tie(self.rows()); },
      [](typename Matrix::Rows rows) { return Matrix(std::move(rows)); }, Hashing::none);
}

template <class T>
void bind_values(py::module_& m) {
  bind_scalar(m, T(0.0));
  bind_vector<T>(m);
  bind_matrix<T>(m);
}

// Handles of nodes have classes of their own, which only name them.
template <class Node>
struct HandleName {};

// What a function is called through; each keeps its function alive.
template <class T>
struct ScalarFunction {
  std::shared_ptr<ast::Function<T>> function;
};
template <class T>
struct TransFunction {
  std::shared_ptr<ast::Function<T>> function;
};
template <class T>
struct KernelFunction {
  std::shared_ptr<ast::Function<T>> function;
};
template <class T>
struct ScalarCost {
  std::shared_ptr<ast::Function<T>> function;
};

template <class T, class Adaptor, class Argument, class Result>
void bind_adaptor(py::class_<Adaptor>& type,
                  Result (ast::Function<T>::*call)(const Argument&, PollRef) const,
                  const char* doc) {
  type.def(
      "__call__",
      [call](const Adaptor& self, const Argument& args) {
        InterruptPoller poll;
        return ((*self.function).*call)(args, poll);
      },
      py::arg("args"), doc);
}

template <class T>
class AstModule {
 public:
  using Vector = JetList<T>;
  using Matrix = JetMatrix<T>;
  using Expression = ast::Expression<T>;
  using Variable = ast::Variable<T>;
  using Value = ast::Value<T>;
  using Transformation = ast::Transformation<T>;
  using Kernel = ast::Kernel<T>;
  using Function = ast::Function<T>;
  using Handle = std::shared_ptr<Expression>;
  using Shape = ast::Shape;

  // All classes come before what mentions them.
  explicit AstModule(py::module_& m)
      : module_(m),
        scalar_function_(m, "ScalarFunction", "A function of scalars that gives a scalar."),
        trans_function_(m, "TransFunction", "A function of rows that gives a vector."),
        kernel_function_(m, "KernelFunction", "A function of rows that gives a scalar."),
        expression_ptr_(m, "ExpressionPtr", handle_doc),
        expression_(m, "Expression", R"(
A node of a formula.

Nodes are combined by operators to new ones, which read what they are made of when they are
evaluated: change a variable, and what was made with it changes too. A node yields a scalar or a
vector, and keeps what it last yielded.

A formula serves one thread at a time. Combining nodes whose shapes do not fit, and evaluating a node
as what it does not yield, raise `RuntimeError`.
)"),
        variable_ptr_(m, "VariablePtr", handle_doc),
        variable_(m, "Variable", "A named node whose value can be changed."),
        value_ptr_(m, "ValuePtr", handle_doc),
        value_(m, "Value", "A constant."),
        transformation_ptr_(m, "TransformationPtr", handle_doc),
        transformation_(m, "Transformation", "What an operator or the call of a function makes."),
        kernel_ptr_(m, "KernelPtr", handle_doc),
        kernel_(m, "Kernel", "A kind of node that nothing makes at present."),
        function_ptr_(m, "FunctionPtr", handle_doc),
        function_(m, "Function", R"(
A formula with an ordered list of arguments, made by `Scalar` or `Vector`.
)"),
        scalar_cost_(m, "ScalarCost", "A function as a residual of scalars.") {}

  void define() {
    define_reading();
    define_evaluation();
    define_operators();
    define_variables();
    define_functions();
    define_adaptors();
    define_pickling_of_nodes();
    define_pickling_of_adaptors();
  }

 private:
  static constexpr const char* handle_doc =
      "The name of a shared handle of a node; nothing makes one.";

  void define_reading() {
    expression_
        .def(
            "type", [](const Expression& self) { return static_cast<int>(self.kind()); }, R"(
The kind of the node.

Returns
-------
int
    0 for a value, 1 for a variable, 2 for a transformation, 4 for a kernel, 5 for a function.
)")
        .def(
            "variable_type_name",
            [](const Expression& self) { return ast::shape_name(self.shape()); }, R"(
What the node yields at the moment.

Returns
-------
str
    "scalar" or "vector".
)")
        .def(
            "object_type_name",
            [](const Expression& self) { return ast::object_type_name(self.kind()); }, R"(
The name of the kind of the node.

Returns
-------
str
)")
        .def("vec", &Expression::list, R"(
The vector that the node keeps, without evaluating it.

Returns
-------
vector
)")
        .def("scalar", &Expression::scalar, R"(
The scalar that the node keeps, without evaluating it.

Returns
-------
float or Jet
)")
        .def(
            "print",
            [](const Expression& self) {
              std::ostringstream text;
              self.print(text);
              py::print(text.str(), py::arg("end") = "");
            },
            R"(
Print kind, shape and kept value on a line.
)");
    leave_operators_of_numpy(expression_);
  }

  void define_evaluation() {
    expression_
        .def(
            "eval",
            [](Expression& self) {
              InterruptPoller poll;
              return self.eval(poll);
            },
            R"(
Evaluate the node.

Parameters
----------
scalar : float or Jet
    In the second form. A variable takes it as its value, a function hands it on to its formula, and
    every other node ignores it.
vector : vector
    In the third form, the same with a vector.

Returns
-------
float or Jet
    In the third form the vector that the node yields.

Raises
------
RuntimeError
    When the node does not yield that.
)")
        .def(
            "eval",
            [](Expression& self, const T& scalar) {
              InterruptPoller poll;
              return self.eval(scalar, poll);
            },
            py::arg("scalar"))
        .def(
            "eval",
            [](Expression& self, const Vector& vector) {
              InterruptPoller poll;
              return self.eval_vector(vector, poll);
            },
            py::arg("vector"))
        .def(
            "eval_vector",
            [](Expression& self) {
              InterruptPoller poll;
              return self.eval_vector(poll);
            },
            R"(
Evaluate the node as a vector.

Returns
-------
vector

Raises
------
RuntimeError
    When the node does not yield one.
)");
  }

  // The node on either side of a reflected operator keeps its place: it stays on the left.
  template <class Right>
  void define_operator(const char* name, ast::Operation operation) {
    expression_.def(
        name,
        [operation](Expression& self, Right other) {
          return Transformation::of(operation, self.shared_from_this(), std::move(other));
        },
        py::is_operator(), py::arg("other").none(false));
  }

  void define_operators() {
    using ast::Operation;
    for (const char* name : {"__add__", "__radd__"}) {
      define_operator<Handle>(name, Operation::add);
      define_operator<T>(name, Operation::add);
      define_operator<Vector>(name, Operation::add);
    }
    for (const char* name : {"__mul__", "__rmul__"}) {
      define_operator<Handle>(name, Operation::multiply);
      define_operator<T>(name, Operation::multiply);
      define_operator<Vector>(name, Operation::multiply);
    }
    define_operator<Handle>("__sub__", Operation::subtract);
    define_operator<T>("__sub__", Operation::subtract);
    define_operator<Vector>("__sub__", Operation::subtract);
    define_operator<Handle>("__truediv__", Operation::divide);
    define_operator<T>("__truediv__", Operation::divide);
  }

  void define_variables() {
    variable_
        .def(py::init<std::string, T>(), py::arg("name"), py::arg("scalar"), R"(
Make a variable.

Parameters
----------
name : str
scalar : float
    Its value, or in the second form
vector : vector
    the values of one that is a list.
)")
        .def(py::init<std::string, Vector>(), py::arg("name"), py::arg("vector"))
        .def(
            "type", [](const Variable& self) { return static_cast<int>(self.shape()); }, R"(
What the variable yields at the moment.

Returns
-------
int
    1 for a scalar, 0 for a vector.
)")
        .def(
            "type_name", [](const Variable& self) { return ast::shape_name(self.shape()); }, R"(
What the variable yields at the moment.

Returns
-------
str
    "scalar" or "vector".
)");
    value_
        .def(py::init<T>(), py::arg("scalar"), R"(
Make a constant.

Parameters
----------
scalar : float
    Its value, or in the second form
vector : vector
    the values of one that is a list.
)")
        .def(py::init<Vector>(), py::arg("vector"));
  }

  static std::shared_ptr<Function> handle_of(Function& function) {
    return std::static_pointer_cast<Function>(function.shared_from_this());
  }
  static std::shared_ptr<Function> make_function(typename Function::Arguments args, Handle l) {
    for (const auto& argument : args) {
      require_node(argument.get());
    }
    return std::make_shared<Function>(std::move(args), std::move(l));
  }
  static void require_node(const Expression* node) {
    if (node == nullptr) {
      throw py::type_error("args holds None where a node was expected");
    }
  }

  void define_functions() {
    constexpr const char* doc = R"(
Make a function of a formula.

Parameters
----------
args : list of Variable
    The variables of the formula that are bound when it is called, in order.
l : Expression
    The formula. Whether the function gives a scalar or a vector is what it yields at the moment.

Returns
-------
Function
)";
    module_.def("Vector", &make_function, py::arg("args"), py::arg("l").none(false), doc);
    module_.def("Scalar", &make_function, py::arg("args"), py::arg("l").none(false), doc);
    function_
        .def(
            "ScalarFunction", [](Function& self) { return ScalarFunction<T>{handle_of(self)}; }, R"(
The function as one of a vector with a scalar for each argument.

Returns
-------
ScalarFunction
)")
        .def(
            "Transformation", [](Function& self) { return TransFunction<T>{handle_of(self)}; }, R"(
The function as one of rows, one for each argument, that gives a vector.

Returns
-------
TransFunction
)")
        .def(
            "Kernel", [](Function& self) { return KernelFunction<T>{handle_of(self)}; }, R"(
The function as one of rows, one for each argument, that gives a scalar.

Returns
-------
KernelFunction
)")
        .def(
            "__call__",
            [](Function& self, std::vector<Handle> args) {
              for (const Handle& argument : args) {
                require_node(argument.get());
              }
              return Transformation::of(handle_of(self), std::move(args));
            },
            py::arg("args"), R"(
Use the function in another formula.

Parameters
----------
args : list of Expression
    What the arguments are bound to, whenever the result is evaluated: the variables then have these
    values. Instead of nodes, a vector of numbers, one for each argument, or a matrix with a row for
    each.

Returns
-------
Transformation
    A node that yields the value of the function; where a scalar is asked for and the formula yields
    a vector, its norm.

Raises
------
ValueError
    When there are more of them than arguments.
)")
        .def(
            "__call__",
            [](Function& self, const Vector& args) {
              std::vector<Handle> operands;
              operands.reserve(args.size());
              for (const T& value : args) {
                operands.push_back(std::make_shared<Value>(value));
              }
              return Transformation::of(handle_of(self), std::move(operands));
            },
            py::arg("args"))
        .def(
            "__call__",
            [](Function& self, const Matrix& args) {
              std::vector<Handle> operands;
              operands.reserve(args.size());
              for (const std::vector<T>& row : args.rows()) {
                operands.push_back(std::make_shared<Value>(Vector(row)));
              }
              return Transformation::of(handle_of(self), std::move(operands));
            },
            py::arg("args"));
  }

  void define_adaptors() {
    bind_adaptor<T>(scalar_function_, &Function::scalar_function, scalar_doc);
    bind_adaptor<T>(trans_function_, &Function::transformation_function, R"(
Bind a row to each argument and evaluate the function.

Parameters
----------
args : matrix
    A scalar argument takes the first element of its row.

Returns
-------
vector
    Of one element when the function gives a scalar.

Raises
------
IndexError
    When there are more rows than arguments.
)");
    bind_adaptor<T>(kernel_function_, &Function::kernel_function, R"(
Bind a row to each argument and evaluate the function.

Parameters
----------
args : matrix
    A scalar argument takes the first element of its row.

Returns
-------
float or Jet
    The norm when the formula yields a vector.

Raises
------
IndexError
    When there are more rows than arguments.
)");
    scalar_cost_.def(
        py::init([](std::shared_ptr<Function> cost) { return ScalarCost<T>{std::move(cost)}; }),
        py::arg("cost").none(false), R"(
Take a function for a residual.

Parameters
----------
cost : Function
)");
    bind_adaptor<T>(scalar_cost_, &Function::scalar_function, scalar_doc);
  }

  // What a node yields, and its cells: they can be read before the node is evaluated again.
  using Cells = std::tuple<int, T, Vector>;

  static Cells cells_of(const Expression& node) {
    return {static_cast<int>(node.shape()), node.scalar(), node.list()};
  }
  static Shape shape_of(int number) {
    require_state(
        number == static_cast<int>(Shape::list) || number == static_cast<int>(Shape::scalar),
        "there is no shape of that number");
    return static_cast<Shape>(number);
  }
  template <class Node>
  static std::shared_ptr<Node> with_cells(std::shared_ptr<Node> node, int shape, T scalar,
                                          Vector list) {
    node->restore(shape_of(shape), std::move(scalar), std::move(list));
    return node;
  }
  static void require_nodes(const auto& nodes) {
    for (const auto& node : nodes) {
      require_state(node != nullptr, "a node is None");
    }
  }

  // A node's state holds the nodes that it is made of, not copies of them: those that are shared
  // stay shared. Pickle goes as deep as the formula, and raises RecursionError where that is too
  // deep for the interpreter.
  void define_pickling_of_nodes() {
    define_pickling(
        variable_,
        [](const Variable& self) {
          return std::tuple_cat(std::tuple(self.name()), cells_of(self));
        },
        [](std::string name, int shape, T scalar, Vector list) {
          return with_cells(std::make_shared<Variable>(std::move(name), scalar), shape, scalar,
                            std::move(list));
        });
    define_pickling(value_, &cells_of, [](int shape, T scalar, Vector list) {
      return with_cells(std::make_shared<Value>(scalar), shape, scalar, std::move(list));
    });
    define_pickling(
        function_,
        [](const Function& self) {
          return std::tuple_cat(std::tie(self.arguments(), self.expression()), cells_of(self));
        },
        [](typename Function::Arguments arguments, Handle expression, int shape, T scalar,
           Vector list) {
          require_nodes(arguments);
          require_state(expression != nullptr, "a node is None");
          return with_cells(std::make_shared<Function>(std::move(arguments), std::move(expression)),
                            shape, std::move(scalar), std::move(list));
        });
    define_pickling(
        transformation_,
        [](const Transformation& self) {
          return std::tuple_cat(
              std::tuple(static_cast<int>(self.operation()), static_cast<int>(self.right()),
                         static_cast<int>(self.left_shape()), static_cast<int>(self.right_shape()),
                         static_cast<int>(self.result())),
              std::tie(self.operands(), self.number(), self.numbers(), self.function_handle()),
              cells_of(self));
        },
        [](int operation, int right, int left_shape, int right_shape, int result,
           std::vector<Handle> operands, T number, Vector numbers,
           std::shared_ptr<Function> function, int shape, T scalar, Vector list) {
          require_nodes(operands);
          return with_cells(
              transformation_of(operation, right, shape_of(left_shape), shape_of(right_shape),
                                shape_of(result), std::move(operands), std::move(number),
                                std::move(numbers), std::move(function)),
              shape, std::move(scalar), std::move(list));
        });
    expression_.def("__repr__", [](const Expression& self) {
      return std::string("<") + ast::object_type_name(self.kind()) + " that yields a " +
             ast::shape_name(self.shape()) + ">";
    });
    variable_.def("__repr__", [](const Variable& self) {
      return "<variable \"" + self.name() + "\" that yields a " + ast::shape_name(self.shape()) +
             ">";
    });
  }

  static std::shared_ptr<Transformation> transformation_of(
      int operation, int right, Shape left_shape, Shape right_shape, Shape result,
      std::vector<Handle> operands, T number, Vector numbers, std::shared_ptr<Function> function) {
    using Right = typename Transformation::Right;
    if (operation == static_cast<int>(ast::Operation::call)) {
      require_state(function != nullptr, "a call has no function");
      return Transformation::of(std::move(function), result, std::move(operands));
    }
    require_state(operation >= static_cast<int>(ast::Operation::add) &&
                      operation < static_cast<int>(ast::Operation::call),
                  "there is no operation of that number");
    const auto known = static_cast<ast::Operation>(operation);
    require_state(operands.size() == (right == static_cast<int>(Right::node) ? 2U : 1U),
                  "an operation has not its number of operands");
    if (right == static_cast<int>(Right::node)) {
      return Transformation::of(known, operands[0], left_shape, operands[1], right_shape);
    }
    if (right == static_cast<int>(Right::number)) {
      return Transformation::of(known, operands[0], left_shape, std::move(number));
    }
    require_state(right == static_cast<int>(Right::list), "there is no such kind of operand");
    return Transformation::of(known, operands[0], left_shape, std::move(numbers));
  }

  template <class Adaptor>
  static void define_adaptor_pickling(py::class_<Adaptor>& type, const std::string& name) {
    define_pickling(
        type, [](const Adaptor& self) { return std::tie(self.function); },
        [](std::shared_ptr<Function> function) {
          require_state(function != nullptr, "there is no function");
          return Adaptor{std::move(function)};
        });
    type.def("__repr__", [name](const Adaptor& self) {
      return "<" + name + " of " + std::to_string(self.function->arguments().size()) +
             " arguments>";
    });
  }

  void define_pickling_of_adaptors() {
    define_adaptor_pickling(scalar_function_, "ScalarFunction");
    define_adaptor_pickling(trans_function_, "TransFunction");
    define_adaptor_pickling(kernel_function_, "KernelFunction");
    define_adaptor_pickling(scalar_cost_, "ScalarCost");
  }

  static constexpr const char* scalar_doc = R"(
Bind a scalar to each argument and evaluate the function.

Parameters
----------
args : vector
    One for each argument, from the first on. Of an argument that is a vector, it becomes the first
    element and the others stay.

Returns
-------
float or Jet
    The norm when the formula yields a vector.

Raises
------
IndexError
    When there are more of them than arguments.
)";

  py::module_& module_;
  py::class_<ScalarFunction<T>> scalar_function_;
  py::class_<TransFunction<T>> trans_function_;
  py::class_<KernelFunction<T>> kernel_function_;
  py::class_<HandleName<Expression>> expression_ptr_;
  py::class_<Expression, std::shared_ptr<Expression>> expression_;
  py::class_<HandleName<Variable>> variable_ptr_;
  py::class_<Variable, Expression, std::shared_ptr<Variable>> variable_;
  py::class_<HandleName<Value>> value_ptr_;
  py::class_<Value, Expression, std::shared_ptr<Value>> value_;
  py::class_<HandleName<Transformation>> transformation_ptr_;
  py::class_<Transformation, Expression, std::shared_ptr<Transformation>> transformation_;
  py::class_<HandleName<Kernel>> kernel_ptr_;
  py::class_<Kernel, Expression, std::shared_ptr<Kernel>> kernel_;
  py::class_<HandleName<Function>> function_ptr_;
  py::class_<Function, Expression, std::shared_ptr<Function>> function_;
  py::class_<ScalarCost<T>> scalar_cost_;
};

template <class Value>
SolverCallback<Value> wrap_callback(const py::object& validation_cb) {
  if (validation_cb.is_none()) {
    return [](const std::vector<Value>&) { return true; };
  }
  if (PyCallable_Check(validation_cb.ptr()) == 0) {
    throw py::type_error("validation_cb must be callable or None");
  }
  return [&validation_cb](const std::vector<Value>& values) {
    const CallbackGuard guard;
    const py::object answer = validation_cb(values);
    const int truth = PyObject_IsTrue(answer.ptr());
    if (truth < 0) {
      throw py::error_already_set();
    }
    return truth != 0;
  };
}

template <class Value>
void define_solve(py::module_& m, const char* doc) {
  m.def(
      "solve",
      [](const std::vector<std::shared_ptr<DualFunction>>& costs,
         const std::vector<std::shared_ptr<DualVariable>>& variables,
         const Boundary<Value>& boundary, int n_iterations, double cauchy_loss, int n_threads,
         bool debug, const py::object& validation_cb) {
        for (const auto& cost : costs) {
          if (cost == nullptr) {
            throw py::type_error("costs holds None where a Function was expected");
          }
        }
        for (const auto& variable : variables) {
          if (variable == nullptr) {
            throw py::type_error("variables holds None where a Variable was expected");
          }
        }
        Solution<Value> solution =
            solve(costs, variables, boundary, {n_iterations, cauchy_loss, n_threads, debug},
                  wrap_callback<Value>(validation_cb));
        return std::make_pair(std::move(solution.values), solution.cost);
      },
      py::arg("costs"), py::arg("variables"), py::arg("boundary") = py::dict(),
      py::arg("n_iterations") = 1000, py::arg("cauchy_loss") = 0.0, py::arg("n_threads") = 0,
      py::arg("debug") = false, py::arg("validation_cb") = py::none(), doc);
}

}  // namespace

void register_algebra_module(py::module_& m) {
  py::module_ algebra = m.def_submodule(
      "algebra", "Numbers, vectors and matrices, plain or with derivatives, that formulas give.");
  bind_values<double>(algebra);
  bind_values<Jet>(algebra);

  constexpr const char* doc = "Formulas that scripts put together from variables.";
  py::module_ jet = m.def_submodule("jet", "What carries derivatives along.");
  py::module_ jet_ast = jet.def_submodule("ast", doc);
  AstModule<Jet>(jet_ast).define();
  py::module_ plain_ast = m.def_submodule("ast", doc);
  AstModule<double>(plain_ast).define();
}

void register_ceres_module(py::module_& m) {
  py::module_ ceres = m.def_submodule("ceres", "Minimisation of costs that are formulas.");
  define_solve<double>(ceres, R"(
Find the values of variables that minimise the sum of the squares of functions.

Derivatives are exact: formulas are evaluated with numbers that carry them along. The method is
Levenberg and Marquardt's.

Parameters
----------
costs : list of jet.ast.Function
    Each gives a residual; of a formula that yields a vector it is the norm. A function takes the
    variables by position, whatever its own arguments are.
variables : list of jet.ast.Variable
    What is varied, from the values that they have.
boundary : dict of str to tuple, default {}
    Lower and upper bounds by the name of a variable: floats in the first form, in which variables
    are scalars, and lists in the second, in which they may be vectors. An empty dict means the
    first form.
n_iterations : int, default 1000
    Largest number of iterations.
cauchy_loss : float, default 0
    When it is 1e-10 or more, a residual r counts as c² log(1 + (r / c)²), with this for c.
n_threads : int, default 0
    Number of threads; 0 stands for all.
debug : bool, default False
    Print the progress and a full report.
validation_cb : callable, optional
    Called with the list of the present values after every iteration, in the second form a list of
    lists; what is not true stops the search.

Returns
-------
tuple of (dict, float)
    The best values by the names of the variables, and the cost there: half the sum of what the
    residuals count. Where a residual or a derivative is not finite at the start, the values are
    those of the start and the cost is -1.

Raises
------
ValueError
    When there are no variables, bounds are fewer than the values of their variable, or a lower
    bound is not less than the upper one.
IndexError
    When a function has fewer arguments than there are variables.
RuntimeError
    When a formula cannot be evaluated.

References
----------
Agarwal, S., Mierle, K. and others. Ceres Solver.
)");
  define_solve<std::vector<double>>(ceres, "");
}

}  // namespace talvorix::python
