#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/util/export.h"

namespace kavo {

//! How two frames of a robot that carry collision spheres get on with each other, over all configurations
//! within its limits.
struct FramePair {
  //! What was found, by proof or by random configurations.
  enum class Kind {
    //! No joint between them moves.
    kRigid,
    //! One moving joint is between them. Its spheres often overlap where they meet, by how they were made.
    kAdjacent,
    //! They touched in every random configuration.
    kAlways,
    //! They cannot touch: proven for every configuration.
    kNever,
    //! They touched in no random configuration; whether they can is not known.
    kNotSeen,
    //! They touch in some configuration.
    kSometimes,
  };

  //! The two, in the order of the robot's frames.
  std::string frames[2];
  //! What was found.
  Kind kind = Kind::kSometimes;
  //! Random configurations looked at.
  std::uint64_t num_samples = 0;
  //! Those of them in which the two touch.
  std::uint64_t num_touching = 0;
};

//! How thoroughly `ClassifyFramePairs` looks.
struct FramePairOptions {
  //! Random configurations, uniform within the limits; fewer than 1 are a fatal error.
  int num_samples = 10000;
  //! Coordinate i is drawn with `seed` + i.
  std::uint32_t seed = 1;
  //! Boxes of configurations that a proof may look at for each pair before it gives up; zero for no proofs.
  int max_boxes = 200000;
};

//! All pairs of frames that carry spheres, in the order of the frames. Equal arguments give equal answers.
//!
//! Pairs that no sample showed in contact are proven by branch and bound over the joints between them: a box
//! of joint values is free if the spheres at its middle are farther apart than they can move within it, and
//! is halved otherwise. The movement of a sphere is bounded by the sum over the joints between of half the
//! box's width times its distance from the joint's axis at the middle of the box.
//! \param robot As this library's builder or loaders made it; fatal otherwise.
//!
//! @code
//! const auto robot = kavo::LoadThreeLinkArmRobotDescription();
//! std::vector<std::pair<std::string, std::string>> pairs;
//! for (const kavo::FramePair& pair : kavo::ClassifyFramePairs(*robot)) {
//!   if (pair.kind == kavo::FramePair::Kind::kSometimes || pair.kind == kavo::FramePair::Kind::kNotSeen) {
//!     pairs.emplace_back(pair.frames[0], pair.frames[1]);
//!   }
//! }
//! const std::shared_ptr<kavo::RobotDescription> with_pairs = kavo::WithCollisionPairs(*robot, pairs);
//! @endcode
KAVO_EXPORT std::vector<FramePair> ClassifyFramePairs(const RobotDescription& robot,
                                                      const FramePairOptions& options = {});

}  // namespace kavo
