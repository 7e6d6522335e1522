#pragma once

#include <cmath>
#include <cstddef>
#include <functional>

namespace talvorix {

// Correlations of a normalised distance h: 1 at zero, and at 1 the practical range.
inline double spherical_kernel(double h) {
  const double within = (1.0 - 1.5 * h) + (0.5 * h * h) * h;
  return h > 1.0 ? 0.0 : within;
}
inline double gaussian_kernel(double h) { return std::exp(-3.0 * h * h); }
inline double exponential_kernel(double h) { return std::exp(-3.0 * h); }
inline double nugget_kernel(double h) { return h < 1e-8 ? 1.0 : 0.0; }
inline double idw_kernel(double h) { return h < 1e-6 ? 1000000.0 : 1.0 / (h * h); }

// A correlation as a function of normalised distance. The plain ones are told by a tag, so that
// loops can be written for them; anything else is carried as a function.
class Kernel {
 public:
  enum class Form { spherical, gaussian, exponential, nugget, idw, function };

  static Kernel spherical() { return Kernel(Form::spherical); }
  static Kernel gaussian() { return Kernel(Form::gaussian); }
  static Kernel exponential() { return Kernel(Form::exponential); }
  static Kernel nugget() { return Kernel(Form::nugget); }
  static Kernel idw() { return Kernel(Form::idw); }
  explicit Kernel(std::function<double(double)> function)
      : form_(Form::function), function_(std::move(function)) {}

  Form form() const { return form_; }

  double operator()(double h) const;

  // Adds sill times the kernel to each of count sums, given squared distances. Both runs must
  // reach to the next multiple of padding past count.
  void accumulate(const double* squared_distances, std::size_t count, double sill,
                  double* sums) const;

  static constexpr std::size_t padding = 8;

 private:
  explicit Kernel(Form form) : form_(form) {}

  Form form_;
  std::function<double(double)> function_;
};

}  // namespace talvorix
