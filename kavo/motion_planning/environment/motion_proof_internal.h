#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "kavo/kinematics/interface/frame_sweep.h"
#include "kavo/kinematics/lane_sweep_internal.h"
#include "kavo/math/motion_bound_internal.h"
#include "kavo/math/rigid_transform.h"
#include "kavo/math/sphere.h"
#include "kavo/motion_planning/environment/robot_balls_internal.h"
#include "kavo/world/ball_model_internal.h"
#include "kavo/world/world_view.h"

namespace kavo::internal {

class Snapshot;

}  // namespace kavo::internal

namespace kavo::planning::internal {

//! Proves that a robot touches nothing anywhere on a motion.
//!
//! The robot is placed at a few points of the motion. Between two neighbours each ball stays within itself,
//! enlarged by what the motion asks (`math::MotionBound`), at one of them: where no enlarged ball touches
//! anything, the motion is free there; where a true one does, it is not. What is neither is divided. To
//! bound motions in order to check them is an idea of Schwarzer, Saha and Latombe ("Adaptive dynamic
//! collision checking for single and multiple articulated robots in complex environments", 2005).
//!
//! Eight placements at a time go through the lanes of a `BallModel`; what the lanes leave open goes on in
//! double precision. Nothing is accepted that is not proven: what is undecided when the enlargement is down
//! to a hundredth of a millimetre counts as not free, and so does what comes nearer than `kClearance`.
class MotionProof {
 public:
  //! What is added to the radius of each ball, metres: a motion that is accepted keeps it.
  static constexpr double kClearance = 2e-6;

  //! What it has taken.
  struct Work {
    std::uint64_t num_placements = 0;
    std::uint64_t num_divisions = 0;
  };

  //! What places the robot must outlive this.
  //! \param frames As the balls were made of.
  MotionProof(RobotBalls& balls, kinematics::internal::LaneSweep& lane_sweep, FrameSweep& sweep,
              std::vector<RobotBalls::Frame> frames);

  //! Whether nothing is touched from `q_start` straight to `q_end`. The frames that never move are not looked
  //! at, but whether others touch them.
  //! \param q_start, q_end Finite.
  //! \param base Pose of the robot base in the world; empty for the identity.
  bool IsFree(const WorldView& view, const std::optional<math::RigidTransform>& base,
              const Eigen::Ref<const Eigen::VectorXd>& q_start,
              const Eigen::Ref<const Eigen::VectorXd>& q_end);

  //! The same of a motion along a Bezier curve.
  //! \param control_points Two or more, one to a column; finite.
  bool IsFree(const WorldView& view, const std::optional<math::RigidTransform>& base,
              const Eigen::Ref<const Eigen::MatrixXd>& control_points);

  const Work& GetWork() const { return work_; }

 private:
  using Question = kavo::internal::BallModel::Question;
  using Verdict = kavo::internal::BallModel::Verdict;

  // Balls that are asked about in double precision: of one bundle, or of two that must not touch.
  struct Item {
    std::size_t a;
    std::size_t b;
    bool is_pair;
    math::MotionBound bound;
  };

  // What has touched.
  struct Contact {
    Question question;
    // Of the parts that it is about.
    int last_slot;
    int num_misses;
  };

  bool Prove(const WorldView& view, const std::optional<math::RigidTransform>& base);
  void GetRates();
  bool IsCurved() const { return curve_.cols() > 0; }
  // Begins a block of placements. False where lanes do not serve.
  bool Place(double begin, double spacing);
  bool MoveAlongCurve(const double (&times)[math::kNumLanes]);
  int LastSlotOf(const Question& question) const;
  bool TouchesAsBefore();
  void Remember(const Question& question);
  bool Divide(double begin, double spacing, std::size_t first);
  bool ProveRun(double begin, double end, std::size_t num_intervals, std::size_t first);

  bool ProveAllExactly(double num_parts);
  bool ProveExactly(double begin, double end, std::size_t first);
  void PlaceExactly(double t, std::size_t first, std::vector<Eigen::Vector3d>& centers);
  std::optional<bool> DecideExactly(const Item& item, double spacing, const Eigen::Vector3d* from,
                                    const Eigen::Vector3d* to, double& enlargement) const;
  Item MakeItem(const Question& question) const;
  void AddMotion(const math::JointReaches& reaches, math::MotionBound& bound) const;
  const math::Sphere& SphereOf(std::size_t bundle, std::size_t k) const;
  std::size_t NumBalls(std::size_t bundle) const { return balls_.bundles[bundle].spheres.size(); }
  int SlotOf(std::size_t bundle) const { return balls_.part_slots[balls_.bundles[bundle].part]; }

  RobotBalls& balls_;
  kinematics::internal::LaneSweep& lane_sweep_;
  FrameSweep& sweep_;
  std::vector<RobotBalls::Frame> frames_;

  // The motion. Where it is curved, `way_` is what the coordinates never go faster than.
  const WorldView* view_ = nullptr;
  const std::optional<math::RigidTransform>* base_ = nullptr;
  const double* q_start_ = nullptr;
  Eigen::VectorXd way_;
  std::vector<float> rates_;
  // The control points of one that is curved; none of a straight one.
  Eigen::MatrixXd curve_;
  std::vector<float> bends_;
  std::vector<double> coordinates_;
  std::uint64_t most_placements_ = 0;
  // Open questions: those of a run behind those of the one that it is part of.
  std::vector<Question> questions_;
  std::vector<Item> items_;
  Eigen::VectorXd q_;
  // What touched last, the latest first, in which surroundings.
  std::vector<Contact> contacts_;
  std::shared_ptr<const kavo::internal::Snapshot> contacts_snapshot_;
  Work work_;
};

}  // namespace kavo::planning::internal
