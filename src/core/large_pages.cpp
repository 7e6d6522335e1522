#include "core/large_pages.h"

#include "core/interrupt.h"

#if defined(__linux__)
#include <sys/mman.h>
#include <unistd.h>
#endif

#include <algorithm>
#include <memory>
#include <new>

namespace talvorix {

void prefer_large_pages([[maybe_unused]] void* memory,
                        [[maybe_unused]] std::size_t bytes) noexcept {
#if defined(__linux__)
  constexpr std::size_t worth_it = std::size_t{1} << 22;
  if (bytes < worth_it) {
    return;
  }
  const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  if (std::align(page, page, memory, bytes) != nullptr) {
    // Where the system has no large pages to give, it says so and nothing changes.
    madvise(memory, bytes / page * page, MADV_HUGEPAGE);
  }
#endif
}

std::vector<double> values_on_large_pages(std::size_t n, double value) {
  std::vector<double> values;
  if (n > values.max_size()) {
    throw std::bad_alloc();
  }
  values.reserve(n);
  prefer_large_pages(values.data(), n * sizeof(double));
  InterruptPoller poll;
  constexpr std::size_t at_once = std::size_t{1} << 18;
  while (values.size() < n) {
    poll();
    values.resize(std::min(values.size() + at_once, n), value);
  }
  return values;
}

}  // namespace talvorix
