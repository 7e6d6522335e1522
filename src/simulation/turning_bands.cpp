#include "simulation/turning_bands.h"

#include "core/arguments.h"
#include "core/interrupt.h"
#include "core/memory_limit.h"
#include "core/random.h"
#include "core/truncation.h"
#include "core/vector_cosine.h"
#include "distributions/samplers.h"
#include "simulation/covered_locations.h"
#include "simulation/nugget_simulator.h"
#include "simulation/sum_simulator.h"
#include "spatial/point_columns.h"
#include "spatial/sphere_directions.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <numbers>
#include <string>
#include <utility>
#include <vector>

namespace talvorix {

namespace {

// The coordinates of some locations in columns, and the box they lie in.
class LocationBlock {
 public:
  static constexpr std::size_t capacity = 256;

  explicit LocationBlock(std::span<const Vector3> locations) : size_(locations.size()) {
    for (std::size_t i = 0; i < size_; ++i) {
      x_[i] = locations[i].x();
      y_[i] = locations[i].y();
      z_[i] = locations[i].z();
      for (Eigen::Index axis = 0; axis < 3; ++axis) {
        // NaN leaves the box alone.
        const double coordinate = locations[i][axis];
        lower_[axis] = coordinate < lower_[axis] ? coordinate : lower_[axis];
        upper_[axis] = coordinate > upper_[axis] ? coordinate : upper_[axis];
      }
      zero_if_finite_ += 0.0 * (x_[i] + y_[i] + z_[i]);
    }
  }

  std::size_t size() const { return size_; }
  const double* x() const { return x_.data(); }
  const double* y() const { return y_.data(); }
  const double* z() const { return z_.data(); }

  // Bounds of v . x over the block.
  std::pair<double, double> bounds_along(const Vector3& v) const {
    const Vector3 middle = 0.5 * (lower_ + upper_);
    const double half = v.cwiseAbs().dot(0.5 * (upper_ - lower_));
    return {v.dot(middle) - half, v.dot(middle) + half};
  }

  // Whether all locations are numbers and rounding changes v . x by far less than 1.
  bool is_exact_along(const Vector3& v) const {
    constexpr double most = 1e12;
    return zero_if_finite_ == 0.0 &&
           v.cwiseAbs().dot(lower_.cwiseAbs().cwiseMax(upper_.cwiseAbs())) < most;
  }

 private:
  std::size_t size_;
  double zero_if_finite_ = 0.0;
  alignas(64) std::array<double, capacity> x_;
  alignas(64) std::array<double, capacity> y_;
  alignas(64) std::array<double, capacity> z_;
  Vector3 lower_ = Vector3::Constant(1e300);
  Vector3 upper_ = Vector3::Constant(-1e300);
};

// A line's direction in real space, such that v . x is the place on the line of the normalised
// location.
Vector3 along_line(const Ellipsoid& ellipsoid, const Vector3& direction) {
  return ellipsoid.matrix().transpose() * direction;
}

// cos(v . x + phase) with the frequency in v.
struct GaussianLine {
  Vector3 v;
  double phase;

  double value(const Vector3& location) const { return std::cos(v.dot(location) + phase); }
};

// A sawtooth from -0.5 to 0.5 in cells of unit length, with a random sign in each.
struct CellLine {
  Vector3 v;
  double offset;
  double last_cell;
  std::vector<std::uint64_t> signs;  // a bit for each cell, and a word more

  double value(const Vector3& location) const {
    const double t = v.dot(location) - offset;
    const double i = cell(t);
    const auto bit = static_cast<std::uint64_t>(i);
    const double f = t - i + 0.5;
    return (signs[bit / 64] >> (bit % 64) & 1U) != 0 ? -f : f;
  }

  // Beyond the ends the first or the last cell goes on. NaN counts as the first.
  double cell(double t) const {
    const double i = std::floor(t) + 1.0;
    const double from_first = i > 0.0 ? i : 0.0;
    return from_first < last_cell ? from_first : last_cell;
  }

