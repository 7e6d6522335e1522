#include "categorical/markov_chain.h"

#include "algebra/jet.h"
#include "core/arguments.h"
#include "core/interrupt.h"
#include "spatial/dynamic_neighborhood.h"
#include "spatial/neighborhood.h"

#include <algorithm>
#include <numeric>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

namespace talvorix {

namespace {

double value_part(double number) { return number; }
double value_part(const Jet& number) { return number.a; }

template <class T>
void assign(JetList<T>& list, const Vector3& location) {
  for (int k = 0; k < 3; ++k) {
    list[static_cast<std::size_t>(k)] = T(location[k]);
  }
}

struct Bin {
  double probability;
  int category;
};

// The bins are shuffled, so that one uniform stands for another class from draw to draw. Rounding,
// and NaN, may leave the sum of all at or below it: then -1.
int draw_category(RandomEngine& rng, std::vector<Bin>& bins) {
  shuffle(bins, rng);
  const double u = uniform(rng);
  double sum = 0.0;
  for (const Bin& bin : bins) {
    sum += bin.probability;
    if (sum > u) {
      return bin.category;
    }
  }
  return -1;
}

template <class T>
class InverseDistanceVote {
 public:
  explicit InverseDistanceVote(TransiogramHandle<T> transiogram)
      : transiogram_(std::move(transiogram)),
        row_(transiogram_->n_classes()),
        bins_(transiogram_->n_classes()) {}

  int operator()(RandomEngine& rng, const std::vector<ClassifiedLocation>& neighbors,
                 const Vector3& target, double) {
    for (std::size_t j = 0; j < bins_.size(); ++j) {
      bins_[j] = {0.0, static_cast<int>(j)};
    }
    assign(v_, target);
    double total_weight = 0.0;
    for (const ClassifiedLocation& neighbor : neighbors) {
      assign(u_, neighbor.location);
      transiogram_->evaluate_row(neighbor.category, u_, v_, poll_, row_.data());
      const double weight = 1.0 / ((target - neighbor.location).squaredNorm() + 1e-6);
      for (std::size_t j = 0; j < bins_.size(); ++j) {
        bins_[j].probability += weight * value_part(row_[j]);
      }
      total_weight += weight;
    }
    divide_bins(total_weight);
    double sum = 0.0;
    for (const Bin& bin : bins_) {
      sum += bin.probability;
    }
    // Rows need not sum to one.
    divide_bins(sum);
    return draw_category(rng, bins_);
  }

 private:
  void divide_bins(double divisor) {
    for (Bin& bin : bins_) {
      bin.probability /= divisor;
    }
  }

