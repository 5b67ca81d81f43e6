// What benchmarks/python_cost.py does, without Python: prints the shortest time of each task (seconds) and a
// number that tells whether both did the same.

#include <Eigen/Core>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <limits>
#include <memory>
#include <vector>

#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/motion_planning/environment/robot_environment.h"
#include "kavo/motion_planning/interface/motion_planner.h"
#include "kavo/motion_planning/interface/motion_planner_config.h"
#include "kavo/util/log.h"
#include "kavo/world/world.h"

namespace {

constexpr int kNumItems = 10000;
constexpr int kNumObstacles = 20;
constexpr int kNumPlans = 2000;
constexpr int kNumRepeats = 30;

// In [0, 1): evenly spread over the square or the cube for different numbers of coordinates.
double Spread(int item, int coordinate) {
  return std::fmod((item + 1) * std::sqrt(2.0 + 3.0 * coordinate), 1.0);
}

template <typename Work>
double Shortest(int num_repeats, const Work& work) {
  double shortest = std::numeric_limits<double>::infinity();
  for (int i = 0; i < num_repeats; ++i) {
    const auto begin = std::chrono::steady_clock::now();
    work();
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begin;
    shortest = std::min(shortest, seconds.count());
  }
  return shortest;
}

}  // namespace

int main() {
  kavo::util::log_level_threshold = 0;
  kavo::World world;
  world.add(kavo::HalfSpaceObstacle{}, kavo::Pose3::FromTranslation({0.0, 0.0, -0.1}), "floor");
  for (int i = 0; i < kNumObstacles; ++i) {
    world.add(kavo::SphereObstacle{0.08},
              kavo::Pose3::FromTranslation(
                  {2.0 * Spread(i, 0) - 1.0, 2.0 * Spread(i, 1) - 1.0, 0.2 + Spread(i, 2)}));
  }
  const kavo::WorldView view = world.view();

  const std::shared_ptr<kavo::RobotDescription> robot = kavo::LoadFrankaRobotDescription();
  kavo::planning::MotionPlannerConfig config(robot);
  const auto planner = kavo::CreateMotionPlanner(config, robot, world.view());
  const Eigen::VectorXd start = robot->defaultCSpaceConfiguration();
  const Eigen::VectorXd target = start.array() + 0.05;
  kavo::MotionPlanner::Results results;
  const double plan =
      Shortest(kNumPlans, [&] { results = planner->planToCSpaceTarget(start, target, false); });
  std::printf("plan %.9e %zu\n", plan, results.path.size());

  std::vector<Eigen::Vector3d> centers;
  centers.reserve(kNumItems);
  for (int i = 0; i < kNumItems; ++i) {
    centers.emplace_back(2.0 * Spread(i, 0) - 1.0, 2.0 * Spread(i, 1) - 1.0, 2.0 * Spread(i, 2) - 1.0);
  }
  int num_touching = 0;
  std::vector<char> touches(kNumItems);
  const double spheres = Shortest(kNumRepeats, [&] {
    for (int i = 0; i < kNumItems; ++i) {
      touches[static_cast<std::size_t>(i)] = view.inCollision(centers[static_cast<std::size_t>(i)], 0.05);
    }
  });
  num_touching = static_cast<int>(std::count(touches.begin(), touches.end(), 1));
  std::printf("spheres %.9e %d\n", spheres, num_touching);

  const auto environment = kavo::planning::CreateRobotEnvironment(kavo::planning::RobotEnvironmentConfig(
      robot.get(), world.view(), Eigen::VectorXd::Ones(start.size()), 1, 1, 1));
  const auto limits = environment->CSpaceCoordLimits();
  Eigen::MatrixXd columns(start.size(), kNumItems);
  for (int i = 0; i < kNumItems; ++i) {
    for (int j = 0; j < columns.rows(); ++j) {
      columns(j, i) = limits.Min()[j] + Spread(i, j) * (limits.Max()[j] - limits.Min()[j]);
    }
  }
  std::vector<char> valid(kNumItems);
  const double configurations = Shortest(kNumRepeats, [&] {
    for (Eigen::Index done = 0; done < kNumItems;) {
      const Eigen::Index count = environment->CountValid(columns.rightCols(kNumItems - done));
      std::fill_n(valid.begin() + done, count, 1);
      done += count;
      if (done < kNumItems) {
        valid[static_cast<std::size_t>(done++)] = 0;
      }
    }
  });
  std::printf("configurations %.9e %d\n", configurations,
              static_cast<int>(std::count(valid.begin(), valid.end(), 1)));
  return 0;
}
