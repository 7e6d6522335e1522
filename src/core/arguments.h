#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string>

namespace talvorix {

// A number as messages show it.
inline std::string to_text(double number) {
  std::ostringstream text;
  text << number;
  return text.str();
}

// Throws std::invalid_argument that names both lists and both lengths when they differ.
inline void require_equal_lengths(const char* name, std::size_t length, const char* other_name,
                                  std::size_t other_length) {
  if (length != other_length) {
    throw std::invalid_argument(std::string(name) + " has " + std::to_string(length) +
                                " entries but " + other_name + " has " +
                                std::to_string(other_length) + "; they must be as many");
  }
}

// Throws std::out_of_range when a list ends before the one that it is read along with.
inline void require_reach_of(const char* name, std::size_t length, const char* other_name,
                             std::size_t other_length) {
  if (length < other_length) {
    throw std::out_of_range(std::string(name) + " has " + std::to_string(length) + " entries but " +
                            other_name + " has " + std::to_string(other_length) +
                            "; it must have as many");
  }
}

// Throws std::invalid_argument when a count is negative; returns it unsigned otherwise.
inline std::size_t require_count(const char* name, long long count) {
  if (count < 0) {
    throw std::invalid_argument(std::string(name) + " must be 0 or more, but is " +
                                std::to_string(count));
  }
  return static_cast<std::size_t>(count);
}

// Throws std::invalid_argument when a count is 0 or less or too large for the 32-bit integer that
// counts are on the Python surface; returns it unsigned otherwise.
inline std::size_t require_positive_count(const char* name, long long count) {
  constexpr long long largest = std::numeric_limits<std::int32_t>::max();
  if (count < 1 || count > largest) {
    throw std::invalid_argument(std::string(name) + " must be from 1 to " +
                                std::to_string(largest) + ", but is " + std::to_string(count));
  }
  return static_cast<std::size_t>(count);
}

}  // namespace talvorix
