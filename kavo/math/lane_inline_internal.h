#pragma once

//! For functions of lanes that belong into the loop that calls them, where g++ and clang would rather call
//! them: to be used like `HWY_INLINE`. Under sanitizers it is no more than `inline`, for what they add to
//! each copy takes a compiler many times as long.
#ifndef KAVO_LANE_INLINE
#define KAVO_LANE_INLINE HWY_INLINE
#endif
