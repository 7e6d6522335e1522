#include "core/crew.h"

#include <chrono>
#include <utility>

namespace talvorix {

void Crew::work(const Job& job, std::size_t n, PollRef poll) {
  try {
    for (std::size_t i = next_++; i < n; i = next_++) {
      job(i, poll);
    }
  } catch (...) {
    next_ = n;
    const std::lock_guard lock(mutex_);
    if (!error_) {
      error_ = std::current_exception();
    }
  }
}

void Crew::share(std::size_t n, const Job& job, PollRef poll) {
  {
    const std::lock_guard lock(mutex_);
    job_ = &job;
    n_ = n;
    next_ = 0;
    ++n_jobs_;
  }
  has_news_.notify_all();
  work(job, n, poll);
  std::exception_ptr error;
  {
    // Nothing is left to take; those inside finish what they have, and poll meanwhile.
    std::unique_lock lock(mutex_);
    job_ = nullptr;
    helpers_left_.wait(lock, [this] { return n_inside_ == 0; });
    error = std::exchange(error_, nullptr);
  }
  if (error) {
    std::rethrow_exception(error);
  }
}

void Crew::serve(Worker& worker) {
  std::size_t last = 0;
  std::unique_lock lock(mutex_);
  while (!is_dismissed_) {
    if (job_ == nullptr || last == n_jobs_) {
      has_news_.wait_for(lock, std::chrono::milliseconds(50));
      lock.unlock();
      worker.poll();
      lock.lock();
      continue;
    }
    last = n_jobs_;
    const Job& job = *job_;
    const std::size_t n = n_;
    ++n_inside_;
    lock.unlock();
    work(job, n, worker);
    lock.lock();
    if (--n_inside_ == 0) {
      helpers_left_.notify_one();
    }
  }
}

void Crew::dismiss() {
  {
    const std::lock_guard lock(mutex_);
    is_dismissed_ = true;
  }
  has_news_.notify_all();
}

}  // namespace talvorix
