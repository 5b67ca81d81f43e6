#include "apps/kavo/reach.h"

#include "apps/kavo/text.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "kavo/kinematics/interface/joint_limits.h"
#include "kavo/kinematics/interface/kinematics_internal.h"
#include "kavo/util/random_generator.h"

namespace kavo::command {

Reach FindReach(const RobotDescription& robot, const std::string& frame) {
  const std::unique_ptr<Kinematics> kinematics = robot.kinematics();
  const auto limits = ExtractJointLimits(&robot);
  // All descriptions that have limits come with this kind of model.
  const auto& model = dynamic_cast<const KinematicsInternal&>(*kinematics).model();
  const kinematics::Kinematics::Plan plan = model.plan({model.frame(frame)});
  if (plan.steps.empty()) {
    return {kinematics->position(robot.defaultCSpaceConfiguration(), kinematics->frame(frame)), 0.0};
  }
  Reach reach{plan.steps.front().origin.transform.translation, 0.0};
  for (const auto& step : plan.steps) {
    if (&step != &plan.steps.front()) {
      reach.distance += step.origin.transform.translation.norm();
    }
    if (step.motion == kinematics::Kinematics::Motion::kPrismatic) {
      const bool stays = step.ratio && step.ratio->multiplier == 0.0;
      const auto [lower, upper] =
          stays ? kinematics::JointLimits{} : limits[static_cast<std::size_t>(step.coordinate)];
      reach.distance +=
          std::max(std::fabs(step.value(lower)), std::fabs(step.value(upper))) * step.slide.norm();
    }
  }
  reach.distance += plan.frames.front().offset.transform.translation.norm();
  return reach;
}

std::string ExplainReach(const Reach& reach, double distance, const std::string& frame) {
  return "the target is " + Number(distance, 4) + " m from the first joint; frame '" + Printable(frame) +
         "' gets no farther from there than " + Number(reach.distance, 4) + " m";
}

double SampleReach(const RobotDescription& robot, const std::string& frame, const Eigen::Vector3d& center) {
  constexpr int kNumSamples = 20000;
  const std::unique_ptr<Kinematics> kinematics = robot.kinematics();
  const auto handle = kinematics->frame(frame);
  std::vector<util::RandomGenerator<double>> generators;
  for (const kinematics::JointLimits& limits : ExtractJointLimits(&robot)) {
    const auto [lower, upper] = limits.samplingRange();
    generators.emplace_back(static_cast<std::uint32_t>(generators.size()));
    generators.back().SetRange(lower, upper);
  }
  double largest = 0.0;
  Eigen::VectorXd q(static_cast<Eigen::Index>(generators.size()));
  for (int i = 0; i < kNumSamples; ++i) {
    for (std::size_t k = 0; k < generators.size(); ++k) {
      q[static_cast<Eigen::Index>(k)] = generators[k].Sample();
    }
    largest = std::max(largest, (kinematics->position(q, handle) - center).norm());
  }
  return largest;
}

}  // namespace kavo::command
