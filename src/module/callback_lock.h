#pragma once

#include <pybind11/pybind11.h>

#include <memory>
#include <mutex>

namespace talvorix::python {

// Guards calls of Python functions from worker threads: one callback at a time in the process. It
// is recursive, because a callback may enter the library again.
using CallbackLock = std::recursive_mutex;

// Publishes a new lock, letting go of an earlier one. The interpreter lock must be held.
void renew_callback_lock();

// Holds the interpreter lock and then the callback lock for as long as it lives.
class CallbackGuard {
 public:
  CallbackGuard();
  ~CallbackGuard();
  CallbackGuard(const CallbackGuard&) = delete;
  CallbackGuard& operator=(const CallbackGuard&) = delete;

 private:
  pybind11::gil_scoped_acquire interpreter_lock_;
  std::shared_ptr<CallbackLock> callback_lock_;
};

// Whether this thread is inside a callback, and so holds the lock. Workers that call back
// themselves must then run on this thread: others would wait for the lock for ever.
bool inside_callback();

}  // namespace talvorix::python
