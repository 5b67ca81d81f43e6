#pragma once

#include <cstddef>
#include <cstdint>

namespace kavo::planning::internal {

//! Which of `math::kNumLanes` configurations leave their closed limits or are not finite, bit by bit.
//! \param coordinates Coordinate c of configuration i at [c * `math::kNumLanes` + i].
std::uint32_t LanesOutside(const double* coordinates, std::size_t dimension, const double* min,
                           const double* max);

}  // namespace kavo::planning::internal
