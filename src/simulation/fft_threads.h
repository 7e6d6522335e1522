#pragma once

#include <mutex>

namespace talvorix::fft {

// Makes the transform library ready for threads; once a process, however often it is called.
void init_threads();

// The planner, and the setting below, may serve one thread at a time; executing plans needs no
// lock.
std::mutex& planner_mutex();

// Sets the number of threads that later plans use, by the thread rule: a process-wide setting.
void set_fft_n_threads(int n_threads);

}  // namespace talvorix::fft
