#include "apps/kavo/trajectory_samples.h"

#include <utility>

namespace kavo::command {

formats::TrajectorySamples SamplesOf(const std::vector<planning::Trajectory::State>& states,
                                     std::vector<std::string> joint_names) {
  formats::TrajectorySamples samples;
  samples.joint_names = std::move(joint_names);
  for (const planning::Trajectory::State& state : states) {
    samples.times.push_back(state.time);
    samples.positions.push_back(state.position);
    samples.velocities.push_back(state.velocity);
    samples.accelerations.push_back(state.acceleration);
  }
  return samples;
}

}  // namespace kavo::command
