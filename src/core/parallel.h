#pragma once

#include "core/interrupt.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <functional>
#include <utility>

namespace talvorix {

// The thread rule: 0, negative counts and counts above the machine's all give the machine's.
int check_n_threads(int n);

// The half-open range of block b when n items are cut into n_blocks contiguous blocks; the first
// n mod n_blocks blocks take one item more.
std::pair<std::size_t, std::size_t> static_block(std::size_t n, int n_blocks, int b);

// What one worker of a parallel region knows about itself.
class Worker {
 public:
  Worker(int index, bool on_calling_thread, const std::atomic<bool>& stop)
      : index_(index), on_calling_thread_(on_calling_thread), stop_(stop) {}

  int index() const { return index_; }

  // To be called between steps of work: leaves the region when another worker failed or the user
  // asked to stop. Only the calling thread looks for the user's wish; the others read a flag.
  void poll() {
    if (stop_.load(std::memory_order_relaxed)) {
      leave();
    }
    if (on_calling_thread_) {
      poller_();
    }
  }

 private:
  [[noreturn]] static void leave();

  int index_;
  bool on_calling_thread_;
  const std::atomic<bool>& stop_;
  InterruptPoller poller_;
};

// While one lives, the regions that its thread starts run their workers one after the other, with
// the same results. For a thread that holds something which the workers would wait for.
class SerialRegions {
 public:
  SerialRegions();
  ~SerialRegions();
  SerialRegions(const SerialRegions&) = delete;
  SerialRegions& operator=(const SerialRegions&) = delete;
};

// Tells that this thread does not speak for the user: regions that it starts do not look for the
// user's wish to stop.
void enter_background();

// Runs job once for each worker number from 0 to n_workers - 1, each on a thread of its own where
// the runtime gives as many. What a worker throws is rethrown here once all have stopped; of
// several failures the one of the lowest worker number wins.
void run_workers(int n_workers, const std::function<void(Worker&)>& job);

// The one parallel loop: body(worker, begin, end) runs once for each static block of 0 to n - 1.
// n_threads is an effective count, as check_n_threads gives it.
template <class Body>
void parallel_blocks(std::size_t n, int n_threads, Body&& body) {
  if (n == 0) {
    return;
  }
  const auto n_workers =
      static_cast<int>(std::min<std::size_t>(n, static_cast<std::size_t>(std::max(n_threads, 1))));
  run_workers(n_workers, [&](Worker& worker) {
    const auto [begin, end] = static_block(n, n_workers, worker.index());
    body(worker, begin, end);
  });
}

// body(worker, i) for every i from 0 to n - 1, with a poll before each.
template <class Body>
void parallel_for(std::size_t n, int n_threads, Body&& body) {
  parallel_blocks(n, n_threads, [&](Worker& worker, std::size_t begin, std::size_t end) {
    for (std::size_t i = begin; i < end; ++i) {
      worker.poll();
      body(worker, i);
    }
  });
}

}  // namespace talvorix
