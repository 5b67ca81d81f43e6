#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "kavo/kinematics/kinematics.h"
#include "kavo/math/lane_transforms_internal.h"
#include "kavo/util/export.h"

namespace kavo::kinematics::internal {

//! One step of a kinematic program, or one attached frame, as the lanes run it: out = base * offset, then the
//! motion of the joint. Everything that does not change is worked out beforehand.
struct LaneOperation {
  enum class Motion : std::uint8_t { kNone, kTurn, kSlide };

  Motion motion = Motion::kNone;
  //! A rotation that takes axes to axes only picks columns; any other is multiplied by `rotation`.
  bool is_general = false;
  //! Coordinates of the translation that are not zero.
  std::uint8_t num_terms = 0;
  const math::LaneTransforms* base = nullptr;
  math::LaneTransforms* out = nullptr;
  //! For a joint that moves: sine (or the value, of a sliding one) and cosine in every lane.
  const double* sine = nullptr;
  const double* cosine = nullptr;
  //! Of the turned axes u and v and the axis w that stays (for no turn: x, y, z): which column it is, in
  //! entries of a row, which column of the base it comes from, and its sign.
  std::size_t to[3] = {};
  std::size_t from[3] = {};
  double sign[3] = {1.0, 1.0, 1.0};
  double turn_sign = 1.0;
  //! The columns of the base that the translation moves along, and how far.
  std::size_t term_from[3] = {};
  double term[3] = {};
  //! Columns u, v, w of the offset's rotation.
  double rotation[3][3] = {};
  //! Displacement per unit of a sliding joint, in the base.
  double slide[3] = {};
};

//! Places a list of frames for several configurations at once, one to a lane of wide vectors.
//!
//! Runs the same program as a sweep over one configuration, operation by operation, so that every lane holds
//! that sweep's numbers (a zero may have the other sign). Owns its scratch memory: one thread at a time.
class KAVO_EXPORT LaneSweep {
 public:
  //! \param plan Of the wanted frames; see `Kinematics::plan`.
  explicit LaneSweep(const Kinematics::Plan& plan);
  LaneSweep(const LaneSweep&) = delete;
  LaneSweep& operator=(const LaneSweep&) = delete;

  //! Places the frames relative to the robot base.
  //!
  //! \param coordinates Coordinate c of the configuration in lane i at [c * `math::kNumLanes` + i].
  //! \param num_lanes 4 or `math::kNumLanes`; lanes beyond are not placed.
  //! \return The frames in the order of the plan, valid until the next call.
  const std::vector<const math::LaneTransforms*>& compute(const double* coordinates, std::size_t num_lanes);

 private:
  using RunFunction = void (*)(const LaneOperation* operations, std::size_t count, std::size_t num_lanes);

  // What a joint does with its coordinate.
  struct Input {
    std::size_t coordinate;
    bool is_revolute;
    std::optional<Kinematics::Ratio> ratio;
  };

  RunFunction run_;
  std::vector<Input> inputs_;
  std::vector<LaneOperation> operations_;
  // For each step one entry in every lane.
  std::vector<double> values_;
  std::vector<double> sines_;
  std::vector<double> cosines_;
  // The identity, which the steps on the base start from.
  math::LaneTransforms base_;
  std::vector<math::LaneTransforms> slots_;
  // The frames of the plan; a frame that coincides with a slot is not computed again.
  std::vector<math::LaneTransforms> attached_;
  std::vector<const math::LaneTransforms*> frames_;
};

}  // namespace kavo::kinematics::internal
