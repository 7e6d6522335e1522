#include "algebra/expression.h"

#include "algebra/program.h"
#include "algebra/traversal.h"
#include "core/arguments.h"

#include <algorithm>
#include <atomic>
#include <iterator>

namespace talvorix::ast {

const char* object_type_name(Kind kind) {
  switch (kind) {
    case Kind::value:
      return "value";
    case Kind::variable:
      return "variable";
    case Kind::transformation:
      return "transformation";
    case Kind::expression:
      return "expression";
    case Kind::kernel:
      return "kernel";
    case Kind::function:
      return "function";
  }
  return "invald";
}

const char* shape_name(Shape shape) { return shape == Shape::scalar ? "scalar" : "vector"; }

// The domain in which graphs are evaluated: values stand in the cells of the nodes.
template <class T>
class Cells {
 public:
  using Scalar = T;
  using List = JetList<T>;
  using Node = Expression<T>;

  const T& scalar(const Node& node) const { return node.scalar(); }
  const List& list(const Node& node) const { return node.list(); }
  Shape shape(const Node& node) const { return node.shape(); }
  bool set_shape(Node& node, Shape shape) { return std::exchange(node.shape_, shape) != shape; }
  template <class Value>
  bool store(Node& node, Value value) {
    const Shape before = node.shape();
    node.store(std::move(value));
    return node.shape() != before;
  }
  std::uint64_t& computed(Node& node, Shape shape) {
    return shape == Shape::scalar ? node.scalar_computed_ : node.list_computed_;
  }
  // Never the same twice in a process, so that what an earlier evaluation left behind is not
  // mistaken for the present one's.
  std::uint64_t next_stretch() {
    static std::atomic<std::uint64_t> last{0};
    return ++last;
  }

