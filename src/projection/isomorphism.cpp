#include "projection/isomorphism.h"

#include "core/arguments.h"
#include "core/truncation.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

namespace talvorix {

namespace {

Interval range_of(const char* name, const std::vector<double>& values) {
  if (values.empty()) {
    throw std::invalid_argument(std::string(name) +
                                " is empty; an isomorphism is fitted to pairs of values");
  }
  const auto [min, max] = std::minmax_element(values.begin(), values.end());
  return {*min, *max};
}

double span_of(const Interval& range) { return range.max - range.min; }

Interval widened(const Interval& range, double by) {
  return {range.min - span_of(range) * by, range.max + span_of(range) * by};
}

Projection fit_back(const std::vector<double>& source, const Projection& forward_proj,
                    const ProjectionShape& shape, const ProjectionFit& fit, PollRef poll) {
  const std::vector<double> mapped = forward_proj.forward(source, fit.n_threads);
  return optimize_projection(mapped, source, shape, fit, poll);
}

}  // namespace

void check(const IsomorphismParameters& iso_params) {
  require_count("n_centers_forward", iso_params.n_centers_forward);
  require_count("n_centers_backward", iso_params.n_centers_backward);
  require_count("n_partitions", iso_params.n_partitions);
  require_count("n_iterations", iso_params.n_iterations);
  const double smallest = iso_params.min_partition_size;
  const double largest = iso_params.max_partition_size;
  if (smallest < 0.0 || largest < smallest) {
    throw std::invalid_argument("min_partition_size is " + to_text(smallest) +
                                " and max_partition_size is " + to_text(largest) +
                                "; they must be 0 or more and ascend");
  }
}

Isomorphism optimize_isomorphism(const std::vector<double>& source,
                                 const std::vector<double>& target, const ProjectionShape& forward,
                                 const ProjectionShape& backward, const ProjectionFit& fit,
                                 PollRef poll) {
  require_count("n_centers_backward", backward.n_centers);
  Projection forward_proj = optimize_projection(source, target, forward, fit, poll);
  Projection backward_proj = fit_back(source, forward_proj, backward, fit, poll);
  return {std::move(forward_proj), std::move(backward_proj)};
}

IsomorphismFitter::IsomorphismFitter(std::vector<double> source_data,
                                     std::vector<double> target_data,
                                     const IsomorphismParameters& iso_params)
    : source_(std::move(source_data)), target_(std::move(target_data)) {
  check(iso_params);
  const Interval source = range_of("source_data", source_);
  const Interval target = range_of("target_data", target_);
  require_equal_lengths("target_data", target_.size(), "source_data", source_.size());
  const Interval values = widened(target, iso_params.weight_tol);
  const Interval places = widened(source, iso_params.center_tol);
  const auto beta_per = [&](double span) {
    return Interval{iso_params.min_beta / span, iso_params.max_beta / span};
  };
  const auto partition_size = [&](double factor) {
    return truncated_to_int(static_cast<double>(source_.size()) * factor / iso_params.n_partitions);
  };
  forward_ = {iso_params.kernel_forward, iso_params.n_centers_forward, values,
              beta_per(span_of(source)), places};
  // What bounds the weights of the one bounds the centres of the other.
  backward_ = {iso_params.kernel_backward, iso_params.n_centers_backward, places,
               beta_per(span_of(target)), values};
  fit_ = {iso_params.n_partitions,
          partition_size(iso_params.min_partition_size),
          partition_size(iso_params.max_partition_size),
          iso_params.cauchy_loss,
          iso_params.n_iterations,
          iso_params.n_threads,
          iso_params.seed,
          iso_params.debug};
}

Projection IsomorphismFitter::fit_forward(PollRef poll) const {
  return optimize_projection(source_, target_, forward_, fit_, poll);
}

Projection IsomorphismFitter::fit_backward(const Projection& forward_proj, PollRef poll) const {
  return fit_back(source_, forward_proj, backward_, fit_, poll);
}

Isomorphism optimize_isomorphism(const std::vector<double>& source_data,
                                 const std::vector<double>& target_data,
                                 const IsomorphismParameters& iso_params, PollRef poll) {
  const IsomorphismFitter fitter(source_data, target_data, iso_params);
  Projection forward_proj = fitter.fit_forward(poll);
  Projection backward_proj = fitter.fit_backward(forward_proj, poll);
  return {std::move(forward_proj), std::move(backward_proj)};
}

}  // namespace talvorix
