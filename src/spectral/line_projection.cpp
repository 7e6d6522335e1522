#include "spectral/line_projection.h"

#include "core/arguments.h"
#include "core/interrupt.h"
#include "core/memory_limit.h"
#include "core/weight_power.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <numeric>
#include <stdexcept>
#include <string>

namespace talvorix {

namespace {

void require_finite(const char* name, std::span<const double> values) {
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (!std::isfinite(values[i])) {
      throw std::invalid_argument(std::string(name) + "[" + std::to_string(i) +
                                  "] is not finite; positions must be");
    }
  }
}

// Positions of the values in ascending order; equal ones keep theirs.
std::vector<std::size_t> ascending_order(std::span<const double> values, InterruptPoller& poll) {
  std::vector<std::size_t> order(values.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
    poll();
    return values[a] < values[b] || (values[a] == values[b] && a < b);
  });
  return order;
}

// Samples in ascending order of their positions.
struct Samples {
  std::vector<double> x;
  std::vector<double> values;

  Samples(std::span<const double> positions, std::span<const double> data, InterruptPoller& poll) {
    x.reserve(positions.size());
    values.reserve(positions.size());
    for (const std::size_t i : ascending_order(positions, poll)) {
      x.push_back(positions[i]);
      values.push_back(data[i]);
    }
  }

  // The weighted mean of a run of samples around a position; NaN for an empty one.
  template <class Power>
  double mean(std::size_t begin, std::size_t end, double position, double b, Power power,
              InterruptPoller& poll) const {
    double sum = 0.0;
    double weights = 0.0;
    constexpr std::size_t at_once = 1024;
    while (begin < end) {
      poll();
      for (const std::size_t stop = std::min(end, begin + at_once); begin < stop; ++begin) {
        const double weight = 1.0 / (power(std::abs(x[begin] - position)) + b);
        sum += weight * values[begin];
        weights += weight;
      }
    }
    return sum / weights;
  }
};

}  // namespace

std::vector<double> project_to_line(std::span<const double> x, std::span<const double> data,
                                    double b, double power_a, int n_points, int window_size) {
  require_equal_lengths("data", data.size(), "x", x.size());
  const std::size_t n = require_positive_count("n_points", n_points);
  const std::size_t window = std::min(require_positive_count("window_size", window_size), x.size());
  if (x.empty()) {
    throw std::invalid_argument("x is empty; a line needs at least one sample");
  }
  require_finite("x", x);
  require_memory("a line of " + std::to_string(n) + " points", 8.0 * static_cast<double>(n));

  InterruptPoller poll;
  const Samples samples(x, data, poll);
  const double first = samples.x.front();
  const double length = samples.x.back() - first;
  std::vector<double> line;
  line.reserve(n);
  with_weight_power(power_a, [&](auto power) {
    std::size_t begin = 0;
    for (std::size_t i = 0; i < n; ++i) {
      const double position =
          n == 1 ? first : first + length * (static_cast<double>(i) / static_cast<double>(n - 1));
      // The window moves on as long as the sample ahead of it is nearer than its last one.
      while (begin + window < samples.x.size() &&
             samples.x[begin + window] - position < position - samples.x[begin]) {
        poll();
        ++begin;
      }
      line.push_back(samples.mean(begin, begin + window, position, b, power, poll));
    }
  });
  return line;
}

std::vector<double> project_back_to_source(std::span<const double> target_x,
                                           std::span<const double> source_x,
                                           std::span<const double> source_data, double dr, double b,
                                           double power_a) {
  require_equal_lengths("source_data", source_data.size(), "source_x", source_x.size());
  require_finite("target_x", target_x);
  require_finite("source_x", source_x);

  InterruptPoller poll;
  const Samples sources(source_x, source_data, poll);
  const std::size_t n = sources.x.size();
  std::vector<double> values(target_x.size());
  with_weight_power(power_a, [&](auto power) {
    std::size_t begin = 0;
    std::size_t end = 0;
    for (const std::size_t target : ascending_order(target_x, poll)) {
      const double position = target_x[target];
      while (begin < n && position - sources.x[begin] > dr) {
        poll();
        ++begin;
      }
      while (end < n && sources.x[end] - position <= dr) {
        poll();
        ++end;
      }
      values[target] = sources.mean(begin, end, position, b, power, poll);
    }
  });
  return values;
}

}  // namespace talvorix
