#include "simulation/fourier_integral.h"

#include "core/interrupt.h"
#include "core/large_pages.h"
#include "core/memory_limit.h"
#include "core/parallel.h"
#include "core/random.h"
#include "core/vector_cosine.h"
#include "covariance/kernel_table.h"
#include "simulation/covered_locations.h"
#include "simulation/fft_array.h"
#include "simulation/fft_threads.h"
#include "simulation/nugget_simulator.h"
#include "simulation/sum_simulator.h"
#include "spatial/bounding_box.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <memory>
#include <mutex>
#include <numbers>
#include <string>
#include <utility>
#include <vector>

namespace talvorix::fft {

namespace {

// The transform library's thread count is one setting of the process, so lattices are made one at a
// time.
std::mutex& lattice_mutex() {
  static std::mutex mutex;
  return mutex;
}

// Along one axis of the lattice.
struct Axis {
  std::int64_t count;
  double cell;
  double origin;

  Axis(int wanted, double smallest, double length) {
    const double extent = 1.5 * length;
    count = extent < 1e-20 ? 1 : std::max(wanted, 1);
    cell = extent / static_cast<double>(count) + 1e-20;
    origin = smallest - 2.0 * cell;
  }

  // Steps between a wrapped index and the zero lag.
  std::int64_t steps(std::int64_t wrapped_index) const {
    return std::min(wrapped_index, count - wrapped_index);
  }

  // Where the transform holds what the lattice shows at an index: its halves change places, and on
  // an axis of even count the last plane repeats the first.
  std::int64_t source(std::int64_t i) const {
    const std::int64_t half = count / 2;
    return count % 2 == 0 && i == count - 1 ? half : wrapped(i - half, count);
  }
};

// The way from real coordinates to the number of the cell along one axis of the lattice.
struct AxisLookup {
  double along_x;
  double along_y;
  double along_z;
  double origin;
  double cell;
  double last;

  AxisLookup(const Matrix3& matrix, Eigen::Index row, const Axis& axis)
      : along_x(matrix(row, 0)),
        along_y(matrix(row, 1)),
        along_z(matrix(row, 2)),
        origin(axis.origin),
        cell(axis.cell),
        last(static_cast<double>(axis.count - 1)) {}

  // The first and the last cell go on beyond the ends. NaN counts as the first.
  std::int32_t index(double x, double y, double z) const {
    const double i = (along_x * x + along_y * y + along_z * z - origin) / cell;
    const double from_first = i > 0.0 ? i : 0.0;
    return static_cast<std::int32_t>(from_first < last ? from_first : last);
  }
};

constexpr std::size_t lookup_block = 256;

// Writes the number along an axis of the cell of each location.
[[gnu::noinline]] void cells_along(const AxisLookup& axis, const double* __restrict x,
                                   const double* __restrict y, const double* __restrict z,
                                   std::size_t n, std::int32_t* __restrict cells) {
  const AxisLookup own = axis;
  for (std::size_t i = 0; i < n; ++i) {
    cells[i] = own.index(x[i], y[i], z[i]);
  }
}

// Gives entries the root of their size, scaled, for an amplitude, and new phases.
[[gnu::noinline]] void set_phases(std::complex<double>* entries, const double* __restrict phases,
                                  std::size_t count, double scale) {
  auto* __restrict parts = reinterpret_cast<double*>(entries);
  for (std::size_t c = 0; c < count; ++c) {
    const double re = parts[2 * c];
    const double im = parts[2 * c + 1];
    const double a = std::sqrt(std::sqrt(re * re + im * im) * scale);
    constexpr double quarter_turn = std::numbers::pi / 2.0;
    parts[2 * c] = a * vector_cosine(phases[c]);
    parts[2 * c + 1] = a * vector_cosine(phases[c] - quarter_turn);
  }
}

class FimCovSimulation final : public SpatialField {
 public:
  FimCovSimulation(const Locations& locs, const Covariance& cov, std::int64_t seed,
                   const LatticeCounts& counts, int n_threads)
      : std_dev_(std::sqrt(cov.sill)) {
    const int n_workers = check_n_threads(n_threads);
    const PatientLock lock(lattice_mutex());
    set_fft_n_threads(n_workers);
    const BoundingBox box(cov.ellipsoid.forward(locs, n_workers));
    const std::array<int, 3> wanted = {counts.nx, counts.ny, counts.nz};
    for (Eigen::Index a = 0; a < 3; ++a) {
      axes_.emplace_back(wanted[static_cast<std::size_t>(a)], box.lower()[a], box.size()[a]);
      lookups_.emplace_back(cov.ellipsoid.matrix(), a, axes_.back());
    }
    const Extents extents = {axes_[0].count, axes_[1].count, axes_[2].count};
    require_lattice_memory(extents);
    // One plane more along each axis than the strides ever reach.
    values_ = values_on_large_pages(
        static_cast<std::size_t>((extents[0] + 1) * (extents[1] + 1) * (extents[2] + 1)), 0.0);
    array lattice(extents, 0.0);
    complex_array spectrum;
    fill_with_covariance(lattice, get_kernel(cov, 2000000), n_workers);
    spectrum.forward(lattice);
    draw_phases(spectrum, static_cast<double>(lattice.size()), seed, n_workers);
    lattice.backward(spectrum);
    copy_out(lattice, n_workers);
  }

