#pragma once

#include <chrono>
#include <concepts>
#include <mutex>

namespace talvorix {

// Called from time to time on the thread that entered the library; throws when the user has asked
// to stop. The core knows nothing of the host language: the module installs its own check.
using InterruptCheck = void (*)();

void set_interrupt_check(InterruptCheck check) noexcept;

// Calls its argument, which waits for another thread, while the host language runs on: the other
// one may need the host's own lock to look for the user's wish to stop.
using HostYield = void (*)(void (*wait)());

void set_host_yield(HostYield yield) noexcept;

// Holds a mutex whose holders may poll, and waits for it in the way that makes this safe.
class PatientLock {
 public:
  explicit PatientLock(std::mutex& mutex);

 private:
  std::unique_lock<std::mutex> lock_;
};

// Calls the interrupt check at most every few hundredths of a second, however short or long the
// steps between two polls are. Costs a decrement on most calls.
class InterruptPoller {
 public:
  InterruptPoller() : last_look_(Clock::now()), last_check_(last_look_) {}

  void operator()() {
    if (--countdown_ <= 0) {
      look_at_clock();
    }
  }

 private:
  using Clock = std::chrono::steady_clock;

  void look_at_clock();

  int countdown_ = 1;
  int stride_ = 1;
  Clock::time_point last_look_;
  Clock::time_point last_check_;
};

// What polls, without its type: an InterruptPoller or a worker of a parallel region. For code that
// both kinds of caller share and that polls seldom enough for an indirect call not to matter.
class PollRef {
 public:
  template <class Poller>
  requires(!std::same_as<Poller, PollRef>)  // else a copy would refer to the one it is made from
      PollRef(Poller& poller)
      : poller_(&poller), poll_(&poll<Poller>) {}

  void operator()() const { poll_(poller_); }

 private:
  template <class Poller>
  static void poll(void* poller) {
    auto& p = *static_cast<Poller*>(poller);
    if constexpr (requires { p.poll(); }) {
      p.poll();
    } else {
      p();
    }
  }

  void* poller_;
  void (*poll_)(void*);
};

}  // namespace talvorix
