#pragma once

#include <Eigen/Core>

#include "kavo/util/log_message.h"

namespace kavo::planning::internal {

//! Reports, at level 0, a node or a query of another length than a tree's dimension.
inline void ReportDimension(Eigen::Index input_dimension, int tree_dimension) {
  KAVO_LOG(LogLevel::kCritical) << "Input dimension [" << input_dimension
                                << "] does not match tree dimension [" << tree_dimension << "].";
}

}  // namespace kavo::planning::internal
