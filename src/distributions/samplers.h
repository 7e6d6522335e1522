#pragma once

#include "core/guide_table.h"
#include "core/interrupt.h"
#include "core/random.h"

#include <vector>

// The parameters of each distribution and how one value is drawn with them. The order and number of
// the uniforms are part of what a seed means. No parameter is checked: outside the mathematical
// domain the formulas give what they give, NaN or a rejection that never ends, which is why the
// loops that may not end poll.

namespace talvorix::sampler {

// mean + std_dev times a standard normal. The normals come in pairs, and the second one is kept
// here, in the record that all copies of the distribution share.
struct Gaussian {
  double mean;
  double std_dev;
  StandardNormal normal;

  double operator()(RandomEngine& rng, PollRef) { return normal(rng) * std_dev + mean; }
};

struct Uniform {
  double a;
  double b;

  double operator()(RandomEngine& rng, PollRef) const { return a + uniform(rng) * (b - a); }
};

// Deliberately throws the second normal of each pair away, unlike Gaussian.
struct Lognormal {
  double m;
  double s;

  double operator()(RandomEngine& rng, PollRef) const;
};

// Ahrens and Dieter (1974): rejection below a shape of 1; rejection under a Cauchy curve, the
// tangent of a uniform, from 20 on and for shapes that are no integers (also Knuth, The Art of
// Computer Programming, 3.4.1); otherwise the logarithm of a product of uniforms.
class Gamma {
 public:
  Gamma(double alpha, double beta);

  double alpha() const { return alpha_; }
  double beta() const { return beta_; }

  double operator()(RandomEngine& rng, PollRef poll) const { return standard(rng, poll) * beta_; }

 private:
  double standard(RandomEngine& rng, PollRef poll) const;
  double of_small_shape(RandomEngine& rng, PollRef poll) const;
  double by_tangent(RandomEngine& rng, PollRef poll) const;
  double of_integer_shape(RandomEngine& rng) const;

  double alpha_;
  double beta_;
  double share_below_;  // of the draws of a small shape that come from below 1
  double width_;        // of the tangent method's Cauchy curve
};

struct Exponential {
  double lambda;

  double operator()(RandomEngine& rng, PollRef) const;
};

struct Weibull {
  double a;
  double b;

  double operator()(RandomEngine& rng, PollRef) const;
};

struct ExtremeValue {
  double a;
  double b;

  double operator()(RandomEngine& rng, PollRef) const;
};

struct Cauchy {
  double a;
  double b;

  double operator()(RandomEngine& rng, PollRef) const;
};

// From a beta variate: a ratio of gammas, or the method of Johnk (1964) when both shapes are
// below 1.
class FisherF {
 public:
  FisherF(double m, double n) : a_(m / 2.0), b_(n / 2.0), gamma_a_(a_, 1.0), gamma_b_(b_, 1.0) {}

  double m() const { return 2.0 * a_; }
  double n() const { return 2.0 * b_; }

  double operator()(RandomEngine& rng, PollRef poll) const;

 private:
  double beta_variate(RandomEngine& rng, PollRef poll) const;

  double a_;
  double b_;
  Gamma gamma_a_;
  Gamma gamma_b_;
};

// Bailey's polar method (1994).
struct StudentT {
  double n;

  double operator()(RandomEngine& rng, PollRef poll) const;
};

// Random mixtures of neighbouring data.
class Data {
 public:
  // Throws std::invalid_argument when there are fewer than 2 data, or when data that must be sorted
  // have weights of another number. Weights beside sorted data may be of any number.
  Data(std::vector<double> data, std::vector<double> weight);
  // The sampler with these parts. Throws std::invalid_argument for fewer than 2 data.
  static Data from_parts(std::vector<double> data, std::vector<double> cumulative);

  const std::vector<double>& data() const { return data_; }
  const std::vector<double>& cumulative() const { return cumulative_; }

  double operator()(RandomEngine& rng, PollRef) const;

 private:
  Data() = default;

  std::vector<double> data_;
  std::vector<double> cumulative_;  // weight, normalised and summed up
  GuideTable guide_;
};

}  // namespace talvorix::sampler
