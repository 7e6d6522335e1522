#include "covariance/generic_covariance.h"

#include <ceres/jet.h>

namespace talvorix {

// The two scalars that models are evaluated and fitted with; seven is the solver's stride.
using Jet7 = ceres::Jet<double, 7>;

template class GenericKernel<double>;
template class GenericKernel<Jet7>;
template class GenericCovariance<double>;
template class GenericCovariance<Jet7>;
template class GenericNestedCovariance<double>;
template class GenericNestedCovariance<Jet7>;

}  // namespace talvorix
