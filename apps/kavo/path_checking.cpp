#include "apps/kavo/path_checking.h"

#include "apps/kavo/command.h"
#include "apps/kavo/interrupt.h"
#include "apps/kavo/text.h"

namespace kavo::command {

planning::PathCheck CheckAlong(const std::vector<Eigen::VectorXd>& path, const Situation& situation,
                               double step_size, const char* option, Progress& progress) {
  constexpr double kMostConfigurations = 1e8;
  if (const double length = Length(path); length > kMostConfigurations * step_size) {
    throw UnusableInput(std::string(option) + " " + Number(step_size) + ": a path of length " +
                        Number(length, 4) + " would be looked at at more than " +
                        Number(kMostConfigurations) + " configurations, expected a larger step");
  }
  return planning::CheckPath(*situation.robot->description, situation.world.view(), path, step_size, [&] {
    progress.ShowTime("checking");
    return Signal() != 0;
  });
}

}  // namespace kavo::command
