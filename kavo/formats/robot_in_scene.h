#pragma once

#include <Eigen/Core>
#include <memory>
#include <string>
#include <vector>

#include "kavo/formats/robot_file.h"
#include "kavo/formats/scene.h"
#include "kavo/formats/scene_object.h"
#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/math/pose3.h"
#include "kavo/motion_planning/interface/attached_object.h"
#include "kavo/util/export.h"

namespace kavo::formats {

//! An object that a file attaches to a link, as `WithAttached` takes it: fixed where it is when the robot is
//! at a configuration. Its `touch_links` that the robot does not have are passed over.
//!
//! Throws `FileError` for a link that the robot does not have, for the name of one of its frames, for an
//! object in a frame that is neither one of the robot's nor one of `frames`, without a shape or with a plane.
//! \param file For errors.
//! \param base_pose Of the robot's base in the world of the file.
//! \param frames That the object may be given in, relative to the base, beside those of the robot.
KAVO_EXPORT kavo::AttachedObject PlaceAttached(const AttachedObject& attached, const RobotDescription& robot,
                                               const Eigen::VectorXd& q, const std::string& file,
                                               const Pose3& base_pose, const FramePoses& frames = {});

//! The robot's description under the rules of a scene:
//!
//! * Its allowed collision matrix. An entry for two links (or what is attached to them) goes before what the
//!   robot's own files say of the two, unless they are one rigid body; a default of true, too. Where the
//!   robot may touch itself anyway, no entry changes that. An entry for a link and an object of the scene, or
//!   else a default, says whether they may touch.
//! * Its paddings of links, for links that the robot has.
//!
//! \param description Of the robot, holding what it holds.
KAVO_EXPORT std::shared_ptr<RobotDescription> WithSceneRules(const LoadedRobot& robot,
                                                             const RobotDescription& description,
                                                             const Scene& scene);

//! The robot as it is in a scene, for a caller who has no more to say: holding what the scene attaches,
//! under its rules.
//! \param q Where the robot is.
//!
//! @code
//! const auto robot = kavo::formats::LoadRobot("examples/own_robot/arm.urdf");
//! const auto scene = kavo::formats::ReadScene("examples/own_robot/scene.yaml");
//! const std::shared_ptr<kavo::RobotDescription> in_scene =
//!     kavo::formats::WithScene(robot, scene, robot.description->defaultCSpaceConfiguration());
//! assert(kavo::AttachedBodies(*in_scene).size() == scene.attached.size());
//! @endcode
KAVO_EXPORT std::shared_ptr<RobotDescription> WithScene(const LoadedRobot& robot, const Scene& scene,
                                                        const Eigen::VectorXd& q,
                                                        const FramePoses& frames = {});

}  // namespace kavo::formats
