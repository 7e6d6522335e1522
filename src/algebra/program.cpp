#include "algebra/program.h"

#include "algebra/traversal.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <limits>
#include <mutex>
#include <numeric>
#include <stdexcept>
#include <utility>

namespace talvorix::ast {

namespace {

// Thrown where a graph cannot be a program.
struct NotAProgram : std::runtime_error {
  NotAProgram() : std::runtime_error("the graph can only be evaluated node by node") {}
};

double constant_of(double value) { return value; }

double constant_of(const Jet& value) {
  if (!value.v.isZero(0.0)) {
    throw NotAProgram();
  }
  return value.a;
}

}  // namespace

void Program::complete(Instructions instructions, Reference result) {
  const auto first = static_cast<Reference>(n_inputs_);
  std::vector<bool> is_read(instructions.size(), false);
  const auto read = [&](Reference reference) {
    if (reference >= first) {
      is_read[static_cast<std::size_t>(reference - first)] = true;
    }
  };
  read(result);
  for (std::size_t i = instructions.size(); i-- > 0;) {
    if (is_read[i]) {
      read(instructions[i].left);
      read(instructions[i].right);
    }
  }
  std::vector<Reference> moved(instructions.size());
  const auto follow = [&](Reference reference) {
    return reference < first ? reference : moved[static_cast<std::size_t>(reference - first)];
  };
  std::size_t n_kept = 0;
  // FNV-1a.
  structure_hash_ = n_inputs_;
  const auto hash = [this](Reference part) {
    structure_hash_ = (structure_hash_ ^ static_cast<std::size_t>(part)) * 0x100000001b3U;
  };
  for (std::size_t i = 0; i < instructions.size(); ++i) {
    if (is_read[i]) {
      const Instruction kept = {instructions[i].code, follow(instructions[i].left),
                                follow(instructions[i].right)};
      hash(static_cast<Reference>(kept.code));
      hash(kept.left);
      hash(kept.right);
      instructions[n_kept] = kept;
      moved[i] = first + static_cast<Reference>(n_kept);
      ++n_kept;
    }
  }
  instructions.resize(n_kept);
  result_ = follow(result);

  // The last structures that were made, of which the next ones mostly are.
  static std::mutex mutex;
  static std::array<std::weak_ptr<const Instructions>, 64> recent;
  const std::lock_guard lock(mutex);
  std::weak_ptr<const Instructions>& place = recent[structure_hash_ % recent.size()];
  instructions_ = place.lock();
  if (instructions_ == nullptr || *instructions_ != instructions) {
    instructions_ = std::make_shared<const Instructions>(std::move(instructions));
    place = instructions_;
  }
}

// The domain in which graphs are compiled: cells hold references to what will stand in them.
template <class T>
class References {
 public:
  using Scalar = Program::Reference;
  using List = std::vector<Program::Reference>;
  using Node = Expression<T>;

  // Refuses graphs of more nodes than that.
  References(std::size_t n_inputs, std::size_t most_nodes)
      : program_(std::make_unique<Program>()), most_nodes_(most_nodes) {
    static std::atomic<std::uint64_t> last{0};
    compilation_ = ++last;
    program_->n_inputs_ = n_inputs;
  }

  // Before the traversal: the cell of a variable starts as these inputs.
  void bind(Node& variable, Program::Reference first, std::size_t count, bool is_row) {
    Cell& cell = cell_of(variable);
    cell.was_stored = true;
    if (variable.shape() == Shape::scalar) {
      if (count == 0) {
        throw NotAProgram();
      }
      cell.scalar = first;
      cell.has_scalar = true;
      return;
    }
    if (is_row) {
      cell.list.clear();
      for (std::size_t i = 0; i < count; ++i) {
        cell.list.push_back(first + static_cast<Program::Reference>(i));
      }
    } else {
      cell.list = constants(variable.list());
      if (cell.list.empty()) {
        throw NotAProgram();
      }
      cell.list[0] = first;
      cell.kept_list = cell.list;
    }
    cell.has_list = true;
  }

