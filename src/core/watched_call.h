#pragma once

#include "core/interrupt.h"

#include <functional>

namespace talvorix {

// Does work that cannot be stopped on a thread of its own, and polls meanwhile. What the work
// throws is thrown on. What the poll throws leaves at once, and the work is left to itself: it must
// own whatever it touches. It is destroyed before this returns otherwise.
void run_watched(std::function<void()> work, PollRef poll);

}  // namespace talvorix
