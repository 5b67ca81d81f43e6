#pragma once

// The libraries are built with hidden visibility; what carries this mark is their interface.
#define KAVO_EXPORT __attribute__((visibility("default")))
