#include "core/random.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <locale>
#include <sstream>
#include <stdexcept>
#include <string>

namespace talvorix {

RandomEngine seeded_engine(std::int64_t seed) {
  return RandomEngine(static_cast<std::uint32_t>(seed));
}

std::vector<std::uint32_t> engine_state(const RandomEngine& rng) {
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text << rng;
  std::istringstream numbers(text.str());
  numbers.imbue(std::locale::classic());
  return {std::istream_iterator<std::uint32_t>(numbers), std::istream_iterator<std::uint32_t>()};
}

RandomEngine engine_from_state(const std::vector<std::uint32_t>& state) {
  // The standard library would take any position for what it reads, and draw from beyond the words.
  constexpr std::size_t n_words = RandomEngine::state_size;
  if (state.size() != n_words + 1 || state.back() > n_words) {
    throw std::invalid_argument("an engine's state has " + std::to_string(n_words) +
                                " words and a position among them");
  }
  std::stringstream text;
  text.imbue(std::locale::classic());
  for (const std::uint32_t word : state) {
    text << word << ' ';
  }
  RandomEngine rng;
  text >> rng;
  return rng;
}

std::uint32_t below(RandomEngine& rng, std::uint32_t n) {
  if (n <= 1) {
    return 0;
  }
  constexpr std::uint32_t largest = std::numeric_limits<std::uint32_t>::max();
  for (;;) {
    const auto r = static_cast<std::uint32_t>(rng());
    if (r / n < largest / n || largest % n == n - 1) {
      return r % n;
    }
  }
}

double StandardNormal::operator()(RandomEngine& rng) {
  if (has_kept_) {
    has_kept_ = false;
    return kept_;
  }
  double u = 0.0;
  double v = 0.0;
  double s = 0.0;
  do {
    u = 2.0 * uniform(rng) - 1.0;
    v = 2.0 * uniform(rng) - 1.0;
    s = u * u + v * v;
  } while (s >= 1.0 || u == 0.0 || v == 0.0);
  double log_s = 0.0;
  if (s > 0.0001) {
    log_s = std::log(s);
  } else {
    // Near the centre the pair is scaled up before it is squared, and the logarithm repaired.
    constexpr double log_4 = 1.3862943611198906;
    const int exponent = std::ilogb(std::max(std::abs(u), std::abs(v)));
    u = std::ldexp(u, -exponent);
    v = std::ldexp(v, -exponent);
    s = u * u + v * v;
    log_s = std::log(s) + exponent * log_4;
  }
  const double f = std::sqrt(-2.0 * log_s / s);
  kept_ = f * v;
  has_kept_ = true;
  return f * u;
}

}  // namespace talvorix
