#pragma once

#include "core/interrupt.h"
#include "core/random.h"
#include "projection/isomorphism.h"

#include <Eigen/Core>

#include <cstdint>
#include <memory>
#include <vector>

namespace talvorix {

struct PpmtSettings {
  int n_steps = 0;
  // Of a step but the first: that its rotation is a random one.
  double prob_random_rotation = 0.37;
  IsomorphismParameters iso_params;
  int n_threads = 0;
  std::int64_t seed = 123154;
  // Range of the numbers that random rotations are made from.
  double min_v = -10.0;
  double max_v = 10.0;
  // How far beyond the data, in spans of them, the first and the last bin stand.
  double extrapolation_tol = 0.1;
  int n_bins = 200;
};

// The projection pursuit multivariate transform: turns correlated variables into independent
// standard normal ones, by steps that standardise, rotate, and bring each rotated axis to a normal
// distribution. Samples are rows, and variables columns.
class PPMT {
 public:
  struct Step {
    Eigen::MatrixXd rotation;
    Eigen::MatrixXd inverse_rotation;
    // Of each variable before the rotation.
    std::vector<double> mean;
    std::vector<double> std;
    // Of each axis after its transform.
    std::vector<double> post_mean;
    std::vector<double> post_std;
    std::vector<Isomorphism> isomorphisms;
  };

  // Prints its progress. Throws std::invalid_argument for fewer than two samples, no variable, data
  // that are not finite, and settings that make no sense.
  PPMT(const Eigen::MatrixXd& data, const PpmtSettings& settings);

  // The transform of these steps. Throws std::invalid_argument for one of another size.
  PPMT(std::size_t n_variables, std::vector<std::shared_ptr<const Step>> steps);

  const std::vector<std::shared_ptr<const Step>>& steps() const { return steps_; }
  std::size_t n_steps() const { return steps_.size(); }
  std::size_t n_variables() const { return n_variables_; }

  // Throw std::invalid_argument for samples with another number of variables.
  Eigen::MatrixXd forward(Eigen::MatrixXd data, int n_threads) const;
  Eigen::MatrixXd backward(Eigen::MatrixXd data, int n_threads) const;
  std::vector<double> forward(const std::vector<double>& u) const;
  std::vector<double> backward(const std::vector<double>& u) const;

 private:
  std::size_t n_variables_;
  std::vector<std::shared_ptr<const Step>> steps_;
};

}  // namespace talvorix
