#include "tests/support/allocations.h"

#include <cstddef>

#if defined(__has_feature)
#define KAVO_HAS_FEATURE(feature) __has_feature(feature)
#else
#define KAVO_HAS_FEATURE(feature) 0
#endif

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || KAVO_HAS_FEATURE(address_sanitizer) || \
    KAVO_HAS_FEATURE(thread_sanitizer)
#define KAVO_COUNTS_ALLOCATIONS 0
#else
#define KAVO_COUNTS_ALLOCATIONS 1
#endif

namespace {

thread_local long num_allocations = 0;
thread_local long num_before_failure = -1;

}  // namespace

#if KAVO_COUNTS_ALLOCATIONS

extern "C" {

void* __libc_malloc(std::size_t size);

void* malloc(std::size_t size) {
  ++num_allocations;
  if (num_before_failure >= 0 && num_before_failure-- == 0) {
    return nullptr;
  }
  return __libc_malloc(size);
}

}  // extern "C"

#endif

namespace kavo::testing {

bool CountsAllocations() { return KAVO_COUNTS_ALLOCATIONS != 0; }

long NumAllocations() { return num_allocations; }

void FailAllocation(long num_before) { num_before_failure = num_before; }

}  // namespace kavo::testing