  double value(const Vector3& location, int) const override {
    double value = 0.0;
    look_up({&location, 1}, &value);
    return value;
  }

  void values(std::span<const Vector3> locations, double* values, int, PollRef) const override {
    while (!locations.empty()) {
      const std::size_t n = std::min(locations.size(), lookup_block);
      look_up(locations.first(n), values);
      locations = locations.subspan(n);
      values += n;
    }
  }

 private:
  // The realisation, the lattice that is transformed and its spectrum.
  static void require_lattice_memory(const Extents& extents) {
    const std::array<double, 3> n = {static_cast<double>(extents[0]),
                                     static_cast<double>(extents[1]),
                                     static_cast<double>(extents[2])};
    require_memory(
        "a lattice of " + std::to_string(extents[0]) + " by " + std::to_string(extents[1]) +
            " by " + std::to_string(extents[2]) + " nodes",
        8.0 * (n[0] + 1.0) * (n[1] + 1.0) * (n[2] + 1.0) + 8.0 * n[0] * n[1] * (2.0 * n[2] + 2.0));
  }

  // Of no more locations than one block.
  void look_up(std::span<const Vector3> locations, double* values) const {
    std::array<std::array<double, lookup_block>, 3> coordinates;
    std::array<std::array<std::int32_t, lookup_block>, 3> cells;
    const std::size_t n = locations.size();
    for (std::size_t i = 0; i < n; ++i) {
      coordinates[0][i] = locations[i].x();
      coordinates[1][i] = locations[i].y();
      coordinates[2][i] = locations[i].z();
    }
    for (std::size_t a = 0; a < 3; ++a) {
      cells_along(lookups_[a], coordinates[0].data(), coordinates[1].data(), coordinates[2].data(),
                  n, cells[a].data());
    }
    for (std::size_t i = 0; i < n; ++i) {
      const auto at = (cells[0][i] * axes_[1].count + cells[1][i]) * axes_[2].count + cells[2][i];
      values[i] = values_[static_cast<std::size_t>(at)] * std_dev_;
    }
  }

  // The covariance at every lag of the lattice, indexed circularly. It is the same in all eight
  // octants: each row is computed once and copied to the others.
  void fill_with_covariance(array& lattice, const Kernel& kernel, int n_workers) const {
    const Axis& x = axes_[0];
    const Axis& y = axes_[1];
    const Axis& z = axes_[2];
    const auto squared = [](double d) { return d * d; };
    parallel_for(
        static_cast<std::size_t>(x.count / 2 + 1), n_workers, [&](Worker& worker, std::size_t row) {
          const auto i = static_cast<std::int64_t>(row);
          for (std::int64_t j = 0; j <= y.count / 2; ++j) {
            worker.poll();
            const double across =
                squared(static_cast<double>(i) * x.cell) + squared(static_cast<double>(j) * y.cell);
            for (std::int64_t k = 0; k <= z.count / 2; ++k) {
              const double d = std::sqrt(across + squared(static_cast<double>(k) * z.cell));
              lattice(i, j, k) = kernel(d);
            }
            for (std::int64_t k = z.count / 2 + 1; k < z.count; ++k) {
              lattice(i, j, k) = lattice(i, j, z.steps(k));
            }
          }
        });
    parallel_for(static_cast<std::size_t>(x.count), n_workers,
                 [&](Worker& worker, std::size_t plane) {
                   const auto i = static_cast<std::int64_t>(plane);
                   for (std::int64_t j = 0; j < y.count; ++j) {
                     worker.poll();
                     if (i != x.steps(i) || j != y.steps(j)) {
                       std::copy_n(&lattice(x.steps(i), y.steps(j), 0), z.count, &lattice(i, j, 0));
                     }
                   }
                 });
  }

