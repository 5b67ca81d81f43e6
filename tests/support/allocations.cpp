#include "tests/support/allocations.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <new>

#if defined(__has_feature)
#define KAVO_HAS_FEATURE(feature) __has_feature(feature)
#else
#define KAVO_HAS_FEATURE(feature) 0
#endif

#if defined(__SANITIZE_THREAD__) || KAVO_HAS_FEATURE(thread_sanitizer)
// It defines `malloc` and `new` itself, and lets nothing else.
#define KAVO_FAILS_ALLOCATIONS 0
#define KAVO_COUNTS_ALLOCATIONS 0
#elif defined(__SANITIZE_ADDRESS__) || KAVO_HAS_FEATURE(address_sanitizer)
#define KAVO_FAILS_ALLOCATIONS 1
#define KAVO_COUNTS_ALLOCATIONS 0
#else
#define KAVO_FAILS_ALLOCATIONS 1
#define KAVO_COUNTS_ALLOCATIONS 1
#endif

namespace {

thread_local long num_allocations = 0;
thread_local long num_blocks = 0;
thread_local long num_before_failure = -1;

}  // namespace

#if KAVO_FAILS_ALLOCATIONS

namespace {

bool Fails() { return num_before_failure >= 0 && num_before_failure-- == 0; }

}  // namespace

#endif

#if KAVO_COUNTS_ALLOCATIONS

namespace {

void* Counted(void* block) {
  num_blocks += block != nullptr ? 1 : 0;
  return block;
}

}  // namespace

extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t num, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* block);

void* malloc(std::size_t size) {
  ++num_allocations;
  return Fails() ? nullptr : Counted(__libc_malloc(size));
}

void* calloc(std::size_t num, std::size_t size) { return Counted(__libc_calloc(num, size)); }

void* realloc(void* block, std::size_t size) {
  void* const moved = __libc_realloc(block, size);
  return block == nullptr ? Counted(moved) : moved;
}

void* memalign(std::size_t alignment, std::size_t size) { return Counted(__libc_memalign(alignment, size)); }

void* aligned_alloc(std::size_t alignment, std::size_t size) { return memalign(alignment, size); }

int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
  *block = memalign(alignment, size);
  return *block == nullptr ? ENOMEM : 0;
}

void free(void* block) {
  num_blocks -= block != nullptr ? 1 : 0;
  __libc_free(block);
}

}  // extern "C"

#elif KAVO_FAILS_ALLOCATIONS

// All of them: a sanitizer takes it for a fault if a block of its own `new` comes to another's `delete`.

namespace {

void* Allocate(std::size_t size, std::size_t alignment) {
  return Fails() ? nullptr : std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
}

void* AllocateOrThrow(std::size_t size, std::size_t alignment) {
  void* const block = Allocate(size, alignment);
  if (block == nullptr) {
    throw std::bad_alloc();
  }
  return block;
}

constexpr std::size_t kAlignment = alignof(std::max_align_t);

}  // namespace

void* operator new(std::size_t size) { return AllocateOrThrow(size, kAlignment); }
void* operator new[](std::size_t size) { return AllocateOrThrow(size, kAlignment); }
void* operator new(std::size_t size, std::align_val_t alignment) {
  return AllocateOrThrow(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
  return AllocateOrThrow(size, static_cast<std::size_t>(alignment));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size, kAlignment); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size, kAlignment); }
void operator delete(void* block) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
void operator delete[](void* block, std::size_t) noexcept { std::free(block); }
void operator delete(void* block, std::align_val_t) noexcept { std::free(block); }
void operator delete[](void* block, std::align_val_t) noexcept { std::free(block); }
void operator delete(void* block, std::size_t, std::align_val_t) noexcept { std::free(block); }
void operator delete[](void* block, std::size_t, std::align_val_t) noexcept { std::free(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { std::free(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { std::free(block); }

#endif

namespace kavo::testing {

bool FailsAllocations() { return KAVO_FAILS_ALLOCATIONS != 0; }

bool CountsAllocations() { return KAVO_COUNTS_ALLOCATIONS != 0; }

long NumAllocations() { return num_allocations; }

long NumBlocks() {
  // libc++ keeps a block for each thread that has thrown, from the first time on.
  thread_local bool has_thrown = false;
  if (!has_thrown) {
    try {
      throw std::bad_alloc();
    } catch (const std::bad_alloc&) {
      has_thrown = true;
    }
  }
  return num_blocks;
}

void FailAllocation(long num_before) { num_before_failure = num_before; }

}  // namespace kavo::testing
