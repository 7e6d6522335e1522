#pragma once

#include "core/interrupt.h"
#include "core/random.h"
#include "distributions/samplers.h"

#include <cstdint>
#include <memory>
#include <span>
#include <utility>
#include <variant>
#include <vector>

namespace talvorix {

// A source of random numbers: the handle of a record of parameters that all its copies share. Never
// empty. The gaussian's record changes as it draws, so a worker draws from a copy of its own.
class Distribution {
 public:
  using AnySampler =
      std::variant<sampler::Gaussian, sampler::Uniform, sampler::Lognormal, sampler::Gamma,
                   sampler::Exponential, sampler::Weibull, sampler::ExtremeValue, sampler::Cauchy,
                   sampler::FisherF, sampler::StudentT, sampler::Data>;

  template <class Sampler>
  explicit Distribution(Sampler sampler)
      : sampler_(std::make_shared<AnySampler>(std::move(sampler))) {}

  // A copied handle is a shared one; there is no move that would leave an empty one behind.
  Distribution(const Distribution&) = default;
  Distribution& operator=(const Distribution&) = default;
  ~Distribution() = default;

  // The record as it is at present.
  const AnySampler& sampler() const { return *sampler_; }

  // One draw. Polls only where a rejection may go on for ever.
  double draw(RandomEngine& rng, PollRef poll) const;

  // The same on the thread that entered the library; a worker draws with its own poll.
  double operator()(RandomEngine& rng) const;

  // Draws for every entry, in order.
  void fill(RandomEngine& rng, std::span<double> values, PollRef poll) const;

  // The same distribution with a state of its own and no value kept in it, for another thread.
  Distribution for_worker() const;

  // n draws of one engine, in order.
  std::vector<double> simulate(long long n, std::int64_t seed) const;

  // n draws of an engine for each thread, seeded by one that the seed seeds. Each thread draws a
  // contiguous block, so that the values depend on the number of threads.
  std::vector<double> simulate(long long n, std::int64_t seed, int n_threads) const;

  // n draws of one engine, ascending.
  std::vector<double> histogram(long long n, std::int64_t seed) const;

  // The histogram and the probabilities 0, 1/n, 2/n, ... by repeated addition.
  std::pair<std::vector<double>, std::vector<double>> cdf(long long n, std::int64_t seed) const;

 private:
  std::shared_ptr<AnySampler> sampler_;
};

Distribution gaussian_distribution(double mean = 0.0, double std_dev = 1.0);
Distribution uniform_distribution(double a, double b);
Distribution lognormal_distribution(double m, double s);
Distribution gamma_distribution(double alpha, double beta);
Distribution exponential_distribution(double lambda);
Distribution weibull_distribution(double a, double b);
Distribution extreme_value_distribution(double a, double b);
Distribution chi_squared_distribution(double k);
Distribution cauchy_distribution(double a, double b);
Distribution fisher_f_distribution(double m, double n);
Distribution student_t_distribution(double n);

// Throws std::invalid_argument for fewer than 2 data, and when data that are not ascending have
// weights of another number.
Distribution data_distribution(std::vector<double> data, std::vector<double> weight = {});

}  // namespace talvorix
