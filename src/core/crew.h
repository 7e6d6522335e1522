#pragma once

#include "core/interrupt.h"
#include "core/parallel.h"

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <functional>
#include <mutex>

namespace talvorix {

// Threads that help one leader with many short pieces of work, one after the other. A parallel
// region for every piece would wait for each of its threads to be given a processor; here a thread
// that comes too late finds the work done, and one that waits sleeps.
class Crew {
 public:
  using Job = std::function<void(std::size_t i, PollRef poll)>;

  // Calls lead(crew) on this thread while n_threads - 1 others stand by. What either throws is
  // thrown on.
  template <class Lead>
  static void with(int n_threads, Lead&& lead) {
    Crew crew;
    if (n_threads <= 1) {
      lead(crew);
      return;
    }
    run_workers(n_threads, [&](Worker& worker) {
      if (worker.index() > 0) {
        crew.serve(worker);
        return;
      }
      const Dismissal at_the_end(crew);
      lead(crew);
    });
  }

  // Called by the leader: runs job(i, poll) for every i from 0 to n - 1, on whoever is free.
  void share(std::size_t n, const Job& job, PollRef poll);

 private:
  struct Dismissal {
    explicit Dismissal(Crew& crew) : crew_(crew) {}
    ~Dismissal() { crew_.dismiss(); }
    Dismissal(const Dismissal&) = delete;
    Dismissal& operator=(const Dismissal&) = delete;

   private:
    Crew& crew_;
  };

  void serve(Worker& worker);
  void dismiss();
  // Takes what is left to do, one by one; the first failure ends it for all.
  void work(const Job& job, std::size_t n, PollRef poll);

  std::mutex mutex_;
  std::condition_variable has_news_;
  std::condition_variable helpers_left_;
  const Job* job_ = nullptr;  // while helpers may join
  std::size_t n_ = 0;
  std::atomic<std::size_t> next_{0};
  std::size_t n_jobs_ = 0;  // so far: helpers join each one once
  int n_inside_ = 0;
  bool is_dismissed_ = false;
  std::exception_ptr error_;
};

}  // namespace talvorix
