#include "selection/local_ellipsoids.h"

#include "core/arguments.h"
#include "core/console.h"
#include "core/random.h"
#include "selection/covariance_error.h"
#include "spatial/bounding_box.h"
#include "spatial/extreme_points.h"

#include <cmath>
#include <cstddef>
#include <iostream>
#include <numeric>
#include <sstream>
#include <stdexcept>
#include <string>

namespace talvorix {

namespace {

template <class... Parts>
std::string joined(const Parts&... parts) {
  std::ostringstream text;
  (text << ... << parts);
  return text.str();
}

double diagonal(const Locations& locations) { return BoundingBox(locations).size().norm(); }

void check_data(const Locations& data_locs, const std::vector<double>& data) {
  require_equal_lengths("data", data.size(), "data_locs", data_locs.size());
  if (data.empty()) {
    throw std::invalid_argument("data_locs is empty; local ellipsoids need data");
  }
}

struct Areas {
  double radius;
  std::vector<Fold> folds;
};

Areas cut_areas(const Locations& data_locs, const std::vector<double>& data,
                const LocalAreas& areas, std::int64_t seed, int n_threads, bool debug) {
  constexpr int n_rays = 300;
  RandomEngine rng = seeded_engine(seed);
  const auto outline_seed = static_cast<std::int64_t>(rng());
  const double length = diagonal(extreme_points(data_locs, n_rays, outline_seed, n_threads));
  const double radius = length / areas.count * areas.reach;
  if (debug) {
    // The two spellings differ on purpose.
    std::cout << joined("data length: ", length) << std::endl;
    std::cerr << joined("data_length: ", length) << std::endl;
    print_progress(joined("Max radius: ", radius));
  }
  return {radius, create_folds(data_locs, data, radius, areas.max_size, areas.count, seed)};
}

Vector3 center_of(const Fold& area, bool debug) {
  const Vector3 sum =
      std::accumulate(area.locations.begin(), area.locations.end(), Vector3(Vector3::Zero()));
  Vector3 center = sum / static_cast<double>(area.locations.size());
  if (debug) {
    print_progress(joined("Processing center: ", center[0], ' ', center[1], ' ', center[2], "..."));
  }
  return center;
}

void report_fold(std::size_t i, std::size_t n) {
  std::cout << joined("optimized fold ", i + 1, " of ", n) << std::endl;
}

}  // namespace

LocalCovariances optimize_local_ellipsoids(const Locations& data_locs,
                                           const std::vector<double>& data,
                                           const Kernel& cov_kernel, double min_range,
                                           double max_range, const LocalAreas& areas,
                                           const EllipsoidOptimizationParameters& parameters) {
  check_data(data_locs, data);
  const bool debug = parameters.debug;
  const std::vector<Fold> folds =
      cut_areas(data_locs, data, areas, parameters.seed, parameters.n_threads, debug).folds;
  Locations centers;
  std::vector<CovarianceModel> models;
  std::vector<double> errors;
  for (std::size_t i = 0; i < folds.size(); ++i) {
    const Fold& area = folds[i];
    centers.push_back(center_of(area, debug));
    const double length = diagonal(area.locations);
    const auto [ellipsoid, error] =
        optimize_ellipsoid_using_idw(area.locations, area.values, cov_kernel, min_range * length,
                                     max_range * length, length, parameters);
    if (debug) {
      report_fold(i, folds.size());
      print_progress(joined("Ellipsoid: ", ellipsoid.text(), " error: ", error));
    }
    models.push_back(single_structure(ellipsoid, cov_kernel));
    errors.push_back(error);
  }
  return {std::move(centers), std::move(models), std::move(errors)};
}

LocalCovariances optimize_local_ellipsoids_using_lbfgs(
    const Locations& data_locs, const std::vector<double>& data, Covariance::Type cov_type,
    const LocalAreas& areas, const LocalFits& fits, const EllipsoidLBFGSParameters& parameters) {
  check_data(data_locs, data);
  for (std::size_t i = 0; i < data.size(); ++i) {
    if (!data_locs[i].allFinite() || !std::isfinite(data[i])) {
      throw std::invalid_argument(joined("data_locs[", i, "] or data[", i, "] is not finite"));
    }
  }
  if (!(fits.max_range > 0.0) || !std::isfinite(fits.max_range)) {
    throw std::invalid_argument(
        joined("max_local_range must be above 0 and finite, but is ", fits.max_range));
  }
  require_count("n_iterations", parameters.n_iterations);
  IdwScoring scoring;
  scoring.validation.max_size = static_cast<int>(data.size()) + 2;
  scoring.validation.partitions = {parameters.min_partition_size, parameters.max_partition_size,
                                   parameters.n_partitions};
  check_partition_sizes(scoring.validation.partitions, "n_partitions");
  scoring.regularization_const = parameters.regularization_const;
  scoring.seed = parameters.seed;
  const bool debug = parameters.debug;
  const auto [radius, folds] =
      cut_areas(data_locs, data, areas, parameters.seed, parameters.n_threads, debug);
  // All areas score every ellipsoid.
  scoring.validation.max_distance = radius;
  const auto error_of = create_covariance_idw_error(folds, scoring, parameters.n_threads);
  Locations centers;
  std::vector<CovarianceModel> models;
  std::vector<double> errors;
  for (std::size_t i = 0; i < folds.size(); ++i) {
    const Fold& area = folds[i];
    centers.push_back(center_of(area, debug));
    const std::vector<Fold> local = create_folds(area.locations, area.values, radius,
                                                 fits.max_fold_size, fits.n_folds, parameters.seed);
    EllipsoidLBFGSParameters local_parameters = parameters;
    local_parameters.regularization_const = parameters.n_partitions *
                                            parameters.regularization_const *
                                            static_cast<double>(local.size());
    const FittedEllipsoid fitted = optimize_ellipsoid_using_kfold(
        local, cov_type, Vector3::Constant(fits.max_range), local_parameters);
    models.push_back({Covariance::of_type(cov_type, 1.0, fitted.ellipsoid)});
    errors.push_back(error_of(models.back(), parameters.n_threads) + 0.0001);
    if (debug) {
      report_fold(i, folds.size());
      print_progress(joined("Ellipsoid: ", fitted.ellipsoid.text()));
      print_progress(joined("lbfgs error: ", fitted.cost));
      print_progress(joined("xval error: ", errors.back()));
    }
  }
  const double sum = std::accumulate(errors.begin(), errors.end(), 0.0);
  for (std::size_t i = 0; i < errors.size(); ++i) {
    errors[i] /= sum;
    if (debug) {
      print_progress(joined("center ", i + 1, " error: ", errors[i]));
    }
  }
  return {std::move(centers), std::move(models), std::move(errors)};
}

}  // namespace talvorix
