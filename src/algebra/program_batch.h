#pragma once

#include "algebra/program.h"

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

namespace talvorix::ast {

// Programs that differ in their constants alone, evaluated several at a time in the lanes of
// vectors, with the derivatives by all inputs from one backward sweep.
class ProgramBatch {
 public:
  // Of programs that all have the structure of the first one.
  explicit ProgramBatch(const std::vector<const Program*>& programs);

  std::size_t size() const { return size_; }
  std::size_t n_inputs() const { return n_inputs_; }

  // Writes the value of every program and, unless derivatives is null, its derivatives by all
  // inputs, row by row. Scratch is the caller's and is kept from run to run.
  void run(std::span<const double> inputs, double* values, double* derivatives,
           std::vector<double>& scratch) const;

 private:
  static constexpr std::size_t lanes = 32;
  using Reference = Program::Reference;

  // A constant of all programs: a value for each, or one lane after the other the same.
  struct Constants {
    std::vector<double> values;
    bool is_same = false;
  };

  const double* constant(Reference reference, std::size_t begin) const;
  void forward(std::size_t begin, double* registers) const;
  void backward(std::size_t begin, const double* registers, double* adjoints) const;

  std::size_t size_;
  std::size_t n_inputs_;
  std::shared_ptr<const Program::Instructions> instructions_;
  Reference result_;
  std::vector<Constants> constants_;
};

}  // namespace talvorix::ast
