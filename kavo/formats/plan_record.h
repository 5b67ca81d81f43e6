#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kavo/formats/robot_drawing.h"
#include "kavo/formats/scene_drawing.h"
#include "kavo/formats/trajectory_file.h"
#include "kavo/motion_planning/interface/parameters.h"
#include "kavo/motion_planning/interface/query_report.h"
#include "kavo/motion_planning/interface/search_record.h"
#include "kavo/motion_planning/interface/stage.h"
#include "kavo/motion_planning/trajectory/motion_limits.h"

namespace kavo::formats {

// Not inside of the record: clang does not take a nested class with default values for one that can be made
// in place, in its `optional` and its `variant`.

//! A file that a query came from.
struct InputFile {
  //! What it is to the query: "robot", "scene", "request" and so on.
  std::string role;
  //! As it was given, or as a file that was read before names it.
  std::string name;
  //! Of its contents, in hexadecimal digits; empty where it is not known.
  std::string sha256;
};

//! How a path fared in a check apart from the planner's own: a proof, or a look at configurations along it.
struct PathCheck {
  //! Whether nothing is wrong, in the sense of the verdict.
  bool passed = false;
  //! For a reader: "proven free", "proven for ..." or "valid" with what that is restricted to, or how it
  //! failed.
  std::string verdict;
  //! Kinds of what was asked for and ignored.
  std::vector<std::string> ignored;
  //! Links with collision geometry that no sphere stands for.
  std::vector<std::string> uncovered_links;
  //! Where the robot's spheres hold every point of its collision geometry: how far they may reach beyond it
  //! (metres).
  std::optional<double> cover_tolerance;
  //! Pairs of frames of the robot that were looked at for contact with each other.
  std::uint64_t num_self_collision_pairs = 0;
  //! Distance between the configurations that were looked at; none for a proof, which covers all.
  std::optional<double> step;
  //! How many were looked at; of a proof, in how many the robot was placed.
  std::uint64_t num_configurations = 0;
  //! What is wrong at the first bad configuration, or the worst one that a proof found; empty if the path
  //! passed.
  std::string fault;
  //! Smallest distance between the robot and an obstacle, and between frames of the robot; none without
  //! obstacles, or pairs of frames.
  std::optional<double> clearance;
  //! The same between frames of the robot; none without pairs of frames.
  std::optional<double> self_clearance;
  //! Of a proof: how much smaller than these the distances may be anywhere on the path.
  std::optional<double> tolerance;
};

//! What was made of a path in time.
struct TrajectoryRecord {
  //! Seconds, from rest to rest.
  double duration = 0.0;
  //! Seconds between the samples that were written.
  double period = 0.0;
  //! Of the samples that were written; the first is at time zero, the last at the end.
  std::uint64_t num_samples = 0;
  //! When each waypoint of the path is passed, or the middle of its blend, in seconds.
  std::vector<double> waypoint_times;
  //! How far blends may be from the path, radians or metres.
  double blend_deviation = 0.0;
  //! Corners that are rounded.
  std::uint64_t num_blends = 0;
  //! Of these, those that are rounded more closely than they might be since something is near.
  std::uint64_t num_tightened = 0;
  //! Corners that the robot stops at.
  std::uint64_t num_stops = 0;
  //! What the way with its blends was proven to be, apart from what made it, or why it was not; empty where
  //! nobody looked.
  std::string verdict;
  //! How far a controller that interpolates the samples may be from the trajectory, in any coordinate.
  double cubic_deviation = 0.0;
  //! As above, of one that also goes by velocities and accelerations.
  double quintic_deviation = 0.0;
  //! That it keeps; without a jerk that is not limited.
  planning::MotionLimits limits;
  //! To draw it: fewer than those that were written where these are many. Names of joints are not looked at.
  TrajectorySamples samples;
};

//! What a search left behind, to be drawn: of trees of many nodes, some.
struct SearchDrawing {
  //! A tree with the nodes of it that are drawn.
  struct Tree {
    //! The nodes that are drawn; parents are of those that are left.
    SearchTree tree;
    //! That it had before it was thinned.
    std::uint64_t num_nodes = 0;
  };

  //! By its name, such as "bi_rrt".
  std::string planner;
  //! Before it was shortened; empty where none was found.
  std::vector<Eigen::VectorXd> raw_path;
  //! One for each side of the search, the start's first.
  std::vector<Tree> trees;
};

//! A sphere of the robot that touches something: an obstacle, or a sphere of another frame of the robot.
struct ContactRecord {
  //! The frame of the robot whose sphere touches.
  std::string frame;
  //! Of those of the frame.
  std::size_t sphere = 0;
  //! Name of the obstacle; none, as is its place, where the robot touches itself.
  std::optional<std::string> obstacle;
  //! Its place among the obstacles of the scene, from 0.
  std::optional<std::size_t> obstacle_index;
  //! Of contact of the robot with itself: the other frame.
  std::optional<std::string> other_frame;
  //! Of those of the other frame; none where that is not told.
  std::optional<std::size_t> other_sphere;
  //! How far the two reach into each other, metres.
  double depth = 0.0;
};

//! A close look at a configuration.
struct InspectionRecord {
  //! Why it is looked at: the start, a goal, where something was found wrong, the nearest to a pose that
  //! cannot be had.
  enum class What { kStart, kGoal, kFault, kNearest };

