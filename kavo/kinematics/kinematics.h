#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "kavo/math/pose3.h"
#include "kavo/math/rigid_transform.h"
#include "kavo/util/export.h"

namespace kavo::kinematics {

//! The kinematic model as a value: a tree of joints, flattened for speed.
//!
//! Only joints that move remain as steps of a program; fixed joints are folded into constant offsets. Placing
//! one frame and sweeping over many run the same step function, so both give the same bits. Immutable but for
//! assignment.
class KAVO_EXPORT Kinematics {
 public:
  //! How a joint moves what it carries: not at all, about its axis, along it.
  enum class Motion : std::uint8_t { kFixed, kRevolute, kPrismatic };

  //! The value of a joint that follows a coordinate: `multiplier` times the coordinate plus `offset`.
  struct Ratio {
    //! Radians or metres for each of the coordinate; may be negative.
    double multiplier = 1.0;
    //! Radians or metres at zero of the coordinate.
    double offset = 0.0;
  };

  //! A frame and the joint that carries it.
  struct Frame {
    //! Unique among the frames.
    std::string name;
    //! Index of the frame that the joint is attached to; below this frame's own. -1 for the base frame only.
    int parent = -1;
    //! How the joint moves it.
    Motion motion = Motion::kFixed;
    //! C-space coordinate of a joint that moves.
    int coordinate = -1;
    //! With one, the joint follows a joint whose value is the coordinate.
    std::optional<Ratio> ratio;
    //! Pose of the joint in the parent frame.
    Pose3 origin;
    //! Direction of motion in the joint's own frame; finite, of any length but zero.
    Eigen::Vector3d axis = Eigen::Vector3d::UnitZ();
  };

  //! What a constant rotation does, for the cheaper ways there are to apply it.
  enum class RotationKind : std::uint8_t {
    //! Nothing.
    kIdentity,
    //! Every column is a coordinate axis or its opposite: quarter turns.
    kAxes,
    //! Anything else.
    kGeneral,
  };

  //! A constant transform.
  struct Offset {
    //! Maps the frame that it is in to the one that carries it.
    math::RigidTransform transform;
    //! Tells which of the cheaper ways applies.
    RotationKind kind = RotationKind::kIdentity;
    //! For `kAxes`: column c of the rotation is `sign[c]` times coordinate axis `source[c]`.
    std::int8_t source[3] = {0, 1, 2};
    //! For `kAxes`: 1 or -1.
    double sign[3] = {1.0, 1.0, 1.0};
  };

  //! One joint that moves. Step i fills slot i of the transforms; every step comes after the one that carries
  //! it.
  struct Step {
    //! Slot that the joint is attached to; -1 is the base.
    int parent = -1;
    //! The coordinate that moves it.
    int coordinate = 0;
    //! Engaged: it follows the joint whose value is the coordinate.
    std::optional<Ratio> ratio;
    //! Turns or slides; never fixed.
    Motion motion = Motion::kRevolute;
    //! Coordinate axis that a revolute joint turns about: any other axis is turned into z by `origin`.
    int axis = 2;
    //! -1 when it turns about the opposite of that axis, else 1.
    double sign = 1.0;
    //! Where the joint sits in the slot that carries it.
    Offset origin;
    //! For a prismatic joint: displacement per unit of the coordinate, in the slot that carries it.
    Eigen::Vector3d slide = Eigen::Vector3d::Zero();

    //! Where the joint stands for a value of its coordinate.
    double value(double q) const { return ratio ? ratio->multiplier * q + ratio->offset : q; }
  };

  //! Where a frame is: rigidly attached to a slot (-1: the base).
  struct Attachment {
    //! Index of the step that fills it.
    int slot = -1;
    //! Pose of the frame in that slot.
    Offset offset;
  };

  //! The steps that a set of frames needs, and where the frames are attached to them. Plain arrays: a query
  //! runs over `steps` in order, then over `frames`.
  struct Plan {
    //! Each behind the one that carries it; only those that the frames need.
    std::vector<Step> steps;
    //! In the order in which the frames were asked for.
    std::vector<Attachment> frames;
  };

  //! \param frames The base frame first, each other frame after its parent; checked by whoever made the list.
  //!     Coordinates are 0 .. n-1, each used by one joint without a ratio and any number with one.
  explicit Kinematics(std::vector<Frame> frames);

  //! The same model with another frame behind the others, rigidly attached to one of them.
  //! \param parent An index.
  Kinematics withFrame(const std::string& name, int parent, const Pose3& pose) const;
  //! The same model without a frame that no joint needs: one that was added so. What is attached to it stays
  //! where it is.
  Kinematics withoutFrame(int frame) const;

  //! Number of coordinates: joints that move and follow no other.
  std::size_t numCSpaceCoords() const { return num_coords_; }

  //! The list that the model was made from, with the frames that were added since and without those that were
  //! taken away: the tree as it was before it was flattened.
  const std::vector<Frame>& frames() const { return frames_; }

  //! The names of the frames in the order of that list.
  const std::vector<std::string>& frameNames() const { return frame_names_; }

  //! Index of a frame. An unknown name is a fatal error whose message lists the names there are.
  int frame(const std::string& frame_name) const;

  // In the operations below `q` has `numCSpaceCoords()` entries and `frame` is an index into `frameNames()`;
  // neither is checked.

  //! Transform of a frame relative to the robot base. Walks that frame's chain only.
  math::RigidTransform transform(const Eigen::VectorXd& q, int frame) const;

  //! Position of a frame's origin relative to the robot base.
  Eigen::Vector3d position(const Eigen::VectorXd& q, int frame) const;

  //! Derivative of `position` with respect to the coordinates, 3 x n. Joints that do not move the frame have
  //! columns of zeros.
  Eigen::MatrixXd positionJacobian(const Eigen::VectorXd& q, int frame) const;

  //! The plan for a list of frames, which may repeat. `Plan::frames` is in the order of the list.
  Plan plan(const std::vector<int>& frames) const;

 private:
  std::size_t num_coords_ = 0;
  std::vector<Frame> frames_;
  std::vector<std::string> frame_names_;
  std::unordered_map<std::string, int> frame_indices_;
  Plan program_;
  // The slots that move frame f, from the base on: chain_slots_[chain_begin_[f]] to before chain_begin_[f +
  // 1].
  std::vector<int> chain_slots_;
  std::vector<std::size_t> chain_begin_;
};

}  // namespace kavo::kinematics