  // Adds what is known of variables so far, whether a program comes of it or not.
  void add_to(Footprint<T>& footprint) const {
    for (const Cell& cell : cells_) {
      if (cell.node->kind() == Kind::variable) {
        if (cell.was_stored) {
          footprint.changed.insert(cell.node);
        }
        if (cell.read_scalar || cell.read_list) {
          footprint.read.insert(cell.node);
        }
      }
    }
  }

  std::unique_ptr<Program> finish(Scalar result) {
    for (const Cell& cell : cells_) {
      // The next evaluation has to find what this one found.
      if ((cell.has_shape && cell.shape != cell.node->shape()) ||
          (!cell.kept_list.empty() && cell.list != cell.kept_list)) {
        throw NotAProgram();
      }
    }
    program_->complete(std::move(instructions_), result);
    program_->constants_.shrink_to_fit();
    return std::move(program_);
  }

  Scalar scalar(Node& node) {
    Cell& cell = cell_of(node);
    if (!cell.has_scalar) {
      cell.scalar = constant(node.scalar());
      cell.has_scalar = true;
      cell.read_scalar = true;
    }
    return cell.scalar;
  }
  List list(Node& node) {
    Cell& cell = cell_of(node);
    if (!cell.has_list) {
      cell.list = constants(node.list());
      cell.has_list = true;
      cell.read_list = true;
    }
    return cell.list;
  }
  Shape shape(const Node& node) const {
    return node.compilation_ == compilation_ && cells_[node.number_].has_shape
               ? cells_[node.number_].shape
               : node.shape();
  }
  bool set_shape(Node& node, Shape shape) {
    const bool changed = this->shape(node) != shape;
    Cell& cell = cell_of(node);
    cell.shape = shape;
    cell.has_shape = true;
    return changed;
  }
  bool store(Node& node, Scalar value) {
    Cell& cell = cell_of(node);
    cell.was_stored = true;
    if (cell.read_scalar) {
      throw NotAProgram();
    }
    cell.scalar = value;
    cell.has_scalar = true;
    return set_shape(node, Shape::scalar);
  }
  bool store(Node& node, const List& values) {
    Cell& cell = cell_of(node);
    cell.was_stored = true;
    if (cell.read_list) {
      throw NotAProgram();
    }
    cell.list = values;
    cell.has_list = true;
    return set_shape(node, Shape::list);
  }
  std::uint64_t& computed(Node& node, Shape shape) {
    Cell& cell = cell_of(node);
    return shape == Shape::scalar ? cell.scalar_computed : cell.list_computed;
  }
  std::uint64_t next_stretch() { return ++stretch_; }

  Scalar number(const T& value) { return constant(value); }
  List numbers(const JetList<T>& values) { return constants(values); }
  Scalar add(Scalar left, Scalar right) { return emit(Program::Code::add, left, right); }
  Scalar subtract(Scalar left, Scalar right) { return emit(Program::Code::subtract, left, right); }
  Scalar multiply(Scalar left, Scalar right) { return emit(Program::Code::multiply, left, right); }
  Scalar divide(Scalar left, Scalar right) { return emit(Program::Code::divide, left, right); }
  List add(const List& left, const List& right) {
    return each(Program::Code::add, left, [&](std::size_t i) { return right.at(i); });
  }
  List subtract(const List& left, const List& right) {
    return each(Program::Code::subtract, left, [&](std::size_t i) { return right.at(i); });
  }
  List scaled(const List& list, Scalar factor) {
    return each(Program::Code::multiply, list, [&](std::size_t) { return factor; });
  }
  List divided(const List& list, Scalar divisor) {
    return each(Program::Code::divide, list, [&](std::size_t) { return divisor; });
  }
  Scalar dot(const List& left, const List& right) {
    Scalar sum = plain_constant(0.0);
    for (std::size_t i = 0; i < left.size(); ++i) {
      sum = add(sum, multiply(left[i], right.at(i)));
    }
    return sum;
  }
  Scalar sum_of_squares(const List& list) { return dot(list, list); }
  Scalar norm(const List& list) {
    const Scalar squares = sum_of_squares(list);
    // The derivatives of such a root are not numbers, which a constant could not tell.
    if (squares < 0 && value_of(squares) == 0.0) {
      throw NotAProgram();
    }
    return emit(Program::Code::root, squares, squares);
  }
  List list_of(Scalar value) { return {value}; }
  void note_call() { has_calls_ = true; }

