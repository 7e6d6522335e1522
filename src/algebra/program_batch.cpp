#include "algebra/program_batch.h"

#include <algorithm>
#include <cmath>

namespace talvorix::ast {

namespace {

constexpr std::size_t n_lanes = 32;

// One operation in all lanes.
[[gnu::noinline]] void calculate(Program::Code code, const double* __restrict left,
                                 const double* __restrict right, double* __restrict result) {
  switch (code) {
    case Program::Code::add:
      for (std::size_t k = 0; k < n_lanes; ++k) {
        result[k] = left[k] + right[k];
      }
      break;
    case Program::Code::subtract:
      for (std::size_t k = 0; k < n_lanes; ++k) {
        result[k] = left[k] - right[k];
      }
      break;
    case Program::Code::multiply:
      for (std::size_t k = 0; k < n_lanes; ++k) {
        result[k] = left[k] * right[k];
      }
      break;
    case Program::Code::divide:
      for (std::size_t k = 0; k < n_lanes; ++k) {
        result[k] = left[k] / right[k];
      }
      break;
    case Program::Code::root:
      for (std::size_t k = 0; k < n_lanes; ++k) {
        result[k] = std::sqrt(left[k]);
      }
      break;
  }
}

// Adds to the derivative by the left operand what the derivative by the result makes of it.
[[gnu::noinline]] void add_by_left(Program::Code code, const double* __restrict adjoint,
                                   const double* __restrict right, const double* __restrict result,
                                   double* __restrict by_left) {
  switch (code) {
    case Program::Code::add:
    case Program::Code::subtract:
      for (std::size_t k = 0; k < n_lanes; ++k) {
        by_left[k] += adjoint[k];
      }
      break;
    case Program::Code::multiply:
      for (std::size_t k = 0; k < n_lanes; ++k) {
        by_left[k] += adjoint[k] * right[k];
      }
      break;
    case Program::Code::divide:
      for (std::size_t k = 0; k < n_lanes; ++k) {
        by_left[k] += adjoint[k] / right[k];
      }
      break;
    case Program::Code::root:
      for (std::size_t k = 0; k < n_lanes; ++k) {
        by_left[k] += adjoint[k] / (2.0 * result[k]);
      }
      break;
  }
}

[[gnu::noinline]] void add_by_right(Program::Code code, const double* __restrict adjoint,
                                    const double* __restrict left, const double* __restrict right,
                                    const double* __restrict result, double* __restrict by_right) {
  switch (code) {
    case Program::Code::add:
      for (std::size_t k = 0; k < n_lanes; ++k) {
        by_right[k] += adjoint[k];
      }
      break;
    case Program::Code::subtract:
      for (std::size_t k = 0; k < n_lanes; ++k) {
        by_right[k] -= adjoint[k];
      }
      break;
    case Program::Code::multiply:
      for (std::size_t k = 0; k < n_lanes; ++k) {
        by_right[k] += adjoint[k] * left[k];
      }
      break;
    case Program::Code::divide:
      for (std::size_t k = 0; k < n_lanes; ++k) {
        by_right[k] -= adjoint[k] * result[k] / right[k];
      }
      break;
    case Program::Code::root:
      break;
  }
}

}  // namespace

ProgramBatch::ProgramBatch(const std::vector<const Program*>& programs)
    : size_(programs.size()),
      n_inputs_(programs.front()->n_inputs_),
      instructions_(programs.front()->instructions_),
      result_(programs.front()->result_),
      constants_(programs.front()->constants_.size()) {
  static_assert(lanes == n_lanes);
  const std::size_t padded = (size_ + lanes - 1) / lanes * lanes;
  for (std::size_t c = 0; c < constants_.size(); ++c) {
    std::vector<double>& values = constants_[c].values;
    values.reserve(padded);
    for (const Program* program : programs) {
      values.push_back(program->constants_[c]);
    }
    const bool is_same = std::all_of(values.begin(), values.end(),
                                     [&](double value) { return value == values.front(); });
    constants_[c].is_same = is_same;
    values.resize(is_same ? lanes : padded, values.back());
    values.shrink_to_fit();
  }
}

const double* ProgramBatch::constant(Reference reference, std::size_t begin) const {
  const Constants& constants = constants_[static_cast<std::size_t>(-1 - reference)];
  return constants.values.data() + (constants.is_same ? 0 : begin);
}

void ProgramBatch::forward(std::size_t begin, double* registers) const {
  const auto operand = [&](Reference reference) -> const double* {
    return reference < 0 ? constant(reference, begin)
                         : registers + static_cast<std::size_t>(reference) * lanes;
  };
  double* result = registers + n_inputs_ * lanes;
  for (const Program::Instruction& instruction : *instructions_) {
    calculate(instruction.code, operand(instruction.left), operand(instruction.right), result);
    result += lanes;
  }
}

void ProgramBatch::backward(std::size_t begin, const double* registers, double* adjoints) const {
  const auto operand = [&](Reference reference) -> const double* {
    return reference < 0 ? constant(reference, begin)
                         : registers + static_cast<std::size_t>(reference) * lanes;
  };
  std::fill_n(adjoints, (n_inputs_ + instructions_->size()) * lanes, 0.0);
  if (result_ >= 0) {
    std::fill_n(adjoints + static_cast<std::size_t>(result_) * lanes, lanes, 1.0);
  }
  for (std::size_t i = instructions_->size(); i-- > 0;) {
    const Program::Instruction& instruction = (*instructions_)[i];
    const double* const result = registers + (n_inputs_ + i) * lanes;
    const double* const adjoint = adjoints + (n_inputs_ + i) * lanes;
    const double* const left = operand(instruction.left);
    const double* const right = operand(instruction.right);
    if (instruction.left >= 0) {
      add_by_left(instruction.code, adjoint, right, result,
                  adjoints + static_cast<std::size_t>(instruction.left) * lanes);
    }
    if (instruction.right >= 0) {
      add_by_right(instruction.code, adjoint, left, right, result,
                   adjoints + static_cast<std::size_t>(instruction.right) * lanes);
    }
  }
}

void ProgramBatch::run(std::span<const double> inputs, double* values, double* derivatives,
                       std::vector<double>& scratch) const {
  const std::size_t n_registers = n_inputs_ + instructions_->size();
  if (scratch.size() < 2 * n_registers * lanes) {
    scratch.resize(2 * n_registers * lanes);
  }
  double* const registers = scratch.data();
  double* const adjoints = registers + n_registers * lanes;
  for (std::size_t input = 0; input < n_inputs_; ++input) {
    std::fill_n(registers + input * lanes, lanes, inputs[input]);
  }
  for (std::size_t begin = 0; begin < size_; begin += lanes) {
    const std::size_t n = std::min(lanes, size_ - begin);
    forward(begin, registers);
    std::copy_n(result_ < 0 ? constant(result_, begin)
                            : registers + static_cast<std::size_t>(result_) * lanes,
                n, values + begin);
    if (derivatives == nullptr) {
      continue;
    }
    backward(begin, registers, adjoints);
    for (std::size_t k = 0; k < n; ++k) {
      for (std::size_t input = 0; input < n_inputs_; ++input) {
        *derivatives++ = adjoints[input * lanes + k];
      }
    }
  }
}

}  // namespace talvorix::ast
