#include "kavo/motion_planning/rrt/rrt.h"

#include "kavo/math/vector_math_internal.h"
#include "kavo/util/log_message.h"

namespace kavo::planning {

RRT::~RRT() = default;

void RRT::StartSearch() {
  status_ = SearchStatus::kNone;
  num_iterations_ = 0;
}

bool RRT::ValidateConfiguration(const Environment& environment, const Eigen::VectorXd& q,
                                SearchStatus if_invalid) {
  if (environment.IsValidConfiguration(q) && math::IsFinite(q)) {
    return true;
  }
  status_ = if_invalid;
  KAVO_LOG(LogLevel::kWarning) << "Invalid configuration, [" << q.transpose() << "].";
  return false;
}

bool RRT::MayExtend(std::uint64_t max_iterations) {
  if (ShouldStop()) {
    return false;
  }
  if (num_iterations_ >= max_iterations) {
    status_ = SearchStatus::kIterationsSpent;
    return false;
  }
  return true;
}

bool RRT::ShouldStop() {
  if (status_ == SearchStatus::kNone && stop_condition_ && stop_condition_()) {
    status_ = SearchStatus::kStopped;
  }
  return status_ != SearchStatus::kNone;
}

bool RRT::MayGrow(std::uint64_t num_nodes, std::uint64_t max_nodes) {
  if (num_nodes < max_nodes) {
    return true;
  }
  status_ = SearchStatus::kNodesSpent;
  KAVO_LOG(LogLevel::kWarning) << "The search has ended at its limit of [" << max_nodes
                               << "] nodes, 'max_nodes'.";
  return false;
}

}  // namespace kavo::planning
