#include "algebra/search_guard.h"

#include <glog/logging.h>

#include <utility>

namespace talvorix {

namespace {

// The level is one for the whole process: the first to come sets it and the last to leave restores
// it, in whatever order searches on several threads end.
std::mutex log_mutex;
int n_quiet = 0;
int level_before = 0;

}  // namespace

QuietLog::QuietLog() {
  const std::lock_guard lock(log_mutex);
  if (n_quiet++ == 0) {
    level_before = std::exchange(FLAGS_minloglevel, google::GLOG_FATAL);
  }
}

QuietLog::~QuietLog() {
  const std::lock_guard lock(log_mutex);
  if (--n_quiet == 0) {
    FLAGS_minloglevel = level_before;
  }
}

}  // namespace talvorix
