#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>

namespace kavo::benchmarks {

//! Seconds that one call takes: the best of several rounds, so that a disturbance of a shared machine does
//! not count. Each round lasts about five milliseconds.
template <typename Call>
double BestSeconds(const Call& call) {
  const auto measure = [&call](long repeats) {
    const auto begin = std::chrono::steady_clock::now();
    for (long i = 0; i < repeats; ++i) {
      call();
    }
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  };
  const double once = std::max(measure(1), 1e-9);
  const long repeats = std::max(1L, static_cast<long>(5e-3 / once));
  double best = once;
  for (int round = 0; round < 20; ++round) {
    best = std::min(best, measure(repeats) / static_cast<double>(repeats));
  }
  return best;
}

//! Prints how many times faster ours is than the reference, both measured in this run.
//! \param num_items Items that one call works on; times are printed for one.
inline void PrintRatio(const std::string& name, double our_seconds, double reference_seconds,
                       double num_items = 1.0) {
  std::printf("ratio %8.2f  %-44s ours %11.1f ns, reference %11.1f ns\n", reference_seconds / our_seconds,
              name.c_str(), our_seconds / num_items * 1e9, reference_seconds / num_items * 1e9);
}

}  // namespace kavo::benchmarks
