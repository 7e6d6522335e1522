#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>

namespace talvorix {

// Throws std::invalid_argument that names both lists and both lengths when they differ.
inline void require_equal_lengths(const char* name, std::size_t length, const char* other_name,
                                  std::size_t other_length) {
  if (length != other_length) {
    throw std::invalid_argument(std::string(name) + " has " + std::to_string(length) +
                                " entries but " + other_name + " has " +
                                std::to_string(other_length) + "; they must be as many");
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

}  // namespace talvorix
