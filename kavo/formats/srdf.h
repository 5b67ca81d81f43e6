#pragma once

#include <map>
#include <string>
#include <vector>

#include "kavo/math/sphere.h"
#include "kavo/util/export.h"

namespace kavo::formats {

//! What an SRDF file adds to a robot's URDF. Names are as the file has them: whether the robot has such
//! joints and links is not known here.
struct Srdf {
  //! All joints between two links.
  struct Chain {
    //! The link that it starts from.
    std::string base_link;
    //! The link that it leads to.
    std::string tip_link;
  };

  //! A set of joints under a name.
  struct Group {
    //! Its name.
    std::string name;
    //! Line of the file.
    int line = 0;
    //! Joints by name; fixed ones count as well.
    std::vector<std::string> joints;
    //! Each stands for the joint that carries it.
    std::vector<std::string> links;
    //! Each stands for its joints.
    std::vector<Chain> chains;
    //! Names of groups that belong to this one.
    std::vector<std::string> subgroups;
  };

  //! A named configuration of a group.
  struct GroupState {
    //! Of the configuration.
    std::string name;
    //! The group that it is one of.
    std::string group;
    //! Line of the file.
    int line = 0;
    //! Radians or metres by joint. A joint that the file gives several values (one that floats) is left out.
    std::map<std::string, double> joint_values;
  };

  //! What is mounted on a link, with joints of its own.
  struct EndEffector {
    //! Its name.
    std::string name;
    //! The link that carries the end effector.
    std::string parent_link;
    //! The group of the end effector's own joints and links.
    std::string group;
    //! The group that moves it; may be empty.
    std::string parent_group;
  };

  //! A joint between the world and the robot, which the URDF does not have.
  struct VirtualJoint {
    //! Of the joint.
    std::string name;
    //! The frame that it starts from; may be empty.
    std::string parent_frame;
  };

  //! Two links between which contact need not be looked for.
  struct DisabledPair {
    std::string link1;  //!< One of them.
    std::string link2;  //!< The other.
    //! For a reader; may be empty.
    std::string reason;
    //! Line of the file.
    int line = 0;
  };

  //! Name of the file, for errors that show only beside the robot.
  std::string file;
  //! As the SRDF has it: that of the URDF, if they belong together.
  std::string robot_name;
  // Each in the order of the file.
  //! Sets of joints.
  std::vector<Group> groups;
  //! Named configurations.
  std::vector<GroupState> group_states;
  //! Grippers and tools.
  std::vector<EndEffector> end_effectors;
  //! Joints between the world and the robot.
  std::vector<VirtualJoint> virtual_joints;
  //! Pairs of links that need no looking at.
  std::vector<DisabledPair> disabled_pairs;
  //! From `link_sphere_approximation`: centres in the link's frame, metres. Spheres of radius zero are left
  //! out, so that a link whose only sphere is one has an empty list: it is not to collide.
  std::map<std::string, std::vector<math::Sphere>> link_spheres;

  //! Null if there is none of that name.
  KAVO_EXPORT const VirtualJoint* findVirtualJoint(const std::string& joint_name) const;
};

//! Reads an SRDF file. Elements without a meaning here are ignored.
//!
//! Throws `FileError` for a file that cannot be read, is not well-formed XML, or lacks an attribute that an
//! element needs; for a number that is malformed or not finite, a negative radius, and two groups of one
//! name.
KAVO_EXPORT Srdf ReadSrdf(const std::string& file);

//! The same from the text of a file, with a name for its errors.
KAVO_EXPORT Srdf ParseSrdf(const std::string& text, const std::string& file);

}  // namespace kavo::formats
