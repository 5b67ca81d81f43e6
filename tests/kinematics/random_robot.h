#pragma once

#include <cmath>
#include <random>

#include "kavo/kinematics/interface/robot_description_builder.h"
#include "kavo/kinematics/interface/robot_variants.h"
#include "tests/support/vectors.h"

namespace kavo::testing {

//! A random tree of joints of every type, some of them held or following others, and a reference that
//! places its frames: recursion with Eigen's transforms.
class RandomRobot {
 public:
  RandomRobot(std::mt19937& engine, int num_joints) {
    for (int i = 0; i < num_joints; ++i) {
      Joint joint;
      joint.name = "j" + std::to_string(i);
      joint.child_frame = "f" + std::to_string(i);
      // Mostly chains, some branches, some frames on the base.
      const int parent =
          engine() % 3 != 0 ? i - 1 : static_cast<int>(engine() % (static_cast<unsigned>(i) + 1)) - 1;
      joint.parent_frame = parent < 0 ? "base" : "f" + std::to_string(parent);
      joint.type = static_cast<JointType>(engine() % 4);
      joint.origin = RandomOrigin(engine);
      joint.axis = RandomAxis(engine);
      joint.limits = kinematics::JointLimits{-3.0, 3.0};
      parents_.push_back(parent);
      int coordinate = -1;
      if (joint.type != JointType::kFixed) {
        // Some follow an earlier joint, some are held.
        const auto role = engine() % 8;
        if (role == 0 && num_coordinates_ > 0) {
          coordinate = static_cast<int>(engine() % static_cast<unsigned>(num_coordinates_));
          joint.mimic = Joint::Mimic{coordinate_names_[static_cast<std::size_t>(coordinate)], -1.5, 0.25};
        } else if (role == 1) {
          joint.held_value = RandomVec(engine, 1, -4.0, 4.0)[0];
        } else {
          coordinate = num_coordinates_++;
          coordinate_names_.push_back(joint.name);
        }
      }
      coordinates_.push_back(coordinate);
      joints_.push_back(joint);
    }
  }

  std::unique_ptr<RobotDescription> description() const {
    RobotDescriptionBuilder builder("base");
    for (const Joint& joint : joints_) {
      builder.addJoint(joint);
    }
    return builder.build();
  }

  //! With spheres on most frames, on those of some robots very many, and some pairs of frames that must not
  //! touch. Some frames have to stay away from obstacles, some may touch those that are named "allowed".
  std::unique_ptr<RobotDescription> withSpheres(std::mt19937& engine) const {
    RobotDescriptionBuilder builder("base");
    ContactRules rules;
    const bool has_many = engine() % 8 == 0;
    for (const Joint& joint : joints_) {
      builder.addJoint(joint);
      for (auto left = engine() % 5 * (has_many ? 10 : 1); left > 0; --left) {
        builder.addCollisionSphere(joint.child_frame, RandomVec(engine, 3, -0.1, 0.1),
                                   0.01 + (has_many ? 0.02 : 0.1) * RandomVec(engine, 1, 0.0, 1.0)[0]);
      }
      if (engine() % 6 == 0) {
        rules.paddings[joint.child_frame] = RandomVec(engine, 1, 0.0, 0.1)[0];
      }
      if (engine() % 4 == 0) {
        rules.allowed_obstacles[joint.child_frame] = {"nothing", "allowed"};
      }
      if (engine() % 4 == 0) {
        const auto& other = joints_[engine() % joints_.size()];
        if (other.child_frame != joint.child_frame) {
          builder.addCollisionPair(joint.child_frame, other.child_frame);
        }
      }
    }
    return WithContactRules(*builder.build(), rules);
  }

  int num_coordinates() const { return num_coordinates_; }
  const std::vector<Joint>& joints() const { return joints_; }

  //! \param joint Index of the joint that carries the frame; -1 is the base.
  Eigen::Isometry3d place(const Eigen::VectorXd& q, int joint) const {
    if (joint < 0) {
      return Eigen::Isometry3d::Identity();
    }
    const auto i = static_cast<std::size_t>(joint);
    const Pose3& origin = joints_[i].origin;
    Eigen::Isometry3d result =
        place(q, parents_[i]) * Eigen::Translation3d(origin.translation()) * origin.rotation();
    if (joints_[i].type == JointType::kFixed) {
      return result;
    }
    const Eigen::Vector3d axis = joints_[i].axis.normalized();
    double value = joints_[i].held_value ? *joints_[i].held_value : q[coordinates_[i]];
    if (joints_[i].mimic) {
      value = joints_[i].mimic->multiplier * value + joints_[i].mimic->offset;
    }
    return joints_[i].type == JointType::kPrismatic ? result * Eigen::Translation3d(axis * value)
                                                    : result * Eigen::AngleAxisd(value, axis);
  }

 private:
  // Quarter turns, and rotations that are almost one, must come up as well as any others.
  static Pose3 RandomOrigin(std::mt19937& engine) {
    const Eigen::Vector3d translation = RandomVec(engine, 3, -0.5, 0.5);
    const Eigen::Vector3d axis = RandomAxis(engine).normalized();
    const Eigen::VectorXd v = RandomVec(engine, 4, -1.0, 1.0);
    const Eigen::Quaterniond rotations[] = {
        Eigen::Quaterniond::Identity(),
        Eigen::Quaterniond(Eigen::AngleAxisd(static_cast<int>(engine() % 4) * std::acos(0.0),
                                             Eigen::Vector3d::Unit(engine() % 3))),
        Eigen::Quaterniond(Eigen::AngleAxisd(std::acos(0.0) + 1e-8, axis)),
        Eigen::Quaterniond(v[0], v[1], v[2], v[3]),
    };
    return {rotations[engine() % 4], translation};
  }

  // Of any length; on a coordinate axis, its opposite, next to one, or anywhere.
  static Eigen::Vector3d RandomAxis(std::mt19937& engine) {
    const double length = std::ldexp(1.0, static_cast<int>(engine() % 20) - 10);
    const Eigen::Vector3d axis = Eigen::Vector3d::Unit(engine() % 3) * (engine() % 2 == 0 ? length : -length);
    const double spread[] = {0.0, 1e-7, 1.0};
    return axis + RandomVec(engine, 3, -1.0, 1.0) * spread[engine() % 3] * length;
  }

  std::vector<Joint> joints_;
  std::vector<int> parents_;
  std::vector<int> coordinates_;
  std::vector<std::string> coordinate_names_;
  int num_coordinates_ = 0;
};

}  // namespace kavo::testing
