#pragma once

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <exception>
#include <mutex>

namespace talvorix {

// Carries exceptions past the solver, which knows none: the first one is kept, and everything fails
// from then on.
class SearchGuard {
 public:
  // Whether work() could be done.
  template <class Work>
  bool attempt(const Work& work) {
    if (has_failed_) {
      return false;
    }
    try {
      return work();
    } catch (...) {
      const std::lock_guard lock(mutex_);
      if (!error_) {
        error_ = std::current_exception();
      }
      has_failed_ = true;
      return false;
    }
  }

  bool has_failed() const { return has_failed_; }

  void rethrow() const {
    if (error_) {
      std::rethrow_exception(error_);
    }
  }

 private:
  std::atomic<bool> has_failed_{false};
  std::mutex mutex_;
  std::exception_ptr error_;
};

// While any of these lives, the solver does not log on standard error what its results tell.
class QuietLog {
 public:
  QuietLog();
  ~QuietLog();
  QuietLog(const QuietLog&) = delete;
  QuietLog& operator=(const QuietLog&) = delete;
};

// The solver would say the same of other numbers, but at length on standard error.
inline bool are_usable(const double* values, std::size_t n) {
  return std::all_of(values, values + n, [](double value) { return std::isfinite(value); });
}

}  // namespace talvorix
