#include "apps/kavo/path_checking.h"

#include "apps/kavo/interrupt.h"

namespace kavo::command {

planning::PathCheck CheckAlong(const std::vector<Eigen::VectorXd>& path, const Situation& situation,
                               double step_size, Progress& progress) {
  return planning::CheckPath(*situation.robot->description, situation.world.view(), path, step_size, [&] {
    progress.ShowTime("checking");
    return Signal() != 0;
  });
}

}  // namespace kavo::command
