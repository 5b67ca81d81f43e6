#include "kavo/motion_planning/tree/basic_tree.h"

#include <algorithm>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

#include "kavo/math/constants_internal.h"
#include "kavo/math/vector_math_internal.h"
#include "kavo/motion_planning/tree/dimension_report_internal.h"
#include "kavo/motion_planning/tree/nearest_scan_internal.h"
#include "kavo/motion_planning/tree/node_arena_internal.h"
#include "kavo/motion_planning/tree/periodic_metric.h"
#include "kavo/util/log_message.h"

namespace kavo::planning {

namespace {

using internal::NearestScan;
using MetricFunction = double (*)(const Eigen::VectorXd&, const Eigen::VectorXd&);

class BasicTree final : public Tree {
 public:
  BasicTree(unsigned long dimension, const DistanceMetric& metric, bool supports_node_id)
      : dimension_(static_cast<int>(dimension)),
        metric_(metric),
        periodic_metric_(metric_.target<PeriodicMetric>()),
        supports_node_id_(supports_node_id),
        scan_metric_(RecogniseMetric(PlainMetric(), dimension_)),
        scan_(scan_metric_.value_or(NearestScan::Metric::kL2),
              static_cast<std::size_t>(std::max(dimension_, 0)), Weights(),
              periodic_metric_ != nullptr ? periodic_metric_->PeriodicCoordinates()
                                          : std::vector<Eigen::Index>()) {}

  int CSpaceDimension() const override { return dimension_; }
  std::uint64_t NumNodes() const override { return nodes_.size(); }
  const std::vector<std::shared_ptr<Node>>& Nodes() const override { return nodes_; }
  bool SupportsNodeId() const override { return supports_node_id_; }

  std::shared_ptr<Node> ClearAndSetRoot(const Node& node) override {
    // The node may be one of those that are dropped now: they live until its copy is stored.
    const std::vector<std::shared_ptr<Node>> former = std::exchange(nodes_, {});
    id_map_.clear();
    scan_.Clear();
    KAVO_CHECK(!node.Parent().has_value(), "motion_planning/tree/basic_tree", 26);
    return Insert(node);
  }

  std::shared_ptr<Node> Insert(const Node& node) override { return Adopt(Node(node)); }

  std::shared_ptr<Node> Adopt(Node&& node_in) override {
    std::shared_ptr<Node> stored = arena_.Make(std::move(node_in));
    const Node& node = *stored;
    if (node.Dimension() != dimension_) {
      internal::ReportDimension(node.Dimension(), dimension_);
    }
    // All that may fail comes first: the node is stored everywhere or nowhere.
    if (nodes_.size() == nodes_.capacity()) {
      nodes_.reserve(2 * nodes_.size() + 1);
    }
    // One node of the wrong length ends the contiguous copy: it then falls behind the list, and stays unused.
    const bool is_scanned = scan_metric_ && node.Dimension() == dimension_ && scan_.Size() == nodes_.size();
    if (is_scanned) {
      scan_.MakeRoom();
    }
    if (supports_node_id_) {
      KAVO_CHECK(node.TryGetId().has_value(), "motion_planning/tree/basic_tree", 40);
      id_map_.emplace(*node.TryGetId(), stored);
    }
    if (is_scanned) {
      scan_.Append(node.Configuration().data());
    }
    nodes_.push_back(stored);
    return stored;
  }

  ClosestNode GetClosest(const Eigen::VectorXd& q) const override {
    KAVO_CHECK(!nodes_.empty(), "motion_planning/tree/basic_tree", 60)
        << "An empty tree has no closest node.";
    if (q.size() != dimension_) {
      internal::ReportDimension(q.size(), dimension_);
      if (scan_metric_) {
        return {nodes_.front(), math::kNaN};
      }
    }
    if (scan_metric_ && scan_.Size() == nodes_.size()) {
      const NearestScan::Result closest = scan_.Closest(q.data());
      return {nodes_[closest.index], closest.distance};
    }
    std::size_t closest = 0;
    double closest_distance = Measure(*nodes_.front(), q);
    for (std::size_t i = 0; i < nodes_.size(); ++i) {
      const double distance = Measure(*nodes_[i], q);
      if (closest_distance > distance) {
        closest = i;
        closest_distance = distance;
      }
    }
    return {nodes_[closest], closest_distance};
  }

