#include "simulation/fft_array.h"

#include "core/interrupt.h"
#include "core/large_pages.h"
#include "core/watched_call.h"
#include "simulation/fft_threads.h"

#include <fftw3.h>

#include <algorithm>
#include <limits>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

namespace talvorix::fft {

namespace {

// The planner's own word for plans that it need not search for, together with the flag that keeps
// it from timing candidates: timed plans could change the last bits from run to run.
constexpr unsigned plan_flags = 128U | FFTW_ESTIMATE;

// Plans, executes and destroys the plan; a null plan is skipped. The planner may be at work for
// someone else for long: the thread that entered the library waits for it by a PatientLock.
template <class Lock, class MakePlan>
void run(const MakePlan& make_plan) {
  fftw_plan plan = nullptr;
  {
    const Lock lock(planner_mutex());
    plan = make_plan();
  }
  if (plan == nullptr) {
    return;
  }
  fftw_execute(plan);
  const std::lock_guard lock(planner_mutex());
  fftw_destroy_plan(plan);
}

// Transforms n values by the plan that make_plan returns, which holds by value whatever it needs:
// it may outlive the call. Long transforms are watched when all the buffers are given.
template <class MakePlan>
void transform(std::int64_t n, const MakePlan& make_plan,
               std::vector<std::shared_ptr<const void>> buffers) {
  // Lengths with large prime factors take many times as long as others.
  constexpr std::int64_t is_long = std::int64_t{1} << 18;
  const bool are_owned = std::all_of(buffers.begin(), buffers.end(),
                                     [](const auto& buffer) { return buffer != nullptr; });
  if (n >= is_long && are_owned) {
    // Neither can a transform be stopped nor, for lengths with large prime factors, its planning.
    InterruptPoller poll;
    run_watched(
        [make_plan, buffers = std::move(buffers)] { run<std::lock_guard<std::mutex>>(make_plan); },
        poll);
  } else {
    run<PatientLock>(make_plan);
  }
}

std::int64_t checked_size(const Extents& extents) {
  for (const std::int64_t extent : extents) {
    if (extent < 1 || extent > std::numeric_limits<int>::max()) {
      throw std::invalid_argument("an extent of a transform is " + std::to_string(extent) +
                                  "; it must be from 1 to 2^31 - 1");
    }
  }
  constexpr double most = 1e18;
  if (static_cast<double>(extents[0]) * static_cast<double>(extents[1]) *
          static_cast<double>(extents[2]) >
      most) {
    throw std::bad_alloc();
  }
  return extents[0] * extents[1] * extents[2];
}

Extents half_spectrum(const Extents& extents) {
  return {extents[0], extents[1], extents[2] / 2 + 1};
}

int to_int(std::int64_t extent) { return static_cast<int>(extent); }

fftw_complex* to_fftw(std::complex<double>* values) {
  return reinterpret_cast<fftw_complex*>(values);
}

void require_spectrum(const complex_array& spectrum, std::int64_t needed) {
  if (spectrum.size() < needed) {
    throw std::invalid_argument("the spectrum has " + std::to_string(spectrum.size()) +
                                " entries, but the transform reads " + std::to_string(needed));
  }
}

void backward_3d(complex_array& spectrum, const Extents& extents, double* values,
                 std::vector<std::shared_ptr<const void>> buffers) {
  const Extents half = half_spectrum(extents);
  require_spectrum(spectrum, half[0] * half[1] * half[2]);
  transform(
      extents[0] * extents[1] * extents[2],
      [extents, entries = to_fftw(spectrum.data()), values] {
        return fftw_plan_dft_c2r_3d(to_int(extents[0]), to_int(extents[1]), to_int(extents[2]),
                                    entries, values, plan_flags);
      },
      std::move(buffers));
}

}  // namespace

array::array(const Extents& extents, std::int64_t rank, double value)
    : extents_(extents),
      rank_(rank),
      size_(checked_size(extents)),
      data_(nullptr),
      values_(std::make_shared<std::vector<double>>(
          values_on_large_pages(static_cast<std::size_t>(size_), value))) {
  data_ = values_->data();
}

array::array(const Extents& extents, std::int64_t rank, const double* values)
    : array(extents, rank, 0.0) {
  std::copy_n(values, size_, data_);
}

array::array(const Extents& extents, double value) : array(extents, 3, value) {}

array::array(std::int64_t size, double value) : array({size, 1, 1}, 1, value) {}

array::array(const double* values, const Extents& extents) : array(extents, 3, values) {}

void array::backward(complex_array& spectrum) {
  const int n0 = to_int(extents_[0]);
  const int n1 = to_int(extents_[1]);
  fftw_complex* const entries = to_fftw(spectrum.data());
  double* const values = data_;
  if (rank_ == 1) {
    require_spectrum(spectrum, n0 / 2 + 1);
    transform(size_, [=] { return fftw_plan_dft_c2r_1d(n0, entries, values, plan_flags); },
              {spectrum.values_, values_});
  } else if (rank_ == 2) {
    require_spectrum(spectrum, extents_[0] * (n1 / 2 + 1));
    transform(size_, [=] { return fftw_plan_dft_c2r_2d(n0, n1, entries, values, plan_flags); },
              {spectrum.values_, values_});
  } else if (rank_ == 3) {
    backward_3d(spectrum, extents_, data_, {spectrum.values_, values_});
  }
}

complex_array::Values complex_array::allocate(std::int64_t n) {
  constexpr std::size_t alignment = 64;
  const auto bytes = static_cast<std::size_t>(n) * sizeof(std::complex<double>);
  void* const allocated = fftw_malloc(bytes + alignment);
  if (allocated == nullptr) {
    throw std::bad_alloc();
  }
  void* aligned = allocated;
  std::size_t space = bytes + alignment;
  std::align(alignment, bytes, aligned, space);
  prefer_large_pages(aligned, bytes);
  // What is held starts somewhat behind what the allocator gave and takes back.
  return Values(static_cast<std::complex<double>*>(aligned),
                [allocated](std::complex<double>*) { fftw_free(allocated); });
}

complex_array::complex_array(std::int64_t n)
    : size_(checked_size({n, 1, 1})), extents_{n, 1, 1}, values_(allocate(n)) {
  std::uninitialized_fill_n(values_.get(), n, 0.0);
}

void complex_array::forward(const double* values, const Extents& extents) {
  forward(values, extents, nullptr);
}

void complex_array::forward(const array& values) {
  forward(values.data(), values.extents(), values.values_);
}

void complex_array::forward(const double* values, const Extents& extents,
                            std::shared_ptr<const void> owner) {
  const std::int64_t n_values = checked_size(extents);
  const Extents half = half_spectrum(extents);
  const std::int64_t n = half[0] * half[1] * half[2];
  const Values spectrum = allocate(n);
  transform(n_values,
            [extents, values, entries = to_fftw(spectrum.get())] {
              // The transform keeps its input, though it does not say so.
              return fftw_plan_dft_r2c_3d(to_int(extents[0]), to_int(extents[1]),
                                          to_int(extents[2]), const_cast<double*>(values), entries,
                                          plan_flags);
            },
            {spectrum, std::move(owner)});
  rank_ = 3;
  size_ = n;
  extents_ = half;
  values_ = spectrum;
}

void backward(complex_array& spectrum, const Extents& extents, double* values) {
  backward_3d(spectrum, extents, values, {nullptr});
}

}  // namespace talvorix::fft