  // 64 signs from a cell on.
  std::uint64_t signs_from(std::uint64_t first) const {
    const std::uint64_t shift = first % 64;
    const std::uint64_t low = signs[first / 64] >> shift;
    return shift == 0 ? low : low | signs[first / 64 + 1] << (64 - shift);
  }
};

[[gnu::noinline]] void add_line(const GaussianLine& line, const LocationBlock& block,
                                double* __restrict sums) {
  const double* __restrict x = block.x();
  const double* __restrict y = block.y();
  const double* __restrict z = block.z();
  const double v[3] = {line.v[0], line.v[1], line.v[2]};
  const double phase = line.phase;
  const auto [low, high] = block.bounds_along(line.v);
  if (std::max(-low, high) + phase < largest_for_vector_cosine) {
    for (std::size_t i = 0; i < block.size(); ++i) {
      sums[i] += vector_cosine(v[0] * x[i] + v[1] * y[i] + v[2] * z[i] + phase);
    }
    return;
  }
  // The choice is each location's own, so that it does not matter which others are in its block.
  for (std::size_t i = 0; i < block.size(); ++i) {
    const double argument = v[0] * x[i] + v[1] * y[i] + v[2] * z[i] + phase;
    sums[i] += std::abs(argument) < largest_for_vector_cosine ? vector_cosine(argument)
                                                              : std::cos(argument);
  }
}

// What turns locations into sawtooths: where along the line they are, and the sign of their cell.
struct CellLoop {
  double v[3];
  double minus_offset;
  double last;

  double along(double x, double y, double z) const {
    return v[0] * x + (v[1] * y + (v[2] * z + minus_offset));
  }
  // With signs(cell) a word whose lowest bit is the sign. Cells beyond the ends are only looked for
  // if there may be any.
  template <bool is_inside, class Signs>
  void run(const LocationBlock& block, const Signs& signs, double* __restrict sums) const {
    const double* __restrict x = block.x();
    const double* __restrict y = block.y();
    const double* __restrict z = block.z();
    const CellLoop own = *this;
    for (std::size_t k = 0; k < block.size(); ++k) {
      const double t = own.along(x[k], y[k], z[k]);
      double i = std::floor(t) + 1.0;
      if constexpr (!is_inside) {
        const double from_first = i > 0.0 ? i : 0.0;
        i = from_first < own.last ? from_first : own.last;
      }
      const double f = t - i + 0.5;
      sums[k] += std::bit_cast<double>(std::bit_cast<std::uint64_t>(f) ^ signs(i) << 63);
    }
  }
};

// Adding this to a whole number from 0 on leaves the number in the low bits.
constexpr double whole_number_shift = 0x1p52;

template <bool is_inside>
[[gnu::noinline]] void add_line_of_one_word(const CellLoop& loop, const LocationBlock& block,
                                            std::uint64_t word, double first,
                                            double* __restrict sums) {
  const double shift = whole_number_shift - first;
  loop.run<is_inside>(
      block,
      [word, shift](double i) { return word >> (std::bit_cast<std::uint64_t>(i + shift) & 63U); },
      sums);
}

template <bool is_inside>
[[gnu::noinline]] void add_line_of_words(const CellLoop& loop, const LocationBlock& block,
                                         const std::uint64_t* __restrict words,
                                         double* __restrict sums) {
  loop.run<is_inside>(
      block,
      [words](double i) {
        const auto bit = std::bit_cast<std::uint64_t>(i + whole_number_shift) & 0xfffffU;
        return words[bit >> 6] >> (bit & 63U);
      },
      sums);
}

void add_line(const CellLine& line, const LocationBlock& block, double* __restrict sums) {
  const CellLoop loop{{line.v[0], line.v[1], line.v[2]}, -line.offset, line.last_cell};
  const auto [low, high] = block.bounds_along(line.v);
  const double first = std::max(line.cell(low - line.offset) - 1.0, 0.0);
  const bool is_inside = block.is_exact_along(line.v) && low - line.offset > -0.5 &&
                         high - line.offset < line.last_cell - 0.5;
  if (line.cell(high - line.offset) + 1.0 - first < 64.0) {
    // All signs of the block fit into one word.
    const std::uint64_t word = line.signs_from(static_cast<std::uint64_t>(first));
    (is_inside ? add_line_of_one_word<true> : add_line_of_one_word<false>)(loop, block, word, first,
                                                                           sums);
    return;
  }
  (is_inside ? add_line_of_words<true> : add_line_of_words<false>)(loop, block, line.signs.data(),
                                                                   sums);
}

// Lines of one kind, whose values are scaled once they are summed up.
template <class Line>
class LinesField final : public SpatialField {
 public:
  LinesField(std::vector<Line> lines, double scale) : lines_(std::move(lines)), scale_(scale) {}