  // Whether anything but the inputs and constants went into the program.
  bool depends_on_cells() const {
    return has_calls_ || std::any_of(cells_.begin(), cells_.end(), [](const Cell& cell) {
             return cell.node->kind() == Kind::variable && (cell.read_scalar || cell.read_list);
           });
  }

 private:
  struct Cell {
    Node* node = nullptr;
    Scalar scalar = 0;
    List list;
    // What a list has to be again at the end, of which only the first element is bound.
    List kept_list;
    Shape shape = Shape::scalar;
    bool has_scalar = false;
    bool has_list = false;
    bool has_shape = false;
    bool was_stored = false;
    // Whether what the node holds at present was read: then nothing may be stored.
    bool read_scalar = false;
    bool read_list = false;
    std::uint64_t scalar_computed = 0;
    std::uint64_t list_computed = 0;
  };

  Cell& cell_of(Node& node) {
    if (node.compilation_ != compilation_) {
      if (cells_.size() == most_nodes_) {
        throw NotAProgram();
      }
      node.compilation_ = compilation_;
      node.number_ = cells_.size();
      cells_.emplace_back().node = &node;
    }
    return cells_[node.number_];
  }

  template <class Right>
  List each(Program::Code code, const List& left, const Right& right) {
    List result;
    result.reserve(left.size());
    for (std::size_t i = 0; i < left.size(); ++i) {
      result.push_back(emit(code, left[i], right(i)));
    }
    return result;
  }

  Scalar constant(const T& value) { return plain_constant(constant_of(value)); }
  List constants(const JetList<T>& values) {
    List result;
    result.reserve(values.size());
    for (const T& value : values) {
      result.push_back(constant(value));
    }
    return result;
  }
  Scalar plain_constant(double value) {
    require_room(program_->constants_.size());
    program_->constants_.push_back(value);
    return -static_cast<Scalar>(program_->constants_.size());
  }

  Scalar emit(Program::Code code, Scalar left, Scalar right) {
    if (left < 0 && right < 0) {
      double result = 0.0;
      Program::calculate(code, value_of(left), value_of(right), result);
      return plain_constant(result);
    }
    // 0 + x, with which sums begin, is x.
    if (code == Program::Code::add && left < 0 && value_of(left) == 0.0) {
      return right;
    }
    require_room(instructions_.size());
    instructions_.push_back({code, left, right});
    return static_cast<Scalar>(program_->n_inputs_ + instructions_.size() - 1);
  }
  double value_of(Scalar reference) const {
    return program_->constants_[static_cast<std::size_t>(-1 - reference)];
  }

  static void require_room(std::size_t size) {
    constexpr std::size_t longest = std::size_t{1} << 20;
    if (size >= longest) {
      throw NotAProgram();
    }
  }

