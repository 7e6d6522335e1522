#pragma once

#include "algebra/expression.h"
#include "algebra/program.h"
#include "categorical/transiogram.h"
#include "core/interrupt.h"

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

namespace talvorix {

// A transiogram whose entries are formulas in two variables, which each evaluation sets to u and v.
// One thread at a time may use it.
template <class T>
class ExpressionTransiogram final : public AbstractTransiogram<T> {
 public:
  using VariableHandle = std::shared_ptr<ast::Variable<T>>;
  using Expressions = std::vector<std::vector<std::shared_ptr<ast::Expression<T>>>>;

  ExpressionTransiogram(VariableHandle u, VariableHandle v, Expressions expressions);

  const VariableHandle& u() const { return u_; }
  const VariableHandle& v() const { return v_; }
  const Expressions& expressions() const { return expressions_; }

  std::unique_ptr<const AbstractTransiogram<T>> fixed(std::size_t size,
                                                      PollRef poll) const override;

 private:
  void evaluate(std::size_t row, std::size_t first, const JetList<T>& u, const JetList<T>& v,
                PollRef poll, std::span<T> values) const override;

  VariableHandle u_;
  VariableHandle v_;
  Expressions expressions_;
};

}  // namespace talvorix
