#include "core/interrupt.h"

#include <algorithm>
#include <atomic>
#include <thread>

namespace talvorix {

namespace {

std::atomic<InterruptCheck> interrupt_check{nullptr};
std::atomic<HostYield> host_yield{nullptr};

void wait_a_little() { std::this_thread::sleep_for(std::chrono::microseconds(200)); }

}  // namespace

void set_interrupt_check(InterruptCheck check) noexcept { interrupt_check.store(check); }

void set_host_yield(HostYield yield) noexcept { host_yield.store(yield); }

PatientLock::PatientLock(std::mutex& mutex) : lock_(mutex, std::try_to_lock) {
  InterruptPoller poll;
  while (!lock_.owns_lock()) {
    if (const HostYield yield = host_yield.load(std::memory_order_relaxed)) {
      yield(wait_a_little);
    } else {
      wait_a_little();
    }
    poll();
    (void)lock_.try_lock();
  }
}

void InterruptPoller::look_at_clock() {
  using std::chrono::milliseconds;
  // Small enough that a sudden turn from cheap steps to slow ones costs no more than 64 of them.
  constexpr int longest_stride = 64;
  const auto now = Clock::now();
  const auto since_last_look = now - last_look_;
  if (since_last_look < milliseconds(1)) {
    stride_ = std::min(2 * stride_, longest_stride);
  } else if (since_last_look > milliseconds(4)) {
    stride_ = 1;
  }
  countdown_ = stride_;
  last_look_ = now;
  if (now - last_check_ > milliseconds(30)) {
    last_check_ = now;
    if (const InterruptCheck check = interrupt_check.load(std::memory_order_relaxed)) {
      check();
    }
  }
}

}  // namespace talvorix
