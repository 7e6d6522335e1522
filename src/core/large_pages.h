#pragma once

#include <cstddef>
#include <vector>

namespace talvorix {

// Tells the system that memory which is about to be filled may stand in large pages: filling a long
// list for the first time is mostly the price of its pages. No more than a hint, for what is at
// least some megabytes.
void prefer_large_pages(void* memory, std::size_t bytes) noexcept;

// A list of n equal values, in such pages. Polls, since the system may take its time to hand out
// pages.
std::vector<double> values_on_large_pages(std::size_t n, double value);

}  // namespace talvorix
