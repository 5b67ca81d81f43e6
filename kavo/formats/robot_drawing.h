#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "kavo/formats/drawn_shape.h"
#include "kavo/formats/robot_file.h"
#include "kavo/kinematics/interface/joint_limits.h"
#include "kavo/kinematics/kinematics.h"
#include "kavo/math/pose3.h"
#include "kavo/math/sphere.h"
#include "kavo/motion_planning/interface/attached_object.h"
#include "kavo/util/export.h"

namespace kavo::formats {

//! All that it takes to draw a robot in any configuration, as values.
struct RobotDrawing {
  //! Triangles that are fixed to a frame.
  struct Mesh {
    //! In the frame.
    Pose3 pose;
    //! Of its file, or what kind of solid it is.
    std::string name;
    DrawnMesh mesh;
  };

  //! A frame, the joint that carries it, and what it carries.
  struct Frame {
    kinematics::Kinematics::Frame joint;
    //! Those that stand for it in every check; centres in the frame, metres.
    std::vector<math::Sphere> spheres;
    //! How far they have to stay away from obstacles beyond their radius, and the obstacles that they may
    //! touch.
    double padding = 0.0;
    std::vector<std::string> allowed_obstacles = {};
    std::vector<Mesh> visual_meshes = {};
    std::vector<Mesh> collision_meshes = {};
  };

  //! A coordinate of the c-space.
  struct Coordinate {
    std::string name;
    bool slides = false;
    kinematics::JointLimits limits;
    //! Radians or metres per second and its powers; infinite where nothing is known.
    double velocity = std::numeric_limits<double>::infinity();
    double acceleration = std::numeric_limits<double>::infinity();
    double jerk = std::numeric_limits<double>::infinity();
  };

  //! Something that the robot holds, or a part of it. It is a frame too: this says what it looks like.
  struct Attachment {
    std::string name;
    //! That carries it, and where it is in it.
    std::string frame;
    Pose3 pose;
    DrawnShape shape;
  };

  //! The base first, each after the one that carries it.
  std::vector<Frame> frames;
  std::vector<Coordinate> coordinates;
  //! The frame whose way is of interest.
  std::string tip_frame;
  //! Frames that must not touch each other.
  std::vector<std::pair<std::string, std::string>> pairs;
  std::vector<Attachment> attachments;
  //! Of the meshes that were read for it, each once.
  std::vector<std::string> mesh_files;
  //! Why a part of it is not drawn; a link whose visuals cannot all be read has none.
  std::vector<std::string> faults;
};

//! The drawing of a robot. Reads the meshes of its links, visual and collision; what cannot be read is left
//! out. Of all meshes together there are no more than 20 000 triangles (or twelve for each), fewer than they
//! have where these are more: their vertices are joined where they are near.
//! \param held The shapes of what its description holds.
//!
//! @code
//! kavo::formats::RobotFileOptions options;
//! options.cover = false;
//! const kavo::formats::LoadedRobot robot = kavo::formats::LoadRobot("examples/own_robot/arm.urdf", options);
//! const kavo::formats::RobotDrawing drawing = kavo::formats::DrawRobot(robot);
//! assert(drawing.frames.front().joint.parent == -1);
//! assert(drawing.coordinates.size() == robot.description->numCSpaceCoords());
//! @endcode
KAVO_EXPORT RobotDrawing DrawRobot(const LoadedRobot& robot,
                                   const std::vector<kavo::AttachedObject>& held = {});

}  // namespace kavo::formats
