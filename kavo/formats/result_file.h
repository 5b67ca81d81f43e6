#pragma once

#include <Eigen/Core>
#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "kavo/motion_planning/interface/parameters.h"
#include "kavo/motion_planning/interface/query_report.h"
#include "kavo/motion_planning/interface/stage.h"
#include "kavo/motion_planning/trajectory/motion_limits.h"
#include "kavo/util/export.h"

namespace kavo::formats {

// Not inside of the record: clang does not take a nested class with default values for one that can be made
// in place, in its `optional` and its `variant`.

//! A file that a query came from.
struct InputFile {
  //! What it is to the query: "robot", "scene", "request" and so on.
  std::string role;
  std::string name;
  //! Of its contents, in hexadecimal digits; empty where it is not known.
  std::string sha256;
};

//! How a path fared in a check apart from the planner's own: a proof, or a look at configurations along it.
struct PathCheck {
  bool passed = false;
  //! For a reader: "proven free", "proven for ..." or "valid" with what that is restricted to, or how it
  //! failed.
  std::string verdict;
  //! Kinds of what was asked for and ignored, and links that were not looked at.
  std::vector<std::string> ignored;
  std::vector<std::string> uncovered_links;
  //! Where the robot's spheres hold every point of its collision geometry: how far they may reach beyond it
  //! (metres).
  std::optional<double> cover_tolerance;
  //! Pairs of frames of the robot that were looked at for contact with each other.
  std::uint64_t num_self_collision_pairs = 0;
  //! Distance between the configurations that were looked at; none for a proof, which covers all.
  std::optional<double> step;
  std::uint64_t num_configurations = 0;
  //! What is wrong at the first bad configuration, or the worst one that a proof found; empty if the path
  //! passed.
  std::string fault;
  //! Smallest distance between the robot and an obstacle, and between frames of the robot; none without
  //! obstacles, or pairs of frames.
  std::optional<double> clearance;
  std::optional<double> self_clearance;
  //! Of a proof: how much smaller than these the distances may be anywhere on the path.
  std::optional<double> tolerance;
};

//! What was made of a path in time.
struct TrajectoryRecord {
  double duration = 0.0;
  //! Of the samples that were written.
  double period = 0.0;
  std::uint64_t num_samples = 0;
  //! When each waypoint of the path is passed, or the middle of its blend.
  std::vector<double> waypoint_times;
  //! How far blends may be from the path (radians or metres), and corners that are blended, that are blended
  //! more closely since something is near, and that the robot stops at.
  double blend_deviation = 0.0;
  std::uint64_t num_blends = 0;
  std::uint64_t num_tightened = 0;
  std::uint64_t num_stops = 0;
  //! What the way with its blends was proven to be, apart from what made it, or why it was not; empty where
  //! nobody looked.
  std::string verdict;
  //! How far a controller that interpolates the samples may be from the trajectory, in any coordinate.
  double cubic_deviation = 0.0;
  double quintic_deviation = 0.0;
  //! That it keeps; without a jerk that is not limited.
  planning::MotionLimits limits;
};

//! A query and its answer, as they go into a file. Metres, radians and seconds.
struct PlanRecord {
  using Setting = planning::ParameterValue;

  using Check = PathCheck;

  //! Of the program that made it.
  std::string version;
  std::vector<InputFile> files;
  std::string robot;
  //! In the order of the c-space coordinates.
  std::vector<std::string> joint_names;
  //! Joints that are not planned for and do not stand where they rest.
  std::map<std::string, double> held_joints;
  Eigen::VectorXd start;
  //! What was asked for: mostly one stage with one goal.
  std::vector<Stage> stages;
  //! What came of the stages, where there are several or they have several goals.
  std::vector<StagedResults::Part> parts;
  //! By name, in the order in which they are to be written.
  std::vector<std::pair<std::string, Setting>> settings;
  int seed = 0;
  bool found = false;
  //! How the query ended, for a reader.
  std::string status;
  std::vector<Eigen::VectorXd> path;
  std::vector<Eigen::VectorXd> interpolated_path;
  QueryReport statistics;
  //! None where the path was not checked.
  std::optional<Check> check;
  //! None where none was asked for.
  std::optional<TrajectoryRecord> trajectory;
};

//! Configurations along a path.
struct PathFile {
  //! Empty where the file does not name the joints; else one for each coordinate.
  std::vector<std::string> joint_names;
  //! At least one, and all of one length.
  std::vector<Eigen::VectorXd> configurations;
  //! Of JSON: where other joints stood.
  std::map<std::string, double> held_joints;
};

//! The record as JSON, indented by two spaces and with the keys in one order: version, files,
//! robot, joint_names, held_joints, start, target, stages (null without parts), settings, seed, found,
//! status, path, interpolated_path, statistics, check, trajectory. Numbers are written such that reading them
//! gives the same bits; what is not finite, or not there, becomes null. The target is the goal of the last
//! stage that was reached, or its first one: an array (a configuration), {frame, position}, or a pose of more
//! keys (docs/formats.md).
KAVO_EXPORT std::string ToJson(const PlanRecord& record);

//! Configurations as CSV: a line with the joint names, then one configuration a line. Numbers are as short as
//! they can be with the same bits. A name with a comma, a quote or a line break, or one that looks like a
//! number, is quoted. A configuration of another length than the names is a fatal error.
KAVO_EXPORT std::string ToCsv(const std::vector<std::string>& joint_names,
                              const std::vector<Eigen::VectorXd>& configurations);

//! Writes the text of `ToJson` and of `ToCsv` to a file. Throws `FileError` if that fails.
KAVO_EXPORT void WriteJson(const PlanRecord& record, const std::string& file);
KAVO_EXPORT void WriteCsv(const std::vector<std::string>& joint_names,
                          const std::vector<Eigen::VectorXd>& configurations, const std::string& file);

//! Reads a path from JSON (an object with the key `path`, and perhaps `joint_names` and `held_joints`) or
//! from CSV (with or without a line of names). What starts with a brace is JSON. Throws `FileError` for a
//! file that cannot be read, has neither form or holds no configuration.
//! \param run Of JSON with several paths (an object with the key `runs`, an array of such objects): which is
//!     meant, counted from 0. It has to be given for them and for nothing else.
KAVO_EXPORT PathFile ReadPath(const std::string& file, const std::optional<std::size_t>& run = {});

//! The same from the text of a file, with a name for its errors.
//!
//! @code
//! const std::vector<Eigen::VectorXd> path = {Eigen::Vector2d(0.0, 0.1), Eigen::Vector2d(1.0, 0.2)};
//! const std::string text = kavo::formats::ToCsv({"shoulder", "elbow"}, path);
//! const kavo::formats::PathFile read = kavo::formats::ParsePath(text, "path.csv");
//! assert(read.joint_names[1] == "elbow" && read.configurations == path);
//! @endcode
KAVO_EXPORT PathFile ParsePath(const std::string& text, const std::string& file,
                               const std::optional<std::size_t>& run = {});

}  // namespace kavo::formats