  double value(const Vector3& location, int) const override {
    double sum = 0.0;
    for (const Line& line : lines_) {
      sum += line.value(location);
    }
    return sum * scale_;
  }

  void values(std::span<const Vector3> locations, double* values, int,
              PollRef poll) const override {
    while (!locations.empty()) {
      const std::size_t n = std::min(locations.size(), LocationBlock::capacity);
      const LocationBlock block(locations.first(n));
      std::fill_n(values, n, 0.0);
      for (const Line& line : lines_) {
        poll();
        add_line(line, block, values);
      }
      for (std::size_t i = 0; i < n; ++i) {
        values[i] *= scale_;
      }
      locations = locations.subspan(n);
      values += n;
    }
  }

 private:
  std::vector<Line> lines_;
  double scale_;
};

GaussianLine gaussian_line_simulator(const Vector3& v, std::int64_t seed) {
  RandomEngine rng = seeded_engine(seed);
  StandardNormal normal;
  const double g1 = normal(rng);
  const double g2 = normal(rng);
  const double g3 = normal(rng);
  const double phase = 2.0 * std::numbers::pi * uniform(rng);
  const double frequency = std::sqrt(6.0 * (g1 * g1 + g2 * g2 + g3 * g3));
  return {v * frequency, phase};
}

// A line, or the seed of the white noise that stands for one that would be too long.
struct CellLineOrNoise {
  std::unique_ptr<CellLine> line;
  std::int64_t noise_seed = 0;
};

template <class Coin>
CellLineOrNoise cell_line(const PointColumns& locs, const Vector3& v, RandomEngine& rng, Coin coin,
                          InterruptPoller& poll) {
  ProjectionRange range;
  constexpr std::size_t at_once = 4096 * PointColumns::block;
  for (std::size_t begin = 0; begin < locs.padded_size(); begin += at_once) {
    poll();
    widen_by_projections(locs, begin, std::min(begin + at_once, locs.padded_size()), v, range);
  }
  constexpr int most_cells = 10000;
  const std::int32_t cells = truncated_to_int(std::ceil(range.largest - range.smallest) + 2.0);
  if (cells > most_cells) {
    return {nullptr, static_cast<std::int64_t>(rng())};
  }
  auto line = std::make_unique<CellLine>();
  line->v = v;
  line->offset = range.smallest - uniform(rng);
  // Locations that are all NaN have no range.
  const auto n_signs = static_cast<std::size_t>(std::max(cells, -1) + 2);
  line->last_cell = static_cast<double>(n_signs - 1);
  line->signs.assign(n_signs / 64 + 2, 0);
  for (std::size_t bit = 0; bit < n_signs; ++bit) {
    if (coin(rng)) {
      line->signs[bit / 64] |= std::uint64_t{1} << (bit % 64);
    }
  }
  return {std::move(line), 0};
}

CellLineOrNoise spherical_line_simulator(const PointColumns& locs, const Vector3& v,
                                         std::int64_t seed, InterruptPoller& poll) {
  RandomEngine rng = seeded_engine(seed);
  return cell_line(
      locs, v, rng, [](RandomEngine& engine) { return uniform(engine) < 0.5; }, poll);
}

// The line's own scale makes the exponential of many sawtooths; a third of the lines have none.
CellLineOrNoise exponential_line_simulator(const PointColumns& locs, const Vector3& v,
                                           std::int64_t seed, InterruptPoller& poll) {
  constexpr double third = 0.3333333333333333;
  RandomEngine rng = seeded_engine(seed);
  const double w = 3.0 * uniform(rng);
  double scale = 1.0;
  if (w < 1.0) {
    scale = sampler::Gamma(3.0, third)(rng, poll);
  } else if (w < 2.0) {
    scale = sampler::Gamma(2.0, third)(rng, poll);
  }
  // A sign changes with probability 1/6 only, unlike the spherical line's: deliberate.
  return cell_line(
      locs, v / scale, rng, [](RandomEngine& engine) { return 3.0 * uniform(engine) < 0.5; }, poll);
}

// Collects the lines of a field and the white noises among them.
class FieldBuilder {
 public:
  explicit FieldBuilder(double amplitude) : amplitude_(amplitude) {}

