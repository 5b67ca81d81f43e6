// Changes settings of a planner by name, limits its time, and looks at what a query did.

#include <cstdlib>
#include <iostream>
#include <memory>
#include <vector>

#include "kavo/motion_planning/interface/motion_planner.h"
#include "kavo/world/world.h"

int main() {
  kavo::World world;
  world.add(kavo::SphereObstacle{0.3}, kavo::Pose3::FromTranslation({1.7, 0.6, 0.0}), "ball");
  const std::shared_ptr<kavo::RobotDescription> robot = kavo::LoadThreeLinkArmRobotDescription();
  const auto planner = kavo::CreateMotionPlanner(robot, world.view());

  const Eigen::VectorXd start = Eigen::Vector3d(-0.4, 0.1, 0.2);
  const Eigen::VectorXd goal = Eigen::Vector3d(1.7, -0.2, -0.3);
  const auto plan = [&](const char* what) {
    const bool found = planner->planToCSpaceTarget(start, goal, false).path_found;
    const kavo::QueryReport report = planner->queryReport();
    std::cout << what << ": " << ToString(report.status) << ", " << report.num_iterations << " extensions, "
              << report.num_validity_checks << " validity checks\n";
    return found;
  };

  bool good = plan("default settings");

  // Plain trees; finer steps; joints near the base weigh more. A vector must live until setParam has
  // returned.
  const std::vector<double> weights = {4.0, 2.0, 1.0};
  good &= planner->setParam("enable_tesk_tree", false);
  good &= planner->setParam("step_size", 0.05);
  good &= planner->setParam("distance_metric_weights", weights);
  good &= plan("tuned");

  // A value out of range is reported and changes nothing.
  good &= !planner->setParam("step_size", -1.0);
  good &= plan("still tuned");

  // At most ten seconds from now on; then no time at all.
  planner->setStopCondition(kavo::StopAfter(10.0));
  good &= plan("in time");
  planner->setStopCondition(kavo::StopAfter(0.0));
  good &= !plan("out of time");
  return good ? EXIT_SUCCESS : EXIT_FAILURE;
}
