#include "module/conversions.h"
#include "module/pickling.h"
#include "module/registration.h"
#include "spectral/line_projection.h"
#include "spectral/spectral_data_1d.h"

#include <pybind11/pybind11.h>

#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

namespace py = pybind11;

namespace talvorix::python {

namespace {

void bind_spectral_data(py::module_& m) {
  py::class_<SpectralData1D> cls(m, "SpectralData1D", R"(
The spectrum of a series of n values: an entry for each of the n frequencies.

Entry f belongs to f cycles over the series. Those above n / 2 mirror those below, as for every real
series; `backward` does not read them.
)");
  cls.def(py::init<std::vector<double>, std::vector<double>>(), py::arg("magnitude"),
          py::arg("phase"), R"(
Put a spectrum together from its polar form.

Parameters
----------
magnitude : list of float, or array of shape (n,)
phase : list of float, or array of shape (n,)
    Radians.

Raises
------
ValueError
    When the two are not equally long.
)")
      .def_static(
          "forward", [](const std::vector<double>& data) { return SpectralData1D::forward(data); },
          py::arg("data"), R"(
Take the spectrum of a series: its discrete Fourier transform, not normalised.

Parameters
----------
data : list of float, or array of shape (n,)

Returns
-------
SpectralData1D
)")
      .def("backward", &SpectralData1D::backward, R"(
Take the series that has this spectrum.

Returns
-------
list of float
    The n values. Frequencies above n / 2 have no effect on them.
)")
      .def(
          "filter_frequencies",
          [](const SpectralData1D& self, const std::vector<int>& frequencies) {
            return self.filter_frequencies(frequencies);
          },
          py::arg("frequencies"), R"(
Keep some frequencies alone.

Parameters
----------
frequencies : list of int
    From 0 to n - 1. Each is kept together with its mirror, n - f; frequency 0, which carries the
    mean, only when it is listed.

Returns
-------
SpectralData1D
    The others are 0 in it.

Raises
------
IndexError
    When a frequency is not from 0 to n - 1.
)")
      .def("polar", &SpectralData1D::polar, py::arg("shift") = false, R"(
The spectrum in polar form.

Parameters
----------
shift : bool, default False
    Whether to turn the lists so that frequency 0 stands in the middle, at n // 2.

Returns
-------
tuple of (list of float, list of float)
    Magnitude and phase, in radians.
)")
      .def("cartesian", &SpectralData1D::cartesian, py::arg("shift") = false, R"(
The spectrum in Cartesian form.

Parameters
----------
shift : bool, default False
    Whether to turn the lists so that frequency 0 stands in the middle, at n // 2.

Returns
-------
tuple of (list of float, list of float)
    Real and imaginary parts.
)")
      .def("smooth_frequencies", &SpectralData1D::smooth_frequencies, py::arg("window_size"), R"(
Smooth the magnitudes by a moving average, which leaves their total as it is.

Parameters
----------
window_size : int
    Number of frequencies to either side that are averaged; fewer at the ends. The sum is divided by
    the terms less one, so that with a window of 0 nothing but NaN is left.

Returns
-------
SpectralData1D
    With the smooth magnitudes and the same phases.

Raises
------
ValueError
    When `window_size` is negative.
)")
      .def_property_readonly("magnitude", &SpectralData1D::magnitude, "Magnitudes, as a list.")
      .def_property_readonly("phase", &SpectralData1D::phase, "Phases in radians, as a list.")
      .def_property_readonly("real", &SpectralData1D::real, "Real parts, as a list.")
      .def_property_readonly("imag", &SpectralData1D::imag, "Imaginary parts, as a list.")
      .def("__len__", &SpectralData1D::size)
      .def("__repr__", [](const SpectralData1D& self) {
        return "<SpectralData1D of " + std::to_string(self.size()) + " frequencies>";
      });
  define_value(
      cls,
      [](const SpectralData1D& self) {
        return std::tie(self.magnitude(), self.phase(), self.real(), self.imag());
      },
      &SpectralData1D::from_parts, Hashing::by_value);
}

void bind_line_projection(py::module_& m) {
  m.def(
      "project_to_line",
      [](const std::vector<double>& x, const std::vector<double>& data, double b, double power_a,
         int n_points,
         int window_size) { return project_to_line(x, data, b, power_a, n_points, window_size); },
      py::arg("x"), py::arg("data"), py::arg("b"), py::arg("power_a"), py::arg("n_points"),
      py::arg("window_size"), R"(
Carry scattered samples to regular positions, from the least `x` to the largest.

At each position stands the mean of the samples nearest to it, with the weight 1 / (d^power_a + b)
at the distance d (Shepard 1968).

Parameters
----------
x : list of float, or array of shape (n,)
    Positions of the samples, in any order.
data : list of float, or array of shape (n,)
b : float
    Keeps the weight of a sample at the very position finite: with 0 such a position gives NaN, and
    the first and the last are such. The larger, the smoother.
power_a : float
    The common powers 1, 2 and 3 are taken when this is within a millionth of them.
n_points : int
    Number of positions. A single one is the least `x`.
window_size : int
    Number of samples in a mean; all of them when there are fewer.

Returns
-------
list of float
    The `n_points` values.

Raises
------
ValueError
    When `x` and `data` are not equally long, `x` is empty or not finite, or a count is below 1.

References
----------
Shepard, D. (1968). A two-dimensional interpolation function for irregularly-spaced data.
Proceedings of the 23rd ACM national conference, 517-524.
)");
  m.def(
      "project_back_to_source",
      [](const std::vector<double>& target_x, const std::vector<double>& source_x,
         const std::vector<double>& source_data, double dr, double b, double power_a) {
        return project_back_to_source(target_x, source_x, source_data, dr, b, power_a);
      },
      py::arg("target_x"), py::arg("source_x"), py::arg("source_data"), py::arg("dr"), py::arg("b"),
      py::arg("power_a"), R"(
Carry values along a line, as `project_to_line` makes them, to other positions.

Parameters
----------
target_x : list of float, or array of shape (m,)
    Positions where values are wanted, in any order.
source_x : list of float, or array of shape (n,)
    Positions of the values.
source_data : list of float, or array of shape (n,)
dr : float
    Sources at most this far from a target count in its mean.
b, power_a : float
    Of the weights, as for `project_to_line`.

Returns
-------
list of float
    One value for each target; NaN where no source is within `dr`.

Raises
------
ValueError
    When `source_x` and `source_data` are not equally long or a position is not finite.
)");
}

}  // namespace

void register_spectral_module(py::module_& m) {
  py::module_ fft = m.def_submodule(
      "fft", "Spectra of series along a line, and what carries scattered samples to such a line.");
  bind_spectral_data(fft);
  bind_line_projection(fft);
}

}  // namespace talvorix::python
