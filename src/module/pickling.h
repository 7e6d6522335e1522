#pragma once

#include "core/made.h"
#include "covariance/covariance.h"
#include "module/conversions.h"

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

// How bound objects are pickled, copied and compared, in one place.
//
// A value gives its state: a tuple that begins with the number of its format and goes on with its
// fields, long lists of numbers as arrays. A state that is none of the class's is a ValueError. A
// function object gives its recipe: the name of the factory that made it and what it was given.
// Equal objects are those of equal states, number by number as IEEE 754 has it, but that a NaN
// equals another in its place: an object equals its copy.

namespace talvorix::python {

// Raises unless the condition holds; the text says what a state must be.
void require_state(bool condition, const char* text);

template <class T>
pybind11::array_t<T> to_flat_array(const T* values, std::size_t n) {
  return pybind11::array_t<T>(static_cast<pybind11::ssize_t>(n), values);
}

// The array of a state, when it is one of this type and as many dimensions.
template <class T>
pybind11::array_t<T, pybind11::array::c_style> array_of_state(pybind11::handle item, int ndim) {
  require_state(pybind11::isinstance<pybind11::array_t<T>>(item) &&
                    pybind11::reinterpret_borrow<pybind11::array>(item).ndim() == ndim,
                "an array of the right type and dimensions is missing");
  return pybind11::array_t<T, pybind11::array::c_style>::ensure(item);
}

// How a field of a state, or an argument of a recipe, is kept and read back: what numpy holds
// tightly as arrays, other lists as tuples, and all else as Python has it.
template <class T>
struct Packed {
  static pybind11::object pack(const T& value) {
    if constexpr (std::is_base_of_v<pybind11::object, T>) {
      return value;
    } else {
      return pybind11::cast(value);
    }
  }
  static T unpack(pybind11::handle item) { return item.cast<T>(); }
};

template <>
struct Packed<std::vector<double>> {
  static pybind11::object pack(const std::vector<double>& values) {
    return to_flat_array(values.data(), values.size());
  }
  static std::vector<double> unpack(pybind11::handle item) {
    const auto array = array_of_state<double>(item, 1);
    return {array.data(), array.data() + array.size()};
  }
};

template <>
struct Packed<std::vector<std::uint32_t>> {
  static pybind11::object pack(const std::vector<std::uint32_t>& words) {
    return to_flat_array(words.data(), words.size());
  }
  static std::vector<std::uint32_t> unpack(pybind11::handle item) {
    const auto array = array_of_state<std::uint32_t>(item, 1);
    return {array.data(), array.data() + array.size()};
  }
};

// In the narrowest type that holds them all.
template <>
struct Packed<std::vector<int>> {
  static pybind11::object pack(const std::vector<int>& values);
  static std::vector<int> unpack(pybind11::handle item);
};

template <>
struct Packed<Locations> {
  static pybind11::object pack(const Locations& locations);
  static Locations unpack(pybind11::handle item);
};

// Eight to a byte, after their number.
template <>
struct Packed<std::vector<bool>> {
  static pybind11::object pack(const std::vector<bool>& flags);
  static std::vector<bool> unpack(pybind11::handle item);
};

template <>
struct Packed<Eigen::MatrixXd> {
  static pybind11::object pack(const Eigen::MatrixXd& table) { return to_array(table); }
  static Eigen::MatrixXd unpack(pybind11::handle item);
};

template <>
struct Packed<Matrix3> {
  static pybind11::object pack(const Matrix3& matrix) {
    std::array<double, 9> numbers;
    Eigen::Map<Matrix3>(numbers.data()) = matrix;
    return pybind11::tuple(pybind11::cast(numbers));
  }
  static Matrix3 unpack(pybind11::handle item) {
    auto numbers = item.cast<std::array<double, 9>>();
    return Eigen::Map<const Matrix3>(numbers.data());
  }
};

template <>
struct Packed<Vector3> {
  static pybind11::object pack(const Vector3& v) { return pybind11::make_tuple(v[0], v[1], v[2]); }
  static Vector3 unpack(pybind11::handle item) {
    const auto numbers = item.cast<std::array<double, 3>>();
    return {numbers[0], numbers[1], numbers[2]};
  }
};

template <class T>
struct Packed<std::optional<T>> {
  static pybind11::object pack(const std::optional<T>& value) {
    return value ? Packed<T>::pack(*value) : pybind11::none();
  }
  static std::optional<T> unpack(pybind11::handle item) {
    return item.is_none() ? std::nullopt : std::optional<T>(Packed<T>::unpack(item));
  }
};

template <class T>
struct Packed<std::vector<T>> {
  static pybind11::object pack(const std::vector<T>& values) {
    pybind11::tuple items(values.size());
    for (std::size_t i = 0; i < values.size(); ++i) {
      items[i] = Packed<T>::pack(values[i]);
    }
    return items;
  }
  static std::vector<T> unpack(pybind11::handle item) {
    std::vector<T> values;
    const auto items = item.cast<pybind11::tuple>();
    values.reserve(items.size());
    for (const pybind11::handle one : items) {
      values.push_back(Packed<T>::unpack(one));
    }
    return values;
  }
};

// Kernels and types of structures as numbers. A kernel that is a function of its own has none and
// is a TypeError; a number without a kernel or type is a wrong state.
int number_of(const Kernel& kernel);
Kernel kernel_of(int number);
Covariance::Type covariance_type_of(int number);

// How descriptions of objects show numbers and triples of them.
std::string shown(double number);
std::string shown(const Vector3& v);
// A call by name that makes an object again.
std::string shown_call(const char* name, const pybind11::dict& arguments);

// Whether two fields are the same, and a number that is the same for the same ones.
bool same_state(pybind11::handle a, pybind11::handle b);
pybind11::ssize_t hash_of_state(pybind11::handle state);

// The fields of a state, once it is known to have this format and number of fields.
pybind11::tuple checked_state(const pybind11::object& state, std::size_t n_fields);

// Rethrows what went wrong while a state was read as the ValueError of a wrong one, but for what
// has nothing to do with it.
[[noreturn]] void rethrow_as_wrong_state(const std::string& class_name);

inline constexpr int state_format = 1;

template <class... Fields>
pybind11::tuple pack_state(const std::tuple<Fields...>& fields) {
  return std::apply(
      [](const auto&... field) {
        return pybind11::make_tuple(state_format,
                                    Packed<std::decay_t<decltype(field)>>::pack(field)...);
      },
      fields);
}

// Fields may be given by reference, which spares a copy; they are read back as values.
template <class... Fields>
std::tuple<std::decay_t<Fields>...> decayed(const std::tuple<Fields...>&);

template <class Fields, std::size_t... i>
Fields unpack_state(const pybind11::tuple& state, std::index_sequence<i...>) {
  return Fields(Packed<std::tuple_element_t<i, Fields>>::unpack(state[i + 1])...);
}

// Lets objects of a class be pickled and copied: fields(self) is a std::tuple of what they are made
// of, and make(field, ...) makes one of it again or throws.
template <class Class, class FieldsOf, class Make>
void define_pickling(Class& cls, FieldsOf fields, Make make) {
  using T = typename Class::type;
  using Fields = decltype(decayed(fields(std::declval<const T&>())));
  constexpr std::size_t n_fields = std::tuple_size_v<Fields>;
  const auto class_name = cls.attr("__qualname__").template cast<std::string>();
  cls.def(pybind11::pickle(
      [fields](const T& self) -> pybind11::object { return pack_state(fields(self)); },
      [make, class_name](const pybind11::object& state) {
        try {
          return std::apply(make, unpack_state<Fields>(checked_state(state, n_fields),
                                                       std::make_index_sequence<n_fields>()));
        } catch (...) {
          rethrow_as_wrong_state(class_name);
        }
      }));
}

// Whether equal objects may stand for each other as keys: not where they can change.
enum class Hashing { by_value, none };

template <class Class, class FieldsOf>
void define_equality(Class& cls, FieldsOf fields, Hashing hashing) {
  using T = typename Class::type;
  cls.def(
      "__eq__",
      [fields](const T& self, const T& other) {
        return &self == &other || same_state(pack_state(fields(self)), pack_state(fields(other)));
      },
      pybind11::is_operator(),
      "Whether all fields are the same; a NaN is the same as another in its place.");
  if (hashing == Hashing::by_value) {
    cls.def("__hash__",
            [fields](const T& self) { return hash_of_state(pack_state(fields(self))); });
  }
}

template <class Class, class FieldsOf, class Make>
void define_value(Class& cls, FieldsOf fields, Make make, Hashing hashing) {
  define_pickling(cls, fields, make);
  define_equality(cls, fields, hashing);
}

// The factory and the arguments by name that make a function object again.
class PythonRecipe final : public Recipe {
 public:
  PythonRecipe(std::string factory, pybind11::dict arguments)
      : factory_(std::move(factory)), arguments_(std::move(arguments)) {}

