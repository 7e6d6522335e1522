#pragma once

#include "simulation/fft_array.h"

namespace talvorix::fft {

// The variogram of a grid with missing cells at every lag between two of them, and the number of
// pairs, by three transforms (Marcotte 1996). Both have extents of 2 n - 1 and are indexed
// circularly: lag -h stands at n - h. Where no pair is, the variogram is 0.
struct MaskedVariogram {
  array variogram;
  array npairs;
};

// A cell that is NaN or infinite is missing.
MaskedVariogram masked_variogram(const array& values);

}  // namespace talvorix::fft
