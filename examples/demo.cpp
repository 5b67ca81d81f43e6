// Plans for the Franka arm from beside a shelf to a configuration with the hand between two of its boards,
// and checks the result independently of the planner. The exit status tells whether a path was found and is
// valid.

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "examples/shelf.h"
#include "kavo/kinematics/interface/robot_description_internal.h"
#include "kavo/motion_planning/environment/robot_environment.h"
#include "kavo/motion_planning/rrt/rrt_connect.h"
#include "kavo/motion_planning/tree/basic_tree.h"
#include "kavo/motion_planning/util/smoothing.h"
#include "kavo/world/world.h"

namespace {

using kavo::planning::Environment;
using Path = std::vector<Eigen::VectorXd>;

constexpr double kStep = 0.1;

// Passes everything on to another environment and counts the validity checks.
class CountingEnvironment : public Environment {
 public:
  explicit CountingEnvironment(std::shared_ptr<Environment> environment)
      : environment_(std::move(environment)) {}

  int CSpaceDimension() const override { return environment_->CSpaceDimension(); }
  const kavo::kinematics::ConfigurationLimits& CSpaceCoordLimits() const override {
    return environment_->CSpaceCoordLimits();
  }
  const kavo::planning::DistanceMetric& CSpaceDistanceMetric() const override {
    return environment_->CSpaceDistanceMetric();
  }
  bool IsValidConfiguration(const Eigen::VectorXd& q) const override {
    ++num_checks_;
    return environment_->IsValidConfiguration(q);
  }
  std::optional<Eigen::VectorXd> SampleConfiguration() const override {
    return environment_->SampleConfiguration();
  }

  long numChecks() const { return num_checks_; }

 private:
  std::shared_ptr<Environment> environment_;
  mutable long num_checks_ = 0;
};

struct Clearance {
  double distance = std::numeric_limits<double>::infinity();
  std::string frame;
  std::string obstacle;
};

// The smallest distance between a sphere of the robot and an obstacle, found sphere by sphere through the
// public kinematics and world interfaces.
Clearance MeasureClearance(const kavo::RobotDescription& robot, const kavo::World& world,
                           const Eigen::VectorXd& q) {
  const auto& description = dynamic_cast<const kavo::RobotDescriptionInternal&>(robot);
  const auto kinematics = robot.kinematics();
  const kavo::WorldView view = world.view();
  Clearance smallest;
  for (const std::string& frame : description.collisionFrameNames()) {
    const kavo::Pose3 pose = kinematics->pose(q, kinematics->frame(frame));
    for (const kavo::math::Sphere& sphere : description.collisionSpheres(frame)) {
      const auto nearest = view.nearestObstacle(pose * sphere.center);
      if (nearest && nearest->distance - sphere.radius < smallest.distance) {
        smallest = {nearest->distance - sphere.radius, frame, world.name(nearest->obstacle)};
      }
    }
  }
  return smallest;
}

// Points along the path no farther apart than the step.
Path Resample(const Path& path, double step) {
  Path points{path.front()};
  for (std::size_t i = 1; i < path.size(); ++i) {
    const double length = (path[i] - path[i - 1]).norm();
    const int num_steps = std::max(1, static_cast<int>(std::ceil(length / step)));
    for (int k = 1; k <= num_steps; ++k) {
      points.emplace_back(path[i - 1] + (path[i] - path[i - 1]) * (static_cast<double>(k) / num_steps));
    }
  }
  return points;
}

// Prints whether a path is free at the given step, and how close it comes to what.
bool Check(const char* what, const kavo::RobotDescription& robot, const kavo::World& world, const Path& path,
           double step) {
  const kavo::kinematics::ConfigurationLimits limits(kavo::ExtractJointLimits(&robot));
  Clearance smallest;
  const Path points = Resample(path, step);
  for (const Eigen::VectorXd& q : points) {
    if ((q.array() < limits.Min().array()).any() || (q.array() > limits.Max().array()).any()) {
      std::cout << what << ": invalid, beyond a joint limit at [" << q.transpose() << "]\n";
      return false;
    }
    const Clearance clearance = MeasureClearance(robot, world, q);
    if (clearance.distance <= 0.0) {
      std::cout << what << ": invalid, " << clearance.frame << " is " << -clearance.distance * 1000.0
                << " mm inside " << clearance.obstacle << " at [" << q.transpose() << "]\n";
      return false;
    }
    if (clearance.distance < smallest.distance) {
      smallest = clearance;
    }
  }
  std::cout << what << ": valid at " << points.size() << " configurations; smallest clearance "
            << smallest.distance * 1000.0 << " mm, between " << smallest.frame << " and " << smallest.obstacle
            << "\n";
  return true;
}

double Length(const Path& path) {
  double length = 0.0;
  for (std::size_t i = 1; i < path.size(); ++i) {
    length += (path[i] - path[i - 1]).norm();
  }
  return length;
}

}  // namespace

int main() {
  using namespace kavo::planning;

  const auto robot = kavo::LoadFrankaRobotDescription();
  const kavo::World world = kavo::examples::MakeShelf();
  const Eigen::VectorXd start = kavo::examples::ShelfStart();
  const Eigen::VectorXd goal = kavo::examples::ShelfGoal();

  std::cout << "Franka arm, from beside a shelf to between its lower and middle board\n";
  const bool is_straight_line_free = Check("straight line", *robot, world, {start, goal}, kStep / 10.0);

  const RobotEnvironmentConfig config(robot.get(), world.view(), Eigen::VectorXd::Ones(7), 100, 1, 2);
  const auto environment = std::make_shared<CountingEnvironment>(CreateRobotEnvironment(config));
  std::unique_ptr<Tree> start_tree = CreateBasicTree(7, L2Norm, false);
  std::unique_ptr<Tree> goal_tree = CreateBasicTree(7, L2Norm, false);
  const auto planner = CreateRRTConnect({kStep, 10000, 0.5}, environment, start_tree, goal_tree);

  const auto begin = std::chrono::steady_clock::now();
  const auto nodes = planner->TryToFindPath(start, goal);
  const long num_search_checks = environment->numChecks();
  const Path raw = nodes ? ConvertToConfigurations(*nodes) : Path{};
  const Path path = nodes ? ShortCircuitPath(raw, environment, kStep, 20, 42948) : Path{};
  const std::chrono::duration<double, std::milli> elapsed = std::chrono::steady_clock::now() - begin;

  std::cout << "path: " << (nodes ? "found" : "not found") << " in " << elapsed.count() << " ms\n"
            << "nodes: " << start_tree->NumNodes() << " in the tree of the start, " << goal_tree->NumNodes()
            << " in the tree of the goal\n"
            << "validity checks: " << num_search_checks << " searching, "
            << environment->numChecks() - num_search_checks << " shortening\n";
  if (!nodes) {
    return EXIT_FAILURE;
  }
  std::cout << "raw path: " << raw.size() << " waypoints, length " << Length(raw) << " rad\n"
            << "shortened path: " << path.size() << " waypoints, length " << Length(path) << " rad\n";
  const bool is_valid = Check("shortened path", *robot, world, path, kStep / 10.0);
  const bool reaches_goal = path.front() == start && path.back() == goal;
  return is_valid && reaches_goal && !is_straight_line_free ? EXIT_SUCCESS : EXIT_FAILURE;
}