  const std::string& factory() const { return factory_; }
  const pybind11::dict& arguments() const { return arguments_; }

 private:
  std::string factory_;
  pybind11::dict arguments_;
};

// A recipe that any thread may let go of, with or without the interpreter lock.
std::shared_ptr<const Recipe> share_recipe(std::string factory, pybind11::dict arguments);

// Where a factory is found from the outside: module, class and name.
std::string path_of(pybind11::handle scope, const char* name);
pybind11::object find_by_path(const std::string& path);

// What a function object's state holds.
pybind11::tuple state_of(const Made& made, const std::string& class_name);
std::string text_of(const Made& made, const std::string& class_name);

// The factories whose recipes stand for objects of a class.
template <class Result>
std::set<std::string>& factories_of() {
  static std::set<std::string> paths;
  return paths;
}

// The effective number of threads: a field may depend on it, and the machine that makes it again
// may have another default.
pybind11::object pack_n_threads(int n_threads);

// An argument as a recipe keeps it. What the caller holds and cannot change is shared with it.
template <class Argument>
pybind11::object pack_argument(const std::string& name,
                               const std::remove_reference_t<Argument>& value) {
  using T = std::decay_t<Argument>;
  if constexpr (std::is_same_v<T, int>) {
    return name == "n_threads" ? pack_n_threads(value) : pybind11::cast(value);
  } else if constexpr (std::is_lvalue_reference_v<Argument> &&
                       std::is_base_of_v<pybind11::detail::type_caster_generic,
                                         pybind11::detail::make_caster<T>>) {
    return pybind11::cast(value, pybind11::return_value_policy::reference);
  } else {
    return Packed<T>::pack(value);
  }
}

template <class Result, class Make, class... Arguments, std::size_t... i>
auto recording(std::string path, std::vector<std::string> names, Make make,
               Result (*)(Arguments...), std::index_sequence<i...>) {
  return [path = std::move(path), names = std::move(names),
          make = std::move(make)](Arguments... arguments) -> Result {
    pybind11::dict recipe;
    ((recipe[names[i].c_str()] = pack_argument<Arguments>(names[i], arguments)), ...);
    Result result = make(std::forward<Arguments>(arguments)...);
    result.set_recipe(share_recipe(path, std::move(recipe)));
    return result;
  };
}

// A function that makes function objects, changed so that each of them remembers how. The names are
// those of its arguments.
template <class Make>
auto recorded(pybind11::handle scope, const char* name, std::vector<std::string> names, Make make) {
  using Signature = pybind11::detail::function_signature_t<Make>;
  return [&]<class Result, class... Arguments>(Result (*signature)(Arguments...)) {
    std::string path = path_of(scope, name);
    factories_of<Result>().insert(path);
    return recording<Result>(std::move(path), std::move(names), std::move(make), signature,
                             std::index_sequence_for<Arguments...>());
  }(static_cast<Signature*>(nullptr));
}

template <class Extra>
void append_name(std::vector<std::string>& names, const Extra& extra) {
  if constexpr (std::is_base_of_v<pybind11::arg, Extra>) {
    names.emplace_back(extra.name);
  }
}

template <class... Extra>
std::vector<std::string> argument_names(const Extra&... extra) {
  std::vector<std::string> names;
  (append_name(names, extra), ...);
  return names;
}

// Like `def` of a module and `def_static` and `def` of a class, for what makes function objects.
template <class Make, class... Extra>
void def_factory(pybind11::module_& m, const char* name, Make make, const Extra&... extra) {
  m.def(name, recorded(m, name, argument_names(extra...), std::move(make)), extra...);
}
template <class Class, class Make, class... Extra>
void def_static_factory(Class& cls, const char* name, Make make, const Extra&... extra) {
  cls.def_static(name, recorded(cls, name, argument_names(extra...), std::move(make)), extra...);
}
template <class Class, class Make, class... Extra>
void def_method_factory(Class& cls, const char* name, Make make, const Extra&... extra) {
  std::vector<std::string> names = argument_names(extra...);
  names.insert(names.begin(), "self");
  cls.def(name, recorded(cls, name, std::move(names), std::move(make)), extra...);
}

// Lets function objects be pickled and copied by their recipes, and tell what they are.
template <class Class>
void define_recipe(Class& cls) {
  using T = typename Class::type;
  const auto class_name = cls.attr("__qualname__").template cast<std::string>();
  cls.def(pybind11::pickle(
      [class_name](const T& self) -> pybind11::object { return state_of(self, class_name); },
      [class_name](const pybind11::object& state) {
        try {
          const pybind11::tuple fields = checked_state(state, 2);
          const auto path = fields[1].cast<std::string>();
          require_state(factories_of<T>().contains(path), "it names no factory of the class");
          const pybind11::object made = find_by_path(path)(**fields[2].cast<pybind11::dict>());
          return made.cast<T>();
        } catch (...) {
          rethrow_as_wrong_state(class_name);
        }
      }));
  cls.def("__repr__", [class_name](const T& self) { return text_of(self, class_name); });
}

}  // namespace talvorix::python
