#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <random>
#include <utility>
#include <vector>

namespace talvorix {

// The engine of all randomness: 32-bit Mersenne Twister with its standard seeding. The samplers
// below are written out, so that results do not depend on a standard library's distributions.
using RandomEngine = std::mt19937;

// A seed of any sign, taken modulo 2^32.
RandomEngine seeded_engine(std::int64_t seed);

// Everything that an engine's draws depend on: its words, and how many of them are drawn. The way
// back throws std::invalid_argument for what is no state.
std::vector<std::uint32_t> engine_state(const RandomEngine& rng);
RandomEngine engine_from_state(const std::vector<std::uint32_t>& state);

// Uniform on [0, 1) from two raw outputs a, then b: (a + b 2^32) / 2^64.
inline double uniform(RandomEngine& rng) {
  const auto low = static_cast<double>(rng());
  const auto high = static_cast<double>(rng());
  // The sum can round up to 2^64; the interval stays open at 1.
  constexpr double below_one = 1.0 - std::numeric_limits<double>::epsilon() / 2.0;
  return std::min((low + high * 0x1p32) * 0x1p-64, below_one);
}

// Uniform integer below n by rejection; an n of 1 or less draws nothing and gives 0.
std::uint32_t below(RandomEngine& rng, std::uint32_t n);

// Forward Fisher-Yates: position j from 1 on trades places with one drawn from 0 to j.
template <class List>
void shuffle(List& list, RandomEngine& rng) {
  using std::swap;
  for (std::size_t j = 1; j < list.size(); ++j) {
    const std::size_t t = below(rng, static_cast<std::uint32_t>(j + 1));
    if (t != j) {
      swap(list[j], list[t]);
    }
  }
}

// Standard normal variates by the polar method (Marsaglia and Bray 1964). They come in pairs: the
// second one is kept for the next draw.
class StandardNormal {
 public:
  StandardNormal() = default;
  explicit StandardNormal(const std::optional<double>& kept)
      : has_kept_(kept.has_value()), kept_(kept.value_or(0.0)) {}

  double operator()(RandomEngine& rng);

  std::optional<double> kept() const { return has_kept_ ? std::optional(kept_) : std::nullopt; }

 private:
  bool has_kept_ = false;
  double kept_ = 0.0;
};

}  // namespace talvorix
