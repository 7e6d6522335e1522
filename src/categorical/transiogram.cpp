#include "categorical/transiogram.h"

#include "algebra/jet.h"

#include <stdexcept>
#include <string>
#include <utility>

namespace talvorix {

template <class T>
T AbstractTransiogram<T>::entry(int class_u, int class_v, const JetList<T>& u, const JetList<T>& v,
                                PollRef poll) const {
  const std::size_t row = class_number("class_u", class_u, n_classes());
  T value{};
  evaluate(row, class_number("class_v", class_v, row_sizes_[row]), u, v, poll, {&value, 1});
  return value;
}

template <class T>
JetList<T> AbstractTransiogram<T>::row(int class_u, const JetList<T>& u, const JetList<T>& v,
                                       PollRef poll) const {
  std::vector<T> values(row_sizes_[class_number("class_u", class_u, n_classes())]);
  evaluate_row(class_u, u, v, poll, values.data());
  return JetList<T>(std::move(values));
}

template <class T>
JetMatrix<T> AbstractTransiogram<T>::rows(const JetList<T>& u, const JetList<T>& v,
                                          PollRef poll) const {
  typename JetMatrix<T>::Rows rows;
  rows.reserve(n_classes());
  for (std::size_t i = 0; i < n_classes(); ++i) {
    rows.emplace_back(row_sizes_[i]);
    evaluate(i, 0, u, v, poll, rows.back());
  }
  return JetMatrix<T>(std::move(rows));
}

template <class T>
void AbstractTransiogram<T>::require_square() const {
  if (n_classes() == 0) {
    throw std::invalid_argument("transiogram has no classes; it must have at least one");
  }
  for (std::size_t i = 0; i < n_classes(); ++i) {
    if (row_sizes_[i] != n_classes()) {
      throw std::invalid_argument("row " + std::to_string(i) + " of transiogram has " +
                                  std::to_string(row_sizes_[i]) + " entries but there are " +
                                  std::to_string(n_classes()) + " rows; the table must be square");
    }
  }
}

template <class T>
void AbstractTransiogram<T>::throw_outside(const char* name, int number, std::size_t count) {
  throw std::out_of_range(std::string(name) + " is " + std::to_string(number) +
                          ", but the transiogram has " + std::to_string(count) +
                          " entries there; it must be from 0 up to below that");
}

template class AbstractTransiogram<double>;
template class AbstractTransiogram<Jet>;

}  // namespace talvorix
