#include "kavo/kinematics/interface/collision_model.h"

#include <algorithm>

namespace kavo {

void CollisionModel::addSphere(const std::string& frame, const math::Sphere& sphere) {
  std::vector<math::Sphere>& of_frame = spheres[frame];
  if (of_frame.empty()) {
    frames.push_back(frame);
  }
  of_frame.push_back(sphere);
}

void CollisionModel::removeFrame(const std::string& frame) {
  frames.erase(std::remove(frames.begin(), frames.end(), frame), frames.end());
  spheres.erase(frame);
  pairs.erase(std::remove_if(pairs.begin(), pairs.end(),
                             [&](const auto& pair) { return pair.first == frame || pair.second == frame; }),
              pairs.end());
  paddings.erase(frame);
  allowed_obstacles.erase(frame);
}

std::vector<math::Sphere> CollisionModel::spheresOf(const std::string& frame) const {
  const auto found = spheres.find(frame);
  return found == spheres.end() ? std::vector<math::Sphere>() : found->second;
}

double CollisionModel::paddingOf(const std::string& frame) const {
  const auto found = paddings.find(frame);
  return found == paddings.end() ? 0.0 : found->second;
}

std::vector<std::string> CollisionModel::allowedObstaclesOf(const std::string& frame) const {
  const auto found = allowed_obstacles.find(frame);
  return found == allowed_obstacles.end() ? std::vector<std::string>() : found->second;
}

}  // namespace kavo
