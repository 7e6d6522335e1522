#include "module/callback_lock.h"

#include "core/interrupt.h"

#include <chrono>
#include <thread>

namespace py = pybind11;

namespace talvorix::python {

namespace {

std::shared_ptr<CallbackLock> published_lock;

}  // namespace

void renew_callback_lock() { published_lock = std::make_shared<CallbackLock>(); }

thread_local int callbacks_of_thread = 0;

CallbackGuard::CallbackGuard() : callback_lock_(published_lock) {
  // The holder may have been made to give up the interpreter lock inside its callback. Waiting
  // with the interpreter lock held would leave both waiting for each other. The wait may be long.
  InterruptPoller poll;
  while (!callback_lock_->try_lock()) {
    {
      const py::gil_scoped_release released;
      std::this_thread::sleep_for(std::chrono::microseconds(20));
    }
    poll();
  }
  ++callbacks_of_thread;
}

CallbackGuard::~CallbackGuard() {
  --callbacks_of_thread;
  callback_lock_->unlock();
}

bool inside_callback() { return callbacks_of_thread > 0; }

}  // namespace talvorix::python
