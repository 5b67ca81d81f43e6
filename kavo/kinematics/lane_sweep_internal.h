#pragma once

#include <cstddef>
#include <vector>

#include "kavo/kinematics/kinematics.h"
#include "kavo/math/lane_transforms_internal.h"
#include "kavo/util/export.h"

namespace kavo::kinematics::internal {

//! A plan with what the lanes want to know of it beforehand.
struct LaneProgram {
  //! The coordinates of a translation that are not zero.
  struct Terms {
    std::size_t count = 0;
    std::size_t columns[3] = {0, 0, 0};
    double factors[3] = {0.0, 0.0, 0.0};
  };

  Kinematics::Plan plan;
  std::vector<Terms> step_terms;
  std::vector<Terms> frame_terms;
  //! The identity in every lane.
  math::LaneTransforms base;
};

//! Places a list of frames for several configurations at once, one to a lane of wide vectors.
//!
//! Runs the same program as a sweep over one configuration, operation by operation, so that every lane holds
//! that sweep's numbers (a zero may have the other sign). Owns its scratch memory: one thread at a time.
class KAVO_EXPORT LaneSweep {
 public:
  //! \param plan Of the wanted frames; see `Kinematics::plan`.
  explicit LaneSweep(Kinematics::Plan plan);

  //! Places the frames relative to the robot base.
  //!
  //! \param configurations The configurations one after the other; neither length nor content is checked.
  //! \param stride Distance between the first coordinates of two configurations.
  //! \param count How many there are: 1 to `math::kNumLanes`.
  //! \return The frames in the order of the plan, valid until the next call. Lanes from `count` to the next
  //!     multiple of four repeat the last configuration; those above are undefined.
  const std::vector<const math::LaneTransforms*>& compute(const double* configurations, std::ptrdiff_t stride,
                                                          std::size_t count);

 private:
  using RunFunction = void (*)(const LaneProgram& program, const double* sines, const double* cosines,
                               std::size_t num_lanes, math::LaneTransforms* slots,
                               math::LaneTransforms* attached);

  LaneProgram program_;
  RunFunction run_;
  // For each step one entry in every lane.
  std::vector<double> values_;
  std::vector<double> sines_;
  std::vector<double> cosines_;
  std::vector<math::LaneTransforms> slots_;
  // The frames of the plan; a frame that coincides with a slot is not computed again.
  std::vector<math::LaneTransforms> attached_;
  std::vector<const math::LaneTransforms*> frames_;
};

}  // namespace kavo::kinematics::internal
