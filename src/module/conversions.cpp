#include "module/conversions.h"

#include "core/interrupt.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <string_view>

namespace py = pybind11;

namespace talvorix::python {

namespace {

bool is_of_kind(const py::array& array, std::string_view kinds) {
  return kinds.find(array.dtype().kind()) != std::string_view::npos;
}

bool is_text(py::handle source) {
  return PyUnicode_Check(source.ptr()) || PyBytes_Check(source.ptr()) ||
         PyByteArray_Check(source.ptr());
}

constexpr std::string_view real_kinds = "biuf";
constexpr std::string_view integer_kinds = "biu";

std::optional<py::array> unless_of_objects(py::array array) {
  if (!array || array.dtype().kind() == 'O') {
    return std::nullopt;
  }
  return array;
}

// The object as an array of numbers, when it is one or offers itself as one (a table's column,
// say). Plain lists and tuples, and arrays of Python objects, are read item by item instead.
std::optional<py::array> as_array(py::handle source) {
  if (py::isinstance<py::array>(source)) {
    return unless_of_objects(py::reinterpret_borrow<py::array>(source));
  }
  if (PyList_Check(source.ptr()) || PyTuple_Check(source.ptr()) || is_text(source) ||
      (!py::hasattr(source, "__array__") && PyObject_CheckBuffer(source.ptr()) == 0)) {
    return std::nullopt;
  }
  return unless_of_objects(py::array::ensure(source));
}

template <class T>
using ContiguousArray = py::array_t<T, py::array::c_style | py::array::forcecast>;

// Copies the values of an array, in row order, to where they go.
template <class T>
bool copy_values(const py::array& array, T* to) {
  const auto values = ContiguousArray<T>::ensure(array);
  if (!values) {
    PyErr_Clear();
    return false;
  }
  if (values.size() > 0) {
    std::memcpy(to, values.data(), static_cast<std::size_t>(values.size()) * sizeof(T));
  }
  return true;
}

bool read_number(PyObject* source, double& number) {
  if (PyFloat_CheckExact(source)) {
    number = PyFloat_AS_DOUBLE(source);
    return true;
  }
  // Texts have no place among numbers, though float() would read them.
  if (is_text(source)) {
    return false;
  }
  number = PyFloat_AsDouble(source);
  if (number == -1.0 && PyErr_Occurred() != nullptr) {
    PyErr_Clear();
    return false;
  }
  return true;
}

bool read_number(PyObject* source, long long& number) {
  if (PyIndex_Check(source) == 0) {
    return false;
  }
  const auto index = py::reinterpret_steal<py::object>(PyNumber_Index(source));
  number = index ? PyLong_AsLongLong(index.ptr()) : -1;
  if (PyErr_Occurred() != nullptr) {
    PyErr_Clear();
    return false;
  }
  return true;
}

// Calls read(item) for each item of a sequence until one cannot be read. Reading an item may run
// Python code, so nothing about the sequence is taken for granted from one item to the next.
template <class ReadItem>
bool read_items(py::handle source, ReadItem&& read) {
  if (PySequence_Check(source.ptr()) == 0 || is_text(source)) {
    return false;
  }
  const auto items = py::reinterpret_steal<py::object>(PySequence_Fast(source.ptr(), ""));
  if (!items) {
    PyErr_Clear();
    return false;
  }
  InterruptPoller poll;
  for (Py_ssize_t i = 0; i < PySequence_Fast_GET_SIZE(items.ptr()); ++i) {
    poll();
    const auto item = py::reinterpret_borrow<py::object>(PySequence_Fast_GET_ITEM(items.ptr(), i));
    if (!read(item.ptr())) {
      return false;
    }
  }
  return true;
}

template <class T>
bool read_number_list(py::handle source, std::string_view kinds, std::vector<T>& values) {
  values.clear();
  if (const auto array = as_array(source)) {
    if (array->ndim() != 1) {
      return false;
    }
    if (array->size() == 0) {
      return true;
    }
    values.resize(static_cast<std::size_t>(array->size()));
    return is_of_kind(*array, kinds) && copy_values(*array, values.data());
  }
  return read_items(source, [&](PyObject* item) {
    T number{};
    if (!read_number(item, number)) {
      return false;
    }
    values.push_back(number);
    return true;
  });
}

bool is_location_shape(const py::array& array) {
  return (array.ndim() == 1 && array.shape(0) == 3) ||
         (array.ndim() == 2 && array.shape(0) == 3 && array.shape(1) == 1) ||
         (array.ndim() == 2 && array.shape(0) == 1 && array.shape(1) == 3);
}

bool is_location_list_shape(const py::array& array) {
  if (array.ndim() == 1) {
    return array.shape(0) == 0;
  }
  return (array.ndim() == 2 && array.shape(1) == 3) ||
         (array.ndim() == 3 && array.shape(1) == 3 && array.shape(2) == 1) ||
         (array.ndim() == 3 && array.shape(1) == 1 && array.shape(2) == 3);
}

}  // namespace

bool read_location(py::handle source, Vector3& location) {
  if (const auto array = as_array(source)) {
    if (!is_location_shape(*array)) {
      return false;
    }
    if (py::isinstance<py::array_t<double>>(*array)) {
      const py::ssize_t stride = array->strides(array->shape(0) == 3 ? 0 : 1);
      const auto* bytes = static_cast<const char*>(array->data());
      for (int k = 0; k < 3; ++k) {
        std::memcpy(&location[k], bytes + k * stride, sizeof(double));
      }
      return true;
    }
    return is_of_kind(*array, real_kinds) && copy_values(*array, location.data());
  }
  int count = 0;
  const bool all_read = read_items(
      source, [&](PyObject* item) { return count < 3 && read_number(item, location[count++]); });
  return all_read && count == 3;
}

bool read_locations(py::handle source, Locations& locations) {
  static_assert(sizeof(Vector3) == 3 * sizeof(double));
  locations.clear();
  if (const auto array = as_array(source)) {
    if (!is_location_list_shape(*array)) {
      return false;
    }
    if (array->size() == 0) {
      return true;
    }
    if (!is_of_kind(*array, real_kinds)) {
      return false;
    }
    locations.resize(static_cast<std::size_t>(array->shape(0)));
    return copy_values(*array, locations.front().data());
  }
  return read_items(source, [&](PyObject* item) {
    Vector3 location;
    if (!read_location(item, location)) {
      return false;
    }
    locations.push_back(location);
    return true;
  });
}

bool read_table(py::handle source, Eigen::MatrixXd& table) {
  using RowMajor = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;
  if (const auto array = as_array(source)) {
    if (array->ndim() != 2 || !is_of_kind(*array, real_kinds)) {
      return false;
    }
    const auto values = ContiguousArray<double>::ensure(*array);
    if (!values) {
      PyErr_Clear();
      return false;
    }
    table = Eigen::Map<const RowMajor>(values.data(), values.shape(0), values.shape(1));
    return true;
  }
  std::vector<std::vector<double>> rows;
  const bool all_read = read_items(source, [&](PyObject* item) {
    rows.emplace_back();
    return read_values(item, rows.back());
  });
  if (!all_read) {
    return false;
  }
  const std::size_t width = rows.empty() ? 0 : rows.front().size();
  table.resize(static_cast<Eigen::Index>(rows.size()), static_cast<Eigen::Index>(width));
  for (std::size_t i = 0; i < rows.size(); ++i) {
    if (rows[i].size() != width) {
      throw py::value_error("row " + std::to_string(i) + " of a table has " +
                            std::to_string(rows[i].size()) + " entries but row 0 has " +
                            std::to_string(width) + "; they must be as many");
    }
    table.row(static_cast<Eigen::Index>(i)) =
        Eigen::Map<const Eigen::RowVectorXd>(rows[i].data(), static_cast<Eigen::Index>(width));
  }
  return true;
}

bool read_matrix(py::handle source, Matrix3& matrix) {
  py::array array = py::array::ensure(source);
  if (!array || array.ndim() != 2 || array.shape(0) != 3 || array.shape(1) != 3 ||
      !is_of_kind(array, real_kinds)) {
    PyErr_Clear();
    return false;
  }
  Eigen::Matrix<double, 3, 3, Eigen::RowMajor> rows;
  if (!copy_values(array, rows.data())) {
    return false;
  }
  matrix = rows;
  return true;
}

bool read_values(py::handle source, std::vector<double>& values) {
  return read_number_list(source, real_kinds, values);
}

bool read_integers(py::handle source, std::vector<int>& values) {
  std::vector<long long> wide;
  if (!read_number_list(source, integer_kinds, wide)) {
    return false;
  }
  values.assign(wide.begin(), wide.end());
  // A number that the narrow type cannot hold has changed on the way; an unsigned one that the
  // wide type could not hold has turned negative.
  const auto array = as_array(source);
  const bool is_unsigned = array && array->dtype().kind() == 'u';
  return std::equal(wide.begin(), wide.end(), values.begin()) &&
         (!is_unsigned ||
          std::all_of(wide.begin(), wide.end(), [](long long v) { return v >= 0; }));
}

bool read_flags(py::handle source, std::vector<bool>& flags) {
  flags.clear();
  if (const auto array = as_array(source)) {
    if (array->ndim() != 1 || (array->size() > 0 && !is_of_kind(*array, integer_kinds))) {
      return false;
    }
    const auto truths = ContiguousArray<bool>::ensure(*array);
    if (!truths) {
      PyErr_Clear();
      return false;
    }
    flags.assign(truths.data(), truths.data() + truths.size());
    return true;
  }
  return read_items(source, [&](PyObject* item) {
    // Truth values of numpy are no integers.
    const std::string_view type = Py_TYPE(item)->tp_name;
    if (PyLong_Check(item) == 0 && type != "numpy.bool" && type != "numpy.bool_" &&
        PyIndex_Check(item) == 0) {
      return false;
    }
    flags.push_back(PyObject_IsTrue(item) == 1);
    return true;
  });
}

std::optional<double> number_from(const py::object& result) {
  if (PyUnicode_Check(result.ptr()) != 0 || PyBytes_Check(result.ptr()) != 0) {
    return std::nullopt;
  }
  const double number = PyFloat_AsDouble(result.ptr());
  if (number == -1.0 && PyErr_Occurred() != nullptr) {
    if (PyErr_ExceptionMatches(PyExc_TypeError) == 0) {
      throw py::error_already_set();
    }
    PyErr_Clear();
    return std::nullopt;
  }
  return number;
}

void throw_no_number(const std::string& callback, const py::object& result) {
  throw py::type_error(callback + " returned an object of type " +
                       std::string(py::str(py::type::of(result).attr("__name__"))) +
                       "; it must return a number");
}

py::array_t<double> to_array(const Vector3& location) {
  py::array_t<double> array({3, 1});
  std::memcpy(array.mutable_data(), location.data(), 3 * sizeof(double));
  return array;
}

py::array_t<double> to_array(const Matrix3& matrix) {
  py::array_t<double> array({3, 3});
  Eigen::Map<Eigen::Matrix<double, 3, 3, Eigen::RowMajor>>(array.mutable_data()) = matrix;
  return array;
}

py::array_t<double> to_array(const Eigen::MatrixXd& table) {
  using RowMajor = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;
  py::array_t<double> array({table.rows(), table.cols()});
  Eigen::Map<RowMajor>(array.mutable_data(), table.rows(), table.cols()) = table;
  return array;
}

py::list to_list(const Locations& locations) {
  py::list list(locations.size());
  InterruptPoller poll;
  for (std::size_t i = 0; i < locations.size(); ++i) {
    poll();
    PyList_SET_ITEM(list.ptr(), static_cast<Py_ssize_t>(i), to_array(locations[i]).release().ptr());
  }
  return list;
}

py::list to_list(const std::vector<double>& values) {
  py::list list(values.size());
  InterruptPoller poll;
  for (std::size_t i = 0; i < values.size(); ++i) {
    poll();
    PyObject* value = PyFloat_FromDouble(values[i]);
    if (value == nullptr) {
      throw py::error_already_set();
    }
    PyList_SET_ITEM(list.ptr(), static_cast<Py_ssize_t>(i), value);
  }
  return list;
}

}  // namespace talvorix::python
