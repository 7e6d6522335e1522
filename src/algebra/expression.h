#pragma once

#include "algebra/jet.h"
#include "algebra/jet_list.h"
#include "algebra/jet_matrix.h"
#include "core/interrupt.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

// Formulas as graphs of shared nodes, with scalars that are plain numbers or carry derivatives.
//
// A node yields a scalar or a list and keeps it in one of two cells, from which it can be read
// later. Evaluation writes cells, so a graph serves one thread at a time. Whatever a node does not
// support throws std::runtime_error.

namespace talvorix::ast {

enum class Kind : std::int32_t {
  value = 0,
  variable = 1,
  transformation = 2,
  expression = 3,
  kernel = 4,
  function = 5
};

// "invald" for an unknown kind: the name as it is known.
const char* object_type_name(Kind kind);

// What a node yields at the moment.
enum class Shape : std::int32_t { list = 0, scalar = 1 };

const char* shape_name(Shape shape);

class Program;
template <class T>
class Cells;
template <class T>
class Variable;
template <class T>
class Transformation;
template <class T>
class Function;

template <class T>
class Expression : public std::enable_shared_from_this<Expression<T>> {
 public:
  using Handle = std::shared_ptr<Expression>;

  virtual ~Expression() = default;
  Expression(const Expression&) = delete;
  Expression& operator=(const Expression&) = delete;

  Kind kind() const { return kind_; }
  Shape shape() const { return shape_; }
  const T& scalar() const { return scalar_; }
  const JetList<T>& list() const { return list_; }

  // Evaluate as a scalar or as a list; with an argument, at that place: a variable keeps it, a
  // function hands it on and everything else ignores it.
  const T& eval(PollRef poll);
  const T& eval(const T& x, PollRef poll);
  const JetList<T>& eval_vector(PollRef poll);
  const JetList<T>& eval_vector(const JetList<T>& x, PollRef poll);

  void print(std::ostream& stream) const;

  // Sets both cells and what the node yields.
  void restore(Shape shape, T scalar, JetList<T> list) {
    shape_ = shape;
    scalar_ = std::move(scalar);
    list_ = std::move(list);
  }

  // Set a cell and what the node yields.
  void store(T value) {
    scalar_ = std::move(value);
    shape_ = Shape::scalar;
  }
  void store(JetList<T> values) {
    list_ = std::move(values);
    shape_ = Shape::list;
  }

 protected:
  Expression(Kind kind, T value) : kind_(kind), shape_(Shape::scalar), scalar_(std::move(value)) {}
  Expression(Kind kind, JetList<T> values)
      : kind_(kind), shape_(Shape::list), scalar_(0.0), list_(std::move(values)) {}
  Expression(Kind kind, Shape shape) : kind_(kind), shape_(shape), scalar_(0.0) {}

 private:
  friend class Cells<T>;
  friend class Variable<T>;
  template <class>
  friend class References;

  Kind kind_;
  Shape shape_;
  T scalar_;
  JetList<T> list_;
  // In which stretch of an evaluation, without changes of variables, each cell was last computed.
  std::uint64_t scalar_computed_ = 0;
  std::uint64_t list_computed_ = 0;
  // Which compilation saw the node last, and as which of its nodes.
  std::uint64_t compilation_ = 0;
  std::size_t number_ = 0;
};

template <class T>
class Variable final : public Expression<T> {
 public:
  Variable(std::string name, T value)
      : Expression<T>(Kind::variable, std::move(value)), name_(std::move(name)) {}
  Variable(std::string name, JetList<T> values)
      : Expression<T>(Kind::variable, std::move(values)), name_(std::move(name)) {}

  const std::string& name() const { return name_; }

  // Writes a cell without changing what the variable yields; the first element of a list.
  void assign(const T& value);
  void assign(const JetList<T>& values);

