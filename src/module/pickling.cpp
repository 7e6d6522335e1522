#include "module/pickling.h"

#include "core/arguments.h"
#include "core/parallel.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <new>
#include <sstream>
#include <stdexcept>

namespace py = pybind11;

namespace talvorix::python {

namespace {

bool same_number(double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); }

template <class T>
bool same_numbers(const py::array& a, const py::array& b) {
  const auto x = py::array_t<T, py::array::c_style>::ensure(a);
  const auto y = py::array_t<T, py::array::c_style>::ensure(b);
  return std::equal(x.data(), x.data() + x.size(), y.data(), [](T p, T q) {
    return same_number(static_cast<double>(p), static_cast<double>(q));
  });
}

bool same_arrays(const py::array& a, const py::array& b) {
  if (a.ndim() != b.ndim() || !std::equal(a.shape(), a.shape() + a.ndim(), b.shape())) {
    return false;
  }
  if (a.dtype().kind() == 'f' && b.dtype().kind() == 'f') {
    return same_numbers<double>(a, b);
  }
  return a.dtype().equal(b.dtype()) &&
         same_numbers<std::int64_t>(py::array_t<std::int64_t>::ensure(a),
                                    py::array_t<std::int64_t>::ensure(b));
}

std::size_t mixed(std::size_t hash, std::size_t other) {
  return hash ^ (other + 0x9e3779b97f4a7c15U + (hash << 6) + (hash >> 2));
}

std::size_t hash_of_number(double number) {
  // Both zeros are equal, and all NaN.
  return std::isnan(number) ? 1 : std::hash<double>()(number == 0.0 ? 0.0 : number);
}

template <class T>
py::object narrowed(const std::vector<int>& values) {
  py::array_t<T> array(static_cast<py::ssize_t>(values.size()));
  std::transform(values.begin(), values.end(), array.mutable_data(),
                 [](int value) { return static_cast<T>(value); });
  return array;
}

bool fit_16_bits(const std::vector<int>& values) {
  using Limits = std::numeric_limits<std::int16_t>;
  return std::all_of(values.begin(), values.end(),
                     [](int value) { return value >= Limits::min() && value <= Limits::max(); });
}

}  // namespace

void require_state(bool condition, const char* text) {
  if (!condition) {
    throw std::invalid_argument(text);
  }
}

py::object Packed<std::vector<int>>::pack(const std::vector<int>& values) {
  return fit_16_bits(values) ? narrowed<std::int16_t>(values) : narrowed<std::int32_t>(values);
}

std::vector<int> Packed<std::vector<int>>::unpack(py::handle item) {
  if (py::isinstance<py::array_t<std::int16_t>>(item)) {
    const auto array = array_of_state<std::int16_t>(item, 1);
    return {array.data(), array.data() + array.size()};
  }
  const auto array = array_of_state<std::int32_t>(item, 1);
  return {array.data(), array.data() + array.size()};
}

py::object Packed<Locations>::pack(const Locations& locations) {
  py::array_t<double> array({static_cast<py::ssize_t>(locations.size()), py::ssize_t{3}});
  if (!locations.empty()) {
    std::memcpy(array.mutable_data(), locations.front().data(), locations.size() * sizeof(Vector3));
  }
  return array;
}

Locations Packed<Locations>::unpack(py::handle item) {
  const auto array = array_of_state<double>(item, 2);
  require_state(array.shape(1) == 3, "an array of locations has not three columns");
  Locations locations(static_cast<std::size_t>(array.shape(0)));
  if (!locations.empty()) {
    std::memcpy(locations.front().data(), array.data(), locations.size() * sizeof(Vector3));
  }
  return locations;
}

py::object Packed<std::vector<bool>>::pack(const std::vector<bool>& flags) {
  std::string bytes((flags.size() + 7) / 8, '\0');
  for (std::size_t i = 0; i < flags.size(); ++i) {
    if (flags[i]) {
      bytes[i / 8] = static_cast<char>(static_cast<unsigned char>(bytes[i / 8]) | (1U << (i % 8)));
    }
  }
  return py::make_tuple(flags.size(), py::bytes(bytes));
}

std::vector<bool> Packed<std::vector<bool>>::unpack(py::handle item) {
  const auto [size, packed] = item.cast<std::pair<std::size_t, py::bytes>>();
  const std::string bytes = packed;
  require_state(size <= bytes.size() * 8 && bytes.size() == (size + 7) / 8,
                "the number of flags is not that of its bytes");
  std::vector<bool> flags(size);
  for (std::size_t i = 0; i < size; ++i) {
    flags[i] = (static_cast<unsigned char>(bytes[i / 8]) >> (i % 8) & 1U) != 0;
  }
  return flags;
}

Eigen::MatrixXd Packed<Eigen::MatrixXd>::unpack(py::handle item) {
  Eigen::MatrixXd table;
  const auto array = array_of_state<double>(item, 2);
  require_state(read_table(array, table), "a table of numbers is missing");
  return table;
}

int number_of(const Kernel& kernel) {
  if (kernel.form() == Kernel::Form::function) {
    throw py::type_error("a kernel that is a function of its own cannot be pickled");
  }
  return static_cast<int>(kernel.form());
}

Kernel kernel_of(int number) {
  switch (static_cast<Kernel::Form>(number)) {
    case Kernel::Form::spherical:
      return Kernel::spherical();
    case Kernel::Form::gaussian:
      return Kernel::gaussian();
    case Kernel::Form::exponential:
      return Kernel::exponential();
    case Kernel::Form::nugget:
      return Kernel::nugget();
    case Kernel::Form::idw:
      return Kernel::idw();
    case Kernel::Form::function:
      break;
  }
  throw std::invalid_argument("there is no kernel of number " + std::to_string(number));
}

