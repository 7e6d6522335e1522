#pragma once

namespace talvorix::fft {

// Makes the transform library ready for threads; once a process, however often it is called.
void init_threads();

// Sets the number of threads that later plans use, by the thread rule: a process-wide setting.
void set_fft_n_threads(int n_threads);

}  // namespace talvorix::fft
