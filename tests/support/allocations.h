#pragma once

namespace kavo::testing {

//! Whether this build counts: not under the sanitizers, which stand in front of `malloc` themselves.
bool CountsAllocations();

//! How often the current thread has called `malloc` so far, as `new` and Eigen do. Only in programs that are
//! built with allocations.cpp, which stands in front of the C library's function. Always zero where
//! `CountsAllocations` is false.
long NumAllocations();

//! Has the current thread's `malloc` fail once, after `num_before` more calls that succeed; a negative number
//! calls it off.
void FailAllocation(long num_before);

}  // namespace kavo::testing
