#pragma once

// The libraries are built with hidden visibility; what carries this mark is their interface.
#define KAVO_EXPORT __attribute__((visibility("default")))

// What only tests and benchmarks reach into a library for. A build without them does not export it.
#ifdef KAVO_EXPORT_INTERNALS
#define KAVO_INTERNAL_EXPORT KAVO_EXPORT
#else
#define KAVO_INTERNAL_EXPORT
#endif
