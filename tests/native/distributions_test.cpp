#include "core/guide_table.h"
#include "core/parallel.h"
#include "core/radix_sort.h"
#include "distributions/distribution_transform.h"
#include "distributions/ppmt.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <stdexcept>

namespace talvorix {
namespace {

using Values = std::vector<double>;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

// Any bits at all, with what is special among them.
Values any_values(std::size_t n) {
  Values values(n);
  RandomEngine rng(7);
  for (double& value : values) {
    value = std::bit_cast<double>((std::uint64_t{rng()} << 32) | rng());
  }
  const Values special{nan, -nan, infinity, -infinity, 0.0, -0.0, 5e-324, -5e-324, 1e308, -1e308};
  for (std::size_t i = 0; i < n && i < 3 * special.size(); ++i) {
    values[i * 5 % n] = special[i % special.size()];
  }
  return values;
}

struct NoPoll {
  void operator()() const {}
} no_poll;

TEST(RadixSort, OrdersNumbersAndPutsTheOthersLast) {
  const auto earlier = [](double a, double b) { return std::isnan(b) ? !std::isnan(a) : a < b; };
  for (const std::size_t n : {0, 1, 2, 3, 100, 5000, 200000}) {
    Values values = any_values(n);
    Values expected = values;
    std::sort(expected.begin(), expected.end(), earlier);
    sort_ascending(values, no_poll);
    for (std::size_t i = 0; i < n; ++i) {
      ASSERT_TRUE(values[i] == expected[i] || (std::isnan(values[i]) && std::isnan(expected[i])));
    }
  }
  // Digits that all values share are left out, an odd number of them as well.
  for (const double scale : {1.0, 256.0, 65536.0, 0x1p40}) {
    Values values;
    for (int i = 0; i < 256; ++i) {
      values.push_back(1.0 + (i * 77 % 256) * 0x1p-52 * scale);
    }
    sort_ascending(values, no_poll);
    EXPECT_TRUE(std::is_sorted(values.begin(), values.end()));
    EXPECT_EQ(std::unique(values.begin(), values.end()), values.end());
  }
  auto stop = [] { throw std::domain_error("enough"); };
  Values values(10);
  EXPECT_THROW(sort_ascending(values, stop), std::domain_error);
}

TEST(LowerBound, AllWaysFindTheSame) {
  for (const std::size_t n : {1, 2, 3, 15, 16, 17, 1000}) {
    RandomEngine rng(11);
    Values values(n);
    for (double& value : values) {
      value = std::floor(uniform(rng) * 64.0) / 60.0;  // many ties, some above 1
    }
    std::sort(values.begin(), values.end());
    const GuideTable guide(values);
    for (int round = 0; round < 200; ++round) {
      std::array<double, 8> queries{values[n / 2], nan, infinity, -1.0};
      std::generate(queries.begin() + 4, queries.end(), [&] { return uniform(rng); });
      queries[7] = std::floor(queries[7] * 60.0) / 60.0;
      const auto found = lower_bounds<8>(values, queries.data());
      for (std::size_t q = 0; q < queries.size(); ++q) {
        const auto at = std::lower_bound(values.begin(), values.end(), queries[q]);
        ASSERT_EQ(found[q], static_cast<std::size_t>(at - values.begin()));
        ASSERT_EQ(lower_bound(values, queries[q]), found[q]);
        if (queries[q] >= 0.0 && queries[q] < 1.0) {
          ASSERT_EQ(guide.lower_bound(values, queries[q]), found[q]) << queries[q] << " of " << n;
        }
      }
    }
  }
  const double below_one = std::nextafter(1.0, 0.0);
  for (const Values& odd : {Values{}, Values{nan, nan}, Values{0.5, -1.0, 2.0}, Values{infinity}}) {
    EXPECT_LE(GuideTable(odd).lower_bound(odd, below_one), odd.size());
  }
}

TEST(Distribution, WorkersDrawFromEnginesAndRecordsOfTheirOwn) {
  const Values data{3.0, 1.0, 2.0};
  for (const Distribution& dist :
       {gaussian_distribution(1.0, 2.0), gamma_distribution(0.5, 1.0), data_distribution(data)}) {
    RandomEngine before(3);
    const double first = dist(before);  // a gaussian keeps its second value now
    const int n_threads = check_n_threads(4);
    for (const std::size_t n : {1, 3, 20001}) {
      RandomEngine main_rng = seeded_engine(-9);
      Values expected;
      for (int w = 0; w < n_threads; ++w) {
        RandomEngine rng(static_cast<std::uint32_t>(main_rng()));
        const Distribution fresh = dist.for_worker();
        const auto [begin, end] = static_block(n, n_threads, w);
        for (std::size_t i = begin; i < end; ++i) {
          expected.push_back(fresh(rng));
        }
      }
      EXPECT_EQ(dist.simulate(static_cast<long long>(n), -9, 4), expected);
    }
    RandomEngine again(3);
    const Distribution other = dist.for_worker();
    EXPECT_EQ(other(again), first);
    EXPECT_EQ(other(again), dist(before));
  }
}

struct Interrupted {};

TEST(Distribution, ADrawThatNeverEndsCanBeStoppedOnEveryThread) {
  const Distribution endless = gamma_distribution(nan, 1.0);
  RandomEngine rng(1);
  set_interrupt_check([] { throw Interrupted{}; });
  EXPECT_THROW(endless(rng), Interrupted);
  EXPECT_THROW(endless.simulate(6, 1, 3), Interrupted);
  EXPECT_THROW(fisher_f_distribution(-1.0, -1.0).simulate(1, 1), Interrupted);
  set_interrupt_check(nullptr);
}

TEST(CDF, ListsAreReadAsSingleValuesAre) {
  const CDF cdf(gaussian_distribution(), 5000, 1);
  const DistributionTransform transform(exponential_distribution(1.0), gaussian_distribution(), 99,
                                        2);
  for (const std::size_t n : {0, 1, 17, 4099}) {
    const Values queries = cauchy_distribution(0.0, 1.0).simulate(static_cast<long long>(n), 5);
    for (const int n_threads : {1, 4}) {
      const Values probs = cdf.probs(queries, n_threads);
      const Values values = cdf.values(queries, n_threads);
      const Values forward = transform.forward(queries, n_threads);
      const Values backward = transform.backward(queries, n_threads);
      ASSERT_EQ(probs.size() + values.size() + forward.size() + backward.size(), 4 * n);
      for (std::size_t i = 0; i < n; ++i) {
        ASSERT_EQ(probs[i], cdf.prob(queries[i]));
        ASSERT_EQ(values[i], cdf.value(queries[i]));
        ASSERT_EQ(forward[i], transform.forward(queries[i]));
        ASSERT_EQ(backward[i], transform.backward(queries[i]));
      }
    }
  }
}

TEST(PPMT, DoesNotDependOnTheThreads) {
  RandomEngine rng(3);
  StandardNormal normal;
  Eigen::MatrixXd data(400, 3);
  for (Eigen::Index i = 0; i < data.rows(); ++i) {
    const double x = normal(rng);
    data.row(i) << std::exp(x), x * x + 0.3 * normal(rng), x + normal(rng);
  }
  PpmtSettings settings;
  settings.n_steps = 2;
  settings.n_bins = 60;
  settings.iso_params.n_iterations = 5;
  settings.iso_params.kernel_backward = Covariance::Type::exponential;
  testing::internal::CaptureStdout();
  settings.n_threads = 1;
  const PPMT alone(data, settings);
  settings.n_threads = 2;
  const PPMT together(data, settings);
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(alone.forward(data, 1), together.forward(data, 2));
  EXPECT_EQ(alone.backward(data, 2), together.backward(data, 1));
}

}  // namespace
}  // namespace talvorix
