#pragma once

#include "categorical/transiogram.h"
#include "core/geometry.h"
#include "core/random.h"
#include "spatial/ellipsoid.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace talvorix {

struct ClassifiedLocation {
  Vector3 location;
  int category;
};

// They draw the class of a target, one without neighbours and one with some; a negative class is
// none. The simulation hands each its generator and a u of 0, for samplers that want a number.
using UnconditionalSampler = std::function<int(RandomEngine& rng, const double& u)>;
using ConditionalSampler =
    std::function<int(RandomEngine& rng, const std::vector<ClassifiedLocation>& neighbors,
                      const Vector3& target, const double& u)>;

template <class T>
using TransiogramHandle = std::shared_ptr<const AbstractTransiogram<T>>;

// Both keep the transiogram. They throw std::invalid_argument when it is not square.

// Every class is as likely as the others, whatever the transiogram says, but for the bias of a
// modulo: deliberate.
template <class T>
std::shared_ptr<UnconditionalSampler> create_default_unconditional_sampler(
    const TransiogramHandle<T>& transiogram);

// Each neighbour's row at (neighbour, target) counts by its inverse squared distance. Of dual
// numbers the values are read. One thread at a time may call it.
template <class T>
std::shared_ptr<ConditionalSampler> create_default_conditional_sampler(
    const TransiogramHandle<T>& transiogram);

// A radius at or below 0 selects the knn nearest, of the data and of the targets simulated before;
// otherwise all within the radius are neighbours.
struct MarkovChainSearch {
  double r = -1.0;
  int knn = 32;
};

// Simulates the class of each target along a random path. A target whose sampler gave it no class
// keeps -1, and is no neighbour of later ones. Empty handles stand for the default samplers.
// Throws std::out_of_range for a class of the data outside the transiogram, and
// std::invalid_argument when lists disagree, the transiogram is not square, knn is negative where
// it is read, or a location is not finite.
template <class T>
std::vector<int> simulate_markov_chain(const Locations& target_locs, const Locations& data_locs,
                                       const std::vector<int>& data_values,
                                       const TransiogramHandle<T>& transiogram,
                                       const Ellipsoid& search_ani, const MarkovChainSearch& search,
                                       std::int64_t seed,
                                       std::shared_ptr<UnconditionalSampler> unconditional = {},
                                       std::shared_ptr<ConditionalSampler> conditional = {});

}  // namespace talvorix
