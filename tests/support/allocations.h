#pragma once

namespace kavo::testing {

//! How often the current thread has called `malloc` so far, as `new` and Eigen do. Only in programs that are
//! built with allocations.cpp, which stands in front of the C library's function. Always zero under the
//! sanitizers, which stand there themselves.
long NumAllocations();

}  // namespace kavo::testing
