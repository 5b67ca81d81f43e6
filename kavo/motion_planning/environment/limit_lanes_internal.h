#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "kavo/math/lane_transforms_internal.h"

namespace kavo::planning::internal {

//! Configurations of a batch, one to a lane of wide vectors, against the limits of a robot.
class LimitLanes {
 public:
  //! \param min, max Of each coordinate.
  LimitLanes(const Eigen::VectorXd& min, const Eigen::VectorXd& max);

  //! Takes a batch of up to `math::kNumLanes` configurations in; lanes beyond repeat the last one.
  //! \param batch The first coordinate of the first configuration; the others follow.
  //! \param stride Distance between two configurations.
  //! \return Which of them are finite and leave no limit (bit i stands for configuration i).
  std::uint32_t TakeIn(const double* batch, std::ptrdiff_t stride, int count);

  //! Coordinate c of configuration i at [c * `math::kNumLanes` + i].
  const double* coordinates() const { return coordinates_.data()->values; }

 private:
  struct alignas(64) Lanes {
    double values[math::kNumLanes];
  };

  // By coordinate. Never empty.
  std::vector<Lanes> coordinates_;
  std::vector<double> min_;
  std::vector<double> max_;
};

}  // namespace kavo::planning::internal
