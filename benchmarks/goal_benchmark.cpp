// Queries to poses and positions of the tool, and lines of it, for the Franka arm beside the shelf: how many
// are answered, whether the paths are proven free and end where they should, and how long it takes. Positions
// are also asked of the Jacobian-transpose search. Takes no options.

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "examples/shelf.h"
#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/motion_planning/environment/robot_environment.h"
#include "kavo/motion_planning/interface/motion_planner.h"
#include "kavo/motion_planning/util/path_proof.h"
#include "kavo/util/log.h"

namespace {

using namespace kavo;
using Path = std::vector<Eigen::VectorXd>;

// The arm beside the shelf, and places that its tool can be in without touching anything.
struct Scene {
  std::shared_ptr<RobotDescription> robot = LoadFrankaRobotDescription();
  std::unique_ptr<Kinematics> kinematics = robot->kinematics();
  World world = examples::MakeShelf();
  Eigen::VectorXd start = examples::ShelfStart();
  std::unique_ptr<MotionPlanner> planner = CreateMotionPlanner(robot, world.view());

  Pose3 ToolAt(const Eigen::VectorXd& q) const { return kinematics->pose(q, kinematics->frame("tool")); }

  std::vector<Eigen::VectorXd> ValidConfigurations(int count) const {
    const auto environment = planning::CreateRobotEnvironment(planning::RobotEnvironmentConfig(
        robot.get(), world.view(), Eigen::VectorXd::Ones(7), 100000, 77, 78));
    std::vector<Eigen::VectorXd> configurations;
    while (static_cast<int>(configurations.size()) < count) {
      configurations.push_back(*environment->SampleConfiguration());
    }
    return configurations;
  }
};

// Asks for a path to each of some goals; prints what came of it.
// \param ask The path, empty if there is none.
// \param tolerance Of the position that paths have to end in.
void Measure(const Scene& scene, const std::string& name, const std::vector<Eigen::VectorXd>& places,
             double tolerance, const std::function<Path(const Eigen::VectorXd& place)>& ask) {
  std::vector<double> times;
  std::size_t num_found = 0;
  std::size_t num_proven = 0;
  std::size_t num_there = 0;
  for (const Eigen::VectorXd& place : places) {
    const auto begin = std::chrono::steady_clock::now();
    const Path path = ask(place);
    times.push_back(std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
    if (!path.empty()) {
      ++num_found;
      num_proven += planning::ProvePath(*scene.robot, scene.world.view(), path).IsFree() ? 1 : 0;
      const double off = (scene.ToolAt(path.back()).translation() - scene.ToolAt(place).translation()).norm();
      num_there += off <= tolerance ? 1 : 0;
    }
  }
  std::sort(times.begin(), times.end());
  double sum = 0.0;
  for (const double time : times) {
    sum += time;
  }
  const double num = static_cast<double>(times.size());
  std::printf(
      "%-44s %5zu of %zu (%zu proven free, %zu end there); median %8.1f us, mean %8.1f, 95 %% %8.1f\n",
      name.c_str(), num_found, places.size(), num_proven, num_there, times[times.size() / 2] * 1e6,
      sum / num * 1e6, times[times.size() * 95 / 100] * 1e6);
}

}  // namespace

int main() {
  util::log_level_threshold = -1;
  const Scene scene;
  const std::vector<Eigen::VectorXd> places = scene.ValidConfigurations(1000);
  const std::vector<Eigen::VectorXd> few(places.begin(), places.begin() + 200);
  Measure(scene, "pose of the tool", places, 1e-4, [&](const Eigen::VectorXd& place) {
    return scene.planner->planToPose(scene.start, "tool", scene.ToolAt(place), false).path;
  });
  Measure(scene, "position of the tool", few, 1e-4, [&](const Eigen::VectorXd& place) {
    const PoseGoal goal = PoseGoal::Position("tool", scene.ToolAt(place).translation());
    return scene.planner->planToPose(scene.start, goal, false).path;
  });
  Measure(scene, "position, by the Jacobian-transpose search", few, 1e-4, [&](const Eigen::VectorXd& place) {
    return scene.planner->planToTaskSpaceTarget(scene.start, scene.ToolAt(place).translation(), false).path;
  });
  // Back from where a gripper would be, by a tenth of a metre against the direction that it points in.
  const Pose3 back = Pose3::FromTranslation({0.0, 0.0, -0.1});
  std::map<std::string, std::size_t> ends;
  std::vector<double> times;
  for (const Eigen::VectorXd& place : places) {
    PoseGoal goal;
    goal.pose = scene.ToolAt(place) * back;
    const auto begin = std::chrono::steady_clock::now();
    const planning::LineMotion line = scene.planner->planLine(place, goal, {});
    times.push_back(std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
    ++ends[ToString(line.end)];
  }
  std::sort(times.begin(), times.end());
  std::printf("%-44s median %8.1f us;", "lines of 0.1 m, from anywhere", times[times.size() / 2] * 1e6);
  for (const auto& [end, count] : ends) {
    std::printf(" %s %zu", end.c_str(), count);
  }
  std::printf("\n");
  return 0;
}
