#pragma once

#include <pybind11/pybind11.h>

// One routine a family, each given the module. Order matters: a family may only name Python types
// that an earlier one has registered.

namespace talvorix::python {

void register_spatial_module(pybind11::module_& m);
void register_covariance_module(pybind11::module_& m);
void register_grid_module(pybind11::module_& m);
void register_simulation_module(pybind11::module_& m);
void register_fim_module(pybind11::module_& m);
void register_tbsim_module(pybind11::module_& m);
void register_distribution_module(pybind11::module_& m);
void register_estimation_module(pybind11::module_& m);
// What of simulation names the types of estimation.
void register_conditioning(pybind11::module_& m);
void register_variogram_module(pybind11::module_& m);
void register_kfold_module(pybind11::module_& m);
void register_optimization_module(pybind11::module_& m);
void register_spectral_module(pybind11::module_& m);
void register_projection_module(pybind11::module_& m);
void register_ppmt_module(pybind11::module_& m);
void register_algebra_module(pybind11::module_& m);
void register_ceres_module(pybind11::module_& m);
void register_transiogram_module(pybind11::module_& m);
void register_markov_chain_module(pybind11::module_& m);

}  // namespace talvorix::python
