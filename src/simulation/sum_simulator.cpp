#include "simulation/sum_simulator.h"

#include <algorithm>
#include <array>
#include <memory>

namespace talvorix {

namespace {

class SumField final : public SpatialField {
 public:
  explicit SumField(std::vector<SpatialFunction> parts) : parts_(std::move(parts)) {}

  double value(const Vector3& location, int worker) const override {
    double sum = 0.0;
    for (const SpatialFunction& part : parts_) {
      sum += part.field().value(location, worker);
    }
    return sum;
  }

  void values(std::span<const Vector3> locations, double* values, int worker,
              PollRef poll) const override {
    std::array<double, 1024> of_part;
    while (!locations.empty()) {
      const std::size_t n = std::min(locations.size(), of_part.size());
      std::fill_n(values, n, 0.0);
      for (const SpatialFunction& part : parts_) {
        part.field().values(locations.first(n), of_part.data(), worker, poll);
        for (std::size_t i = 0; i < n; ++i) {
          values[i] += of_part[i];
        }
      }
      locations = locations.subspan(n);
      values += n;
    }
  }

 private:
  std::vector<SpatialFunction> parts_;
};

}  // namespace

SpatialFunction create_simulator(std::vector<SpatialFunction> simulators) {
  return SpatialFunction(std::make_shared<SumField>(std::move(simulators)));
}

}  // namespace talvorix
