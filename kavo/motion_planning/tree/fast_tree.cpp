#include "kavo/motion_planning/tree/fast_tree.h"

#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

#include "kavo/math/constants_internal.h"
#include "kavo/math/vector_math_internal.h"
#include "kavo/motion_planning/spatial_data_structures/r_star_tree.h"
#include "kavo/motion_planning/tree/dimension_report_internal.h"
#include "kavo/motion_planning/tree/distance_metrics.h"
#include "kavo/motion_planning/tree/node_arena_internal.h"
#include "kavo/util/log_message.h"

namespace kavo::planning {

namespace {

using Index = RStarTree<std::shared_ptr<Node>>;

class FastTree final : public Tree {
 public:
  explicit FastTree(const FastTreeConfig& config)
      : config_(config.r_star_tree_config), index_(std::make_shared<Index>(config_)) {}

  int CSpaceDimension() const override { return config_.dimension; }
  std::uint64_t NumNodes() const override { return nodes_.size(); }
  const std::vector<std::shared_ptr<Node>>& Nodes() const override { return nodes_; }

  std::shared_ptr<Node> ClearAndSetRoot(const Node& node) override {
    // The node may be one of those that are dropped now: they live until its copy is stored.
    const std::vector<std::shared_ptr<Node>> former = std::exchange(nodes_, {});
    index_->Clear();
    num_indexed_ = 0;
    CheckIsRoot(node);
    return Insert(node);
  }

  std::shared_ptr<Node> Insert(const Node& node) override { return Adopt(Node(node)); }

  std::shared_ptr<Node> Adopt(Node&& node) override {
    if (node.Dimension() != config_.dimension) {
      internal::ReportDimension(node.Dimension(), config_.dimension);
    }
    nodes_.push_back(arena_.Make(std::move(node)));
    try {
      IndexNodes();
    } catch (...) {
      nodes_.pop_back();
      throw;
    }
    return nodes_.back();
  }

  std::vector<std::shared_ptr<Node>> Backtrace(const std::shared_ptr<Node>& node) override {
    return ChainToRoot(node);
  }

  Geometry DistanceGeometry() const override { return Geometry::kMetric; }

  double Distance(const Eigen::VectorXd& q0, const Eigen::VectorXd& q1) const override {
    return L2Norm(q0, q1);
  }

  ClosestNode GetClosest(const Eigen::VectorXd& q) const override {
    return Closest(q, &Index::NearestNeighbor);
  }

  ClosestNode GetApproxClosest(const Eigen::VectorXd& q) const override {
    return Closest(q, &Index::ApproxNearestNeighbor);
  }

 private:
  // Takes the nodes into the index that it does not hold: the last one or, where an insertion has failed
  // since and left the index empty, all of them, in the order in which they came. That gives the same index
  // again.
  void IndexNodes() const {
    for (; num_indexed_ < nodes_.size(); ++num_indexed_) {
      const std::shared_ptr<Node>& node = nodes_[num_indexed_];
      if (IsIndexable(node->Configuration())) {
        const double* const point = node->Configuration().data();
        try {
          index_->Insert({point, point}, node);
        } catch (...) {
          num_indexed_ = 0;
          throw;
        }
      }
    }
  }

  static void CheckIsRoot(const Node& node) {
    KAVO_CHECK(!node.Parent().has_value(), "motion_planning/tree/fast_tree", 30);
  }

  // NaN has no place in the order that boxes rest on, and infinite extents have no volume.
  bool IsIndexable(const Eigen::VectorXd& q) const {
    return q.size() == config_.dimension && math::IsFinite(q);
  }

  ClosestNode Closest(const Eigen::VectorXd& q,
                      const std::shared_ptr<Node>& (Index::*query)(const double*) const) const {
    if (q.size() != config_.dimension) {
      internal::ReportDimension(q.size(), config_.dimension);
    }
    KAVO_CHECK(!nodes_.empty(), "motion_planning/tree/fast_tree", 60) << "An empty tree has no closest node.";
    IndexNodes();
    const std::shared_ptr<Node>& node =
        IsIndexable(q) && index_->Root().NumEntries() > 0 ? ((*index_).*query)(q.data()) : nodes_.front();
    // The report of a mismatch was made above.
    if (node->Dimension() != q.size()) {
      return {node, math::kNaN};
    }
    return {node, L2Norm(node->Configuration(), q)};
  }

  RStarTreeConfig config_;
  internal::NodeArena arena_;
  std::shared_ptr<Index> index_;
  std::vector<std::shared_ptr<Node>> nodes_;
  // How many of the nodes, from the first on, the index has been given.
  mutable std::size_t num_indexed_ = 0;
};

}  // namespace

std::unique_ptr<Tree> CreateFastTree(const FastTreeConfig& config) {
  return std::make_unique<FastTree>(config);
}

}  // namespace kavo::planning
