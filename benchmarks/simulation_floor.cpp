// Floors of random fields: the two Fourier transforms of a lattice and nothing else, and the rate
// at which one thread multiplies and adds. simulation.py compiles this file and calls it through
// ctypes.

#include <fftw3.h>
#include <cstddef>
#include <cstdint>

namespace {

struct Transforms {
  double* values;
  fftw_complex* spectrum;
  fftw_plan forward;
  fftw_plan backward;
};

using Lanes = double __attribute__((vector_size(32)));

}  // namespace

extern "C" {

// Plans both transforms of n x n x n values as the simulator does: without timing candidates.
void* transforms_plan(int n, int n_threads) {
  fftw_init_threads();
  fftw_plan_with_nthreads(n_threads);
  const auto rows = static_cast<std::size_t>(n) * static_cast<std::size_t>(n);
  auto* plans = new Transforms;
  plans->values = fftw_alloc_real(rows * static_cast<std::size_t>(n));
  plans->spectrum = fftw_alloc_complex(rows * static_cast<std::size_t>(n / 2 + 1));
  constexpr unsigned flags = FFTW_ESTIMATE | 128U;
  plans->forward = fftw_plan_dft_r2c_3d(n, n, n, plans->values, plans->spectrum, flags);
  plans->backward = fftw_plan_dft_c2r_3d(n, n, n, plans->spectrum, plans->values, flags);
  return plans;
}

double* transforms_values(void* plans) { return static_cast<Transforms*>(plans)->values; }

// Forth and back: the values are multiplied by their number.
void transforms_run(void* plans) {
  fftw_execute(static_cast<Transforms*>(plans)->forward);
  fftw_execute(static_cast<Transforms*>(plans)->backward);
}

void transforms_release(void* plans) {
  auto* made = static_cast<Transforms*>(plans);
  fftw_destroy_plan(made->forward);
  fftw_destroy_plan(made->backward);
  fftw_free(made->values);
  fftw_free(made->spectrum);
  delete made;
}

// Does 48 multiply-adds a round: twelve chains of four lanes hide the latency and leave registers
// for the factors. The sum returned depends on all of them.
double multiply_adds(std::int64_t rounds, double factor, double addend) {
  constexpr int chains = 12;
  const Lanes a = {factor, factor, factor, factor};
  const Lanes b = {addend, addend, addend, addend};
  Lanes sums[chains];
  for (int c = 0; c < chains; ++c) {
    sums[c] = b * static_cast<double>(c);
  }
  for (std::int64_t round = 0; round < rounds; ++round) {
#pragma GCC unroll 12
    for (int c = 0; c < chains; ++c) {
      sums[c] = sums[c] * a + b;
    }
  }
  Lanes total = sums[0];
  for (int c = 1; c < chains; ++c) {
    total += sums[c];
  }
  return total[0] + total[1] + total[2] + total[3];
}
}
