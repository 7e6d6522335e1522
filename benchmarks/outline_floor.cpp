// The floor of an outline: the multiply-adds and comparisons of every point with every direction,
// over points that stay in the nearest cache. Which point is the outermost is not kept. grids.py
// compiles this file and calls it through ctypes.

#include <algorithm>
#include <cstdint>
#include <limits>

namespace {

constexpr std::int64_t points_at_a_time = 512;  // 12 kB of coordinates

}  // namespace

extern "C" {

// x, y and z hold n_points each; directions is n_directions x 3, row-major. The number of
// directions is even: two share each point that is loaded. smallest and largest receive the ends of
// the projections.
void outline_floor(const double* x, const double* y, const double* z, std::int64_t n_points,
                   const double* directions, std::int64_t n_directions, double* smallest,
                   double* largest) {
  constexpr double infinity = std::numeric_limits<double>::infinity();
  std::fill_n(smallest, n_directions, infinity);
  std::fill_n(largest, n_directions, -infinity);
  for (std::int64_t begin = 0; begin < n_points; begin += points_at_a_time) {
    const std::int64_t end = std::min(begin + points_at_a_time, n_points);
    for (std::int64_t d = 0; d < n_directions; d += 2) {
      const double* a = directions + 3 * d;
      const double* b = a + 3;
      double low_a = smallest[d];
      double high_a = largest[d];
      double low_b = smallest[d + 1];
      double high_b = largest[d + 1];
#pragma omp simd reduction(min : low_a, low_b) reduction(max : high_a, high_b)
      for (std::int64_t i = begin; i < end; ++i) {
        const double along_a = x[i] * a[0] + y[i] * a[1] + z[i] * a[2];
        const double along_b = x[i] * b[0] + y[i] * b[1] + z[i] * b[2];
        low_a = std::min(low_a, along_a);
        high_a = std::max(high_a, along_a);
        low_b = std::min(low_b, along_b);
        high_b = std::max(high_b, along_b);
      }
      smallest[d] = low_a;
      largest[d] = high_a;
      smallest[d + 1] = low_b;
      largest[d + 1] = high_b;
    }
  }
}
}