  std::vector<std::shared_ptr<Node>> Backtrace(const std::shared_ptr<Node>& node) override {
    return ChainToRoot(node);
  }

  Geometry DistanceGeometry() const override {
    // Whole turns are rounded, and more so the larger the coordinates: a detour may be shorter by that.
    if (!scan_metric_ || periodic_metric_ != nullptr) {
      return Geometry::kUnknown;
    }
    if (*scan_metric_ == NearestScan::Metric::kL2) {
      return Geometry::kMetric;
    }
    const double* const weights = Weights();
    const bool are_weights_positive =
        weights == nullptr || std::all_of(weights, weights + dimension_, [](double w) { return w >= 0.0; });
    return are_weights_positive ? Geometry::kSquaredMetric : Geometry::kUnknown;
  }

  double Distance(const Eigen::VectorXd& q0, const Eigen::VectorXd& q1) const override {
    if (scan_metric_ == NearestScan::Metric::kL2 && periodic_metric_ == nullptr && q0.size() == q1.size()) {
      // What the metric does, without the way through a function object.
      return math::Distance(q0, q1);
    }
    return metric_(q0, q1);
  }

  std::optional<std::shared_ptr<Node>> TryGetNode(unsigned int id) const override {
    const auto found = id_map_.find(id);
    if (found != id_map_.end()) {
      return found->second;
    }
    KAVO_LOG(LogLevel::kWarning) << "Unable to find node with id \"" << id << "\" in tree.";
    return std::nullopt;
  }

 private:
  // The kind of a metric that the contiguous scan knows; empty for a caller's own.
  static std::optional<NearestScan::Metric> RecogniseMetric(const DistanceMetric& metric, int dimension) {
    if (const MetricFunction* function = metric.target<MetricFunction>()) {
      if (*function == &L2Norm) {
        return NearestScan::Metric::kL2;
      }
      if (*function == &SquaredL2Norm) {
        return NearestScan::Metric::kSquaredL2;
      }
    }
    if (const auto* weighted = metric.target<WeightedSquaredL2Norm>()) {
      if (weighted->Weights().size() == dimension) {
        return NearestScan::Metric::kWeightedSquaredL2;
      }
    }
    return std::nullopt;
  }

  // Without regard to turns.
  const DistanceMetric& PlainMetric() const {
    return periodic_metric_ != nullptr ? periodic_metric_->Metric() : metric_;
  }

  const double* Weights() const {
    const auto* weighted = PlainMetric().target<WeightedSquaredL2Norm>();
    return weighted != nullptr ? weighted->Weights().data() : nullptr;
  }

  // The metrics that the scan knows have no distance between different lengths, and one of them does not
  // check.
  double Measure(const Node& node, const Eigen::VectorXd& q) const {
    if (scan_metric_ && node.Dimension() != q.size()) {
      return math::kNaN;
    }
    return metric_(node.Configuration(), q);
  }

  int dimension_;
  DistanceMetric metric_;
  // `metric_` if it is one of these, else null.
  const PeriodicMetric* periodic_metric_;
  internal::NodeArena arena_;
  std::vector<std::shared_ptr<Node>> nodes_;
  bool supports_node_id_;
  // The first node with an id keeps it.
  std::unordered_map<unsigned int, std::shared_ptr<Node>> id_map_;
  std::optional<NearestScan::Metric> scan_metric_;
  NearestScan scan_;
};

}  // namespace

std::unique_ptr<Tree> CreateBasicTree(unsigned long dimension, const DistanceMetric& metric,
                                      bool supports_node_id) {
  return std::make_unique<BasicTree>(dimension, metric, supports_node_id);
}

}  // namespace kavo::planning
