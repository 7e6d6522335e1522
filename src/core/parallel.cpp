#include "core/parallel.h"

#include <omp.h>
#include <pthread.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace talvorix {

namespace {

// Thrown by a worker that stops because another one failed; never leaves run_workers.
struct Stopped {};

// A forked child inherits the OpenMP runtime's records of threads that were not copied into it, and
// would wait for them for ever. Workers then run one after the other on the calling thread, which
// gives the same results.
std::atomic<bool> team_has_run{false};
std::atomic<bool> team_lost_in_fork{false};

void note_fork() { team_lost_in_fork = team_lost_in_fork || team_has_run; }

void watch_forks() {
  static const int registered = pthread_atfork(nullptr, nullptr, note_fork);
  (void)registered;
}

// Whether this thread may look for the user's wish to stop: it entered the library, rather than
// being a worker of a region from which another one is started.
thread_local bool entered_library = true;

thread_local int serial_regions = 0;

class Region {
 public:
  Region(int n_workers, const std::function<void(Worker&)>& job)
      : job_(job), errors_(static_cast<std::size_t>(n_workers)), unfinished_(n_workers) {}

  void run(int index, bool on_calling_thread) {
    try {
      Worker worker(index, on_calling_thread && entered_library, stop_);
      if (!stop_.load(std::memory_order_relaxed)) {
        job_(worker);
      }
    } catch (const Stopped&) {
    } catch (...) {
      fail(index);
    }
    const std::lock_guard lock(mutex_);
    if (--unfinished_ == 0) {
      all_finished_.notify_one();
    }
  }

  // Keeps looking for the user's wish to stop while other workers still work.
  void wait() {
    InterruptPoller poll;
    std::unique_lock lock(mutex_);
    while (unfinished_ > 0) {
      all_finished_.wait_for(lock, std::chrono::milliseconds(50));
      if (unfinished_ > 0 && entered_library && !stop_.load(std::memory_order_relaxed)) {
        lock.unlock();
        try {
          poll();
        } catch (...) {
          fail(0);
        }
        lock.lock();
      }
    }
  }

  void rethrow() const {
    for (const auto& error : errors_) {
      if (error) {
        std::rethrow_exception(error);
      }
    }
  }

 private:
  void fail(int index) {
    errors_[static_cast<std::size_t>(index)] = std::current_exception();
    stop_.store(true, std::memory_order_relaxed);
  }

  const std::function<void(Worker&)>& job_;
  std::atomic<bool> stop_{false};
  std::vector<std::exception_ptr> errors_;
  std::mutex mutex_;
  std::condition_variable all_finished_;
  int unfinished_;
};

}  // namespace

void Worker::leave() { throw Stopped{}; }

SerialRegions::SerialRegions() { ++serial_regions; }
SerialRegions::~SerialRegions() { --serial_regions; }

void enter_background() { entered_library = false; }

int check_n_threads(int n) {
  static const std::uint32_t hardware = std::thread::hardware_concurrency();
  // The comparison is unsigned on purpose: every negative count reads as a very large one and
  // means all threads. What stands behind it is reached only by a machine of 2^31 threads.
  if (static_cast<std::uint32_t>(n) > hardware || n == 0) {
    return static_cast<int>(hardware);
  }
  if (n < 0) {
    return std::max(static_cast<int>(static_cast<std::uint32_t>(n) + hardware), 1);
  }
  return n;
}

std::pair<std::size_t, std::size_t> static_block(std::size_t n, int n_blocks, int b) {
  const auto blocks = static_cast<std::size_t>(n_blocks);
  const auto block = static_cast<std::size_t>(b);
  const std::size_t size = n / blocks;
  const std::size_t longer = n % blocks;
  const std::size_t begin = block * size + std::min(block, longer);
  return {begin, begin + size + (block < longer ? 1 : 0)};
}

void run_workers(int n_workers, const std::function<void(Worker&)>& job) {
  watch_forks();
  Region region(n_workers, job);
  if (n_workers == 1 || team_lost_in_fork || serial_regions > 0) {
    for (int index = 0; index < n_workers; ++index) {
      region.run(index, true);
    }
  } else {
    team_has_run = true;
#pragma omp parallel num_threads(n_workers)
    {
      // The runtime may give fewer threads than asked for; each then takes several numbers.
      const int thread = omp_get_thread_num();
      const bool outside = std::exchange(entered_library, entered_library && thread == 0);
      for (int index = thread; index < n_workers; index += omp_get_num_threads()) {
        region.run(index, thread == 0);
      }
      if (thread == 0) {
        region.wait();
      }
      entered_library = outside;
    }
  }
  region.rethrow();
}

}  // namespace talvorix
