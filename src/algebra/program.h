#pragma once

#include "algebra/expression.h"
#include "core/interrupt.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <unordered_set>
#include <vector>

namespace talvorix::ast {

// A formula as a flat list of operations on scalars, to be evaluated many times with new values of
// its inputs. It gives what evaluating the graph gives but touches no cell, so that any number of
// threads may run one at once.
class Program {
 public:
  enum class Code : std::uint8_t { add, subtract, multiply, divide, root };

  // What an operation reads: an input or an earlier result, counted from 0 through both, or a
  // constant, counted from -1 down.
  using Reference = std::int32_t;

  std::size_t n_inputs() const { return n_inputs_; }

  // Whether the two differ in their constants alone.
  bool has_structure_of(const Program& other) const {
    return n_inputs_ == other.n_inputs_ && result_ == other.result_ &&
           constants_.size() == other.constants_.size() &&
           (instructions_ == other.instructions_ || *instructions_ == *other.instructions_);
  }
  std::size_t structure_hash() const { return structure_hash_; }

  // Scratch is the caller's and is kept from run to run.
  template <class U>
  U run(std::span<const U> inputs, std::vector<U>& scratch) const;

 private:
  template <class T>
  friend class References;
  friend class ProgramBatch;

  struct Instruction {
    Code code;
    Reference left;
    Reference right;

    bool operator==(const Instruction&) const = default;
  };

  using Instructions = std::vector<Instruction>;

  // Takes the instructions that make a result. What does not reach it is left out, since it would
  // spoil derivatives where it is not finite.
  void complete(Instructions instructions, Reference result);

  template <class U>
  static void calculate(Code code, const auto& left, const auto& right, U& result);

  std::size_t n_inputs_ = 0;
  // Programs of one structure, of which there may be many, share them.
  std::shared_ptr<const Instructions> instructions_;
  std::vector<double> constants_;
  Reference result_ = 0;
  std::size_t structure_hash_ = 0;
};

template <class U>
void Program::calculate(Code code, const auto& left, const auto& right, U& result) {
  using std::sqrt;
  switch (code) {
    case Code::add:
      result = left + right;
      break;
    case Code::subtract:
      result = left - right;
      break;
    case Code::multiply:
      result = left * right;
      break;
    case Code::divide:
      result = left / right;
      break;
    case Code::root:
      result = sqrt(U(left));
      break;
  }
}

template <class U>
U Program::run(std::span<const U> inputs, std::vector<U>& scratch) const {
  const std::size_t n = n_inputs_ + instructions_->size();
  if (scratch.size() < n) {
    scratch.resize(n);
  }
  U* const values = scratch.data();
  for (std::size_t i = 0; i < n_inputs_; ++i) {
    values[i] = inputs[i];
  }
  U* result = values + n_inputs_;
  const auto constant = [this](Reference reference) {
    return constants_[static_cast<std::size_t>(-1 - reference)];
  };
  for (const Instruction& instruction : *instructions_) {
    // Constants have no derivatives, which saves calculating with them.
    if (instruction.left < 0) {
      calculate(instruction.code, constant(instruction.left), values[instruction.right], *result);
    } else if (instruction.right < 0) {
      calculate(instruction.code, values[instruction.left], constant(instruction.right), *result);
    } else {
      calculate(instruction.code, values[instruction.left], values[instruction.right], *result);
    }
    ++result;
  }
  return result_ < 0 ? U(constant(result_)) : values[result_];
}

// What a program's inputs are bound to: as many consecutive ones as the row of an argument has
// entries. Of a list argument that is bound to a single scalar, the first element is meant.
struct InputRows {
  std::vector<std::size_t> lengths;
  bool are_scalars = false;
};

// What evaluating a graph does to variables beyond its result.
template <class T>
struct Footprint {
  // Those it changes, and those of which it reads what they held before.
  std::unordered_set<const Expression<T>*> changed;
  std::unordered_set<const Expression<T>*> read;
};

// The program of a function whose arguments are bound to inputs, row after row; a list gives its
// norm. Null where the graph does not allow it: when evaluation would throw, when one leaves behind
// what the next one reads, or when it would be too long.
template <class T>
std::unique_ptr<Program> compile(const Function<T>& function, const InputRows& rows, PollRef poll,
                                 Footprint<T>& footprint);

// The program of a function of scalars, if it is short and depends on nothing that may change.
template <class T>
std::shared_ptr<const Program> compile_lasting(const Function<T>& function);

// The same with an expression that is evaluated as a scalar, and the variables that are bound.
template <class T>
std::unique_ptr<Program> compile(Expression<T>& expression,
                                 const std::vector<std::shared_ptr<Variable<T>>>& variables,
                                 const InputRows& rows, PollRef poll);

}  // namespace talvorix::ast
