#include "core/large_pages.h"

#if defined(__linux__)
#include <sys/mman.h>
#include <unistd.h>
#endif

#include <memory>

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

}  // namespace talvorix
