#include "covariance/covariance.h"

#include "covariance/generic_covariance.h"
#include "covariance/kernel_table.h"
#include "covariance/mapped_model.h"

#include <ceres/jet.h>
#include <gtest/gtest.h>
#include <Eigen/Dense>

#include <array>
#include <atomic>
#include <numbers>
#include <numeric>
#include <random>
#include <set>
#include <thread>

namespace talvorix {
namespace {

const double infinity = std::numeric_limits<double>::infinity();
const double not_a_number = std::nan("");

constexpr std::array all_types{Covariance::Type::spherical, Covariance::Type::gaussian,
                               Covariance::Type::exponential, Covariance::Type::nugget,
                               Covariance::Type::idw};

// The tables of kernels are the process's, and ctest runs each test in a process of its own. Even
// so, no two of these tests fill the table of the same type.

Covariance structure(Covariance::Type type, const Kernel& kernel) {
  return {type, 1.0, Ellipsoid(), kernel};
}

Kernel wave(double frequency) {
  return Kernel([frequency](double h) { return std::cos(frequency * h); });
}

// A kernel made for n reads a table that was filled with size entries.
void expect_entries(const Kernel& tabulated, int n, const Kernel& filled_with, int size) {
  for (double h = 0.0; n * h < n; h += 0.25 / n) {
    EXPECT_EQ(tabulated(h), filled_with(std::floor(n * h) / size)) << "n = " << n << ", h = " << h;
    EXPECT_EQ(tabulated(-h), tabulated(h)) << "n = " << n << ", h = " << h;
  }
  EXPECT_EQ(tabulated(std::nextafter(1.0, 0.0)), filled_with((n - 1.0) / size));
}

TEST(KernelTable, NearestLowerEntryOfATableThatGrowsForAll) {
  const Covariance spherical = structure(Covariance::Type::spherical, Kernel::spherical());
  EXPECT_EQ(get_kernel(spherical, 0)(0.0), 0.0) << "no table, and nothing beyond it";
  const Kernel eight = get_kernel(spherical, 8);
  expect_entries(eight, 8, Kernel::spherical(), 8);
  for (const double h : {1.0, -2.0, 1e300, infinity, -infinity, not_a_number}) {
    EXPECT_EQ(eight(h), 0.0) << "h = " << h;
  }
  // Larger tables serve also the kernels made before; smaller requests change nothing.
  expect_entries(get_kernel(spherical, 80), 80, Kernel::spherical(), 80);
  expect_entries(get_kernel(spherical, 3), 3, Kernel::spherical(), 80);
  expect_entries(eight, 8, Kernel::spherical(), 80);
}

TEST(KernelTable, FilledByTheFirstCallerAndReplacedOnlyForMore) {
  const auto type = Covariance::Type::gaussian;
  EXPECT_EQ(get_kernel(structure(type, wave(1.0)), 0)(0.25), gaussian_kernel(0.25));
  const Kernel ten = get_kernel(structure(type, wave(1.0)), 10);
  expect_entries(get_kernel(structure(type, Kernel::gaussian()), 10), 10, wave(1.0), 10);
  expect_entries(get_kernel(structure(type, wave(3.0)), 4), 4, wave(1.0), 10);
  expect_entries(get_kernel(structure(type, wave(3.0)), 25), 25, wave(3.0), 25);
  expect_entries(ten, 10, wave(3.0), 25);
  // Beyond the table stands the type's own function, whatever filled it.
  for (const double h : {1.0, 1.25, -3.0, infinity}) {
    EXPECT_EQ(ten(h), gaussian_kernel(h));
  }
  EXPECT_TRUE(std::isnan(ten(not_a_number)));
  for (const auto other : {Covariance::Type::nugget, Covariance::Type::idw}) {
    EXPECT_EQ(get_kernel(structure(other, wave(2.0)), 10)(0.33), std::cos(0.66)) << "own kernel";
  }
}

TEST(KernelTable, GrowsWhileOthersRead) {
  const Covariance cov = structure(Covariance::Type::exponential, Kernel::exponential());
  const Kernel kernel = get_kernel(cov, 16);
  std::set<double> possible;
  for (int size = 16; size <= 2000; ++size) {
    possible.insert(exponential_kernel(11.0 / size));
  }
  std::atomic<bool> done{false};
  std::atomic<int> reading{0};
  std::atomic<int> strange{0};
  std::vector<std::thread> readers;
  for (int t = 0; t < 3; ++t) {
    readers.emplace_back([&] {
      for (++reading; !done;) {
        strange += possible.contains(kernel(0.7)) ? 0 : 1;
        strange += possible.contains(get_kernel(cov, 16)(-0.7)) ? 0 : 1;
      }
    });
  }
  while (reading < 3) {
    std::this_thread::yield();
  }
  for (int size = 17; size <= 2000; ++size) {
    EXPECT_EQ(get_kernel(cov, size)(0.7), exponential_kernel(std::floor(size * 0.7) / size));
  }
  done = true;
  for (std::thread& reader : readers) {
    reader.join();
  }
  EXPECT_EQ(strange, 0);
}

// Sill, three ranges, and the three angles in radians as the rotation matrices take them.
using Parameters = std::array<double, 7>;
using Jet = ceres::Jet<double, 7>;

double degrees(double radians) { return radians / std::numbers::pi * 180.0; }

// The model by its other implementation, whose angles are azimuth, dip and rake in degrees.
double plain(Covariance::Type type, const Parameters& p, const Vector3& lag) {
  const Ellipsoid ellipsoid(p[1], p[2], p[3], 90.0 - degrees(p[4]), -degrees(p[5]), degrees(p[6]));
  return Covariance::of_type(type, p[0], ellipsoid)(lag);
}

double generic(Covariance::Type type, const Parameters& p, const Vector3& lag) {
  return create_cov<double>(type, p[0], p[1], p[2], p[3], p[4], p[5], p[6])(lag);
}

generic_cov_structure<Jet> jets(Covariance::Type type, const Parameters& p) {
  return {type,         Jet(p[0], 0), Jet(p[1], 1), Jet(p[2], 2),
          Jet(p[3], 3), Jet(p[4], 4), Jet(p[5], 5), Jet(p[6], 6)};
}

Jet jet(Covariance::Type type, const Parameters& p, const Vector3& lag) {
  return GenericCovariance<Jet>(jets(type, p))(lag.cast<Jet>());
}

TEST(GenericCovariance, ValuesAndDerivativesAreTheModels) {
  std::mt19937 rng(3);
  const auto between = [&](double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(rng);
  };
  for (const Covariance::Type type : all_types) {
    for (int i = 0; i < 60; ++i) {
      const Parameters p{0.5 + i,          between(5, 40),       between(5, 40), between(5, 40),
                         between(-3, 4.7), between(-1.57, 1.57), between(-3, 3)};
      const Vector3 lag(between(-15, 15), between(-15, 15), between(-15, 15));
      const double expected = plain(type, p, lag);
      const Jet value = jet(type, p, lag);
      EXPECT_NEAR(generic(type, p, lag), expected, 1e-12 * std::abs(expected)) << to_text(type);
      EXPECT_NEAR(value.a, expected, 1e-12 * std::abs(expected)) << to_text(type);
      for (std::size_t k = 0; k < 7; ++k) {
        const double step = 1e-5 * std::max(1.0, std::abs(p[k]));
        Parameters above = p;
        Parameters below = p;
        above[k] += step;
        below[k] -= step;
        const double slope = (plain(type, above, lag) - plain(type, below, lag)) / (2.0 * step);
        EXPECT_NEAR(value.v[static_cast<int>(k)], slope, 1e-6 * (std::abs(slope) + expected))
            << to_text(type) << ", parameter " << k;
      }
    }
  }
}

TEST(GenericCovariance, TinyAndNegativeRangesReadAsOne) {
  const Vector3 lag(0.1, 0.2, 0.3);
  const auto type = Covariance::Type::exponential;
  for (const double range : {0.0, 1e-30, -1e-30, -7.0}) {
    const Parameters p{2.0, range, 4.0, range, 0.3, 0.2, 0.1};
    EXPECT_DOUBLE_EQ(generic(type, p, lag), plain(type, {2.0, 1.0, 4.0, 1.0, 0.3, 0.2, 0.1}, lag));
    const Jet value = jet(type, p, lag);
    EXPECT_TRUE(value.v[1] == 0.0 && value.v[2] != 0.0 && value.v[3] == 0.0) << value;
  }
  EXPECT_EQ(generic(type, {2.0, 2e-30, 4.0, 4.0, 0.0, 0.0, 0.0}, lag), 0.0);
}

TEST(GenericCovariance, NuggetsHaveThreeThresholdsAndConstantsNoSlope) {
  EXPECT_EQ(Kernel::nugget()(0.99e-8) - Kernel::nugget()(1e-8), 1.0);
  for (const int number : {4, 0, 6, -1}) {
    // A number that stands for no type counts as the nugget's.
    const auto type = static_cast<Covariance::Type>(number);
    const auto fine = create_cov_kernel<double>(type);
    EXPECT_EQ(fine(0.99e-30) - fine(1e-30), 1.0);
    EXPECT_EQ(plain_kernel(type).form(), Kernel::Form::nugget);
    EXPECT_EQ(to_text(type), "nugget");
  }
  // That of a nested model is on the lag itself: no range stretches it. The slopes add up.
  for (const double range : {1e-3, 1e3}) {
    const auto nugget = jets(Covariance::Type::nugget, {2.0, range, range, range, 0.0, 0.0, 0.0});
    const auto nested = create_nested_cov<Jet>({nugget, nugget}, Jet(5.0, 6));
    const auto value = [&](double x) { return nested(Vector3(0.0, x, 0.0).cast<Jet>()); };
    EXPECT_EQ(value(0.0).a, 9.0);
    EXPECT_EQ(value(0.99e-10).a, 5.0);
    EXPECT_EQ(value(1.01e-10).a, 0.0);
    EXPECT_EQ(value(0.0).v, (Jet(0.0, 0).v * 2.0 + Jet(0.0, 6).v));
    EXPECT_EQ(value(1.01e-10).v, Jet(0.0).v);
  }
  // Of the parameters only the sill matters where a kernel is flat.
  const Parameters p{3.0, 10.0, 5.0, 2.0, 0.3, 0.2, 0.1};
  EXPECT_EQ(jet(Covariance::Type::spherical, p, {20.0, 0.0, 0.0}).v, Jet(0.0).v);
  EXPECT_EQ(jet(Covariance::Type::nugget, p, Vector3::Zero()).v, Jet(0.0, 0).v);
  EXPECT_EQ(jet(Covariance::Type::idw, p, {1e-7, 0.0, 0.0}).v, 1e6 * Jet(0.0, 0).v);
}

TEST(CovarianceTypes, AreReadFromTheirExactNames) {
  for (const Covariance::Type type : all_types) {
    EXPECT_EQ(parse_covariance_type(to_text(type)), type);
  }
  for (const char* text : {"Spherical", "", "IDW", " gaussian", "exponential ", "exp"}) {
    EXPECT_EQ(parse_covariance_type(text), Covariance::Type::nugget) << '"' << text << '"';
  }
}

// Holds the covariances of the last n points, and theirs with a location, against the model itself.
// Returns whether points may coincide.
bool expect_covariances(const CovarianceComputer& computer, const Locations& points, std::size_t n,
                        double tolerance, GatheredPoints& gathered) {
  std::vector<std::size_t> chosen(n);
  std::iota(chosen.begin(), chosen.end(), points.size() - n);
  const auto expect_covariance = [&](double value, const Vector3& lag) {
    const double expected = computer(lag);
    if (!(std::abs(value - expected) <= tolerance * std::max(1.0, expected)) &&
        !(std::isnan(value) && std::isnan(expected)) && value != expected) {
      ADD_FAILURE() << value << " instead of " << expected << " at " << lag.transpose() << ", "
                    << n;
    }
  };
  gathered.gather(chosen);
  std::size_t columns = 0;
  const auto store = [&](std::size_t j, const double* column) {
    EXPECT_EQ(j, columns++);
    for (std::size_t i = j + 1; i < n; ++i) {
      expect_covariance(column[i - j - 1], points[chosen[i]] - points[chosen[j]]);
    }
  };
  const bool may_coincide = gathered.pair_covariances(store, [] {});
  EXPECT_EQ(columns, n);
  const Vector3 location = points[chosen[n / 2]];
  const double* with_location = gathered.covariances_with(location);
  for (std::size_t i = 0; i < n; ++i) {
    expect_covariance(with_location[i], points[chosen[i]] - location);
  }
  return may_coincide;
}

TEST(MappedModel, AgreesWithTheModelForAllKernelsAndSpaces) {
  const Matrix3 wide = Ellipsoid(30.0, 20.0, 10.0, 40.0, 20.0, 10.0).matrix();
  const Matrix3 narrow = Ellipsoid(9.0, 7.0, 5.0, -70.0, 50.0, 130.0).matrix();
  const Matrix3 unit = Matrix3::Identity();
  const std::vector<std::vector<CovarianceComputer::Structure>> models{
      {{wide, 1.0, Kernel::spherical()}},
      {{unit, 0.3, Kernel::nugget()}},
      {{narrow, 2.0, Kernel::idw()}, {wide, 1.0, wave(2.0)}},
      {{unit, 0.1, Kernel::nugget()},
       {wide, 0.4, Kernel::spherical()},
       {narrow, 0.3, Kernel::gaussian()},
       {wide, 0.7, Kernel::exponential()},
       {unit, 0.2, wave(0.1)},
       {narrow, 0.05, Kernel::nugget()},
       {narrow, 0.6, Kernel::spherical()}}};
  std::mt19937 rng(17);
  std::uniform_real_distribution<double> coordinate(-15.0, 15.0);
  for (const auto& structures : models) {
    const CovarianceComputer computer(structures);
    // Near the origin; far away; and far from the first point, from which mapped coordinates are
    // measured: there they are rounded as numbers of that size.
    for (const int site : {0, 1, 2}) {
      Locations points(640);
      for (Vector3& point : points) {
        point = Vector3(coordinate(rng), coordinate(rng), coordinate(rng));
        if (site > 0) point += Vector3(1e6, -2e6, 5e5);
      }
      if (site == 2) points.front().setZero();
      points[633] = points[625];
      const MappedModel model(computer, points, 2);
      EXPECT_DOUBLE_EQ(model.sill(), computer(Vector3::Zero()));
      GatheredPoints gathered(model);
      for (const std::size_t n : {600, 1, 8, 2, 9, 7, 639, 33, 15}) {
        // Twins are among the points only when 625 is one of them.
        EXPECT_EQ(expect_covariances(computer, points, n, site == 2 ? 1e-8 : 1e-12, gathered),
                  n >= 15)
            << n << " points";
      }
    }
  }
}

TEST(MappedModel, NuggetsReachAsFarAsTheirOwnSpaceSays) {
  // Beside structures that stretch lags, so that points which a nugget holds to be one are far
  // apart there, or the reverse.
  const Matrix3 stretched = Ellipsoid(1e3, 1.0, 1e-3, 30.0, 40.0, 50.0).matrix();
  for (const Matrix3& space : {stretched, Matrix3(stretched.inverse())}) {
    for (const double range : {1.0, 1e-3, 1e4}) {
      const CovarianceComputer computer({{Matrix3::Identity() / range, 5.0, Kernel::nugget()},
                                         {space, 1.0, Kernel::exponential()},
                                         {stretched, 1.0, Kernel::spherical()}});
      int inside = 0;
      for (const int axis : {0, 1, 2}) {
        for (const double reach : {0.99e-8, 1.01e-8}) {
          const Vector3 along = space.row(axis).normalized().transpose();
          const Locations points{Vector3::Zero(), along * (reach * range)};
          inside += computer(points[1]) > 4.9 ? 1 : 0;
          const MappedModel model(computer, points, 1);
          GatheredPoints gathered(model);
          EXPECT_FALSE(expect_covariances(computer, points, 2, 1e-10, gathered));
        }
      }
      EXPECT_EQ(inside, 3) << "of the six lags, with a range of " << range;
    }
  }
  // Sills that are not 0 even times 0, and spaces in which different places are one.
  const Matrix3 flat = Vector3(1.0, 0.0, 1.0).asDiagonal();
  const Locations points{{0.0, 0.0, 0.0}, {0.0, 2.0, 0.0}, {1.0, 0.0, 3.0}};
  for (const auto& [space, sill] : {std::pair{Matrix3(Matrix3::Identity()), infinity},
                                    {Matrix3(Matrix3::Identity()), not_a_number},
                                    {Matrix3(Matrix3::Zero()), 2.0},
                                    {flat, 2.0}}) {
    const CovarianceComputer computer(
        {{space, sill, Kernel::nugget()}, {stretched, 1.0, Kernel::spherical()}});
    const MappedModel model(computer, points, 1);
    GatheredPoints gathered(model);
    expect_covariances(computer, points, 3, 1e-12, gathered);
  }
}

TEST(Kernel, ItsExponentialIsExactToTheLastBits) {
  std::vector<double> lags;
  for (int i = 0; i < 80000; ++i) {
    lags.push_back(236.0 * (1.0 - i / 80000.0));
    lags.push_back(std::exp2(-0.001 * i));
    // Where the argument's rounding to multiples of ln 2 turns over.
    lags.push_back(std::nextafter((i % 1021 + 0.5) * std::log(2.0) / 3.0, i % 2 * 300.0));
  }
  std::vector<double> sums(lags.size(), 0.0);
  Kernel::gaussian().accumulate(lags.data(), lags.size(), 1.0, sums.data());
  double worst = 0.0;
  for (std::size_t i = 0; i < lags.size(); ++i) {
    const double expected = std::exp(-3.0 * lags[i]);
    worst = std::max(worst, std::abs(sums[i] - expected) / expected);
  }
  EXPECT_LT(worst, 5e-16);
  const std::vector<double> edges{0.0, 5e-324, 236.1, 1e300, infinity, not_a_number, 0.0, 0.0};
  std::vector<double> added(8, 0.0);
  Kernel::gaussian().accumulate(edges.data(), 6, 2.0, added.data());
  EXPECT_EQ(std::vector<double>(added.begin(), added.begin() + 5),
            (std::vector<double>{2.0, 2.0, 0.0, 0.0, 0.0}));
  EXPECT_TRUE(std::isnan(added[5]));
}

}  // namespace
}  // namespace talvorix
