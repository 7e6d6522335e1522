#pragma once

#include "algebra/jet_list.h"
#include "algebra/jet_matrix.h"
#include "core/interrupt.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <span>
#include <utility>
#include <vector>

namespace talvorix {

// For each ordered pair of classes the probability of a transition from the first one at u to the
// second one at v. What the entries are made of is up to the subclass. Only a simulation asks that
// rows be as long as there are rows. Classes outside the table throw std::out_of_range.
template <class T>
class AbstractTransiogram {
 public:
  AbstractTransiogram(const AbstractTransiogram&) = delete;
  AbstractTransiogram& operator=(const AbstractTransiogram&) = delete;
  virtual ~AbstractTransiogram() = default;

  std::size_t n_classes() const { return row_sizes_.size(); }

  T entry(int class_u, int class_v, const JetList<T>& u, const JetList<T>& v, PollRef poll) const;
  JetList<T> row(int class_u, const JetList<T>& u, const JetList<T>& v, PollRef poll) const;
  JetMatrix<T> rows(const JetList<T>& u, const JetList<T>& v, PollRef poll) const;

  // Writes a row to where values points; a square table needs n_classes() places.
  void evaluate_row(int class_u, const JetList<T>& u, const JetList<T>& v, PollRef poll,
                    T* values) const {
    const std::size_t row = class_number("class_u", class_u, n_classes());
    evaluate(row, 0, u, v, poll, {values, row_sizes_[row]});
  }

  // The same table as it is at present, faster, for many evaluations with lists of one size; null
  // when there is none.
  virtual std::unique_ptr<const AbstractTransiogram> fixed(std::size_t /*size*/,
                                                           PollRef /*poll*/) const {
    return nullptr;
  }

  // Throws std::invalid_argument when there are no rows or one is not as long as there are rows.
  void require_square() const;

 protected:
  explicit AbstractTransiogram(std::vector<std::size_t> row_sizes)
      : row_sizes_(std::move(row_sizes)) {}

 private:
  // The entries of a row from class first on, as many as there are values, with a poll before each.
  virtual void evaluate(std::size_t row, std::size_t first, const JetList<T>& u,
                        const JetList<T>& v, PollRef poll, std::span<T> values) const = 0;

  static std::size_t class_number(const char* name, int number, std::size_t count) {
    if (number < 0 || static_cast<std::size_t>(number) >= count) {
      throw_outside(name, number, count);
    }
    return static_cast<std::size_t>(number);
  }
  [[noreturn]] static void throw_outside(const char* name, int number, std::size_t count);

  std::vector<std::size_t> row_sizes_;
};

// The lengths of the rows of a table.
template <class Entry>
std::vector<std::size_t> row_sizes(const std::vector<std::vector<Entry>>& rows) {
  std::vector<std::size_t> sizes;
  sizes.reserve(rows.size());
  for (const std::vector<Entry>& row : rows) {
    sizes.push_back(row.size());
  }
  return sizes;
}

// A transiogram whose entries are functions.
template <class T>
class FunctionTransiogram final : public AbstractTransiogram<T> {
 public:
  using Kernel = std::function<T(const JetList<T>& u, const JetList<T>& v)>;
  using Kernels = std::vector<std::vector<Kernel>>;

  explicit FunctionTransiogram(Kernels kernels)
      : AbstractTransiogram<T>(row_sizes(kernels)), kernels_(std::move(kernels)) {}

 private:
  void evaluate(std::size_t row, std::size_t first, const JetList<T>& u, const JetList<T>& v,
                PollRef poll, std::span<T> values) const override {
    for (std::size_t j = 0; j < values.size(); ++j) {
      poll();
      values[j] = kernels_[row][first + j](u, v);
    }
  }

  Kernels kernels_;
};

}  // namespace talvorix
