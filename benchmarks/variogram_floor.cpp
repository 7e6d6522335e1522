// The experimental variogram of one direction read literally: every pair of every tube is measured,
// its angle taken and its mean updated in each lag that it counts for. The tubes are given, so
// nothing is searched. variogram.py compiles this file and calls it through ctypes.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

extern "C" {

// Points are count x 3, row-major. Tube t holds the data members[starts[t]] to
// members[starts[t + 1] - 1]. Lag distances ascend; means and counts, one for each, start at 0.
// Returns how many pairs were accepted.
std::int64_t literal_variogram(const double* points, const double* values,
                               const std::int64_t* starts, const std::int64_t* members,
                               std::int64_t n_tubes, const double* direction, double angle_tol,
                               const double* lags, std::int64_t n_lags, std::int64_t window,
                               double* means, std::int64_t* counts) {
  std::int64_t accepted = 0;
  for (std::int64_t t = 0; t < n_tubes; ++t) {
    for (std::int64_t a = starts[t]; a < starts[t + 1]; ++a) {
      const double* p = points + 3 * members[a];
      for (std::int64_t b = a + 1; b < starts[t + 1]; ++b) {
        const double* q = points + 3 * members[b];
        const double w[3] = {p[0] - q[0], p[1] - q[1], p[2] - q[2]};
        const double r = std::sqrt(w[0] * w[0] + w[1] * w[1] + w[2] * w[2]);
        const double along = w[0] * direction[0] + w[1] * direction[1] + w[2] * direction[2];
        if (std::acos(std::abs(along) / r) > angle_tol) {
          continue;
        }
        const double difference = values[members[a]] - values[members[b]];
        const double g = difference * 0.5 * difference;
        const std::int64_t lag = std::lower_bound(lags, lags + n_lags, r) - lags;
        if (lag >= n_lags) {
          continue;
        }
        ++accepted;
        const std::int64_t last = std::min(lag + window, n_lags - 1);
        for (std::int64_t k = std::max<std::int64_t>(lag - window, 0); k <= last; ++k) {
          const auto m = static_cast<double>(counts[k]);
          means[k] = m * means[k] / (m + 1.0) + g / (m + 1.0);
          ++counts[k];
        }
      }
    }
  }
  return accepted;
}
}
