#include "covariance/covariance.h"

namespace talvorix {

Covariance::Type parse_covariance_type(std::string_view text) {
  if (text == "spherical") return Covariance::Type::spherical;
  if (text == "gaussian") return Covariance::Type::gaussian;
  if (text == "exponential") return Covariance::Type::exponential;
  if (text == "idw") return Covariance::Type::idw;
  return Covariance::Type::nugget;
}

std::string to_text(Covariance::Type type) {
  switch (type) {
    case Covariance::Type::spherical:
      return "spherical";
    case Covariance::Type::gaussian:
      return "gaussian";
    case Covariance::Type::exponential:
      return "exponential";
    case Covariance::Type::idw:
      return "idw";
    case Covariance::Type::nugget:
      break;
  }
  return "nugget";
}

Kernel plain_kernel(Covariance::Type type) {
  switch (type) {
    case Covariance::Type::spherical:
      return Kernel::spherical();
    case Covariance::Type::gaussian:
      return Kernel::gaussian();
    case Covariance::Type::exponential:
      return Kernel::exponential();
    case Covariance::Type::idw:
      return Kernel::idw();
    case Covariance::Type::nugget:
      break;
  }
  return Kernel::nugget();
}

}  // namespace talvorix
