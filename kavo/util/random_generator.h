#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <random>

#include "kavo/util/export.h"

namespace kavo::util {

namespace internal {

//! False, with a warning about the first such i, when min[i] > max[i] for an i of 0, 1, 2.
KAVO_EXPORT bool ValidateRangeImpl(const Eigen::Vector3d& min, const Eigen::Vector3d& max);

}  // namespace internal

//! False, with a warning about the first such coordinate, when a minimum is above its maximum. Equal bounds
//! are a range, and so, for this test, are bounds of NaN.
inline bool ValidateRange(const Eigen::Vector3d& min, const Eigen::Vector3d& max) {
  return internal::ValidateRangeImpl(min, max);
}

//! Random values of a closed range, the same on every platform for the same seed.
//!
//! The engine is the 32-bit Mersenne Twister MT19937 (Matsumoto and Nishimura, 1998). A double is u * max +
//! (1 - u) * min with u = x / 4294967295.0 and x one 32-bit draw: one of 2^32 evenly spaced values, both ends
//! included, and exactly the one value of a range that has no other. A 3-vector takes one draw per
//! coordinate, x first. An int is min + x mod (max - min + 1): ranges whose size does not divide 2^32 favour
//! their lower values by one draw in 2^32 each.
//!
//! The range starts as [-1, 1] in every coordinate; for int as half of the type's range, [-1073741823,
//! 1073741822]. Not safe for use by several threads at once.
//!
//! \tparam T double, Eigen::Vector3d or int.
//!
//! @code
//! kavo::util::RandomGenerator<double> generator(/*seed=*/7);
//! generator.SetRange(0.0, 10.0);
//! const double value = generator.Sample();
//! assert(0.0 <= value && value <= 10.0);
//! @endcode
template <typename T>
class KAVO_EXPORT RandomGenerator {
 public:
  //! Values of the first range (see above); any seed will do.
  explicit RandomGenerator(std::uint32_t seed);

  //! The next value. Advances the engine by one draw per coordinate.
  T Sample();

  //! Replaces the range. If some min is above its max, warns and keeps the range that was in force. Bounds
  //! that are not finite are taken, and give values that are not.
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