  //! A coordinate beyond its limits.
  struct Limit {
    std::size_t coordinate = 0;  //!< Index, from 0.
    double value = 0.0;          //!< Radians or metres.
    double lower = 0.0;          //!< Radians or metres.
    double upper = 0.0;          //!< Radians or metres.
  };

  //! Why it is looked at.
  What what = What::kStart;
  //! Of the goals of all stages, one stage after another.
  std::optional<std::size_t> goal;
  //! In the order of the c-space coordinates; radians or metres.
  Eigen::VectorXd configuration;
  //! Smallest distance between the robot and an obstacle, and between frames of the robot; none without
  //! obstacles, or pairs of frames.
  std::optional<double> clearance;
  //! Smallest distance between frames of the robot that must not touch, metres; none without pairs of frames.
  std::optional<double> self_clearance;
  //! Of every sphere that touches.
  std::vector<ContactRecord> contacts;
  //! Coordinates that are beyond theirs.
  std::vector<Limit> limits;
};

//! How near the robot comes to things on its way.
struct ProfileRecord {
  //! Frame and obstacle, or two frames.
  using Nearest = std::optional<std::pair<std::string, std::string>>;

  //! What happens at a sample.
  struct Contacts {
    std::size_t sample = 0;  //!< Index into `at`.
    //! Of every sphere that touches at that sample.
    std::vector<ContactRecord> contacts;
  };

  //! Whether `at` is in seconds of the trajectory, or counts waypoints: 2.25 is a quarter of the way from
  //! waypoint 2 to the next.
  bool is_in_seconds = false;
  //! Where the samples are, ascending.
  std::vector<double> at;
  //! Of each sample, as of an inspection, but to obstacles only of frames that move.
  std::vector<std::optional<double>> clearance;
  //! What `clearance` is between: a frame and an obstacle; as many entries.
  std::vector<Nearest> nearest;
  //! Of each sample, between frames of the robot, metres.
  std::vector<std::optional<double>> self_clearance;
  //! What `self_clearance` is between: two frames; as many entries.
  std::vector<Nearest> self_nearest;
  //! Of the samples that have any.
  std::vector<Contacts> contacts;
};

//! A query and its answer, as they go into a file. Metres, radians and seconds.
struct PlanRecord {
  //! The value of a setting, of the type that it has.
  using Setting = planning::ParameterValue;

  //! See `PathCheck`.
  using Check = PathCheck;

  //! Of the program that made it.
  std::string version;
  //! Of the command, without the program's name: with them, it does the same again.
  std::vector<std::string> arguments;
  //! Every file that was read.
  std::vector<InputFile> files;
  //! Its name.
  std::string robot;
  //! What it takes to draw it.
  RobotDrawing robot_model;
  //! The obstacles, and what it takes to draw them.
  SceneDrawing scene;
  //! In the order of the c-space coordinates.
  std::vector<std::string> joint_names;
  //! Joints that are not planned for and do not stand where they rest.
  std::map<std::string, double> held_joints;
  //! The configuration that the path begins at, in the order of `joint_names`.
  Eigen::VectorXd start;
  //! What was asked for: mostly one stage with one goal.
  std::vector<Stage> stages;
  //! What came of the stages: as many, or fewer where it failed before the last.
  std::vector<StagedResults::Part> parts;
  //! By name, in the order in which they are to be written.
  std::vector<std::pair<std::string, Setting>> settings;
  //! Of the attempt that is the answer.
  int seed = 0;
  //! Whether there is a path.
  bool found = false;
  //! How the query ended, for a reader: in a word, and with all that there is to say.
  std::string status;
  //! What the command prints of it.
  std::string explanation;
  //! The waypoints, the start first; empty without a path.
  std::vector<Eigen::VectorXd> path;
  //! The same path, no two configurations farther apart than the setting `step_size`.
  std::vector<Eigen::VectorXd> interpolated_path;
  //! What the search and the shortening took.
  QueryReport statistics;
  //! None where the path was not checked.
  std::optional<Check> check;
  //! None where none was asked for.
  std::optional<TrajectoryRecord> trajectory;
  //! Of those who search with trees, where they were watched.
  std::vector<SearchDrawing> searches;
  //! Of the start, of goals, and of what is wrong.
  std::vector<InspectionRecord> inspections;
  //! None without a path.
  std::optional<ProfileRecord> profile;
};

}  // namespace kavo::formats
