#pragma once

#include <new>

namespace kavo::testing {

//! Whether this build counts: not under the sanitizers, which stand in front of `malloc` themselves.
bool CountsAllocations();

//! How often the current thread has called `malloc` so far, as `new` and Eigen do. Only in programs that are
//! built with allocations.cpp, which stands in front of the C library's functions. Always zero where
//! `CountsAllocations` is false.
long NumAllocations();

//! How many blocks the current thread has allocated, in whatever way, less those that it has freed. Always
//! zero where `CountsAllocations` is false: there the sanitizer itself reports what was lost.
long NumBlocks();

//! Whether this build can have an allocation fail: not under ThreadSanitizer.
bool FailsAllocations();

//! Has the current thread's `malloc` (under AddressSanitizer: `new`) fail once, after `num_before` more calls
//! that succeed; a negative number calls it off.
void FailAllocation(long num_before);

//! Whether the call got by without its allocation number `num_before`, counted from zero. All that it throws
//! but `std::bad_alloc` is passed on.
template <typename Call>
bool Survives(long num_before, const Call& call) {
  struct CallOff {
    ~CallOff() { FailAllocation(-1); }
  } call_off;
  FailAllocation(num_before);
  try {
    call();
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

}  // namespace kavo::testing