  TransiogramHandle<T> transiogram_;
  JetList<T> u_ = JetList<T>(3);
  JetList<T> v_ = JetList<T>(3);
  std::vector<T> row_;
  std::vector<Bin> bins_;
  InterruptPoller poll_;
};

void require_finite(const char* name, const Locations& locations, const Ellipsoid& search_ani) {
  for (std::size_t i = 0; i < locations.size(); ++i) {
    if (!search_ani.forward(locations[i]).allFinite()) {
      throw std::invalid_argument(std::string(name) + "[" + std::to_string(i) +
                                  "] is not finite in the space of search_ani; a search needs "
                                  "finite coordinates");
    }
  }
}

void require_classes(const std::vector<int>& data_values, std::size_t n_classes) {
  for (std::size_t i = 0; i < data_values.size(); ++i) {
    if (data_values[i] < 0 || static_cast<std::size_t>(data_values[i]) >= n_classes) {
      throw std::out_of_range(
          "data_values[" + std::to_string(i) + "] is " + std::to_string(data_values[i]) +
          ", but the classes of transiogram are 0 to " + std::to_string(n_classes - 1));
    }
  }
}

// Neighbours among the data or among the targets simulated so far, in scratch.indices.
template <class SearchStructure>
void find(const SearchStructure& structure, const Vector3& target, const MarkovChainSearch& search,
          SearchScratch& scratch) {
  if (search.r <= 0.0) {
    structure.find_nearest(target, static_cast<std::size_t>(search.knn), scratch);
  } else {
    structure.find_within(target, search.r, scratch);
  }
}

void add_neighbors(const SearchScratch& found, const Locations& locations,
                   const std::vector<int>& categories, std::vector<ClassifiedLocation>& neighbors) {
  for (const std::size_t i : found.indices) {
    neighbors.push_back({locations[i], categories[i]});
  }
}

}  // namespace

template <class T>
std::shared_ptr<UnconditionalSampler> create_default_unconditional_sampler(
    const TransiogramHandle<T>& transiogram) {
  transiogram->require_square();
  return std::make_shared<UnconditionalSampler>([transiogram](RandomEngine& rng, double) {
    return static_cast<int>(rng() % transiogram->n_classes());
  });
}

template <class T>
std::shared_ptr<ConditionalSampler> create_default_conditional_sampler(
    const TransiogramHandle<T>& transiogram) {
  transiogram->require_square();
  return std::make_shared<ConditionalSampler>(InverseDistanceVote<T>(transiogram));
}

template <class T>
std::vector<int> simulate_markov_chain(const Locations& target_locs, const Locations& data_locs,
                                       const std::vector<int>& data_values,
                                       const TransiogramHandle<T>& transiogram,
                                       const Ellipsoid& search_ani, const MarkovChainSearch& search,
                                       std::int64_t seed,
                                       std::shared_ptr<UnconditionalSampler> unconditional,
                                       std::shared_ptr<ConditionalSampler> conditional) {
  transiogram->require_square();
  require_equal_lengths("data_locs", data_locs.size(), "data_values", data_values.size());
  require_classes(data_values, transiogram->n_classes());
  if (search.r <= 0.0) {
    require_count("knn", search.knn);
  }
  require_finite("target_locs", target_locs, search_ani);
  require_finite("data_locs", data_locs, search_ani);

  InterruptPoller poll;
  SearchScratch found;
  found.poll = &poll;
  std::optional<Neighborhood> data;
  if (!data_locs.empty()) {
    data.emplace(data_locs, search_ani);
  }
  DynamicNeighborhood simulated(target_locs, search_ani);

  RandomEngine rng = seeded_engine(seed);
  std::vector<std::size_t> path(target_locs.size());
  std::iota(path.begin(), path.end(), std::size_t{0});
  shuffle(path, rng);

  if (!unconditional) {
    unconditional = create_default_unconditional_sampler(transiogram);
  }
  if (!conditional) {
    constexpr std::size_t n_coordinates = 3;
    TransiogramHandle<T> fixed = transiogram->fixed(n_coordinates, poll);
    conditional = create_default_conditional_sampler<T>(fixed ? fixed : transiogram);
  }

  std::vector<int> categories(target_locs.size(), -1);
  std::vector<ClassifiedLocation> neighbors;
  constexpr double u = 0.0;
  for (const std::size_t i : path) {
    poll();
    const Vector3& target = target_locs[i];
    neighbors.clear();
    if (data) {
      find(*data, target, search, found);
      add_neighbors(found, data_locs, data_values, neighbors);
    }
    find(simulated, target, search, found);
    add_neighbors(found, target_locs, categories, neighbors);
    categories[i] =
        neighbors.empty() ? (*unconditional)(rng, u) : (*conditional)(rng, neighbors, target, u);
    // Without a class there is no row that it could vote with.
    if (categories[i] >= 0) {
      simulated.activate(i);
    }
  }
  return categories;
}

#define TALVORIX_INSTANTIATE(T)                                                                 \
  template std::shared_ptr<UnconditionalSampler> create_default_unconditional_sampler<T>(       \
      const TransiogramHandle<T>&);                                                             \
  template std::shared_ptr<ConditionalSampler> create_default_conditional_sampler<T>(           \
      const TransiogramHandle<T>&);                                                             \
  template std::vector<int> simulate_markov_chain<T>(                                           \
      const Locations&, const Locations&, const std::vector<int>&, const TransiogramHandle<T>&, \
      const Ellipsoid&, const MarkovChainSearch&, std::int64_t,                                 \
      std::shared_ptr<UnconditionalSampler>, std::shared_ptr<ConditionalSampler>);
TALVORIX_INSTANTIATE(double)
TALVORIX_INSTANTIATE(Jet)
#undef TALVORIX_INSTANTIATE

}  // namespace talvorix
