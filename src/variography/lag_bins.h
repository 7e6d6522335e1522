#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace talvorix {

// Lag distances in ascending order and the pairs that fall to each: a pair at distance r belongs to
// the first lag that is not below r. Rather than by a binary search, a lag is looked up in a fine
// regular table of distances and stepped to from there; nearly always it is the one found there.
class LagBins {
 public:
  struct alignas(16) Bin {
    double sum = 0.0;
    double count = 0.0;
  };

  // Takes the distances in any order and forgets all pairs. NaN sorts last.
  void reset(const std::vector<double>& distances);

  std::size_t size() const { return n_lags_; }
  double distance(std::size_t lag) const { return lags_[lag]; }

  // Tells where in the table of distances one of 0 or more stands; monotone.
  struct Ruler {
    double steps_per_unit = 0.0;

    double place(double r) const {
      const double steps = r * steps_per_unit;
      return steps < last_place ? steps : last_place;
    }
  };
  Ruler ruler() const { return ruler_; }
  // The place of a pair that belongs to no lag.
  static constexpr double nowhere = 2049.0;

  // Adds a pair. The lane, below n_lanes, should change from pair to pair, which keeps the
  // additions from waiting for each other.
  static constexpr std::size_t n_lanes = 4;
  void add(double place, double r, double g, std::size_t lane) {
    std::size_t lag = first_lag_[static_cast<std::size_t>(static_cast<std::int32_t>(place))];
    while (lags_[lag] < r) {
      ++lag;
    }
    Bin& bin = bins_[lag * n_lanes + lane];
    bin.sum += g;
    bin.count += 1.0;
  }

  // The pairs of a lag and of up to window_size lags on either side.
  Bin window(std::size_t lag, int window_size) const;

 private:
  static constexpr double last_place = 2048.0;

  std::size_t n_lags_ = 0;
  std::vector<double> lags_;  // and infinity behind the last
  Ruler ruler_;
  std::vector<std::uint32_t> first_lag_;  // that a pair at each place can belong to
  std::vector<Bin> bins_;                 // lanes of each lag, and of what is beyond the last
};

}  // namespace talvorix
