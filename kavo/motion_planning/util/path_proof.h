#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/motion_planning/util/path_check.h"
#include "kavo/motion_planning/util/stop_condition.h"
#include "kavo/util/export.h"
#include "kavo/world/world_view.h"

namespace kavo::planning {

//! How exactly `ProvePath` is to look.
struct PathProofOptions {
  //! A gap smaller than this is not told from contact. Positive; metres.
  double least_clearance = 1e-6;
  //! How much smaller than the ones that are stated the smallest clearances may be. Positive; metres.
  double tolerance = 1e-4;
  //! Lower bounds on a gap (of one sphere, or one pair of spheres, on one part of a segment) that are worked
  //! out for a segment before it is given up. Motions that anybody would call one need some thousands.
  std::uint64_t max_num_bounds = 50'000'000;
};

//! What `ProvePath` found.
struct PathProof {
  //! What can be said of the path.
  enum class Verdict {
    //! Proven: no sphere touches an obstacle, nor one of a frame that its own must not touch, anywhere.
    kFree,
    //! Something touches. `bad` is where it does so deepest.
    kTouches,
    //! Somewhere the clearance is below the least one that was asked for. `bad` is where it is smallest, and
    //! the depth in it negative.
    kTooNear,
    //! `bad` is the first waypoint that is beyond a limit or not finite, or where a curve is farthest beyond
    //! a
    //! limit. Nothing else was looked at.
    kBeyondLimits,
    //! Given up: a segment takes more bounds than were allowed, or a frame cannot be placed, in `bad`. What
    //! was looked at is free.
    kUndecided,
    //! The stop condition ended the proof. What was looked at is free.
    kStopped,
  };

  //! What can be said.
  Verdict verdict = Verdict::kUndecided;
  //! Why the path is not proven free.
  std::optional<PathCheck::Bad> bad;
  //! The smallest clearance from an obstacle on the whole path and where it is: none is smaller by more than
  //! the tolerance, unless the proof was given up or stopped. Empty, as is the next one, where there is
  //! nothing to measure.
  std::optional<PathCheck::Clearance> clearance;
  //! Of the robot to itself.
  std::optional<PathCheck::SelfClearance> self_clearance;
  //! The smallest of the whole path, which is at a waypoint but for curves; there to within 1e-12 of the
  //! largest values of the coordinate.
  std::optional<PathCheck::LimitMargin> limit_margin;
  //! Configurations in which the robot was placed.
  std::uint64_t num_placements = 0;

  //! Whether nothing is touched anywhere.
  bool IsFree() const { return verdict == Verdict::kFree; }
};

//! "proven free", "touches", "comes too near", "beyond limits", "undecided", "stopped".
KAVO_EXPORT const char* ToString(PathProof::Verdict verdict);

//! Proves that a path is free everywhere, not only at samples, or says where it is not.
//!
//! Like `CheckPath` it uses nothing that planned the path, and no filter: it places the robot in double
//! precision and asks for the nearest obstacle of every sphere. From one waypoint to the next every
//! coordinate moves straight. A part of a segment is free for a sphere whose distance from the nearest
//! obstacle, in the middle of the part, is more than it can move until the ends; else the part is halved
//! (conservative advancement). docs/motions.md derives the bound. Joints that follow others, slide or turn
//! without limits are covered. Touching counts as collision; a sphere of negative radius touches nothing.
//!
//! It ends for every finite path. One with a clearance of some centimetres takes about a millisecond.
//! \param robot As this library's builder or loaders made it; fatal otherwise.
//! \param world_view The obstacles, in the frame of the robot's base.
//! \param path At least one configuration of the robot's number of coordinates; otherwise a fatal error.
//! \param options Values that are not positive are a fatal error.
//! \param stop_condition Asked before every placement.
//!
//! @code
//! kavo::World world;
//! world.add(kavo::BoxObstacle{{0.001, 0.4, 1.0}}, kavo::Pose3::FromTranslation({1.7, 0.6, 0.0}), "board");
//! const auto robot = kavo::LoadThreeLinkArmRobotDescription();
//! const std::vector<Eigen::VectorXd> path = {Eigen::Vector3d(-0.4, 0.1, 0.2), Eigen::Vector3d(1.7, -0.2,
//! -0.3)}; const kavo::planning::PathProof proof = kavo::planning::ProvePath(*robot, world.view(), path);
//! assert(proof.verdict == kavo::planning::PathProof::Verdict::kTouches);
//! assert(proof.clearance->obstacle_name == "board" && proof.clearance->distance <= 0.0);
//! @endcode
KAVO_EXPORT PathProof ProvePath(const RobotDescription& robot, const WorldView& world_view,
                                const std::vector<Eigen::VectorXd>& path,
                                const PathProofOptions& options = {},
                                const StopCondition& stop_condition = {});

//! The same for a motion along Bezier curves, such as what a controller runs between samples or a path with
//! blended corners. A coordinate is within limits where it is on the curve itself, to within 1e-12 of its
//! largest value in the control points.
//! \param pieces Each by its control points, one to a column: two for a straight piece. At least one piece of at
//!     least one point of the robot's number of coordinates, each beginning where the one before ends (to
//!     1e-9); otherwise a fatal error. In a `PathPlace`, `segment` is the index of a piece and `fraction` its
//!     parameter.
KAVO_EXPORT PathProof ProveCurves(const RobotDescription& robot, const WorldView& world_view,
                                  const std::vector<Eigen::MatrixXd>& pieces,
                                  const PathProofOptions& options = {},
                                  const StopCondition& stop_condition = {});

}  // namespace kavo::planning
