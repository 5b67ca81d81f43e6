#include "kavo/formats/robot_drawing.h"

#include <utility>
#include <variant>

#include "kavo/formats/drawn_shape_internal.h"
#include "kavo/formats/link_looks_internal.h"
#include "kavo/kinematics/interface/robot_description_internal.h"

namespace kavo::formats {

namespace {

using kinematics::Kinematics;

std::vector<RobotDrawing::Coordinate> CoordinatesOf(const RobotDescriptionInternal& description,
                                                    const planning::MotionLimits& limits) {
  std::vector<RobotDrawing::Coordinate> coordinates(description.numCSpaceCoords());
  for (std::size_t i = 0; i < coordinates.size(); ++i) {
    RobotDrawing::Coordinate& coordinate = coordinates[i];
    const auto row = static_cast<Eigen::Index>(i);
    coordinate.name = description.cSpaceCoordName(i);
    coordinate.limits = description.jointLimits()[i];
    coordinate.velocity = limits.velocity[row];
    coordinate.acceleration = limits.acceleration[row];
    if (limits.jerk) {
      coordinate.jerk = (*limits.jerk)[row];
    }
  }
  for (const Kinematics::Frame& frame : description.model().frames()) {
    if (frame.motion == Kinematics::Motion::kPrismatic && !frame.ratio) {
      coordinates[static_cast<std::size_t>(frame.coordinate)].slides = true;
    }
  }
  return coordinates;
}

}  // namespace

RobotDrawing DrawRobot(const LoadedRobot& robot, const std::vector<kavo::AttachedObject>& held) {
  // All descriptions are of this kind.
  const auto& description = dynamic_cast<const RobotDescriptionInternal&>(*robot.description);
  const CollisionModel& collision = description.collision();
  RobotLooks looks = robot.origin ? ReadLooks(*robot.origin) : RobotLooks();
  RobotDrawing drawing;
  drawing.coordinates = CoordinatesOf(description, robot.motion_limits);
  drawing.tip_frame = robot.tip_frame;
  drawing.pairs = collision.pairs;
  drawing.mesh_files = std::move(looks.mesh_files);
  drawing.faults = std::move(looks.faults);
  std::vector<ObstacleShape> shapes;
  const auto take = [&shapes](const std::vector<RobotLooks::Part>& parts) {
    std::vector<RobotDrawing::Mesh> meshes;
    for (const RobotLooks::Part& part : parts) {
      meshes.push_back({part.pose, part.name, {}});
      shapes.push_back(MeshObstacle{part.mesh});
    }
    return meshes;
  };
  for (const Kinematics::Frame& frame : description.model().frames()) {
    const RobotLooks::Link& link = looks.links[frame.name];
    drawing.frames.push_back({frame, collision.spheresOf(frame.name), collision.paddingOf(frame.name),
                              collision.allowedObstaclesOf(frame.name), take(link.visuals),
                              take(link.collisions)});
  }
  for (const kavo::AttachedObject& object : held) {
    for (const CoverPart& part : object.parts) {
      drawing.attachments.push_back({object.name, object.frame, object.pose * part.pose, {}});
      shapes.push_back(part.shape);
    }
  }

  // In the order in which they were taken.
  std::vector<DrawnShape> drawn = DrawShapes(shapes);
  auto next = drawn.begin();
  for (RobotDrawing::Frame& frame : drawing.frames) {
    for (auto* const meshes : {&frame.visual_meshes, &frame.collision_meshes}) {
      for (RobotDrawing::Mesh& mesh : *meshes) {
        mesh.mesh = std::get<DrawnMesh>(std::move(*next++));
      }
    }
  }
  for (RobotDrawing::Attachment& attachment : drawing.attachments) {
    attachment.shape = std::move(*next++);
  }
  return drawing;
}

}  // namespace kavo::formats