  std::unique_ptr<Program> program_;
  Program::Instructions instructions_;
  std::uint64_t compilation_;
  std::size_t most_nodes_;
  std::vector<Cell> cells_;
  bool has_calls_ = false;
  std::uint64_t stretch_ = 0;
};

namespace {

// traverse(traversal, references) gives the reference of the result.
template <class T, class Traverse>
std::unique_ptr<Program> compile_bound(const std::vector<std::shared_ptr<Variable<T>>>& variables,
                                       const InputRows& rows, PollRef poll, Footprint<T>& footprint,
                                       const Traverse& traverse) {
  constexpr std::size_t most_inputs = 30000;
  const std::size_t n_inputs =
      std::accumulate(rows.lengths.begin(), rows.lengths.end(), std::size_t{0});
  if (rows.lengths.size() > variables.size() || n_inputs > most_inputs) {
    return nullptr;
  }
  References<T> references(n_inputs, std::numeric_limits<std::size_t>::max());
  std::unique_ptr<Program> program;
  try {
    Program::Reference first = 0;
    for (std::size_t i = 0; i < rows.lengths.size(); ++i) {
      references.bind(*variables[i], first, rows.lengths[i], !rows.are_scalars);
      first += static_cast<Program::Reference>(rows.lengths[i]);
    }
    Traversal<T, References<T>> traversal(references, poll);
    program = references.finish(traverse(traversal, references));
  } catch (const std::runtime_error&) {
    // If anything is wrong with the graph, evaluating it will say what.
  } catch (const std::out_of_range&) {
  }
  references.add_to(footprint);
  return program;
}

}  // namespace

template <class T>
std::unique_ptr<Program> compile(const Function<T>& function, const InputRows& rows, PollRef poll,
                                 Footprint<T>& footprint) {
  Expression<T>& expression = *function.expression();
  return compile_bound(
      function.arguments(), rows, poll, footprint, [&](auto& traversal, auto& references) {
        return expression.shape() == Shape::scalar ? traversal.scalar(expression)
                                                   : references.norm(traversal.list(expression));
      });
}

template <class T>
std::shared_ptr<const Program> compile_lasting(const Function<T>& function) {
  constexpr std::size_t short_graph = 512;
  Expression<T>& expression = *function.expression();
  // What any other node yields may change.
  if (expression.kind() != Kind::transformation || expression.shape() != Shape::scalar ||
      function.arguments().size() > short_graph) {
    return nullptr;
  }
  References<T> references(function.arguments().size(), short_graph);
  try {
    Program::Reference input = 0;
    for (const auto& argument : function.arguments()) {
      if (argument->shape() != Shape::scalar) {
        return nullptr;
      }
      references.bind(*argument, input++, 1, false);
    }
    InterruptPoller poll;
    Traversal<T, References<T>> traversal(references, poll);
    auto program = references.finish(traversal.scalar(expression));
    if (!references.depends_on_cells()) {
      return program;
    }
  } catch (const std::runtime_error&) {
  } catch (const std::out_of_range&) {
  }
  return nullptr;
}

template <class T>
std::unique_ptr<Program> compile(Expression<T>& expression,
                                 const std::vector<std::shared_ptr<Variable<T>>>& variables,
                                 const InputRows& rows, PollRef poll) {
  Footprint<T> footprint;
  return compile_bound(variables, rows, poll, footprint,
                       [&](auto& traversal, auto&) { return traversal.scalar(expression); });
}

template std::unique_ptr<Program> compile(const Function<double>&, const InputRows&, PollRef,
                                          Footprint<double>&);
template std::unique_ptr<Program> compile(const Function<Jet>&, const InputRows&, PollRef,
                                          Footprint<Jet>&);
template std::shared_ptr<const Program> compile_lasting(const Function<double>&);
template std::shared_ptr<const Program> compile_lasting(const Function<Jet>&);
template std::unique_ptr<Program> compile(Expression<double>&,
                                          const std::vector<std::shared_ptr<Variable<double>>>&,
                                          const InputRows&, PollRef);
template std::unique_ptr<Program> compile(Expression<Jet>&,
                                          const std::vector<std::shared_ptr<Variable<Jet>>>&,
                                          const InputRows&, PollRef);

}  // namespace talvorix::ast
