#pragma once

#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "kavo/formats/robot_file.h"
#include "kavo/formats/unhonoured.h"

namespace kavo::command {

//! A robot whose spheres hold every point of its collision geometry.
struct CompleteCover {
  //! How far spheres may reach beyond the geometry: the largest tolerance of a link (metres), and whether all
  //! links have it.
  double tolerance = 0.0;
  bool is_for_all = true;
  bool has_meshes = false;

  //! "the collision meshes (cover 5 mm)".
  std::string Text() const;
};

//! None if a link has no or other spheres, and if none had to be covered.
std::optional<CompleteCover> FindCompleteCover(const formats::LoadedRobot& robot);

//! What a verdict does not hold for.
struct Scope {
  //! What was asked for and ignored, by kind.
  std::set<formats::Unhonoured::Kind> ignored;
  //! Links with collision geometry that nothing stands for.
  std::vector<std::string> uncovered_links;
  //! Whether the robot has spheres at all.
  bool has_spheres = true;
  //! What the spheres are a complete cover of.
  std::optional<CompleteCover> cover;
  //! Pairs of frames of the robot that were looked at for contact with each other.
  std::size_t num_self_collision_pairs = 0;

  //! The names of what was ignored.
  std::vector<std::string> Ignored() const;

  //! What a path that passes is: "valid", "valid for the covered links only (not 'hand')", "valid with
  //! attached_objects ignored", "proven for the collision meshes (cover 5 mm)".
  //! \param is_proof Whether it was proven, and not only looked at.
  std::string Verdict(bool is_proof) const;

  //! Takes over what is said of the robot: all but what was ignored.
  void TakeRobot(const formats::LoadedRobot& robot);

  //! "27 pairs of frames looked at", "not looked at".
  std::string SelfCollision() const;
};

}  // namespace kavo::command
