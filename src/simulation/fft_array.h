#pragma once

#include <array>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

// What goes into discrete Fourier transforms and comes out of them. Every transform is planned,
// executed and its plan destroyed; several threads may do so at once. While a long one of these
// classes runs, the user's wish to stop is looked for, and whatever that throws leaves at once.

namespace talvorix::fft {

using Extents = std::array<std::int64_t, 3>;

// A negative index counts from the end, once: -1 is the last element.
inline std::int64_t wrapped(std::int64_t i, std::int64_t extent) {
  return i < 0 ? (extent + i) % extent : i;
}

// Position of an element among values whose last index runs fastest.
inline std::size_t position(const Extents& extents, std::int64_t i, std::int64_t j,
                            std::int64_t k) {
  return static_cast<std::size_t>((wrapped(i, extents[0]) * extents[1] + wrapped(j, extents[1])) *
                                      extents[2] +
                                  wrapped(k, extents[2]));
}

class complex_array;

// Real values of rank 1 to 3. Indices beyond the extents are not checked.
class array {
 public:
  // Of rank 3, every element set to the value. Throws std::invalid_argument for an extent below 1
  // and std::bad_alloc when there is not memory enough.
  array(const Extents& extents, double value);
  // Of rank 1.
  array(std::int64_t size, double value);
  // Of any rank, which tells how a backward transform reads the extents; unused ones are 1.
  array(const Extents& extents, std::int64_t rank, double value);
  // Of rank 3, with a copy of the values.
  array(const double* values, const Extents& extents);
  virtual ~array() = default;

  array(const array& other) : array(other.extents_, other.rank_, other.data_) {}
  array(array&&) = default;
  array& operator=(const array& other) { return *this = array(other); }
  array& operator=(array&&) = default;

  const Extents& extents() const { return extents_; }
  std::int64_t rank() const { return rank_; }
  std::int64_t size() const { return size_; }
  double* data() { return data_; }
  const double* data() const { return data_; }

  double& operator()(std::int64_t i) { return data_[wrapped(i, size_)]; }
  double operator()(std::int64_t i) const { return data_[wrapped(i, size_)]; }
  double& operator()(std::int64_t i, std::int64_t j, std::int64_t k) {
    return data_[position(extents_, i, j, k)];
  }
  double operator()(std::int64_t i, std::int64_t j, std::int64_t k) const {
    return data_[position(extents_, i, j, k)];
  }

  // Becomes the unnormalised backward transform of a half spectrum, by the rank: the caller
  // divides. What the spectrum holds is lost. Throws std::invalid_argument when the spectrum is too
  // short.
  void backward(complex_array& spectrum);

 private:
  friend class complex_array;

  // With a copy of the values.
  array(const Extents& extents, std::int64_t rank, const double* values);

  Extents extents_;
  std::int64_t rank_;
  std::int64_t size_;
  double* data_;
  // Shared with a transform that its caller no longer waits for.
  std::shared_ptr<std::vector<double>> values_;
};

// Complex values, 64-byte aligned. After a forward transform of extents (n0, n1, n2) they are the
// half spectrum, of extents (n0, n1, n2 / 2 + 1).
class complex_array {
 public:
  complex_array() = default;
  // Of rank 1, with extents (n, 1, 1) and zeros.
  explicit complex_array(std::int64_t n);
  virtual ~complex_array() = default;

  complex_array(complex_array&&) = default;
  complex_array& operator=(complex_array&&) = default;
  complex_array(const complex_array&) = delete;
  complex_array& operator=(const complex_array&) = delete;

  const Extents& extents() const { return extents_; }
  std::int64_t rank() const { return rank_; }
  std::int64_t size() const { return size_; }
  std::complex<double>* data() { return values_.get(); }
  const std::complex<double>* data() const { return values_.get(); }

  std::complex<double>& operator()(std::int64_t i) { return data()[wrapped(i, size_)]; }
  const std::complex<double>& operator()(std::int64_t i) const { return data()[wrapped(i, size_)]; }
  std::complex<double>& operator()(std::int64_t i, std::int64_t j, std::int64_t k) {
    return data()[position(extents_, i, j, k)];
  }
  const std::complex<double>& operator()(std::int64_t i, std::int64_t j, std::int64_t k) const {
    return data()[position(extents_, i, j, k)];
  }

  // Becomes the half spectrum, of rank 3, of real values of these extents. A series of n values is
  // transformed with extents (n, 1, 1), which gives all n entries of its spectrum.
  void forward(const double* values, const Extents& extents);
  void forward(const array& values);

 private:
  friend class array;

  using Values = std::shared_ptr<std::complex<double>[]>;
  static Values allocate(std::int64_t n);
  void forward(const double* values, const Extents& extents, std::shared_ptr<const void> owner);

  std::int64_t size_ = 0;
  std::int64_t rank_ = 1;
  Extents extents_ = {1, 1, 1};
  // Shared with a transform that its caller no longer waits for.
  Values values_;
};

// The unnormalised backward transform of a half spectrum straight into values of these extents.
// What the spectrum holds is lost.
void backward(complex_array& spectrum, const Extents& extents, double* values);

}  // namespace talvorix::fft
