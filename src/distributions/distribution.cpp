#include "distributions/distribution.h"

#include "core/arguments.h"
#include "core/parallel.h"
#include "core/radix_sort.h"

#include <algorithm>
#include <cstddef>

namespace talvorix {

double Distribution::draw(RandomEngine& rng, PollRef poll) const {
  return std::visit([&](auto& sampler) { return sampler(rng, poll); }, *sampler_);
}

double Distribution::operator()(RandomEngine& rng) const {
  InterruptPoller poll;
  return draw(rng, poll);
}

void Distribution::fill(RandomEngine& rng, std::span<double> values, PollRef poll) const {
  constexpr std::size_t between_polls = 256;
  const auto fill_with = [&](auto& sampler) {
    while (!values.empty()) {
      poll();
      const auto some = values.first(std::min(values.size(), between_polls));
      for (double& value : some) {
        value = sampler(rng, poll);
      }
      values = values.subspan(some.size());
    }
  };
  std::visit(fill_with, *sampler_);
}

Distribution Distribution::for_worker() const {
  if (const auto* gaussian = std::get_if<sampler::Gaussian>(sampler_.get())) {
    return gaussian_distribution(gaussian->mean, gaussian->std_dev);
  }
  return *this;  // the records of the others never change
}

std::vector<double> Distribution::simulate(long long n, std::int64_t seed) const {
  std::vector<double> values(require_count("n", n));
  RandomEngine rng = seeded_engine(seed);
  InterruptPoller poll;
  fill(rng, values, poll);
  return values;
}

std::vector<double> Distribution::simulate(long long n, std::int64_t seed, int n_threads) const {
  std::vector<double> values(require_count("N", n));
  RandomEngine main_rng = seeded_engine(seed);
  const int n_workers = check_n_threads(n_threads);
  std::vector<std::uint32_t> seeds(static_cast<std::size_t>(n_workers));
  for (std::uint32_t& worker_seed : seeds) {
    worker_seed = static_cast<std::uint32_t>(main_rng());
  }
  parallel_blocks(values.size(), n_workers,
                  [&](Worker& worker, std::size_t begin, std::size_t end) {
                    RandomEngine rng(seeds[static_cast<std::size_t>(worker.index())]);
                    for_worker().fill(rng, std::span(values).subspan(begin, end - begin), worker);
                  });
  return values;
}

std::vector<double> Distribution::histogram(long long n, std::int64_t seed) const {
  std::vector<double> values = simulate(n, seed);
  InterruptPoller poll;
  sort_ascending(values, poll);
  return values;
}

std::pair<std::vector<double>, std::vector<double>> Distribution::cdf(long long n,
                                                                      std::int64_t seed) const {
  std::vector<double> values = histogram(n, seed);
  std::vector<double> probs(values.size());
  const double step = 1.0 / static_cast<double>(n);
  InterruptPoller poll;
  double prob = 0.0;
  for (double& entry : probs) {
    poll();
    entry = prob;
    prob += step;
  }
  return {std::move(values), std::move(probs)};
}

Distribution gaussian_distribution(double mean, double std_dev) {
  return Distribution(sampler::Gaussian{mean, std_dev, {}});
}
Distribution uniform_distribution(double a, double b) {
  return Distribution(sampler::Uniform{a, b});
}
Distribution lognormal_distribution(double m, double s) {
  return Distribution(sampler::Lognormal{m, s});
}
Distribution gamma_distribution(double alpha, double beta) {
  return Distribution(sampler::Gamma(alpha, beta));
}
Distribution exponential_distribution(double lambda) {
  return Distribution(sampler::Exponential{lambda});
}
Distribution weibull_distribution(double a, double b) {
  return Distribution(sampler::Weibull{a, b});
}
Distribution extreme_value_distribution(double a, double b) {
  return Distribution(sampler::ExtremeValue{a, b});
}
Distribution chi_squared_distribution(double k) {
  return Distribution(sampler::Gamma(k / 2.0, 2.0));
}
Distribution cauchy_distribution(double a, double b) { return Distribution(sampler::Cauchy{a, b}); }
Distribution fisher_f_distribution(double m, double n) {
  return Distribution(sampler::FisherF(m, n));
}
Distribution student_t_distribution(double n) { return Distribution(sampler::StudentT{n}); }
Distribution data_distribution(std::vector<double> data, std::vector<double> weight) {
  return Distribution(sampler::Data(std::move(data), std::move(weight)));
}

}  // namespace talvorix
