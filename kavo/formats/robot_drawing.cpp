#include "kavo/formats/robot_drawing.h"

#include "kavo/formats/drawn_shape_internal.h"
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
  RobotDrawing drawing;
  for (const Kinematics::Frame& frame : description.model().frames()) {
    drawing.frames.push_back({frame, collision.spheresOf(frame.name), collision.paddingOf(frame.name),
                              collision.allowedObstaclesOf(frame.name)});
  }
  drawing.coordinates = CoordinatesOf(description, robot.motion_limits);
  drawing.tip_frame = robot.tip_frame;
  drawing.pairs = collision.pairs;
  for (const kavo::AttachedObject& object : held) {
    for (const CoverPart& part : object.parts) {
      drawing.attachments.push_back(
          {object.name, object.frame, object.pose * part.pose, DrawShape(part.shape)});
    }
  }
  return drawing;
}

}  // namespace kavo::formats
