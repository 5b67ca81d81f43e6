// Has the Franka arm reach down to a box, lift it and put it down elsewhere: poses of the tool, straight
// lines of it, an object in the hand, and motions in time for a controller.

#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "kavo/kavo.h"

namespace {

// The tool above a place of the table, pointing down. How it is turned about its own axis does not matter.
kavo::PoseGoal Above(double x, double y, double height) {
  kavo::PoseGoal goal;
  goal.frame = "tool";
  goal.pose = kavo::Pose3(Eigen::Quaterniond(0.0, 1.0, 0.0, 0.0), {x, y, height});
  goal.free_rotations = {false, false, true};
  return goal;
}

// A tool that goes on a line keeps the orientation that it has.
kavo::Stage LineTo(double x, double y, double height) {
  return {{kavo::PoseGoal::Position("tool", {x, y, height})}, kavo::planning::LineOptions()};
}

}  // namespace

int main() {
  try {
    kavo::World world;
    world.add(kavo::HalfSpaceObstacle{}, kavo::Pose3::FromTranslation({0.0, 0.0, -0.05}), "table");
    world.add(kavo::BoxObstacle{{0.3, 0.05, 0.3}}, kavo::Pose3::FromTranslation({0.55, 0.0, 0.1}), "wall");
    world.add(kavo::BoxObstacle{{0.04, 0.04, 0.1}}, kavo::Pose3::FromTranslation({0.5, -0.3, 0.02}), "box");
    const std::shared_ptr<kavo::RobotDescription> arm = kavo::LoadFrankaRobotDescription();
    const auto planner = kavo::CreateMotionPlanner(arm, world.view());
    const kavo::planning::MotionLimits limits = kavo::planning::FrankaMotionLimits();

    // Plans the stages, makes a trajectory of them and tells about it; where the last one ends.
    const auto go = [&](const char* what, const Eigen::VectorXd& start,
                        const std::vector<kavo::Stage>& stages) {
      const kavo::StagedResults results = planner->planStages(start, stages);
      if (!results.path_found) {
        throw std::runtime_error(std::string(what) + ": no path, " +
                                 ToString(results.parts.back().report.status));
      }
      kavo::TimePathOptions options;
      options.stops = {results.parts.front().last};
      const kavo::TimedPath timed =
          kavo::TimePath(results.path, *planner->robot(), world.view(), limits, options);
      std::cout << what << ": " << results.path.size() << " waypoints, " << timed.trajectory.Duration()
                << " s\n";
      return results.path.back();
    };

    const Eigen::VectorXd at_box = go("reach for the box", arm->defaultCSpaceConfiguration(),
                                      {{{Above(0.5, -0.3, 0.25)}}, LineTo(0.5, -0.3, 0.06)});
    kavo::AttachFromWorld(*planner, world, "box", "tool", at_box, {"hand", "left_finger", "right_finger"},
                          {"table"});
    const Eigen::VectorXd there =
        go("carry it behind the wall", at_box,
           {LineTo(0.5, -0.3, 0.3), {{Above(0.5, 0.3, 0.3)}}, LineTo(0.5, 0.3, 0.07)});
    kavo::DetachIntoWorld(*planner, world, "box", there);
    std::cout << "The box is put down; the world has " << world.numObstacles() << " obstacles.\n";
    return EXIT_SUCCESS;
  } catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    return EXIT_FAILURE;
  }
}