Covariance::Type covariance_type_of(int number) {
  require_state(number >= static_cast<int>(Covariance::Type::spherical) &&
                    number <= static_cast<int>(Covariance::Type::idw),
                "there is no type of structure of that number");
  return static_cast<Covariance::Type>(number);
}

std::string shown(double number) { return to_text(number); }

std::string shown(const Vector3& v) {
  return "(" + shown(v[0]) + ", " + shown(v[1]) + ", " + shown(v[2]) + ")";
}

std::string shown_call(const char* name, const py::dict& arguments) {
  std::string text = name;
  const char* separator = "(";
  for (const auto& [key, value] : arguments) {
    text += separator + key.cast<std::string>() + "=" + py::repr(value).cast<std::string>();
    separator = ", ";
  }
  return text + ")";
}

bool same_state(py::handle a, py::handle b) {
  if (py::isinstance<py::tuple>(a) && py::isinstance<py::tuple>(b)) {
    const auto x = py::reinterpret_borrow<py::tuple>(a);
    const auto y = py::reinterpret_borrow<py::tuple>(b);
    return x.size() == y.size() &&
           std::equal(x.begin(), x.end(), y.begin(),
                      [](py::handle p, py::handle q) { return same_state(p, q); });
  }
  if (PyFloat_Check(a.ptr()) != 0 && PyFloat_Check(b.ptr()) != 0) {
    return same_number(PyFloat_AS_DOUBLE(a.ptr()), PyFloat_AS_DOUBLE(b.ptr()));
  }
  if (py::isinstance<py::array>(a) && py::isinstance<py::array>(b)) {
    return same_arrays(py::reinterpret_borrow<py::array>(a), py::reinterpret_borrow<py::array>(b));
  }
  return a.equal(b);
}

py::ssize_t hash_of_state(py::handle state) {
  std::size_t hash = 17;
  if (py::isinstance<py::tuple>(state)) {
    for (const py::handle item : py::reinterpret_borrow<py::tuple>(state)) {
      hash = mixed(hash, static_cast<std::size_t>(hash_of_state(item)));
    }
  } else if (PyFloat_Check(state.ptr()) != 0) {
    hash = hash_of_number(PyFloat_AS_DOUBLE(state.ptr()));
  } else if (py::isinstance<py::array>(state)) {
    const auto numbers = py::array_t<double, py::array::c_style>::ensure(state);
    for (py::ssize_t i = 0; i < numbers.size(); ++i) {
      hash = mixed(hash, hash_of_number(numbers.data()[i]));
    }
  } else {
    return py::hash(state);
  }
  return static_cast<py::ssize_t>(hash);
}

py::tuple checked_state(const py::object& state, std::size_t n_fields) {
  require_state(py::isinstance<py::tuple>(state), "it is not a tuple");
  auto fields = py::reinterpret_borrow<py::tuple>(state);
  require_state(!fields.empty() && PyLong_Check(fields[0].ptr()) != 0, "it has no format number");
  require_state(py::object(fields[0]).equal(py::int_(state_format)),
                "its format is not 1, the one that this version knows");
  require_state(fields.size() == n_fields + 1, "the number of its fields is not that of the class");
  return fields;
}

void rethrow_as_wrong_state(const std::string& class_name) {
  const std::string text =
      "state is not that of a pickled " + class_name + ", which was expected: ";
  try {
    throw;
  } catch (const std::bad_alloc&) {
    throw;
  } catch (py::error_already_set& error) {
    for (PyObject* unrelated : {PyExc_TypeError, PyExc_ValueError, PyExc_LookupError,
                                PyExc_AttributeError, PyExc_OverflowError}) {
      if (error.matches(unrelated)) {
        const std::string reason = py::str(error.value());
        py::raise_from(error, PyExc_ValueError, (text + reason).c_str());
        throw py::error_already_set();
      }
    }
    throw;
  } catch (const py::cast_error&) {
    throw py::value_error(text + "a field is of another type");
  } catch (const std::exception& error) {
    throw py::value_error(text + error.what());
  }
}

std::shared_ptr<const Recipe> share_recipe(std::string factory, py::dict arguments) {
  return {new PythonRecipe(std::move(factory), std::move(arguments)), [](const Recipe* recipe) {
            const py::gil_scoped_acquire interpreter_lock;
            delete recipe;
          }};
}

std::string path_of(py::handle scope, const char* name) {
  std::string path;
  if (py::isinstance<py::module_>(scope)) {
    path = scope.attr("__name__").cast<std::string>();
  } else {
    path = scope.attr("__module__").cast<std::string>() + "." +
           scope.attr("__qualname__").cast<std::string>();
  }
  return path + "." + name;
}

py::object find_by_path(const std::string& path) {
  std::istringstream names(path);
  std::string name;
  std::getline(names, name, '.');
  py::object found = py::module_::import(name.c_str());
  while (std::getline(names, name, '.')) {
    found = found.attr(name.c_str());
  }
  return found;
}

py::tuple state_of(const Made& made, const std::string& class_name) {
  const auto* recipe = dynamic_cast<const PythonRecipe*>(made.recipe().get());
  if (recipe == nullptr) {
    throw py::type_error("this " + class_name +
                         " cannot be pickled: it was not made by a factory that is known by name");
  }
  return py::make_tuple(state_format, recipe->factory(),
                        py::dict(recipe->arguments().attr("copy")()));
}

std::string text_of(const Made& made, const std::string& class_name) {
  const auto* recipe = dynamic_cast<const PythonRecipe*>(made.recipe().get());
  return "<" + class_name + (recipe == nullptr ? "" : " made by " + recipe->factory()) + ">";
}

py::object pack_n_threads(int n_threads) { return py::int_(check_n_threads(n_threads)); }

}  // namespace talvorix::python
