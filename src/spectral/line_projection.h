#pragma once

#include <span>
#include <vector>

namespace talvorix {

// Carries scattered samples along a line to n_points regular positions from the first sample to
// the last. Each value is the mean of the window_size samples nearest to it, all when there are
// fewer, with weights 1 / (d^power_a + b) at the distance d. Throws std::invalid_argument when x is
// empty, not finite or not as long as data, or a count is below 1.
std::vector<double> project_to_line(std::span<const double> x, std::span<const double> data,
                                    double b, double power_a, int n_points, int window_size);

// The way back: at every target the mean of the sources at most dr away, with the same weights, and
// NaN where there are none. Throws std::invalid_argument when positions are not finite or the
// sources' lists are not equally long.
std::vector<double> project_back_to_source(std::span<const double> target_x,
                                           std::span<const double> source_x,
                                           std::span<const double> source_data, double dr, double b,
                                           double power_a);

}  // namespace talvorix
