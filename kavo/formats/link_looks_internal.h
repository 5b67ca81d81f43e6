#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "kavo/formats/robot_file.h"
#include "kavo/math/pose3.h"
#include "kavo/world/shapes/triangle_mesh.h"

namespace kavo::formats {

//! What the links of a robot look like.
struct RobotLooks {
  //! One of the solids of a link.
  struct Part {
    //! In the link.
    Pose3 pose;
    //! The file of a mesh as the URDF names it, or the kind of another solid.
    std::string name;
    std::shared_ptr<const TriangleMesh> mesh;
  };

  struct Link {
    //! Empty too where one of them cannot be had: nothing is drawn in part.
    std::vector<Part> visuals;
    std::vector<Part> collisions;
  };

  //! By name.
  std::map<std::string, Link> links;
  //! Of the meshes, each once, as they were found.
  std::vector<std::string> mesh_files;
  //! Why something is left out.
  std::vector<std::string> faults;
};

//! Reads the meshes of a URDF whose kinematics were read before. Nothing is an error: what cannot be read is
//! left out.
RobotLooks ReadLooks(const LoadedRobot::Origin& origin);

}  // namespace kavo::formats
