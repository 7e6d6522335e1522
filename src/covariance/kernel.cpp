#include "covariance/kernel.h"

#include <Eigen/Core>

namespace talvorix {

namespace {

using Lanes = Eigen::Array<double, static_cast<int>(Kernel::padding), 1>;

// Runs over whole blocks of lanes, the last one into the padding.
template <class Correlation>
void accumulate_lanes(const double* squared_distances, std::size_t count, double sill,
                      double* sums, Correlation correlation) {
  for (std::size_t i = 0; i < count; i += Kernel::padding) {
    const Lanes d2 = Eigen::Map<const Lanes>(squared_distances + i);
    Eigen::Map<Lanes>(sums + i) += sill * correlation(d2);
  }
}

}  // namespace

CovarianceType parse_covariance_type(std::string_view text) {
  if (text == "spherical") return CovarianceType::spherical;
  if (text == "gaussian") return CovarianceType::gaussian;
  if (text == "exponential") return CovarianceType::exponential;
  if (text == "idw") return CovarianceType::idw;
  return CovarianceType::nugget;
}

std::string to_text(CovarianceType type) {
  switch (type) {
    case CovarianceType::spherical:
      return "spherical";
    case CovarianceType::gaussian:
      return "gaussian";
    case CovarianceType::exponential:
      return "exponential";
    case CovarianceType::idw:
      return "idw";
    case CovarianceType::nugget:
      break;
  }
  return "nugget";
}

double Kernel::operator()(double h) const {
  switch (form_) {
    case Form::spherical:
      return spherical_kernel(h);
    case Form::gaussian:
      return gaussian_kernel(h);
    case Form::exponential:
      return exponential_kernel(h);
    case Form::nugget:
      return nugget_kernel(h);
    case Form::idw:
      return idw_kernel(h);
    case Form::function:
      break;
  }
  return function_(h);
}

void Kernel::accumulate(const double* squared_distances, std::size_t count, double sill,
                        double* sums) const {
  switch (form_) {
    case Form::spherical:
      accumulate_lanes(squared_distances, count, sill, sums, [](const Lanes& d2) -> Lanes {
        const Lanes h = d2.sqrt();
        return (h > 1.0).select(Lanes::Zero(), (1.0 - 1.5 * h) + (0.5 * h * h) * h);
      });
      return;
    case Form::gaussian:
      accumulate_lanes(squared_distances, count, sill, sums,
                       [](const Lanes& d2) -> Lanes { return (-3.0 * d2).exp(); });
      return;
    case Form::exponential:
      accumulate_lanes(squared_distances, count, sill, sums,
                       [](const Lanes& d2) -> Lanes { return (-3.0 * d2.sqrt()).exp(); });
      return;
    case Form::nugget:
      accumulate_lanes(squared_distances, count, sill, sums, [](const Lanes& d2) -> Lanes {
        return (d2.sqrt() < 1e-8).select(Lanes::Ones(), Lanes::Zero());
      });
      return;
    case Form::idw:
    case Form::function:
      break;
  }
  for (std::size_t i = 0; i < count; ++i) {
    sums[i] += sill * (*this)(std::sqrt(squared_distances[i]));
  }
}

Kernel plain_kernel(CovarianceType type) {
  switch (type) {
    case CovarianceType::spherical:
      return Kernel::spherical();
    case CovarianceType::gaussian:
      return Kernel::gaussian();
    case CovarianceType::exponential:
      return Kernel::exponential();
    case CovarianceType::idw:
      return Kernel::idw();
    case CovarianceType::nugget:
      break;
  }
  return Kernel::nugget();
}

}  // namespace talvorix
