#include "spectral/spectral_data_1d.h"

#include "core/arguments.h"
#include "core/interrupt.h"
#include "simulation/fft_array.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numeric>
#include <stdexcept>
#include <string>

namespace talvorix {

namespace {

// The sums of all values from i - w to i + w that there are. No value is subtracted again, so that
// one which is infinite or NaN reaches no further than its window.
std::vector<double> window_sums(const std::vector<double>& values, std::int64_t w,
                                InterruptPoller& poll) {
  const auto n = static_cast<std::int64_t>(values.size());
  const std::int64_t length = std::min(2 * w + 1, n);
  // Within blocks as long as a window, the sums from their first value on and up to their last one:
  // a window is made of one of either.
  std::vector<double> from_first(values);
  std::vector<double> to_last(values);
  for (std::int64_t i = 1; i < n; ++i) {
    poll();
    if (i % length != 0) {
      from_first[static_cast<std::size_t>(i)] += from_first[static_cast<std::size_t>(i - 1)];
    }
  }
  for (std::int64_t i = n - 2; i >= 0; --i) {
    poll();
    if ((i + 1) % length != 0) {
      to_last[static_cast<std::size_t>(i)] += to_last[static_cast<std::size_t>(i + 1)];
    }
  }
  std::vector<double> sums(values.size());
  for (std::int64_t i = 0; i < n; ++i) {
    poll();
    const std::int64_t lo = std::max<std::int64_t>(i - w, 0);
    const std::int64_t hi = std::min(i + w, n - 1);
    double& sum = sums[static_cast<std::size_t>(i)];
    if (lo / length != hi / length) {
      sum = to_last[static_cast<std::size_t>(lo)] + from_first[static_cast<std::size_t>(hi)];
    } else if (lo % length == 0) {
      sum = from_first[static_cast<std::size_t>(hi)];
    } else {
      sum = to_last[static_cast<std::size_t>(lo)];
    }
  }
  return sums;
}

std::vector<double> shifted_by_half(std::vector<double> values) {
  const auto n = static_cast<std::ptrdiff_t>(values.size());
  std::rotate(values.begin(), values.begin() + (n - n / 2), values.end());
  return values;
}

}  // namespace

SpectralData1D::SpectralData1D(std::vector<double> magnitude, std::vector<double> phase)
    : magnitude_(std::move(magnitude)), phase_(std::move(phase)) {
  require_equal_lengths("phase", phase_.size(), "magnitude", magnitude_.size());
  imag_.reserve(size());
  real_.reserve(size());
  InterruptPoller poll;
  for (std::size_t i = 0; i < size(); ++i) {
    poll();
    real_.push_back(magnitude_[i] * std::cos(phase_[i]));
    imag_.push_back(magnitude_[i] * std::sin(phase_[i]));
  }
}

SpectralData1D SpectralData1D::from_parts(std::vector<double> magnitude, std::vector<double> phase,
                                          std::vector<double> real, std::vector<double> imag) {
  require_equal_lengths("phase", phase.size(), "magnitude", magnitude.size());
  require_equal_lengths("real", real.size(), "magnitude", magnitude.size());
  require_equal_lengths("imag", imag.size(), "magnitude", magnitude.size());
  SpectralData1D spectrum;
  spectrum.magnitude_ = std::move(magnitude);
  spectrum.phase_ = std::move(phase);
  spectrum.real_ = std::move(real);
  spectrum.imag_ = std::move(imag);
  return spectrum;
}

SpectralData1D SpectralData1D::forward(std::span<const double> data) {
  SpectralData1D result;
  if (data.empty()) {
    return result;
  }
  const auto n = static_cast<std::int64_t>(data.size());
  fft::complex_array spectrum;
  // With the length as the first extent the spectrum is whole; as the last it would be a half one.
  spectrum.forward(fft::array(data.data(), {n, 1, 1}));
  result.magnitude_.reserve(data.size());
  result.phase_.reserve(data.size());
  result.imag_.reserve(data.size());
  result.real_.reserve(data.size());
  InterruptPoller poll;
  for (std::int64_t i = 0; i < n; ++i) {
    poll();
    const double re = spectrum(i).real();
    const double im = spectrum(i).imag();
    result.magnitude_.push_back(std::sqrt(re * re + im * im));
    result.phase_.push_back(std::atan2(im, re));
    result.imag_.push_back(im);
    result.real_.push_back(re);
  }
  return result;
}

std::vector<double> SpectralData1D::backward() const {
  if (size() == 0) {
    return {};
  }
  const auto n = static_cast<std::int64_t>(size());
  fft::complex_array spectrum(n);
  for (std::int64_t i = 0; i < n; ++i) {
    const auto at = static_cast<std::size_t>(i);
    spectrum(i) = {real_[at], imag_[at]};
  }
  fft::array series(n, 0.0);
  series.backward(spectrum);
  std::vector<double> values(series.data(), series.data() + n);
  for (double& value : values) {
    value /= static_cast<double>(n);
  }
  return values;
}

SpectralData1D SpectralData1D::filter_frequencies(std::span<const int> frequencies) const {
  for (std::size_t i = 0; i < frequencies.size(); ++i) {
    if (frequencies[i] < 0 || static_cast<std::size_t>(frequencies[i]) >= size()) {
      throw std::out_of_range("frequencies[" + std::to_string(i) + "] is " +
                              std::to_string(frequencies[i]) + ", but there are " +
                              std::to_string(size()) + " frequencies, counted from 0");
    }
  }
  SpectralData1D kept;
  for (auto* list : {&kept.magnitude_, &kept.phase_, &kept.imag_, &kept.real_}) {
    list->assign(size(), 0.0);
  }
  InterruptPoller poll;
  for (const int frequency : frequencies) {
    poll();
    const auto f = static_cast<std::size_t>(frequency);
    for (const std::size_t i : {f, (size() - f) % size()}) {
      kept.magnitude_[i] = magnitude_[i];
      kept.phase_[i] = phase_[i];
      kept.imag_[i] = imag_[i];
      kept.real_[i] = real_[i];
    }
  }
  return kept;
}

SpectralData1D SpectralData1D::smooth_frequencies(std::int64_t window_size) const {
  if (window_size < 0) {
    throw std::invalid_argument("window_size must be 0 or more, but is " +
                                std::to_string(window_size));
  }
  const auto n = static_cast<std::int64_t>(size());
  // A window wider than the series holds all of it.
  const std::int64_t w = std::min(window_size, n);
  InterruptPoller poll;
  std::vector<double> smooth = window_sums(magnitude_, w, poll);
  for (std::int64_t i = 0; i < n; ++i) {
    poll();
    const std::int64_t lo = std::max<std::int64_t>(i - w, 0);
    const std::int64_t hi = std::min(i + w, n - 1);
    // Steps, not terms: deliberate. It matters at the ends alone, since the total is put right; and
    // for a window of 0, which is 0 / 0 everywhere in the end.
    smooth[static_cast<std::size_t>(i)] /= static_cast<double>(hi - lo);
  }
  const double total = std::accumulate(magnitude_.begin(), magnitude_.end(), 0.0);
  const double smooth_total = std::accumulate(smooth.begin(), smooth.end(), 0.0);
  const double scale = total / smooth_total;
  for (double& magnitude : smooth) {
    magnitude *= scale;
  }
  return {std::move(smooth), phase_};
}

SpectralData1D::Pair SpectralData1D::polar(bool shift) const {
  return shift ? Pair(shifted_by_half(magnitude_), shifted_by_half(phase_))
               : Pair(magnitude_, phase_);
}

SpectralData1D::Pair SpectralData1D::cartesian(bool shift) const {
  return shift ? Pair(shifted_by_half(real_), shifted_by_half(imag_)) : Pair(real_, imag_);
}

}  // namespace talvorix
