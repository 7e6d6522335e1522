#include "covariance/kernel_table.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

namespace talvorix {

namespace {

// Readers take no lock, so a table that has been outgrown is kept for those who may be reading it.
class KernelTable {
 public:
  void grow(const Kernel& kernel, std::size_t n) {
    if (size_ >= n) {
      return;
    }
    auto entries = std::make_unique<std::vector<double>>(n);
    for (std::size_t i = 0; i < n; ++i) {
      (*entries)[i] = kernel(static_cast<double>(i) / static_cast<double>(n));
    }
    kept_.push_back(std::move(entries));
    size_ = n;
    entries_.store(kept_.back()->data(), std::memory_order_release);
  }

  double entry(std::size_t i) const { return entries_.load(std::memory_order_acquire)[i]; }

 private:
  std::size_t size_ = 0;
  std::atomic<const double*> entries_{nullptr};
  std::vector<std::unique_ptr<std::vector<double>>> kept_;
};

std::mutex tables_mutex;
KernelTable spherical_table;
KernelTable gaussian_table;
KernelTable exponential_table;

template <double (*beyond)(double)>
Kernel tabulated(KernelTable& table, const Covariance& cov, int n) {
  if (n > 0) {
    table.grow(cov.kernel, static_cast<std::size_t>(n));
  }
  return Kernel([&table, n = std::max(n, 0)](double h) {
    const double a = h < 0.0 ? -h : h;
    const double position = n * a;
    // True exactly when the position truncated to an integer is below n.
    return position < n ? table.entry(static_cast<std::size_t>(position)) : beyond(a);
  });
}

double zero(double) { return 0.0; }

}  // namespace

Kernel get_kernel(const Covariance& cov, int n) {
  const std::lock_guard lock(tables_mutex);
  switch (cov.type) {
    case Covariance::Type::spherical:
      return tabulated<zero>(spherical_table, cov, n);
    case Covariance::Type::gaussian:
      return tabulated<gaussian_kernel>(gaussian_table, cov, n);
    case Covariance::Type::exponential:
      return tabulated<exponential_kernel>(exponential_table, cov, n);
    case Covariance::Type::nugget:
    case Covariance::Type::idw:
      break;
  }
  return cov.kernel;
}

}  // namespace talvorix
