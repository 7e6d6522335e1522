#include "core/radix_sort.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <memory>
#include <utility>

namespace talvorix {

namespace {

constexpr int digit_bits = 8;
constexpr int n_digits = 64 / digit_bits;
constexpr std::size_t n_buckets = std::size_t{1} << digit_bits;

using Counts = std::array<std::size_t, n_buckets>;

std::size_t digit(double value, int d) {
  return (order_key(value) >> (d * digit_bits)) & (n_buckets - 1);
}

template <class Body>
void for_each_value(std::span<double> values, PollRef poll, Body&& body) {
  constexpr std::size_t between_polls = 1 << 16;
  while (!values.empty()) {
    poll();
    const std::size_t n = std::min(values.size(), between_polls);
    for (double& value : values.first(n)) {
      body(value);
    }
    values = values.subspan(n);
  }
}

// Where the bucket of each digit starts.
Counts starts(const Counts& counts) {
  Counts result;
  std::size_t start = 0;
  for (std::size_t i = 0; i < n_buckets; ++i) {
    result[i] = start;
    start += counts[i];
  }
  return result;
}

}  // namespace

// Least significant digit first; the counts of all digits are taken in one pass beforehand.
void sort_ascending(std::span<double> values, PollRef poll) {
  const std::size_t n = values.size();
  if (n == 0) {
    return;
  }
  std::array<Counts, n_digits> counts{};
  for_each_value(values, poll, [&](double& value) {
    if (std::isnan(value)) {
      value = std::numeric_limits<double>::quiet_NaN();
    }
    for (int d = 0; d < n_digits; ++d) {
      ++counts[static_cast<std::size_t>(d)][digit(value, d)];
    }
  });
  const auto buffer = std::make_unique_for_overwrite<double[]>(n);
  std::span<double> from = values;
  std::span<double> to(buffer.get(), n);
  for (int d = 0; d < n_digits; ++d) {
    const Counts& of_digit = counts[static_cast<std::size_t>(d)];
    if (of_digit[digit(from.front(), d)] == n) {
      continue;  // all values share this digit
    }
    Counts next = starts(of_digit);
    for_each_value(from, poll, [&](double value) { to[next[digit(value, d)]++] = value; });
    std::swap(from, to);
  }
  if (from.data() != values.data()) {
    std::copy(from.begin(), from.end(), values.begin());
  }
}

}  // namespace talvorix
