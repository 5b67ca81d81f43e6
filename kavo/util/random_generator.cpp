#include "kavo/util/random_generator.h"

#include <limits>
#include <type_traits>

#include "kavo/util/log_message.h"

namespace kavo::util {

namespace {

template <typename T>
T InitialMin() {
  if constexpr (std::is_same_v<T, int>) {
    return std::numeric_limits<int>::min() / 2 + 1;
  } else if constexpr (std::is_same_v<T, double>) {
    return -1.0;
  } else {
    return T::Constant(-1.0);
  }
}

template <typename T>
T InitialMax() {
  if constexpr (std::is_same_v<T, int>) {
    return std::numeric_limits<int>::max() / 2 - 1;
  } else if constexpr (std::is_same_v<T, double>) {
    return 1.0;
  } else {
    return T::Constant(1.0);
  }
}

double SampleDouble(std::mt19937& engine, double min, double max) {
  const double u = static_cast<double>(engine()) / 4294967295.0;
  if (min == max) {
    // The sum below may miss the value by its last bit.
    return min;
  }
  return u * max + (1.0 - u) * min;
}

}  // namespace

namespace internal {

bool ValidateRangeImpl(const Eigen::Vector3d& min, const Eigen::Vector3d& max) {
  for (int i = 0; i < 3; ++i) {
    if (min[i] > max[i]) {
      KAVO_LOG(LogLevel::kWarning) << "min(" << i << ") [" << min[i] << "] cannot be greater than max(" << i
                                   << ") [" << max[i] << "]. Range will not be updated.";
      return false;
    }
  }
  return true;
}

}  // namespace internal

template <typename T>
RandomGenerator<T>::RandomGenerator(std::uint32_t seed)
    : engine_(seed), min_(InitialMin<T>()), max_(InitialMax<T>()) {}

template <typename T>
T RandomGenerator<T>::Sample() {
  if constexpr (std::is_same_v<T, int>) {
    const std::uint64_t count = static_cast<std::uint64_t>(static_cast<std::int64_t>(max_) - min_ + 1);
    return static_cast<int>(min_ + static_cast<std::int64_t>(std::uint64_t{engine_()} % count));
  } else if constexpr (std::is_same_v<T, double>) {
    return SampleDouble(engine_, min_, max_);
  } else {
    T sample;
    for (int i = 0; i < 3; ++i) {
      sample[i] = SampleDouble(engine_, min_[i], max_[i]);
    }
    return sample;
  }
}

template <typename T>
void RandomGenerator<T>::SetRange(const T& min, const T& max) {
  if constexpr (std::is_same_v<T, Eigen::Vector3d>) {
    if (!ValidateRange(min, max)) {
      return;
    }
  } else if (min > max) {
    KAVO_LOG(LogLevel::kWarning) << "Min [" << min << "] cannot be greater than max [" << max
                                 << "]. Range will not be updated.";
    return;
  }
  min_ = min;
  max_ = max;
}

template class RandomGenerator<double>;
template class RandomGenerator<Eigen::Vector3d>;
template class RandomGenerator<int>;

}  // namespace kavo::util
