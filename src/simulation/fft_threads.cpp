#include "simulation/fft_threads.h"

#include "core/parallel.h"

#include <fftw3.h>

#include <mutex>
#include <stdexcept>

namespace talvorix::fft {

void init_threads() {
  static std::once_flag initialised;
  std::call_once(initialised, [] {
    if (fftw_init_threads() == 0) {
      throw std::runtime_error("the Fourier transform library could not start its threads");
    }
  });
}

std::mutex& planner_mutex() {
  static std::mutex mutex;
  return mutex;
}

void set_fft_n_threads(int n_threads) {
  init_threads();
  const std::lock_guard lock(planner_mutex());
  fftw_plan_with_nthreads(check_n_threads(n_threads));
}

}  // namespace talvorix::fft
