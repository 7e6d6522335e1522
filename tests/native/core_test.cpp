#include "core/crew.h"
#include "core/parallel.h"
#include "core/random.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <limits>
#include <map>
#include <mutex>
#include <set>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <vector>

namespace talvorix {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
constexpr std::chrono::seconds patience{20};  // by which a hang is told from a busy machine

template <class Condition>
bool comes_true(Condition&& condition) {
  for (const auto start = Clock::now(); Clock::now() - start < patience;) {
    if (condition()) return true;
    std::this_thread::sleep_for(milliseconds(1));
  }
  return false;
}

// Works until poll leaves.
void poll_for_ever(Worker& worker) {
  for (const auto start = Clock::now(); Clock::now() - start < patience;) {
    worker.poll();
  }
  ADD_FAILURE() << "worker " << worker.index() << " was never told to stop";
}

std::vector<int> visits(std::size_t n, int n_threads) {
  std::vector<std::atomic<int>> counts(n);
  parallel_for(n, n_threads, [&](Worker&, std::size_t i) { ++counts[i]; });
  return {counts.begin(), counts.end()};
}

bool next_loop_works() { return visits(1000, 4) == std::vector<int>(1000, 1); }

TEST(Parallel, BlocksAreContiguousAndTheFirstOnesLonger) {
  for (const std::size_t n : {0, 1, 2, 7, 64, 1000003}) {
    for (const std::size_t n_blocks : {1, 2, 3, 7, 64}) {
      std::size_t next = 0;
      for (std::size_t b = 0; b < n_blocks; ++b) {
        const auto [begin, end] = static_block(n, static_cast<int>(n_blocks), static_cast<int>(b));
        EXPECT_EQ(begin, next);
        EXPECT_EQ(end - begin, n / n_blocks + (b < n % n_blocks ? 1 : 0));
        next = end;
      }
      EXPECT_EQ(next, n) << n_blocks << " blocks";
    }
  }
  for (const int n_threads : {-1, 1, 2, 5, 40}) {
    EXPECT_EQ(visits(23, n_threads), std::vector<int>(23, 1)) << n_threads << " threads";
    EXPECT_EQ(visits(0, n_threads), std::vector<int>());
  }
}

TEST(Parallel, EachNumberOnceAlsoWhenCrowdedAndNested) {
  const int crowd = static_cast<int>(std::thread::hardware_concurrency()) * 3 + 1;
  std::mutex mutex;
  std::map<std::pair<int, int>, int> runs;
  run_workers(crowd, [&](Worker& outer) {
    run_workers(3, [&](Worker& inner) {
      const std::lock_guard lock(mutex);
      ++runs[{outer.index(), inner.index()}];
    });
  });
  for (int outer = 0; outer < crowd; ++outer) {
    for (int inner = 0; inner < 3; ++inner) {
      EXPECT_EQ((runs[{outer, inner}]), 1);
    }
  }
}

TEST(Parallel, FailureArrivesWithItsTypeAndStopsTheOthers) {
  for (const int failing : {0, 2, 3}) {
    const auto job = [&](Worker& worker) {
      if (worker.index() == failing) throw std::out_of_range("far");
      poll_for_ever(worker);
    };
    EXPECT_THROW(run_workers(4, job), std::out_of_range);
    EXPECT_TRUE(next_loop_works());
    // Several fail, and none before all have begun.
    std::atomic<int> begun{0};
    const auto many_fail = [&](Worker& worker) {
      ++begun;
      EXPECT_TRUE(comes_true([&] { return begun == 6; }));
      if (worker.index() >= failing) throw worker.index();
    };
    try {
      run_workers(6, many_fail);
      ADD_FAILURE() << "nothing was thrown";
    } catch (const int number) {
      EXPECT_EQ(number, failing);
    }
  }
}

struct Interrupted {};
std::atomic<bool> wants_to_stop;
std::mutex checks_mutex;
std::multiset<std::thread::id> checking_threads;

TEST(Parallel, InterruptsAreLookedForByTheCallingThreadAlone) {
  set_interrupt_check([] {
    const std::lock_guard lock(checks_mutex);
    checking_threads.insert(std::this_thread::get_id());
    if (wants_to_stop) throw Interrupted{};
  });
  // Steps that are quick, slow, and that turn from quick to slow.
  for (const int slow_from : {1000000000, 0, 5000}) {
    checking_threads.clear();
    const auto start = Clock::now();
    run_workers(3, [&](Worker& worker) {
      for (int i = 0; Clock::now() - start < milliseconds(400); ++i) {
        worker.poll();
        if (i >= slow_from) std::this_thread::sleep_for(milliseconds(2));
      }
    });
    const auto at_most = static_cast<std::size_t>((Clock::now() - start) / milliseconds(30) + 2);
    EXPECT_EQ(checking_threads.count(std::this_thread::get_id()), checking_threads.size());
    EXPECT_GE(checking_threads.size(), 4U) << "slow from step " << slow_from;
    EXPECT_LE(checking_threads.size(), at_most) << "slow from step " << slow_from;
  }
  // A worker that starts a region of its own does not become a calling thread by it.
  checking_threads.clear();
  const auto until = Clock::now() + milliseconds(200);
  const auto poll_a_while = [&](Worker& worker) {
    while (Clock::now() < until)
      worker.poll();
  };
  run_workers(3, [&](Worker&) { run_workers(2, poll_a_while); });
  EXPECT_EQ(checking_threads.count(std::this_thread::get_id()), checking_threads.size());
  EXPECT_FALSE(checking_threads.empty());
  // Also when it has nothing left to do but wait for the others.
  wants_to_stop = true;
  const auto all_but_first = [](Worker& w) { return w.index() > 0 ? poll_for_ever(w) : void(); };
  EXPECT_THROW(run_workers(1, poll_for_ever), Interrupted);
  EXPECT_THROW(run_workers(3, poll_for_ever), Interrupted);
  EXPECT_THROW(run_workers(3, all_but_first), Interrupted);
  set_interrupt_check(nullptr);
  EXPECT_TRUE(next_loop_works());
}

constexpr std::uint32_t largest = std::numeric_limits<std::uint32_t>::max();

// An engine that gives these outputs over and over: from its text form, whose words are what the
// generator's tempering turns into the outputs.
RandomEngine engine_giving(const std::vector<std::uint32_t>& outputs) {
  std::stringstream state;
  for (std::size_t i = 0; i < RandomEngine::state_size; ++i) {
    std::uint32_t y = outputs[i % outputs.size()];
    y ^= y >> 18;
    y ^= (y << 15) & 0xefc60000U;
    std::uint32_t x = y;
    for (int k = 0; k < 5; ++k) {
      x = y ^ ((x << 7) & 0x9d2c5680U);
    }
    y = x;
    for (int k = 0; k < 3; ++k) {
      x = y ^ (x >> 11);
    }
    state << x << ' ';
  }
  state << 0;
  RandomEngine rng;
  state >> rng;
  RandomEngine copy = rng;
  for (const std::uint32_t output : outputs) {
    EXPECT_EQ(copy(), output);
  }
  return rng;
}

TEST(Random, BelowRejectsWhatDoesNotFillAWholeRound) {
  for (const std::uint32_t n : {2U, 3U, 1000U, 1U << 16, (1U << 31) - 1, 1U << 31, (1U << 31) + 1,
                                3U << 30, largest - 1, largest}) {
    const std::uint64_t limit = (std::uint64_t{1} << 32) / n * n;  // n's multiple within 2^32
    RandomEngine rng = seeded_engine(n);
    RandomEngine reference = rng;
    for (int draw = 0; draw < 300; ++draw) {
      std::uint64_t r = reference();
      while (r >= limit) {
        r = reference();
      }
      ASSERT_EQ(below(rng, n), r % n) << "below " << n;
    }
    EXPECT_EQ(rng, reference) << "below " << n << " drew another number of times";
    RandomEngine last = engine_giving({static_cast<std::uint32_t>(limit - 1), 5U});
    EXPECT_EQ(below(last, n), n - 1);
    if (limit > largest) continue;
    RandomEngine first_rejected = engine_giving({static_cast<std::uint32_t>(limit), largest, 5U});
    EXPECT_EQ(below(first_rejected, n), 5U % n);
  }
  RandomEngine rng = seeded_engine(-1);
  EXPECT_EQ(below(rng, 0) + below(rng, 1), 0U);
  EXPECT_EQ(rng, RandomEngine(largest)) << "there is nothing to draw for";
}

TEST(Random, UniformIsMadeOfTwoOutputsAndStaysBelowOne) {
  RandomEngine rng = engine_giving({3U, 0U, 0U, 1U << 31, largest, largest});
  EXPECT_EQ(uniform(rng), 3.0 * std::exp2(-64));
  EXPECT_EQ(uniform(rng), 0.5);
  EXPECT_EQ(uniform(rng), std::nextafter(1.0, 0.0));
}

// Against the polar method in extended precision, where squares of small numbers need no care.
void expect_normals(RandomEngine rng, int n_pairs) {
  RandomEngine reference = rng;
  StandardNormal normal;
  for (int i = 0; i < n_pairs; ++i) {
    long double u = 0;
    long double v = 0;
    long double s = 2;
    while (s >= 1 || u == 0 || v == 0) {
      u = 2.0L * uniform(reference) - 1.0L;
      v = 2.0L * uniform(reference) - 1.0L;
      s = u * u + v * v;
    }
    const long double f = std::sqrt(-2.0L * std::log(s) / s);
    // Where s is close to 1 its logarithm keeps only the absolute precision of s.
    const long double tolerance = 1e-15L * (10.0L + 1.0L / (1.0L - s));
    EXPECT_LE(std::abs(normal(rng) / (f * u) - 1.0L), tolerance) << "s = " << s;
    EXPECT_LE(std::abs(normal(rng) / (f * v) - 1.0L), tolerance) << "s = " << s;
  }
  EXPECT_EQ(rng, reference);
}

TEST(Random, NormalsFollowThePolarMethod) {
  expect_normals(seeded_engine(1), 20000);
  // Outputs of 2^31 + d become d / 2^31: pairs at every scale near the centre, where numbers are
  // scaled before they are squared.
  for (const std::uint32_t d : {1U, 1000U, 1U << 20, 21000000U, 22000000U}) {
    for (const std::uint32_t e : {1U, 777U, 1U << 19}) {
      expect_normals(engine_giving({0U, (1U << 31) + d, 0U, (1U << 31) - e}), 2);
    }
  }
  // A coordinate of exactly 0 is drawn again.
  expect_normals(engine_giving({0U, 1U << 31, 0U, 3U << 29, 0U, 3U << 29, 0U, 5U << 28}), 3);
}

TEST(Crew, SharesEveryPieceAndCarriesFailuresToItsLeader) {
  for (const int n_threads : {1, 2, 4}) {
    std::vector<int> times_done(100, 0);
    int n_failures = 0;
    Crew::with(n_threads, [&](Crew& crew) {
      InterruptPoller poll;
      for (int job = 0; job < 500; ++job) {
        crew.share(
            times_done.size(), [&](std::size_t i, PollRef) { ++times_done[i]; }, poll);
      }
      try {
        crew.share(
            50,
            [](std::size_t i, PollRef) {
              if (i >= 20) {
                throw std::out_of_range("no such piece");
              }
            },
            poll);
      } catch (const std::out_of_range&) {
        ++n_failures;
      }
      crew.share(
          times_done.size(), [&](std::size_t i, PollRef) { ++times_done[i]; }, poll);
    });
    EXPECT_EQ(n_failures, 1);
    EXPECT_EQ(times_done, std::vector<int>(100, 501));
    EXPECT_THROW(Crew::with(n_threads, [](Crew&) { throw std::out_of_range("the leader"); }),
                 std::out_of_range);
  }
}

}  // namespace
}  // namespace talvorix
