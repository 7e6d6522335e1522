#include "spatial/visiting_order.h"

#include "core/parallel.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numeric>

namespace talvorix {

namespace {

struct Box {
  Vector3 low = Vector3::Constant(std::numeric_limits<double>::infinity());
  Vector3 high = -low;
};

Box finite_box(const Locations& targets, const Neighborhood& neighborhood) {
  Box box;
  InterruptPoller poll;
  for (const Vector3& target : targets) {
    poll();
    const Vector3 q = neighborhood.to_search_space(target);
    if (q.allFinite()) {
      box.low = box.low.cwiseMin(q);
      box.high = box.high.cwiseMax(q);
    }
  }
  return box;
}

// Whether the steps of the given order are as short as those of a walk through a filled box would
// be, judged by a thousand of them.
bool is_coherent(const Locations& targets, const Neighborhood& neighborhood, const Box& box) {
  const std::size_t n = targets.size();
  const std::size_t stride = std::max<std::size_t>(n / 1000, 1);
  double path = 0.0;
  std::size_t steps = 0;
  for (std::size_t i = 0; i + 1 < n; i += stride) {
    const double step =
        (neighborhood.to_search_space(targets[i + 1]) - neighborhood.to_search_space(targets[i]))
            .norm();
    path += std::isfinite(step) ? step : 0.0;
    ++steps;
  }
  const double spacing = (box.high - box.low).norm() / std::cbrt(static_cast<double>(n));
  return path <= 3.0 * spacing * static_cast<double>(steps);
}

// Place along a Hilbert curve of the cell (x, y, z) of a cube of 2^bits cells a side.
// J. Skilling, Programming the Hilbert curve, AIP Conf. Proc. 707 (2004).
std::uint32_t hilbert_index(std::array<std::uint32_t, 3> X, int bits) {
  const std::uint32_t M = 1U << (bits - 1);
  for (std::uint32_t Q = M; Q > 1; Q >>= 1) {
    const std::uint32_t P = Q - 1;
    for (std::uint32_t& x : X) {
      if ((x & Q) != 0) {
        X[0] ^= P;
      } else {
        const std::uint32_t t = (X[0] ^ x) & P;
        X[0] ^= t;
        x ^= t;
      }
    }
  }
  X[1] ^= X[0];
  X[2] ^= X[1];
  std::uint32_t t = 0;
  for (std::uint32_t Q = M; Q > 1; Q >>= 1) {
    if ((X[2] & Q) != 0) {
      t ^= Q - 1;
    }
  }
  std::uint32_t index = 0;
  for (int b = bits - 1; b >= 0; --b) {
    for (const std::uint32_t x : X) {
      index = (index << 1) | (((x ^ t) >> b) & 1U);
    }
  }
  return index;
}

// A counting sort by cells of the curve that hold a handful of targets each.
std::vector<std::size_t> along_hilbert_curve(const Locations& targets,
                                             const Neighborhood& neighborhood, const Box& box,
                                             int n_threads) {
  const std::size_t n = targets.size();
  const int bits = std::clamp(static_cast<int>(std::bit_width(n / 8)) / 3 + 1, 1, 8);
  const double cells = std::exp2(bits);
  const double side = std::max((box.high - box.low).maxCoeff(), 1e-300);
  std::vector<std::uint32_t> keys(n);
  parallel_for(n, n_threads, [&](Worker&, std::size_t i) {
    const Vector3 place = (neighborhood.to_search_space(targets[i]) - box.low) * (cells / side);
    std::array<std::uint32_t, 3> cell{};
    for (std::size_t k = 0; k < 3; ++k) {
      const double x = place[static_cast<Eigen::Index>(k)];
      // Written so that NaN goes to cell 0.
      cell[k] = x > 0.0 ? static_cast<std::uint32_t>(std::min(x, cells - 1.0)) : 0U;
    }
    keys[i] = hilbert_index(cell, bits);
  });
  std::vector<std::size_t> first((std::size_t{1} << (3 * bits)) + 1, 0);
  for (const std::uint32_t key : keys) {
    ++first[key + 1];
  }
  std::partial_sum(first.begin(), first.end(), first.begin());
  std::vector<std::size_t> order(n);
  InterruptPoller poll;
  for (std::size_t i = 0; i < n; ++i) {
    poll();
    order[first[keys[i]]++] = i;
  }
  return order;
}

// Cuts the order into stretches and deals them to n_blocks piles in turn.
std::vector<std::size_t> dealt(const std::vector<std::size_t>& order, int n_blocks) {
  constexpr std::size_t stretch = 256;
  const std::size_t n = order.size();
  const auto blocks = static_cast<std::size_t>(n_blocks);
  std::vector<std::size_t> result;
  result.reserve(n);
  for (std::size_t pile = 0; pile < blocks; ++pile) {
    for (std::size_t begin = pile * stretch; begin < n; begin += blocks * stretch) {
      const std::size_t end = std::min(begin + stretch, n);
      result.insert(result.end(), order.begin() + static_cast<std::ptrdiff_t>(begin),
                    order.begin() + static_cast<std::ptrdiff_t>(end));
    }
  }
  return result;
}

}  // namespace

std::vector<std::size_t> visiting_order(const Locations& targets, const Neighborhood& neighborhood,
                                        int n_threads) {
  std::vector<std::size_t> order(targets.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  if (targets.size() < 64) {
    return order;
  }
  const Box box = finite_box(targets, neighborhood);
  if (!is_coherent(targets, neighborhood, box)) {
    order = along_hilbert_curve(targets, neighborhood, box, n_threads);
  }
  return n_threads > 1 ? dealt(order, n_threads) : order;
}

}  // namespace talvorix
