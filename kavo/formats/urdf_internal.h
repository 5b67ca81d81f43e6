#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "kavo/formats/xml_internal.h"
#include "kavo/kinematics/interface/joint_limits.h"
#include "kavo/kinematics/interface/robot_description_builder.h"
#include "kavo/math/pose3.h"

namespace kavo::formats {

//! What a URDF file says about kinematics and collision, checked: a tree of links, sorted so that each comes
//! after the one that carries it.
struct Urdf {
  //! A solid of the collision geometry.
  struct Collision {
    enum class Kind { kSphere, kBox, kCylinder, kMesh };

    Kind kind = Kind::kMesh;
    int line = 0;
    //! In the link.
    Pose3 pose;
    //! Edge lengths of a box.
    Eigen::Vector3d size = Eigen::Vector3d::Zero();
    //! Of a sphere or a cylinder; the cylinder's axis is z.
    double radius = 0.0;
    double length = 0.0;
    //! Of a mesh: its file as the URDF names it, and its scale by axis, finite and not zero.
    std::string mesh;
    Eigen::Vector3d scale = Eigen::Vector3d::Ones();
  };

  struct Link {
    std::string name;
    std::vector<Collision> collisions;
  };

  struct Mimic {
    //! Index of the joint that is followed.
    std::size_t joint = 0;
    double multiplier = 1.0;
    double offset = 0.0;
  };

  struct Joint {
    std::string name;
    int line = 0;
    JointType type = JointType::kFixed;
    //! Index of the link that the joint is attached to.
    std::size_t parent = 0;
    Pose3 origin;
    Eigen::Vector3d axis = Eigen::Vector3d::UnitX();
    //! Of every joint that is not fixed; infinite for a continuous one.
    kinematics::JointLimits limits;
    //! The largest velocity, positive; infinite where none is stated.
    double velocity = std::numeric_limits<double>::infinity();
    //! Of a joint that is not fixed. Following joints from one to the next comes to an end.
    std::optional<Mimic> mimic;
  };

  std::string file;
  std::string name;
  //! Depth first, the children of a link in the order of the file. The first one is the root.
  std::vector<Link> links;
  //! Joint i carries link i + 1.
  std::vector<Joint> joints;
  std::map<std::string, std::size_t> link_indices;
  std::map<std::string, std::size_t> joint_indices;
};

//! What the `<origin>` of an element says; none is the identity.
Pose3 ReadOrigin(const XmlFile& xml, const XmlFile::Element& element);

//! Throws `FileError` for whatever is wrong with the text.
Urdf ParseUrdf(const std::string& text, const std::string& file);

}  // namespace kavo::formats
