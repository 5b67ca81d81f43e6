#pragma once

#include <Eigen/Core>
#include <chrono>
#include <cstddef>
#include <optional>
#include <vector>

#include "kavo/motion_planning/environment/robot_environment.h"
#include "kavo/motion_planning/interface/query_report.h"
#include "kavo/motion_planning/interface/search_record.h"
#include "kavo/motion_planning/tree/tree.h"
#include "kavo/motion_planning/util/stop_condition.h"

namespace kavo::planning::internal {

inline double SecondsSince(std::chrono::steady_clock::time_point begin) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

//! Reports a path before it is shortened.
void ReportRawPath(const std::vector<Eigen::VectorXd>& path, QueryReport& report);

//! Reports what an environment did in the course of a query.
void ReportWork(const RobotEnvironment::Statistics& before, const RobotEnvironment::Statistics& after,
                QueryReport& report);

//! The nodes of a tree, in the order in which they came.
SearchTree RecordTree(const Tree& tree, SearchTree::Root root);

//! The first configuration that is not valid; empty if all are, or if the stop condition comes before.
std::optional<std::size_t> FindInvalid(const RobotEnvironment& environment,
                                       const std::vector<Eigen::VectorXd>& configurations,
                                       const StopCondition& stop_condition);

}  // namespace kavo::planning::internal
