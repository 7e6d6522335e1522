#include "simulation/nugget_simulator.h"

#include "core/parallel.h"
#include "core/random.h"

#include <memory>
#include <mutex>
#include <vector>

namespace talvorix {

namespace {

class NuggetField final : public SpatialField {
 public:
  NuggetField(double sigma, std::int64_t seed) : sigma_(sigma) {
    RandomEngine rng = seeded_engine(seed);
    const int n_workers = check_n_threads(0);
    for (int worker = 0; worker < n_workers; ++worker) {
      engines_.push_back(std::make_unique<OwnEngine>(static_cast<std::int64_t>(rng())));
    }
  }

  double value(const Vector3&, int worker) const override {
    OwnEngine& own = *engines_.at(static_cast<std::size_t>(worker));
    const std::lock_guard lock(own.mutex);
    return draw(own.rng);
  }

  void values(std::span<const Vector3> locations, double* values, int worker,
              PollRef) const override {
    OwnEngine& own = *engines_.at(static_cast<std::size_t>(worker));
    const std::lock_guard lock(own.mutex);
    for (std::size_t i = 0; i < locations.size(); ++i) {
      values[i] = draw(own.rng);
    }
  }

 private:
  // Two calls may run at once on threads of the caller's, each with a worker of the same number.
  struct OwnEngine {
    explicit OwnEngine(std::int64_t seed) : rng(seeded_engine(seed)) {}
    std::mutex mutex;
    RandomEngine rng;
  };

  // A fresh sampler for each: the second normal of every pair is thrown away.
  double draw(RandomEngine& rng) const { return StandardNormal()(rng) * sigma_; }

  double sigma_;
  std::vector<std::unique_ptr<OwnEngine>> engines_;
};

}  // namespace

SpatialFunction create_nugget_simulator(double sigma, std::int64_t seed) {
  return SpatialFunction(std::make_shared<NuggetField>(sigma, seed));
}

}  // namespace talvorix
