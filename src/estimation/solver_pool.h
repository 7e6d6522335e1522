#pragma once

#include "core/parallel.h"
#include "covariance/mapped_model.h"
#include "estimation/kriging_solver.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <vector>

namespace talvorix {

// Solves targets by any of several models, one for each worker. Targets side by side often have
// the very same data and models, so while the data stay, the factored system of each model is kept.
// Where targets have data of their own, all models share one place instead, which stays in the
// processor's cache.
template <class System>
class SolverPool {
 public:
  SolverPool(const System& system, const std::vector<MappedModel>& models,
             const Locations& data_locs, const std::vector<double>& data, Worker& worker)
      : system_(system),
        models_(models),
        data_locs_(data_locs),
        data_(data),
        worker_(worker),
        place_(models.size(), 0) {}

  // The data of the solutions that follow.
  void begin(const std::vector<std::size_t>& neighbors) {
    const bool again = neighbors == neighbors_;
    // Data that the last ones did not foretell to come again do so from their second target on.
    const bool keep = again || came_again_;
    came_again_ = again;
    if (!again) {
      neighbors_ = neighbors;
      in_use_.clear();
    }
    // Beyond some tens of megabytes, the models that are left take turns in the last place.
    constexpr std::size_t most_entries = std::size_t{1} << 21;
    const std::size_t n_equations = neighbors.size() + System::extra_equations;
    n_places_ = keep ? std::max<std::size_t>(most_entries / (n_equations * n_equations), 1) : 1;
  }

  Estimate solve(std::size_t model, const Vector3& target) {
    std::size_t place = place_[model];
    if (place >= in_use_.size() || in_use_[place] != model) {
      place = std::min(in_use_.size(), n_places_ - 1);
      in_use_.resize(place);
      in_use_.push_back(model);
      place_[model] = place;
      if (place == solvers_.size()) {
        solvers_.push_back(std::make_unique<KrigingSolver<System>>(system_, models_[model],
                                                                   data_locs_, data_, worker_));
      }
      solvers_[place]->use(models_[model]);
    }
    return solvers_[place]->solve(neighbors_, target);
  }

 private:
  const System& system_;
  const std::vector<MappedModel>& models_;
  const Locations& data_locs_;
  const std::vector<double>& data_;
  Worker& worker_;
  std::vector<std::size_t> neighbors_;
  bool came_again_ = false;
  std::size_t n_places_ = 1;
  std::vector<std::unique_ptr<KrigingSolver<System>>> solvers_;
  std::vector<std::size_t> in_use_;  // the model in each place
  std::vector<std::size_t> place_;   // of each model; believed only when in_use_ agrees
};

}  // namespace talvorix
