#include "estimation/local_covariances.h"

#include "core/arguments.h"

#include <utility>

namespace talvorix {

LocalCovariances::LocalCovariances(Locations centers, std::vector<CovarianceModel> covariances,
                                   std::vector<double> errors)
    : centers_(std::move(centers)),
      covariances_(std::move(covariances)),
      errors_(std::move(errors)) {
  require_equal_lengths("covariances", covariances_.size(), "centers", centers_.size());
  require_equal_lengths("errors", errors_.size(), "centers", centers_.size());
}

}  // namespace talvorix