  const T& number(const T& value) const { return value; }
  const List& numbers(const List& values) const { return values; }
  template <class Value>
  Value add(const Value& left, const Value& right) const {
    return left + right;
  }
  template <class Value>
  Value subtract(const Value& left, const Value& right) const {
    return left - right;
  }
  T multiply(const T& left, const T& right) const { return left * right; }
  T divide(const T& left, const T& right) const { return left / right; }
  T dot(const List& left, const List& right) const { return left * right; }
  List scaled(const List& list, const T& factor) const { return list * factor; }
  List divided(const List& list, const T& divisor) const { return list / divisor; }
  T sum_of_squares(const List& list) const { return list.sum_of_squares(); }
  T norm(const List& list) const { return list.norm(); }
  List list_of(const T& value) const { return List{value}; }
  void note_call() const {}
};

namespace {

// Lets go of nodes one after the other: a chain that is released by its first link would need a
// call for each.
template <class T>
void release(std::vector<std::shared_ptr<Expression<T>>> nodes) {
  static thread_local std::vector<std::shared_ptr<Expression<T>>> released;
  static thread_local bool is_releasing = false;
  released.insert(released.end(), std::make_move_iterator(nodes.begin()),
                  std::make_move_iterator(nodes.end()));
  if (is_releasing) {
    return;
  }
  is_releasing = true;
  while (!released.empty()) {
    const auto node = std::move(released.back());
    released.pop_back();
  }
  is_releasing = false;
}

[[noreturn]] void throw_invalid_types() { throw std::runtime_error("Invalid variable types"); }

// The variable or other node behind functions that only hand on; the functions, outermost first.
template <class T>
Expression<T>& behind_functions(Expression<T>& node, std::vector<Function<T>*>& functions) {
  Expression<T>* inner = &node;
  while (inner->kind() == Kind::function) {
    functions.push_back(static_cast<Function<T>*>(inner));
    inner = functions.back()->expression().get();
  }
  return *inner;
}

}  // namespace

template <class T>
const T& Expression<T>::eval(PollRef poll) {
  Cells<T> cells;
  Traversal<T, Cells<T>>(cells, poll).scalar(*this);
  return scalar_;
}

template <class T>
const JetList<T>& Expression<T>::eval_vector(PollRef poll) {
  Cells<T> cells;
  Traversal<T, Cells<T>>(cells, poll).list(*this);
  return list_;
}

template <class T>
const T& Expression<T>::eval(const T& x, PollRef poll) {
  std::vector<Function<T>*> functions;
  Expression& inner = behind_functions(*this, functions);
  if (inner.kind() == Kind::variable) {
    inner.store(x);
  } else {
    inner.eval(poll);
  }
  for (auto function = functions.rbegin(); function != functions.rend(); ++function) {
    (*function)->store(inner.scalar());
  }
  return scalar_;
}

template <class T>
const JetList<T>& Expression<T>::eval_vector(const JetList<T>& x, PollRef poll) {
  std::vector<Function<T>*> functions;
  Expression& inner = behind_functions(*this, functions);
  if (inner.kind() == Kind::variable) {
    inner.store(x);
  } else {
    inner.eval_vector(poll);
  }
  for (auto function = functions.rbegin(); function != functions.rend(); ++function) {
    (*function)->store(inner.list());
  }
  return list_;
}

template <class T>
void Expression<T>::print(std::ostream& stream) const {
  stream << "type = " << object_type_name(kind_) << " variable_type = " << shape_name(shape_)
         << " value = ";
  if (shape_ == Shape::scalar) {
    stream << scalar_;
  } else {
    stream << '[';
    for (std::size_t i = 0; i < list_.size(); ++i) {
      stream << (i == 0 ? "" : ", ") << list_[i];
    }
    stream << ']';
  }
  stream << '\n';
}

template <class T>
void Variable<T>::assign(const T& value) {
  if (this->shape() == Shape::scalar) {
    this->scalar_ = value;
    return;
  }
  if (this->list_.size() == 0) {
    throw std::runtime_error("Invalid argument!!!");
  }
  this->list_[0] = value;
}

template <class T>
void Variable<T>::assign(const JetList<T>& values) {
  if (this->shape() == Shape::list) {
    this->list_ = values;
    return;
  }
  if (values.size() == 0) {
    throw std::runtime_error("Invalid argument!!!");
  }
  this->scalar_ = values[0];
}

template <class T>
Transformation<T>::Transformation(Operation operation, Shape result, Shape left_shape,
                                  Shape right_shape, std::vector<Handle> operands)
    : Expression<T>(Kind::transformation, result),
      operation_(operation),
      left_shape_(left_shape),
      right_shape_(right_shape),
      result_(result),
      operands_(std::move(operands)) {}

template <class T>
Transformation<T>::~Transformation() {
  operands_.push_back(std::move(function_));
  release<T>(std::move(operands_));
}

template <class T>
std::shared_ptr<Transformation<T>> Transformation<T>::of(Operation operation, Handle left,
                                                         Handle right) {
  const Shape left_shape = left->shape();
  const Shape right_shape = right->shape();
  return of(operation, std::move(left), left_shape, std::move(right), right_shape);
}

template <class T>
std::shared_ptr<Transformation<T>> Transformation<T>::of(Operation operation, Handle left,
                                                         Shape left_shape, Handle right,
                                                         Shape right_shape) {
  if (left_shape != right_shape) {
    throw_invalid_types();
  }
  const bool gives_list = left_shape == Shape::list &&
                          (operation == Operation::add || operation == Operation::subtract);
  return std::shared_ptr<Transformation>(
      new Transformation(operation, gives_list ? Shape::list : Shape::scalar, left_shape,
                         right_shape, {std::move(left), std::move(right)}));
}

template <class T>
std::shared_ptr<Transformation<T>> Transformation<T>::of(Operation operation, Handle left,
                                                         T right) {
  const Shape left_shape = left->shape();
  return of(operation, std::move(left), left_shape, std::move(right));
}

template <class T>
std::shared_ptr<Transformation<T>> Transformation<T>::of(Operation operation, Handle left,
                                                         Shape left_shape, T right) {
  const bool is_list = left_shape == Shape::list;
  if (is_list && operation == Operation::add) {
    throw std::runtime_error("Invalid rhs!!!");
  }
  std::shared_ptr<Transformation> node(
      new Transformation(operation, left_shape, left_shape, left_shape, {std::move(left)}));
  node->right_ = Right::number;
  node->number_ = std::move(right);
  // Unlike a sum, such a difference fails only when it is evaluated: deliberate.
  node->error_ = is_list && operation == Operation::subtract ? "Invalid rhs!!!" : nullptr;
  return node;
}

template <class T>
std::shared_ptr<Transformation<T>> Transformation<T>::of(Operation operation, Handle left,
                                                         JetList<T> right) {
  const Shape left_shape = left->shape();
  return of(operation, std::move(left), left_shape, std::move(right));
}

template <class T>
std::shared_ptr<Transformation<T>> Transformation<T>::of(Operation operation, Handle left,
                                                         Shape left_shape, JetList<T> right) {
  if (operation == Operation::divide) {
    throw_invalid_types();
  }
  const bool is_list = left_shape == Shape::list;
  const bool gives_scalar = is_list && operation == Operation::multiply;
  std::shared_ptr<Transformation> node(
      new Transformation(operation, gives_scalar ? Shape::scalar : Shape::list, left_shape,
                         left_shape, {std::move(left)}));
  node->right_ = Right::list;
  node->numbers_ = std::move(right);
  if (!is_list && operation != Operation::multiply) {
    node->error_ = operation == Operation::add ? "Invalid lhs!!!" : "Invalid rhs!!!";
  }
  return node;
}

template <class T>
std::shared_ptr<Transformation<T>> Transformation<T>::of(std::shared_ptr<Function<T>> function,
                                                         std::vector<Handle> operands) {
  const Shape result = function->shape();
  return of(std::move(function), result, std::move(operands));
}

template <class T>
std::shared_ptr<Transformation<T>> Transformation<T>::of(std::shared_ptr<Function<T>> function,
                                                         Shape result,
                                                         std::vector<Handle> operands) {
  if (operands.size() > function->arguments().size()) {
    throw std::invalid_argument("the function takes " +
                                std::to_string(function->arguments().size()) +
                                " arguments, but was given " + std::to_string(operands.size()));
  }
  std::shared_ptr<Transformation> node(new Transformation(Operation::call, result, Shape::scalar,
                                                          Shape::scalar, std::move(operands)));
  node->function_ = std::move(function);
  return node;
}

template <class T>
Function<T>::Function(Arguments arguments, Handle expression)
    : Expression<T>(Kind::function, expression->shape()),
      arguments_(std::move(arguments)),
      expression_(std::move(expression)),
      program_(compile_lasting(*this)) {}

template <class T>
Function<T>::~Function() {
  std::vector<Handle> nodes(1);
  nodes[0] = std::move(expression_);
  release<T>(std::move(nodes));
}

template <class T>
std::shared_ptr<const Program> Function<T>::lasting_program() const {
  const bool are_scalars =
      std::all_of(arguments_.begin(), arguments_.end(),
                  [](const auto& argument) { return argument->shape() == Shape::scalar; });
  return are_scalars ? program_ : nullptr;
}

template <class T>
T Function<T>::scalar_function(const JetList<T>& x, PollRef poll) const {
  require_arguments(x.size());
  for (std::size_t i = 0; i < x.size(); ++i) {
    arguments_[i]->assign(x[i]);
  }
  return value_or_norm(poll);
}

template <class T>
T Function<T>::kernel_function(const JetMatrix<T>& rows, PollRef poll) const {
  bind_rows(rows);
  return value_or_norm(poll);
}

template <class T>
JetList<T> Function<T>::transformation_function(const JetMatrix<T>& rows, PollRef poll) const {
  bind_rows(rows);
  if (this->shape() == Shape::scalar) {
    return JetList<T>{expression_->eval(poll)};
  }
  return expression_->eval_vector(poll);
}

template <class T>
void Function<T>::require_arguments(std::size_t n) const {
  if (n > arguments_.size()) {
    throw std::out_of_range("the function takes " + std::to_string(arguments_.size()) +
                            " arguments, but was given " + std::to_string(n));
  }
}

template <class T>
void Function<T>::bind_rows(const JetMatrix<T>& rows) const {
  require_arguments(rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    arguments_[i]->assign(JetList<T>(rows[i]));
  }
}

template <class T>
T Function<T>::value_or_norm(PollRef poll) const {
  if (expression_->shape() == Shape::scalar) {
    return expression_->eval(poll);
  }
  return expression_->eval_vector(poll).norm();
}

template class Expression<double>;
template class Expression<Jet>;
template class Variable<double>;
template class Variable<Jet>;
template class Transformation<double>;
template class Transformation<Jet>;
template class Function<double>;
template class Function<Jet>;

}  // namespace talvorix::ast