  // Amplitudes are the root of the spectrum, phases are drawn, also on the planes whose entries
  // should be conjugates of each other: deliberate, the transform reads the half spectrum as it is.
  static void draw_phases(complex_array& spectrum, double n, std::int64_t seed, int n_workers) {
    RandomEngine main_rng = seeded_engine(seed);
    std::vector<std::int64_t> seeds;
    seeds.reserve(static_cast<std::size_t>(n_workers));
    for (int worker = 0; worker < n_workers; ++worker) {
      seeds.push_back(static_cast<std::int64_t>(main_rng()));
    }
    const double pi = std::acos(-1.0);
    const std::int64_t plane_size = spectrum.extents()[1] * spectrum.extents()[2];
    parallel_blocks(
        static_cast<std::size_t>(spectrum.extents()[0]), n_workers,
        [&](Worker& worker, std::size_t begin, std::size_t end) {
          RandomEngine rng = seeded_engine(seeds[static_cast<std::size_t>(worker.index())]);
          auto left = static_cast<std::size_t>(static_cast<std::int64_t>(end - begin) * plane_size);
          std::complex<double>* entries =
              spectrum.data() + static_cast<std::int64_t>(begin) * plane_size;
          std::array<double, 256> phases;
          while (left > 0) {
            worker.poll();
            const std::size_t count = std::min(left, phases.size());
            for (std::size_t c = 0; c < count; ++c) {
              phases[c] = (2.0 * uniform(rng) - 1.0) * pi;
            }
            set_phases(entries, phases.data(), count, 1.0 / n);
            entries += count;
            left -= count;
          }
        });
  }

  void copy_out(const array& lattice, int n_workers) {
    const Axis& x = axes_[0];
    const Axis& y = axes_[1];
    const Axis& z = axes_[2];
    parallel_for(static_cast<std::size_t>(x.count), n_workers,
                 [&](Worker& worker, std::size_t plane) {
                   const auto i = static_cast<std::int64_t>(plane);
                   for (std::int64_t j = 0; j < y.count; ++j) {
                     worker.poll();
                     const double* from =
                         lattice.data() + position(lattice.extents(), x.source(i), y.source(j), 0);
                     double* to = values_.data() + (i * y.count + j) * z.count;
                     // The upper half first, then the lower one.
                     const std::int64_t upper = z.count / 2;
                     std::copy_n(from + (z.count - upper), upper, to);
                     std::copy_n(from, z.count - upper, to + upper);
                     to[z.count - 1] = from[z.source(z.count - 1)];
                   }
                 });
  }

  double std_dev_;
  std::vector<Axis> axes_;
  std::vector<AxisLookup> lookups_;
  std::vector<double> values_;
};

}  // namespace

}  // namespace talvorix::fft

namespace talvorix {

SpatialFunction create_fim_simulator(const Locations& locs, const Covariance& cov,
                                     std::int64_t seed, const LatticeCounts& counts,
                                     int n_threads) {
  require_covered(locs);
  return SpatialFunction(
      std::make_shared<fft::FimCovSimulation>(locs, cov, seed, counts, n_threads));
}

SpatialFunction create_fim_simulator(const Locations& locs, const CovarianceModel& covs,
                                     std::int64_t seed, const LatticeCounts& counts,
                                     int n_threads) {
  require_covered(locs);
  RandomEngine rng = seeded_engine(seed);
  std::vector<SpatialFunction> parts;
  for (const Covariance& cov : covs) {
    const auto structure_seed = static_cast<std::int64_t>(rng());
    parts.push_back(cov.type == Covariance::Type::nugget
                        ? create_nugget_simulator(std::sqrt(cov.sill), structure_seed)
                        : create_fim_simulator(locs, cov, structure_seed, counts, n_threads));
  }
  return create_simulator(std::move(parts));
}

}  // namespace talvorix
