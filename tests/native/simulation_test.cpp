#include "core/interrupt.h"
#include "simulation/fft_array.h"
#include "simulation/masked_variogram.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numbers>
#include <random>
#include <stdexcept>

namespace talvorix::fft {
namespace {

std::vector<double> random_values(std::size_t n) {
  std::mt19937 rng(7);
  std::normal_distribution<double> normal;
  std::vector<double> values(n);
  std::generate(values.begin(), values.end(), [&] { return normal(rng); });
  return values;
}

// One coefficient of the transform, by its sum.
std::complex<double> coefficient(const array& values, std::int64_t u, std::int64_t v,
                                 std::int64_t w) {
  const auto& n = values.extents();
  std::complex<double> sum = 0.0;
  for (std::int64_t i = 0; i < n[0]; ++i) {
    for (std::int64_t j = 0; j < n[1]; ++j) {
      for (std::int64_t k = 0; k < n[2]; ++k) {
        const double turns = static_cast<double>(u * i) / n[0] + static_cast<double>(v * j) / n[1] +
                             static_cast<double>(w * k) / n[2];
        sum += values(i, j, k) * std::polar(1.0, -2.0 * std::numbers::pi * turns);
      }
    }
  }
  return sum;
}

TEST(FftArray, TransformsThereAndBack) {
  const auto values = random_values(4096);
  for (const Extents& n : {Extents{4, 6, 5}, Extents{3, 5, 8}, Extents{7, 1, 1}, Extents{1, 6, 1},
                           Extents{1, 1, 9}, Extents{1, 1, 1}, Extents{2, 1, 2}}) {
    array given(values.data(), n);
    complex_array spectrum;
    spectrum.forward(given);
    EXPECT_EQ(spectrum.extents(), (Extents{n[0], n[1], n[2] / 2 + 1}));
    EXPECT_EQ(spectrum.size(), n[0] * n[1] * (n[2] / 2 + 1));
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(spectrum.data()) % 64, 0U);
    for (std::int64_t u = 0; u < n[0]; ++u) {
      for (std::int64_t v = 0; v < n[1]; ++v) {
        for (std::int64_t w = 0; w < n[2] / 2 + 1; ++w) {
          EXPECT_NEAR(std::abs(spectrum(u, v, w) - coefficient(given, u, v, w)), 0.0, 1e-12);
        }
      }
    }
    array back(n, 0.0);
    back.backward(spectrum);
    for (std::int64_t i = 0; i < back.size(); ++i) {
      EXPECT_NEAR(back(i) / static_cast<double>(back.size()), given(i), 1e-13);
    }
  }
}

TEST(FftArray, TransformsBackByItsRank) {
  // A single wave of the first frequency along the last axis that the rank reads.
  for (const std::int64_t rank : {1, 2, 3}) {
    const Extents n = {rank == 1 ? 8 : 2, rank == 1 ? 1 : (rank == 2 ? 8 : 2), rank == 3 ? 8 : 1};
    complex_array spectrum(n[0] * n[1] * n[2]);
    spectrum(1) = 0.5;
    array wave(n, rank, 7.0);
    wave.backward(spectrum);
    for (std::int64_t i = 0; i < wave.size(); ++i) {
      EXPECT_NEAR(wave(i), std::cos(2.0 * std::numbers::pi * static_cast<double>(i) / 8.0), 1e-14);
    }
  }
  complex_array spectrum(100);
  for (const std::int64_t rank : {0, 4}) {
    array untouched({2, 2, 2}, rank, 7.0);
    untouched.backward(spectrum);
    EXPECT_TRUE(std::all_of(untouched.data(), untouched.data() + 8,
                            [](double value) { return value == 7.0; }));
  }
}

TEST(FftArray, WrapsNegativeIndicesAndRefusesImpossibleSizes) {
  const auto values = random_values(24);
  const array a(values.data(), {2, 3, 4});
  EXPECT_EQ(a(-1), values.back());
  EXPECT_EQ(a(-24), values.front());
  EXPECT_EQ(a(-1, -3, -2), a(1, 0, 2));
  complex_array c(5);
  c(2) = {3.0, 4.0};
  EXPECT_EQ(c(-3), std::complex<double>(3.0, 4.0));
  EXPECT_EQ(c(-3, 0, -1), c(2));
  EXPECT_EQ(complex_array().size(), 0);
  EXPECT_EQ(complex_array().data(), nullptr);
  EXPECT_THROW(array({2, 0, 2}, 0.0), std::invalid_argument);
  EXPECT_THROW(array(-3, 0.0), std::invalid_argument);
  EXPECT_THROW(array({1 << 30, 1 << 30, 1 << 30}, 0.0), std::bad_alloc);
  array large({4, 4, 4}, 0.0);
  EXPECT_THROW(large.backward(c), std::invalid_argument);
}

TEST(FftArray, LeavesALongTransformWhenTheUserWishesToStop) {
  const array values({256, 256, 256}, 2.0);
  complex_array spectrum(3);
  set_interrupt_check([] { throw std::runtime_error("stop"); });
  EXPECT_THROW(spectrum.forward(values), std::runtime_error);
  set_interrupt_check(nullptr);
  EXPECT_EQ(spectrum.size(), 3);
  spectrum.forward(values);
  EXPECT_NEAR(spectrum(0).real(), 2.0 * 256 * 256 * 256, 1e-3);
}

TEST(MaskedVariogram, IsThatOfAllPairs) {
  const auto random = random_values(60);
  array values(random.data(), {3, 4, 5});
  for (const std::int64_t missing : {0, 7, 8, 31, 59}) {
    values(missing) = missing % 2 == 0 ? std::numeric_limits<double>::infinity() : std::nan("");
  }
  const MaskedVariogram found = masked_variogram(values);
  EXPECT_EQ(found.npairs.extents(), (Extents{5, 7, 9}));
  EXPECT_NEAR(found.npairs(0), 55.0, 1e-9);
  for (std::int64_t a = -2; a <= 2; ++a) {
    for (std::int64_t b = -3; b <= 3; ++b) {
      for (std::int64_t c = -4; c <= 4; ++c) {
        double sum = 0.0;
        int n_pairs = 0;
        for (std::int64_t i = 0; i < 60; ++i) {
          const std::int64_t x = i / 20 + a;
          const std::int64_t y = i / 5 % 4 + b;
          const std::int64_t z = i % 5 + c;
          const bool inside = x >= 0 && x < 3 && y >= 0 && y < 4 && z >= 0 && z < 5;
          const double difference = inside ? values(x, y, z) - values(i) : std::nan("");
          if (std::isfinite(difference)) {
            sum += 0.5 * difference * difference;
            ++n_pairs;
          }
        }
        EXPECT_NEAR(found.npairs(a, b, c), n_pairs, 1e-9);
        EXPECT_NEAR(found.variogram(a, b, c), n_pairs > 0 ? sum / n_pairs : 0.0, 1e-9);
      }
    }
  }
  const MaskedVariogram nothing = masked_variogram(array({2, 3, 2}, std::nan("")));
  for (std::int64_t i = 0; i < nothing.npairs.size(); ++i) {
    EXPECT_EQ(nothing.variogram(i), 0.0);
    EXPECT_EQ(nothing.npairs(i), 0.0);
  }
}

}  // namespace
}  // namespace talvorix::fft
