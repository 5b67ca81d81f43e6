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
    //! What is drawn, in the frame that `pose` is of; metres.
    DrawnMesh mesh;
  };

  //! A frame, the joint that carries it, and what it carries.
  struct Frame {
    //! How the frame moves, and against which.
    kinematics::Kinematics::Frame joint;
    //! Those that stand for it in every check; centres in the frame, metres.
    std::vector<math::Sphere> spheres;
    //! How far they have to stay away from obstacles beyond their radius, metres.
    double padding = 0.0;
    //! Names of obstacles that they may touch.
    std::vector<std::string> allowed_obstacles = {};
    //! For the eye, as the URDF has them.
    std::vector<Mesh> visual_meshes = {};
    //! The collision geometry of the URDF, which the spheres stand for.
    std::vector<Mesh> collision_meshes = {};
  };

  //! A coordinate of the c-space.
  struct Coordinate {
    //! Of the joint.
    std::string name;
    //! Whether it is in metres, else in radians.
    bool slides = false;
    //! Infinite where it has none.
    kinematics::JointLimits limits;
    //! Radians or metres per second. Infinite where nothing is known, as are the next two.
    double velocity = std::numeric_limits<double>::infinity();
    //! Radians or metres per second squared.
    double acceleration = std::numeric_limits<double>::infinity();
    //! Radians or metres per second cubed.
    double jerk = std::numeric_limits<double>::infinity();
  };

  //! Something that the robot holds, or a part of it. It is a frame too: this says what it looks like.
  struct Attachment {
    //! Of the frame that it is, too.
    std::string name;
    //! The frame that carries it.
    std::string frame;
    //! Pose in that frame.
    Pose3 pose;
    //! Given in its own frame.
    DrawnShape shape;
  };

  //! The base first, each after the one that carries it.
  std::vector<Frame> frames;
  //! In c-space order.
  std::vector<Coordinate> coordinates;
  //! The frame whose way is of interest.
  std::string tip_frame;
  //! Frames that must not touch each other.
  std::vector<std::pair<std::string, std::string>> pairs;
  //! In the order attached.
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
