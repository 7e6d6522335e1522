#pragma once

#include "core/geometry.h"
#include "covariance/covariance.h"

#include <vector>

namespace talvorix {

// Covariance models of local areas: for each a centre, a model and how badly the model predicts
// there, by cross-validation. The lists are equally long.
class LocalCovariances {
 public:
  LocalCovariances(Locations centers, std::vector<CovarianceModel> covariances,
                   std::vector<double> errors);

  const Locations& centers() const { return centers_; }
  const std::vector<CovarianceModel>& covariances() const { return covariances_; }
  const std::vector<double>& errors() const { return errors_; }

 private:
  Locations centers_;
  std::vector<CovarianceModel> covariances_;
  std::vector<double> errors_;
};

}  // namespace talvorix
