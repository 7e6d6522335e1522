#pragma once

#include "core/geometry.h"
#include "core/interrupt.h"
#include "spatial/ellipsoid.h"

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>
#include <Eigen/Core>

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// How values cross between Python and the library, in one place. Every file that binds functions
// includes this one, so that the same type converts the same way everywhere.
//
// A location goes out as an array of shape (3, 1) and comes in as an array of shape (3,), (3, 1) or
// (1, 3) or a sequence of three numbers. A location list comes in as any sequence of those, or as
// an (n, 3), (n, 3, 1) or (n, 1, 3) array of any real type, which is read without making a Python
// object for a row. A value list comes in as any sequence of numbers or a one-dimensional array,
// a list of flags as any sequence of truth values or integers or such an array. A table goes out as
// an array of shape (m, n), and comes in as one of any real type or as a sequence of value lists.

namespace talvorix::python {

// Each reads a Python object into the value and tells whether it could.
bool read_location(pybind11::handle source, Vector3& location);
bool read_locations(pybind11::handle source, Locations& locations);
bool read_matrix(pybind11::handle source, Matrix3& matrix);
// A table: a two-dimensional array of any real type, or a sequence of equally long value lists;
// throws ValueError when they are not equally long.
bool read_table(pybind11::handle source, Eigen::MatrixXd& table);
bool read_values(pybind11::handle source, std::vector<double>& values);
bool read_integers(pybind11::handle source, std::vector<int>& values);
bool read_flags(pybind11::handle source, std::vector<bool>& flags);

// The number that a callback returned, if it is one. What its conversion raised passes through.
std::optional<double> number_from(const pybind11::object& result);
[[noreturn]] void throw_no_number(const std::string& callback, const pybind11::object& result);

// The number that a callback returned; anything else is a TypeError that names the callback.
template <class Name>
double returned_number(const pybind11::object& result, Name&& callback_name) {
  const std::optional<double> number = number_from(result);
  if (!number) {
    throw_no_number(callback_name(), result);
  }
  return *number;
}

pybind11::array_t<double> to_array(const Vector3& location);
pybind11::array_t<double> to_array(const Matrix3& matrix);
pybind11::array_t<double> to_array(const Eigen::MatrixXd& table);
pybind11::list to_list(const Locations& locations);
pybind11::list to_list(const std::vector<double>& values);

}  // namespace talvorix::python

namespace pybind11::detail {

// Lists of objects that may be long go out with a look for the user's wish to stop.
template <class T>
struct polled_list_caster : list_caster<std::vector<T>, T> {
  template <class List>
  static handle cast(List&& items, return_value_policy, handle parent) {
    list result(items.size());
    talvorix::InterruptPoller poll;
    for (std::size_t i = 0; i < items.size(); ++i) {
      poll();
      const handle item =
          make_caster<T>::cast(std::move(items[i]), return_value_policy::move, parent);
      if (!item) {
        return {};
      }
      PyList_SET_ITEM(result.ptr(), static_cast<ssize_t>(i), item.ptr());
    }
    return result.release();
  }
};

template <>
struct type_caster<talvorix::Vector3> {
  PYBIND11_TYPE_CASTER(talvorix::Vector3, const_name("numpy.ndarray[numpy.float64[3, 1]]"));
  bool load(handle source, bool) { return talvorix::python::read_location(source, value); }
  static handle cast(const talvorix::Vector3& location, return_value_policy, handle) {
    return talvorix::python::to_array(location).release();
  }
};

template <>
struct type_caster<talvorix::Matrix3> {
  PYBIND11_TYPE_CASTER(talvorix::Matrix3, const_name("numpy.ndarray[numpy.float64[3, 3]]"));
  bool load(handle source, bool) { return talvorix::python::read_matrix(source, value); }
  static handle cast(const talvorix::Matrix3& matrix, return_value_policy, handle) {
    return talvorix::python::to_array(matrix).release();
  }
};

template <>
struct type_caster<Eigen::MatrixXd> {
  PYBIND11_TYPE_CASTER(Eigen::MatrixXd, const_name("numpy.ndarray[numpy.float64[m, n]]"));
  bool load(handle source, bool) { return talvorix::python::read_table(source, value); }
  static handle cast(const Eigen::MatrixXd& table, return_value_policy, handle) {
    return talvorix::python::to_array(table).release();
  }
};

template <>
struct type_caster<talvorix::Locations> {
  PYBIND11_TYPE_CASTER(talvorix::Locations, const_name("List[numpy.ndarray[numpy.float64[3, 1]]]"));
  bool load(handle source, bool) { return talvorix::python::read_locations(source, value); }
  static handle cast(const talvorix::Locations& locations, return_value_policy, handle) {
    return talvorix::python::to_list(locations).release();
  }
};

template <>
struct type_caster<std::vector<double>> {
  PYBIND11_TYPE_CASTER(std::vector<double>, const_name("List[float]"));
  bool load(handle source, bool) { return talvorix::python::read_values(source, value); }
  static handle cast(const std::vector<double>& values, return_value_policy, handle) {
    return talvorix::python::to_list(values).release();
  }
};

template <>
struct type_caster<std::vector<int>> : list_caster<std::vector<int>, int> {
  static constexpr auto name = const_name("List[int]");
  bool load(handle source, bool) { return talvorix::python::read_integers(source, value); }
};

template <>
struct type_caster<std::vector<bool>> {
  PYBIND11_TYPE_CASTER(std::vector<bool>, const_name("List[bool]"));
  bool load(handle source, bool) { return talvorix::python::read_flags(source, value); }
};

template <>
struct type_caster<std::vector<talvorix::Matrix3>> : polled_list_caster<talvorix::Matrix3> {};

template <>
struct type_caster<std::vector<talvorix::Ellipsoid>> : polled_list_caster<talvorix::Ellipsoid> {};

}  // namespace pybind11::detail
