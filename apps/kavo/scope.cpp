#include "apps/kavo/scope.h"

#include <algorithm>

#include "apps/kavo/text.h"
#include "kavo/kinematics/interface/robot_description_internal.h"

namespace kavo::command {

std::string CompleteCover::Text() const {
  return std::string("the collision ") + (has_meshes ? "meshes" : "geometry") +
         (is_for_all ? " (cover " : " (covers of up to ") + Distance(tolerance) + ")";
}

std::optional<CompleteCover> FindCompleteCover(const formats::LoadedRobot& robot) {
  using Source = formats::LoadedRobot::LinkShape::Source;
  std::optional<CompleteCover> complete;
  for (const formats::LoadedRobot::LinkShape& shape : robot.link_shapes) {
    const bool has_solids = shape.num_balls + shape.num_boxes + shape.num_cylinders + shape.num_meshes > 0;
    if (shape.source == Source::kCover) {
      if (!complete) {
        complete = CompleteCover{shape.tolerance, true, false};
      }
      complete->is_for_all = complete->is_for_all && shape.tolerance == complete->tolerance;
      complete->tolerance = std::max(complete->tolerance, shape.tolerance);
      complete->has_meshes = complete->has_meshes || shape.num_meshes > 0;
    } else if (has_solids && shape.source != Source::kUrdf) {
      return std::nullopt;
    }
  }
  return robot.uncovered_links.empty() ? complete : std::nullopt;
}

std::vector<std::string> Scope::Ignored() const {
  std::vector<std::string> names;
  for (const formats::Unhonoured::Kind kind : ignored) {
    names.emplace_back(ToString(kind));
  }
  return names;
}

std::string Scope::Verdict(bool is_proof) const {
  std::string text = is_proof ? "proven free" : "valid";
  if (cover) {
    text = (is_proof ? "proven for " : "valid for ") + cover->Text();
  } else if (!has_spheres) {
    text += " for the limits only (the robot has no collision spheres)";
  } else if (!uncovered_links.empty()) {
    text += " for the covered links only (not " + JoinQuoted(uncovered_links) + ")";
  }
  if (!ignored.empty()) {
    text += " with " + Join(Ignored(), ", ") + " ignored";
  }
  return text;
}

std::string Scope::SelfCollision() const {
  return num_self_collision_pairs == 0
             ? "not looked at"
             : std::to_string(num_self_collision_pairs) +
                   (num_self_collision_pairs == 1 ? " pair" : " pairs") + " of frames looked at";
}

void Scope::TakeRobot(const formats::LoadedRobot& robot) {
  const auto& description = dynamic_cast<const RobotDescriptionInternal&>(*robot.description);
  has_spheres = !description.collision().frames.empty();
  cover = FindCompleteCover(robot);
  num_self_collision_pairs = description.collision().pairs.size();
  uncovered_links.clear();
  for (const formats::LoadedRobot::UncoveredLink& link : robot.uncovered_links) {
    uncovered_links.push_back(link.name);
  }
}

}  // namespace kavo::command
