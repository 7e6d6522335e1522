#include "covariance/model_generator.h"

#include "core/interrupt.h"
#include "core/random.h"

#include <algorithm>

namespace talvorix {

std::vector<CovarianceModel> generate_covariances(const Ellipsoid& ellipsoid, int n_kernels,
                                                  const Kernel& cov_kernel, int n_covs,
                                                  std::int64_t seed, double delta_angle,
                                                  double min_str_range, double max_str_range,
                                                  double min_sill, double max_sill) {
  RandomEngine rng = seeded_engine(seed);
  const auto between = [&](double low, double high) { return uniform(rng) * (high - low) + low; };
  const auto moved = [&](double angle) {
    return angle + (uniform(rng) * 2.0 * delta_angle - delta_angle);
  };
  const EllipsoidInfo base = ellipsoid.info();
  const double R = std::max({base.r1, base.r2, base.r3});
  const auto n_structures = static_cast<std::size_t>(std::max(n_kernels, 0));

  std::vector<CovarianceModel> models;
  models.reserve(static_cast<std::size_t>(std::max(n_covs, 0)));
  InterruptPoller poll;
  for (int i = 0; i < n_covs; ++i) {
    // The three sums run on from structure to structure, so that later ones are longer.
    double a = 0.0;
    double b = 0.0;
    double c = 0.0;
    double total = 0.0;
    Locations ranges;
    for (std::size_t k = 0; k < n_structures; ++k) {
      poll();
      const double p = uniform(rng) + min_str_range;
      const double q = uniform(rng) + p;
      const double s = uniform(rng) + q;
      c += s;
      b += q;
      a += p;
      const Vector3 direction = Vector3(c, b, a).normalized();
      ranges.emplace_back(direction * uniform(rng));
      total += ranges.back().norm();
    }
    const double W = between(min_str_range, max_str_range);

    std::vector<Ellipsoid> ellipsoids;
    std::vector<double> weights;
    for (std::size_t k = 0; k < n_structures; ++k) {
      poll();
      if (i == 0) {
        ellipsoids.push_back(ellipsoid);
      } else {
        const Vector3 v = ranges[k] / total * W;
        const double azimuth = moved(base.azimuth);
        const double dip = moved(base.dip);
        const double rake = moved(base.rake);
        ellipsoids.emplace_back(R * v.x(), R * v.y(), R * v.z(), azimuth, dip, rake);
      }
      weights.push_back(between(min_sill, max_sill));
    }
    weights.push_back(i == 0 ? 0.0 : between(min_sill, max_sill));
    double weight_sum = 0.0;
    for (const double weight : weights) {
      weight_sum += weight;
    }

    CovarianceModel model;
    model.reserve(n_structures + 1);
    for (std::size_t k = 0; k < n_structures; ++k) {
      model.push_back(
          {Covariance::Type::spherical, weights[k] / weight_sum, ellipsoids[k], cov_kernel});
    }
    model.push_back(Covariance::nugget(weights.back() / weight_sum));
    models.push_back(std::move(model));
  }
  shuffle(models, rng);
  return models;
}

}  // namespace talvorix
