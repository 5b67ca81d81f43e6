#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <optional>
#include <string>

#include "kavo/formats/robot_file.h"
#include "kavo/kinematics/interface/kinematics.h"
#include "kavo/kinematics/interface/robot_description.h"
#include "tests/fuzz/fuzzer.h"

namespace kavo::testing {

//! Without covers of links: they are not what is read, and each takes a build that is made for this seconds.
inline formats::RobotFileOptions OptionsOfReaders() {
  formats::RobotFileOptions options;
  options.cover = false;
  options.self_collision = true;
  return options;
}

//! A robot that was read has to have a configuration, and frames that can be asked for.
inline void UseRobot(const formats::LoadedRobot& robot) {
  const RobotDescription& description = *robot.description;
  const Eigen::VectorXd q = description.defaultCSpaceConfiguration();
  Require(static_cast<std::size_t>(q.size()) == description.numCSpaceCoords());
  const auto kinematics = description.kinematics();
  for (const std::string& frame : kinematics->frameNames()) {
    kinematics->pose(q, kinematics->frame(frame));
  }
  kinematics->positionJacobian(q, kinematics->frame(robot.tip_frame));
}

//! An arm with all that the other files may refer to.
inline formats::FileText SmallArm() {
  return {"arm.urdf", R"(<robot name="arm">
  <link name="base"/>
  <link name="upper"><collision><geometry><sphere radius="0.1"/></geometry></collision></link>
  <link name="lower"><collision><geometry><box size="0.1 0.1 0.4"/></geometry></collision></link>
  <link name="finger"/>
  <joint name="a" type="revolute"><parent link="base"/><child link="upper"/><axis xyz="0 0 1"/>
    <limit lower="-1" upper="1" effort="1" velocity="1"/></joint>
  <joint name="b" type="continuous"><parent link="upper"/><child link="lower"/><origin xyz="0 0 1"/><axis xyz="0 1 0"/></joint>
  <joint name="f" type="prismatic"><parent link="lower"/><child link="finger"/><origin xyz="0 0 1"/>
    <axis xyz="1 0 0"/><mimic joint="a" multiplier="0.1"/><limit lower="0" upper="0.1" effort="1" velocity="1"/></joint>
</robot>)"};
}

}  // namespace kavo::testing
