#include "kavo/motion_planning/environment/environment.h"

namespace kavo::planning {

Environment::~Environment() = default;

int Environment::CountValid(const Eigen::Ref<const Eigen::MatrixXd>& configurations) const {
  int count = 0;
  Eigen::VectorXd q;
  while (count < configurations.cols()) {
    q = configurations.col(count);
    if (!IsValidConfiguration(q)) {
      break;
    }
    ++count;
  }
  return count;
}

}  // namespace kavo::planning
