#include <cmath>
#include <limits>
#include <type_traits>
#include <variant>

#include "kavo/formats/result_json_internal.h"

namespace kavo::formats {

namespace {

using Json = ResultJson;
using kinematics::Kinematics;

// Of what is only drawn: to a tenth of a millimetre.
constexpr double kScale = 1e4;

// Numbers in one row, which takes far less room than an array for each point.
void AddPoint(const Eigen::Vector3d& point, Json& row) {
  for (const double coordinate : point) {
    row.push_back(Rounded(coordinate, kScale));
  }
}

Json PointsToJson(const std::vector<Eigen::Vector3d>& points) {
  Json row = Json::array();
  for (const Eigen::Vector3d& point : points) {
    AddPoint(point, row);
  }
  return row;
}

Json MeshToJson(const DrawnMesh& mesh) {
  Json triangles = Json::array();
  for (const auto& triangle : mesh.triangles) {
    for (const std::uint32_t corner : triangle) {
      triangles.push_back(corner);
    }
  }
  return {{"vertices", PointsToJson(mesh.vertices)},
          {"triangles", std::move(triangles)},
          {"num_triangles", mesh.num_triangles}};
}

template <typename Solid>
Json RadiusAndHeight(const Solid& solid) {
  return {{"radius", solid.radius}, {"height", solid.height}};
}

struct ShapeToJson {
  Json operator()(const SphereObstacle& sphere) const { return {{"sphere", {{"radius", sphere.radius}}}}; }
  Json operator()(const BoxObstacle& box) const { return {{"box", ToArray(box.size)}}; }
  Json operator()(const CylinderObstacle& cylinder) const {
    return {{"cylinder", RadiusAndHeight(cylinder)}};
  }
  Json operator()(const CapsuleObstacle& capsule) const { return {{"capsule", RadiusAndHeight(capsule)}}; }
  Json operator()(const HalfSpaceObstacle&) const { return {{"half_space", Json::object()}}; }
  Json operator()(const ConeObstacle& cone) const { return {{"cone", RadiusAndHeight(cone)}}; }
  Json operator()(const DrawnMesh& mesh) const { return {{"mesh", MeshToJson(mesh)}}; }
  Json operator()(const DrawnPoints& points) const {
    return {{"points",
             {{"points", PointsToJson(points.points)},
              {"radius", points.radius},
              {"num_points", points.num_points}}}};
  }
  Json operator()(const DrawnCells& cells) const {
    Json row = Json::array();
    for (const Octree::Cell& cell : cells.cells) {
      AddPoint(cell.center, row);
      row.push_back(Rounded(cell.size, kScale));
    }
    return {{"octree", {{"cells", std::move(row)}, {"num_cells", cells.num_cells}}}};
  }
};

const char* ToString(Kinematics::Motion motion) {
  switch (motion) {
    case Kinematics::Motion::kRevolute:
      return "revolute";
    case Kinematics::Motion::kPrismatic:
      return "prismatic";
    default:
      return "fixed";
  }
}

Json FrameToJson(const RobotDrawing::Frame& frame) {
  const auto mesh_to_json = [](const RobotDrawing::Mesh& mesh) {
    Json json = {{"pose", PoseToJson(mesh.pose)}, {"name", mesh.name}};
    json.update(MeshToJson(mesh.mesh));
    return json;
  };
  const Kinematics::Frame& joint = frame.joint;
  const bool moves = joint.motion != Kinematics::Motion::kFixed;
  const Kinematics::Ratio ratio = joint.ratio.value_or(Kinematics::Ratio());
  return {{"name", joint.name},
          {"parent", joint.parent < 0 ? Json() : Json(joint.parent)},
          {"motion", ToString(joint.motion)},
          {"coordinate", moves ? Json(joint.coordinate) : Json()},
          {"multiplier", ratio.multiplier},
          {"offset", ratio.offset},
          {"origin", PoseToJson(joint.origin)},
          {"axis", ToArray(joint.axis.stableNormalized())},
          {"spheres", ToArray(frame.spheres,
                              [](const math::Sphere& sphere) {
                                Json row = ToArray(sphere.center);
                                row.push_back(sphere.radius);
                                return row;
                              })},
          {"padding", frame.padding},
          {"allowed_obstacles", frame.allowed_obstacles},
          {"visual_meshes", ToArray(frame.visual_meshes, mesh_to_json)},
          {"collision_meshes", ToArray(frame.collision_meshes, mesh_to_json)}};
}

// What is not finite is not a limit.
Json FiniteOrNull(double value) { return std::isfinite(value) ? Json(value) : Json(); }

}  // namespace

Json RobotToJson(const RobotDrawing& robot) {
  const auto coordinate_to_json = [](const RobotDrawing::Coordinate& coordinate) -> Json {
    return {{"name", coordinate.name},
            {"kind", coordinate.slides ? "prismatic" : "revolute"},
            {"min", FiniteOrNull(coordinate.limits.min)},
            {"max", FiniteOrNull(coordinate.limits.max)},
            {"velocity", FiniteOrNull(coordinate.velocity)},
            {"acceleration", FiniteOrNull(coordinate.acceleration)},
            {"jerk", FiniteOrNull(coordinate.jerk)}};
  };
  const auto attachment_to_json = [](const RobotDrawing::Attachment& attachment) -> Json {
    return {{"name", attachment.name},
            {"frame", attachment.frame},
            {"pose", PoseToJson(attachment.pose)},
            {"shape", std::visit(ShapeToJson(), attachment.shape)}};
  };
  return {{"frames", ToArray(robot.frames, FrameToJson)},
          {"coordinates", ToArray(robot.coordinates, coordinate_to_json)},
          {"tip_frame", robot.tip_frame},
          {"pairs", robot.pairs},
          {"attachments", ToArray(robot.attachments, attachment_to_json)}};
}

Json SceneToJson(const SceneDrawing& scene) {
  const auto obstacle_to_json = [](const SceneDrawing::Obstacle& obstacle) -> Json {
    return {{"name", obstacle.name},
            {"pose", PoseToJson(obstacle.pose)},
            {"padding", obstacle.padding},
            {"enabled", obstacle.enabled},
            {"shape", std::visit(ShapeToJson(), obstacle.shape)}};
  };
  return {{"base_pose", PoseToJson(scene.base_pose)},
          {"obstacles", ToArray(scene.obstacles, obstacle_to_json)}};
}

}  // namespace kavo::formats
