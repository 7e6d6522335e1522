#pragma once

#include <cmath>

namespace talvorix {

// a b + c, rounded once where the processor does so at no extra cost. Spelt out where two places in
// the code must round alike: left to itself, a compiler fuses in one and not in the other.
inline double multiply_add(double a, double b, double c) {
#ifdef FP_FAST_FMA
  return std::fma(a, b, c);
#else
  return a * b + c;
#endif
}

}  // namespace talvorix
