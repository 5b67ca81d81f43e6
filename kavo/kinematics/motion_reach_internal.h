#pragma once

#include <Eigen/Core>
#include <utility>
#include <vector>

#include "kavo/kinematics/interface/joint_limits.h"
#include "kavo/kinematics/kinematics.h"
#include "kavo/math/motion_bound_internal.h"
#include "kavo/util/export.h"

namespace kavo::kinematics::internal {

//! How far each joint of a robot moves the points that it carries, over all configurations within the limits.
class KAVO_EXPORT MotionReach {
 public:
  //! \param plan Its steps are the joints.
  //! \param limits Of each coordinate.
  MotionReach(const Kinematics::Plan& plan, const std::vector<JointLimits>& limits);

  //! Of points that are fixed to one slot of the plan (in its coordinates; -1 is the base), in the frame of
  //! the base: for each joint the largest of theirs.
  math::JointReaches ofPoints(int slot, const std::vector<Eigen::Vector3d>& points) const;

  //! Of the differences between points of two slots, in a frame on the way between them: only the joints
  //! between the two move these at all. First the joints from that frame to the first slot, then those to
  //! the second one. Of all frames on the way it is the one in which the reaches have the least sum.
  std::pair<math::JointReaches, math::JointReaches> ofDifferences(
      int slot_a, const std::vector<Eigen::Vector3d>& points_a, int slot_b,
      const std::vector<Eigen::Vector3d>& points_b) const;

  //! How far each joint goes while the coordinates go by `distance`: absolute, rounded up.
  void getRates(const Eigen::VectorXd& distance, std::vector<float>& rates) const;

 private:
  // A joint on the way from one slot to another, and whether that way leads from what it carries to what
  // carries it.
  struct Passage {
    int slot;
    bool is_inwards;
  };

  std::vector<Passage> wayBetween(int slot_a, int slot_b) const;
  void addReaches(const std::vector<Passage>& way, const Eigen::Vector3d& point,
                  math::JointReaches& reaches) const;

  std::vector<Kinematics::Step> steps_;
  // Where each joint may stand: the middle of its range and half of its width, which is infinite without
  // limits.
  struct Range {
    double middle;
    double half_width;
  };
  std::vector<Range> ranges_;
};

}  // namespace kavo::kinematics::internal
