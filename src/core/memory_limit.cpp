#include "core/memory_limit.h"

#include <algorithm>
#include <fstream>
#include <limits>
#include <sstream>

namespace talvorix {

namespace {

constexpr double unlimited = std::numeric_limits<double>::infinity();

// The number that a file begins with; infinity when there is none.
double number_in(const char* path) {
  std::ifstream file(path);
  double number = 0.0;
  return file >> number ? number : unlimited;
}

// The number behind a name in a file that has a name and a number in each line; 0 without it.
double number_named(const char* path, const std::string& wanted) {
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    std::istringstream words(line);
    std::string name;
    double number = 0.0;
    if (words >> name >> number && name == wanted) {
      return number;
    }
  }
  return 0.0;
}

// What the system as a whole can give without ending processes, swap space included.
double available_in_system() {
  const double kilobytes = number_named("/proc/meminfo", "MemAvailable:");
  return kilobytes > 0.0 ? 1024.0 * (kilobytes + number_named("/proc/meminfo", "SwapFree:"))
                         : unlimited;
}

// What the limit of a container leaves, in either of the two layouts that systems have. Cached
// files count as free.
double available_in_container() {
  return std::min(
      number_in("/sys/fs/cgroup/memory.max") - number_named("/sys/fs/cgroup/memory.stat", "anon"),
      number_in("/sys/fs/cgroup/memory/memory.limit_in_bytes") -
          number_named("/sys/fs/cgroup/memory/memory.stat", "rss"));
}

std::string in_gigabytes(double bytes) {
  std::ostringstream text;
  text.precision(3);
  text << bytes / 1e9 << " GB";
  return text.str();
}

}  // namespace

void require_memory(const std::string& something, double bytes) {
  constexpr double not_worth_looking = 1e8;
  // Byte counts beyond this would not fit into the integers they are kept in.
  constexpr double most = 1e17;
  if (bytes < not_worth_looking) {
    return;
  }
  const double available = std::min(available_in_system(), available_in_container());
  if (bytes > std::min(available, most)) {
    throw NotEnoughMemory(something + " needs " + in_gigabytes(bytes) + " of memory" +
                          (available < unlimited ? "; " + in_gigabytes(available) + " are available"
                                                 : std::string()));
  }
}

}  // namespace talvorix
