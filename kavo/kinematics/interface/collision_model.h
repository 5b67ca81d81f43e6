#pragma once

#include <map>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "kavo/math/sphere.h"
#include "kavo/util/export.h"

namespace kavo {

//! The collision geometry of a robot by frame, and what of it may touch what. A plain value; names of frames
//! are checked by whoever puts it together.
struct KAVO_EXPORT CollisionModel {
  //! Frames that carry spheres, in the order in which each got its first one.
  std::vector<std::string> frames;
  //! Centres in the frame's own coordinates, metres.
  std::unordered_map<std::string, std::vector<math::Sphere>> spheres;
  //! Frames that must not touch each other, each pair once.
  std::vector<std::pair<std::string, std::string>> pairs;
  //! How far the spheres of a frame have to stay away from obstacles, beyond their radius; not negative,
  //! metres. Pairs of frames are not concerned. Zero for frames that are not named.
  std::map<std::string, double> paddings;
  //! The names of obstacles that a frame may touch.
  std::map<std::string, std::vector<std::string>> allowed_obstacles;

  //! In the frame, metres.
  void addSphere(const std::string& frame, const math::Sphere& sphere);
  //! Drops all that is said of a frame.
  void removeFrame(const std::string& frame);

  //! Empty for a frame without any.
  std::vector<math::Sphere> spheresOf(const std::string& frame) const;
  //! Zero for a frame without one, metres.
  double paddingOf(const std::string& frame) const;
  //! Empty for a frame that may touch none.
  std::vector<std::string> allowedObstaclesOf(const std::string& frame) const;
};

}  // namespace kavo