  void add(GaussianLine line) { gaussian_.push_back(std::move(line)); }
  void add(CellLineOrNoise made) {
    if (made.line) {
      cells_.push_back(std::move(*made.line));
    } else {
      add_noise(made.noise_seed);
    }
  }
  void add_noise(std::int64_t seed) { parts_.push_back(create_nugget_simulator(amplitude_, seed)); }

  SpatialFunction field() {
    if (!gaussian_.empty()) {
      add_lines(std::move(gaussian_), amplitude_ * std::numbers::sqrt2);
    }
    if (!cells_.empty()) {
      // Gives the sawtooth unit variance.
      add_lines(std::move(cells_), amplitude_ * (2.0 * std::numbers::sqrt3));
    }
    return parts_.size() == 1 ? parts_.front() : create_simulator(std::move(parts_));
  }

 private:
  template <class Line>
  void add_lines(std::vector<Line> lines, double scale) {
    parts_.emplace_back(std::make_shared<LinesField<Line>>(std::move(lines), scale));
  }

  double amplitude_;
  std::vector<GaussianLine> gaussian_;
  std::vector<CellLine> cells_;
  std::vector<SpatialFunction> parts_;
};

}  // namespace

SpatialFunction create_tbsim_simulator(const Locations& locs, const Covariance& cov,
                                       std::int64_t seed, int n) {
  require_covered(locs);
  require_positive_count("n", n);
  require_memory(std::to_string(n) + " lines",
                 n * static_cast<double>(sizeof(Vector3) + sizeof(CellLine)));
  RandomEngine rng = seeded_engine(seed);
  const Locations directions =
      generate_random_semisphere(n, static_cast<std::int64_t>(rng() % 99999999U));
  const PointColumns columns(locs);
  FieldBuilder builder(std::sqrt(cov.sill / n));
  InterruptPoller poll;
  for (const Vector3& direction : directions) {
    poll();
    const auto line_seed = static_cast<std::int64_t>(rng());
    const Vector3 v = along_line(cov.ellipsoid, direction);
    switch (cov.type) {
      case Covariance::Type::gaussian:
        builder.add(gaussian_line_simulator(v, line_seed));
        break;
      case Covariance::Type::exponential:
        builder.add(exponential_line_simulator(columns, v, line_seed, poll));
        break;
      case Covariance::Type::spherical:
        builder.add(spherical_line_simulator(columns, v, line_seed, poll));
        break;
      case Covariance::Type::nugget:
      case Covariance::Type::idw:
        builder.add_noise(line_seed);
        break;
    }
  }
  return builder.field();
}

SpatialFunction create_tbsim_simulator(const Locations& locs, const CovarianceModel& covs,
                                       std::int64_t seed, int n) {
  require_covered(locs);
  RandomEngine rng = seeded_engine(seed);
  std::vector<SpatialFunction> parts;
  for (const Covariance& cov : covs) {
    const auto structure_seed = static_cast<std::int64_t>(rng());
    parts.push_back(cov.type == Covariance::Type::nugget
                        ? create_nugget_simulator(std::sqrt(cov.sill), structure_seed)
                        : create_tbsim_simulator(locs, cov, structure_seed, n));
  }
  return create_simulator(std::move(parts));
}

}  // namespace talvorix
