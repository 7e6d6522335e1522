#include "categorical/expression_transiogram.h"

#include <algorithm>
#include <utility>

namespace talvorix {

namespace {

// The entries as programs, for lists u and v of one size.
template <class T>
class CompiledTransiogram final : public AbstractTransiogram<T> {
 public:
  using Programs = std::vector<std::vector<std::unique_ptr<ast::Program>>>;

  explicit CompiledTransiogram(Programs programs)
      : AbstractTransiogram<T>(row_sizes(programs)), programs_(std::move(programs)) {}

 private:
  void evaluate(std::size_t row, std::size_t first, const JetList<T>& u, const JetList<T>& v,
                PollRef poll, std::span<T> values) const override {
    inputs_.assign(u.begin(), u.end());
    inputs_.insert(inputs_.end(), v.begin(), v.end());
    for (std::size_t j = 0; j < values.size(); ++j) {
      poll();
      values[j] = programs_[row][first + j]->run(std::span<const T>(inputs_), scratch_);
    }
  }

  Programs programs_;
  mutable std::vector<T> inputs_;
  mutable std::vector<T> scratch_;
};

}  // namespace

template <class T>
ExpressionTransiogram<T>::ExpressionTransiogram(VariableHandle u, VariableHandle v,
                                                Expressions expressions)
    : AbstractTransiogram<T>(row_sizes(expressions)),
      u_(std::move(u)),
      v_(std::move(v)),
      expressions_(std::move(expressions)) {}

template <class T>
std::unique_ptr<const AbstractTransiogram<T>> ExpressionTransiogram<T>::fixed(std::size_t size,
                                                                              PollRef poll) const {
  // What every evaluation begins with.
  u_->store(JetList<T>(size));
  v_->store(JetList<T>(size));
  typename CompiledTransiogram<T>::Programs programs;
  programs.reserve(expressions_.size());
  for (const auto& row : expressions_) {
    auto& row_programs = programs.emplace_back();
    row_programs.reserve(row.size());
    for (const auto& expression : row) {
      auto program = ast::compile<T>(*expression, {u_, v_}, {{size, size}}, poll);
      if (program == nullptr) {
        return nullptr;
      }
      row_programs.push_back(std::move(program));
    }
  }
  return std::make_unique<CompiledTransiogram<T>>(std::move(programs));
}

template <class T>
void ExpressionTransiogram<T>::evaluate(std::size_t row, std::size_t first, const JetList<T>& u,
                                        const JetList<T>& v, PollRef poll,
                                        std::span<T> values) const {
  for (std::size_t j = 0; j < values.size(); ++j) {
    u_->store(u);
    v_->store(v);
    values[j] = expressions_[row][first + j]->eval(poll);
  }
}

template class ExpressionTransiogram<double>;
template class ExpressionTransiogram<Jet>;

}  // namespace talvorix
