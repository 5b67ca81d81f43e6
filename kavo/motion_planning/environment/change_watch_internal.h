#pragma once

#include <cstdint>
#include <utility>

#include "kavo/motion_planning/environment/robot_environment.h"

namespace kavo::planning::internal {

//! Tells when what an environment has said of configurations may not hold any more. The environment must
//! outlive it.
class ChangeWatch {
 public:
  explicit ChangeWatch(const Environment& environment)
      : robot_environment_(dynamic_cast<const RobotEnvironment*>(&environment)), revision_(Revision()) {}

  //! Whether the environment has changed since the last call, or since the watch was made.
  bool HasChanged() {
    const std::uint64_t revision = Revision();
    return std::exchange(revision_, revision) != revision;
  }

 private:
  std::uint64_t Revision() const {
    return robot_environment_ != nullptr ? robot_environment_->Revision() : 0;
  }

  // Other environments are asked anew for each configuration, or do not change while a planner works.
  const RobotEnvironment* robot_environment_;
  std::uint64_t revision_;
};

}  // namespace kavo::planning::internal
