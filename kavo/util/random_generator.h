#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <random>

#include "kavo/util/export.h"

namespace kavo::util {

namespace internal {

//! True when min[i] <= max[i] for i = 0, 1, 2. Otherwise warns about the first i that fails, and is false.
KAVO_EXPORT bool ValidateRangeImpl(const Eigen::Vector3d& min, const Eigen::Vector3d& max);

}  // namespace internal

//! True when [min, max] is a range in every coordinate (equal bounds are). Otherwise warns about the first
//! coordinate that is not, and is false.
inline bool ValidateRange(const Eigen::Vector3d& min, const Eigen::Vector3d& max) {
  return internal::ValidateRangeImpl(min, max);
}

//! Uniform random values of a closed range, the same on every platform for the same seed.
//!
//! The engine is the 32-bit Mersenne Twister MT19937 (Matsumoto and Nishimura, 1998). A double is u * max +
//! (1 - u) * min with u = x / 4294967295.0 and x one 32-bit draw, so both ends can come up, and a range of
//! one value yields exactly that; a 3-vector takes one draw per coordinate, x first; an int is min + x mod
//! (max - min + 1).
//!
//! The range starts as [-1, 1] in every coordinate; for int as half of the type's range, [-1073741823,
//! 1073741822]. Not safe for use by several threads at once.
//!
//! \tparam T double, Eigen::Vector3d or int.
template <typename T>
class KAVO_EXPORT RandomGenerator {
 public:
  explicit RandomGenerator(std::uint32_t seed);

  //! The next value. Advances the engine by one draw per coordinate.
  T Sample();

  //! Replaces the range. If some min is above its max, warns and keeps the range that was in force.
  void SetRange(const T& min, const T& max);

 private:
  std::mt19937 engine_;
  T min_;
  T max_;
};

// The mark is repeated because an instantiation with a type of another library is otherwise as hidden as that
// type.
extern template class KAVO_EXPORT RandomGenerator<double>;
extern template class KAVO_EXPORT RandomGenerator<Eigen::Vector3d>;
extern template class KAVO_EXPORT RandomGenerator<int>;

}  // namespace kavo::util
