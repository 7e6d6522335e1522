#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

namespace talvorix {

// The spectrum of a series of n values, with an entry for each of the n frequencies.
class SpectralData1D {
 public:
  // From polar form. Throws std::invalid_argument when the lists are not equally long.
  SpectralData1D(std::vector<double> magnitude, std::vector<double> phase);

  // With all parts as they are. Throws std::invalid_argument when they are not equally long.
  static SpectralData1D from_parts(std::vector<double> magnitude, std::vector<double> phase,
                                   std::vector<double> real, std::vector<double> imag);

  // The unnormalised discrete Fourier transform of a series.
  static SpectralData1D forward(std::span<const double> data);

  const std::vector<double>& magnitude() const { return magnitude_; }
  const std::vector<double>& phase() const { return phase_; }  // radians
  const std::vector<double>& imag() const { return imag_; }
  const std::vector<double>& real() const { return real_; }
  std::size_t size() const { return magnitude_.size(); }

  // The series. Only the frequencies up to n / 2 are read: those of a real series mirror them.
  std::vector<double> backward() const;

  // What is left when all but the listed frequencies and their mirrors are 0. Throws
  // std::out_of_range for one that is none.
  SpectralData1D filter_frequencies(std::span<const int> frequencies) const;

  // With magnitudes averaged over so many frequencies to either side, the ends less, and scaled to
  // the total that they had. Throws std::invalid_argument for a negative width.
  SpectralData1D smooth_frequencies(std::int64_t window_size) const;

  // Magnitude and phase, or real and imaginary parts. Shifted, frequency 0 stands in the middle.
  using Pair = std::pair<std::vector<double>, std::vector<double>>;
  Pair polar(bool shift) const;
  Pair cartesian(bool shift) const;

 private:
  SpectralData1D() = default;

  std::vector<double> magnitude_;
  std::vector<double> phase_;
  std::vector<double> imag_;
  std::vector<double> real_;
};

}  // namespace talvorix
