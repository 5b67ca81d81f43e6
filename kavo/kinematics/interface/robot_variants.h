#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/math/pose3.h"
#include "kavo/math/sphere.h"
#include "kavo/util/export.h"

namespace kavo {

// The same robot in another form: a description is never changed, these make another one with the same
// coordinates and joints. `robot` is one that this library's builder or loaders made, fatal otherwise; an
// unknown frame, and a number out of range, is a fatal error that names it.

//! Something that a robot holds. From then on it is part of the robot, and counts as one of its frames.
struct AttachedBody {
  //! Of no other frame; not empty.
  std::string name;
  //! The frame that it is fixed to.
  std::string frame;
  //! Where its own frame is in that frame.
  Pose3 pose;
  //! Centres in its own frame, metres; of a radius that is positive and finite.
  std::vector<math::Sphere> spheres;
  //! Frames of the robot that it may touch, beside those that it does not move against.
  std::vector<std::string> touch_frames;
  //! The names of obstacles that it may touch.
  std::vector<std::string> allowed_obstacles = {};
};

//! The robot with another frame that carries the spheres of a body. A robot that must not touch itself must
//! not touch the body either: there are pairs of it with all frames that carry spheres, but for those that it
//! may touch and those that it does not move against.
//!
//! The frame is the last one, but not the one that counts as the robot's last frame for default settings.
//!
//! @code
//! const std::shared_ptr<kavo::RobotDescription> arm = kavo::LoadFrankaRobotDescription();
//! const std::shared_ptr<kavo::RobotDescription> with_ball = kavo::WithAttached(
//!     *arm, {"ball", "tool", kavo::Pose3(), {{Eigen::Vector3d::Zero(), 0.03}}, {"hand"}});
//! assert(with_ball->kinematics()->frameNames().back() == "ball");
//! assert(kavo::AttachedBodies(*with_ball).size() == 1);
//! const std::shared_ptr<kavo::RobotDescription> empty_handed = kavo::WithoutAttached(*with_ball, "ball");
//! assert(kavo::AttachedBodies(*empty_handed).empty());
//! @endcode
KAVO_EXPORT std::unique_ptr<RobotDescription> WithAttached(const RobotDescription& robot,
                                                           const AttachedBody& body);

//! The robot without a body that was attached to it. Fatal for another name.
KAVO_EXPORT std::unique_ptr<RobotDescription> WithoutAttached(const RobotDescription& robot,
                                                              const std::string& name);

//! What a robot holds, in the order attached.
KAVO_EXPORT std::vector<AttachedBody> AttachedBodies(const RobotDescription& robot);

//! The last frame of the robot itself, without what it holds.
KAVO_EXPORT std::string LastOwnFrame(const RobotDescription& robot);

//! What may touch what, and how near the robot may come to what it must not touch.
struct ContactRules {
  //! By frame, how far from every obstacle its spheres have to stay; not negative, metres. Contact is what is
  //! nearer, and every distance from an obstacle that is stated is what is left beyond it. The robot's
  //! distance from itself is not concerned.
  std::map<std::string, double> paddings;
  //! By frame, the names of obstacles that it may touch. Names of obstacles that do not exist stand for none.
  std::map<std::string, std::vector<std::string>> allowed_obstacles;
};

//! The robot under other rules, in place of those that it has.
//!
//! @code
//! const std::shared_ptr<kavo::RobotDescription> robot = kavo::WithContactRules(
//!     *kavo::LoadFrankaRobotDescription(), {{{"hand", 0.02}}, {{"base", {"table"}}}});
//! assert(kavo::ContactRulesOf(*robot).paddings.at("hand") == 0.02);
//! @endcode
KAVO_EXPORT std::unique_ptr<RobotDescription> WithContactRules(const RobotDescription& robot,
                                                               const ContactRules& rules);
//! The rules that a robot has; frames without a padding and without exceptions are left out.
KAVO_EXPORT ContactRules ContactRulesOf(const RobotDescription& robot);

//! The robot with these pairs of frames that must not touch each other instead of its own. Fatal for a pair
//! of a frame with itself. A pair given twice, in either order, counts once.
KAVO_EXPORT std::unique_ptr<RobotDescription> WithCollisionPairs(
    const RobotDescription& robot, const std::vector<std::pair<std::string, std::string>>& pairs);

}  // namespace kavo
