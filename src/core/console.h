#pragma once

#include <iostream>
#include <string>

namespace talvorix {

// A line of progress, on standard output and then on standard error. Callers that run in parallel
// hold a mutex.
inline void print_progress(const std::string& line) {
  std::cout << line << std::endl;
  std::cerr << line << std::endl;
}

}  // namespace talvorix
