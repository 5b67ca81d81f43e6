#include <unordered_map>

#include "kavo/math/vector_math_internal.h"
#include "kavo/motion_planning/interface/query_work_internal.h"

namespace kavo::planning::internal {

void ReportRawPath(const std::vector<Eigen::VectorXd>& path, QueryReport& report) {
  report.num_raw_waypoints = path.size();
  for (std::size_t i = 1; i < path.size(); ++i) {
    report.raw_length += math::Distance(path[i - 1], path[i]);
  }
}

void ReportWork(const RobotEnvironment::Statistics& before, const RobotEnvironment::Statistics& after,
                QueryReport& report) {
  report.num_validity_checks = after.num_validity_checks - before.num_validity_checks;
  report.num_samples_drawn = after.num_samples_drawn - before.num_samples_drawn;
  report.num_samples_rejected = after.num_samples_rejected - before.num_samples_rejected;
  report.num_motions = after.num_motions - before.num_motions;
  report.num_placements = after.num_placements - before.num_placements;
  report.num_divisions = after.num_divisions - before.num_divisions;
}

SearchTree RecordTree(const Tree& tree, SearchTree::Root root) {
  SearchTree record;
  record.root = root;
  std::unordered_map<const Node*, std::size_t> indices;
  for (const std::shared_ptr<Node>& node : tree.Nodes()) {
    indices.emplace(node.get(), record.nodes.size());
    record.nodes.push_back(node->Configuration());
    const bool has_parent = node->Parent() && *node->Parent() != nullptr;
    record.parents.push_back(has_parent ? std::optional(indices.at(node->Parent()->get())) : std::nullopt);
  }
  return record;
}

std::optional<std::size_t> FindInvalid(const RobotEnvironment& environment,
                                       const std::vector<Eigen::VectorXd>& configurations,
                                       const StopCondition& stop_condition) {
  Eigen::MatrixXd batch(environment.CSpaceDimension(), environment.NumAtOnce());
  for (std::size_t first = 0; first < configurations.size() && !(stop_condition && stop_condition());) {
    Eigen::Index count = 0;
    for (; count < batch.cols() && first + static_cast<std::size_t>(count) < configurations.size(); ++count) {
      batch.col(count) = configurations[first + static_cast<std::size_t>(count)];
    }
    const int num_valid = environment.CountValid(batch.leftCols(count));
    first += static_cast<std::size_t>(num_valid);
    if (num_valid < count) {
      return first;
    }
  }
  return std::nullopt;
}

}  // namespace kavo::planning::internal