 private:
  std::string name_;
};

template <class T>
class Value final : public Expression<T> {
 public:
  explicit Value(T value) : Expression<T>(Kind::value, std::move(value)) {}
  explicit Value(JetList<T> values) : Expression<T>(Kind::value, std::move(values)) {}
};

// A named target of operators: nothing makes one.
template <class T>
class Kernel : public Expression<T> {};

enum class Operation { add, subtract, multiply, divide, call };

// What an operator or the call of a function makes. What it takes is read without an argument.
template <class T>
class Transformation final : public Expression<T> {
 public:
  using Handle = typename Expression<T>::Handle;

  // Of two nodes, of a node and a number, or of a node and a list. Throw std::runtime_error for
  // shapes that have no such operator.
  static std::shared_ptr<Transformation> of(Operation operation, Handle left, Handle right);
  static std::shared_ptr<Transformation> of(Operation operation, Handle left, T right);
  static std::shared_ptr<Transformation> of(Operation operation, Handle left, JetList<T> right);
  // Of a function called with operands, which are bound to its arguments when it is evaluated.
  // Throws std::invalid_argument when there are more of them than arguments.
  static std::shared_ptr<Transformation> of(std::shared_ptr<Function<T>> function,
                                            std::vector<Handle> operands);
  // The same, with what the operands yielded then rather than what they yield now.
  static std::shared_ptr<Transformation> of(Operation operation, Handle left, Shape left_shape,
                                            Handle right, Shape right_shape);
  static std::shared_ptr<Transformation> of(Operation operation, Handle left, Shape left_shape,
                                            T right);
  static std::shared_ptr<Transformation> of(Operation operation, Handle left, Shape left_shape,
                                            JetList<T> right);
  static std::shared_ptr<Transformation> of(std::shared_ptr<Function<T>> function, Shape result,
                                            std::vector<Handle> operands);
  ~Transformation() override;

  enum class Right { node, number, list };

  Operation operation() const { return operation_; }
  Right right() const { return right_; }
  Shape left_shape() const { return left_shape_; }
  Shape right_shape() const { return right_shape_; }
  Shape result() const { return result_; }
  const char* error() const { return error_; }
  const std::vector<Handle>& operands() const { return operands_; }
  const T& number() const { return number_; }
  const JetList<T>& numbers() const { return numbers_; }
  const Function<T>& function() const { return *function_; }
  const std::shared_ptr<Function<T>>& function_handle() const { return function_; }

 private:
  Transformation(Operation operation, Shape result, Shape left_shape, Shape right_shape,
                 std::vector<Handle> operands);

  Operation operation_;
  Right right_ = Right::node;
  // What the operands yielded when the operator was applied, and what the result is.
  Shape left_shape_ = Shape::scalar;
  Shape right_shape_ = Shape::scalar;
  Shape result_ = Shape::scalar;
  // What evaluation throws; null for an operator that works.
  const char* error_ = nullptr;
  std::vector<Handle> operands_;
  T number_ = T(0.0);
  JetList<T> numbers_;
  std::shared_ptr<Function<T>> function_;
};

template <class T>
class Function final : public Expression<T> {
 public:
  using Arguments = std::vector<std::shared_ptr<Variable<T>>>;
  using Handle = typename Expression<T>::Handle;

  Function(Arguments arguments, Handle expression);
  ~Function() override;

  const Arguments& arguments() const { return arguments_; }
  const Handle& expression() const { return expression_; }

  // The function with a scalar for each argument as a program, when there is one that stays true
  // whatever becomes of the cells: short formulas have it from when they were made. Else null.
  std::shared_ptr<const Program> lasting_program() const;

  // Binds a scalar to each argument, or to the first element of one that is a list, and evaluates;
  // a list gives its norm.
  T scalar_function(const JetList<T>& x, PollRef poll) const;
  // Binds a row to each argument, its first element to one that is a scalar.
  T kernel_function(const JetMatrix<T>& rows, PollRef poll) const;
  // The same, with a scalar given as a list of one.
  JetList<T> transformation_function(const JetMatrix<T>& rows, PollRef poll) const;

 private:
  void require_arguments(std::size_t n) const;
  void bind_rows(const JetMatrix<T>& rows) const;
  T value_or_norm(PollRef poll) const;

  Arguments arguments_;
  Handle expression_;
  std::shared_ptr<const Program> program_;
};

}  // namespace talvorix::ast
