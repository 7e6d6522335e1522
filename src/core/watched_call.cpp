#include "core/watched_call.h"

#include "core/parallel.h"

#include <chrono>
#include <exception>
#include <future>
#include <system_error>
#include <thread>
#include <utility>

namespace talvorix {

void run_watched(std::function<void()> work, PollRef poll) {
  std::promise<void> done;
  std::future<void> is_done = done.get_future();
  std::thread thread;
  try {
    thread = std::thread([work, done = std::move(done)]() mutable {
      enter_background();
      try {
        std::exchange(work, nullptr)();
        done.set_value();
      } catch (...) {
        done.set_exception(std::current_exception());
      }
    });
  } catch (const std::system_error&) {
    // No thread is to be had.
    work();
    return;
  }
  work = nullptr;
  try {
    while (is_done.wait_for(std::chrono::milliseconds(20)) != std::future_status::ready) {
      poll();
    }
  } catch (...) {
    thread.detach();
    throw;
  }
  thread.join();
  is_done.get();
}

}  // namespace talvorix
