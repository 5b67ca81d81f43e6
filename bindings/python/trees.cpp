#include <pybind11/functional.h>
#include <pybind11/stl.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "bindings/python/environments.h"
#include "bindings/python/records.h"
#include "kavo/motion_planning/spatial_data_structures/box_index.h"
#include "kavo/motion_planning/tree/basic_tree.h"
#include "kavo/motion_planning/tree/fast_tree.h"
#include "kavo/motion_planning/tree/tree.h"

namespace kavo::python {

namespace {

// A tree whose nodes Python knows by their numbers, in the order in which they came.
class NumberedTree {
 public:
  explicit NumberedTree(std::unique_ptr<planning::Tree> tree) : tree_(std::move(tree)) {}

  std::uint64_t Size() const { return tree_->NumNodes(); }

  // Adds configurations, each with the number of its parent; the first of all is the root.
  void Add(const Numbers& rows, const py::array_t<std::int64_t, py::array::forcecast>& parents) {
    const Configurations configurations = ToConfigurations(rows);
    if (parents.ndim() != 1 || parents.shape(0) != rows.shape(0)) {
      throw py::value_error("expected a parent for each configuration, an array of shape (N,)");
    }
    if (rows.shape(0) > 0 && rows.shape(1) != tree_->CSpaceDimension()) {
      throw py::value_error("expected configurations of " + std::to_string(tree_->CSpaceDimension()) +
                            " coordinates");
    }
    const auto each = parents.unchecked<1>();
    const auto known = static_cast<std::int64_t>(Size());
    for (std::int64_t i = 0; i < rows.shape(0); ++i) {
      const bool is_root = known + i == 0;
      if (is_root ? each(i) != -1 : each(i) < 0 || each(i) >= known + i) {
        throw py::value_error("node " + std::to_string(known + i) + " has parent " + std::to_string(each(i)) +
                              ": expected -1 for the root, and the number of an earlier node for others");
      }
    }
    const Turn turn(is_in_use_);
    for (std::size_t i = 0; i < configurations.size(); ++i) {
      const std::int64_t number = known + static_cast<std::int64_t>(i);
      const std::shared_ptr<planning::Node> node =
          number == 0 ? tree_->ClearAndSetRoot(planning::Node(configurations[i]))
                      : tree_->Insert(planning::Node(
                            configurations[i],
                            tree_->Nodes()[static_cast<std::size_t>(each(static_cast<py::ssize_t>(i)))]));
      numbers_.emplace(node.get(), number);
    }
  }

  py::tuple Closest(const Numbers& queries, bool is_approximate) const {
    if (Size() == 0) {
      throw py::value_error("the tree is empty");
    }
    const Configurations configurations = ToConfigurations(queries);
    if (queries.shape(0) > 0 && queries.shape(1) != tree_->CSpaceDimension()) {
      throw py::value_error("expected queries of " + std::to_string(tree_->CSpaceDimension()) +
                            " coordinates");
    }
    const auto count = static_cast<py::ssize_t>(configurations.size());
    py::array_t<std::int64_t> nodes(count);
    py::array_t<double> distances(count);
    std::int64_t* node = nodes.mutable_data();
    double* distance = distances.mutable_data();
    const Turn turn(is_in_use_);
    for (const Eigen::VectorXd& q : configurations) {
      const planning::ClosestNode closest =
          is_approximate ? tree_->GetApproxClosest(q) : tree_->GetClosest(q);
      *node++ = numbers_.at(closest.node.get());
      *distance++ = closest.distance;
    }
    return py::make_tuple(nodes, distances);
  }

  std::vector<std::int64_t> Backtrace(std::uint64_t number) const {
    if (number >= Size()) {
      throw py::index_error("no such node");
    }
    std::vector<std::int64_t> chain;
    for (const std::shared_ptr<planning::Node>& node : tree_->Backtrace(tree_->Nodes()[number])) {
      chain.push_back(numbers_.at(node.get()));
    }
    return chain;
  }

  py::array_t<double> Nodes() const {
    Configurations configurations;
    for (const std::shared_ptr<planning::Node>& node : tree_->Nodes()) {
      configurations.push_back(node->Configuration());
    }
    return ToArray(configurations, tree_->CSpaceDimension());
  }

 private:
  std::unique_ptr<planning::Tree> tree_;
  std::unordered_map<const planning::Node*, std::int64_t> numbers_;
  // A metric in Python may call back, and lets other threads run.
  mutable std::atomic<bool> is_in_use_ = false;
};

planning::RStarTreeConfig IndexConfig(
    int dimension, int min_entries, int max_entries, int num_entries_to_prune = 0,
    planning::EntrySplitterType splitter = planning::EntrySplitterType::kStar) {
  using planning::SelectionMetric;
  return {dimension,
          min_entries,
          max_entries,
          num_entries_to_prune,
          /*max_approx_cost_evals_for_selection_in=*/8,
          splitter,
          /*internal_node_selection_metric_in=*/SelectionMetric::kMinimumCentroidDistance,
          /*leaf_parent_selection_metric_in=*/SelectionMetric::kMinimumVolumeIncrease,
          /*reinsertion_selection_metric_in=*/SelectionMetric::kMinimumCentroidDistance,
          /*approx_nearest_neighbor_selection_metric_in=*/SelectionMetric::kMinimumCentroidDistance};
}

// Boxes that Python knows by their numbers, in the order in which they came.
class NumberedBoxes {
 public:
  explicit NumberedBoxes(const planning::RStarTreeConfig& config)
      : dimension_(config.dimension), index_(config) {}

  std::size_t Size() const { return index_.Size(); }

  void Add(const Numbers& lower, const std::optional<Numbers>& upper) {
    const Configurations lowest = ToRows(lower);
    const Configurations highest = upper ? ToRows(*upper) : lowest;
    if (lowest.size() != highest.size()) {
      throw py::value_error("expected as many upper corners as lower ones");
    }
    for (std::size_t i = 0; i < lowest.size(); ++i) {
      if (!lowest[i].allFinite() || !highest[i].allFinite() ||
          (lowest[i].array() > highest[i].array()).any()) {
        throw py::value_error("box " + std::to_string(i) +
                              " is not finite, or has a lower corner above its upper one");
      }
    }
    for (std::size_t i = 0; i < lowest.size(); ++i) {
      index_.Add(lowest[i], highest[i]);
    }
  }

  py::tuple Nearest(const Numbers& points, bool is_approximate) const {
    if (Size() == 0) {
      throw py::value_error("the tree is empty");
    }
    const Configurations rows = ToRows(points);
    for (std::size_t i = 0; i < rows.size(); ++i) {
      if (!rows[i].allFinite()) {
        throw py::value_error("point " + std::to_string(i) + " is not finite");
      }
    }
    const auto count = static_cast<py::ssize_t>(rows.size());
    py::array_t<std::int64_t> boxes(count);
    py::array_t<double> distances(count);
    std::int64_t* box = boxes.mutable_data();
    double* distance = distances.mutable_data();
    for (const Eigen::VectorXd& point : rows) {
      const std::size_t nearest = is_approximate ? index_.ApproxNearest(point) : index_.Nearest(point);
      *box++ = static_cast<std::int64_t>(nearest);
      *distance++ = index_.Distance(nearest, point);
    }
    return py::make_tuple(boxes, distances);
  }

 private:
  Configurations ToRows(const Numbers& rows) const {
    Configurations all = ToConfigurations(rows);
    if (rows.shape(0) > 0 && rows.shape(1) != dimension_) {
      throw py::value_error("expected rows of " + std::to_string(dimension_) + " coordinates");
    }
    return all;
  }

  int dimension_;
  planning::BoxIndex index_;
};

void DefineBoxes(py::module_& module) {
  using planning::EntrySplitterType;
  py::class_<NumberedBoxes>(
      module, "RStarTree",
      R"(An index of boxes and points that answers which of them is nearest to a point. It only grows.

Boxes are known by their numbers, in the order in which they came. What is no such tree is a `FatalError`.

Args:
    dimension: Of the boxes.
    min_entries_per_node, max_entries_per_node: At least 2, and twice the former.
    num_reinserted: How many entries leave a node that is too full, before it is split, and are added anew.
    split: "star" (by margins and overlaps: the better tree) or "basic" (by two seeds: faster).)")
      .def(py::init([](int dimension, int min_entries, int max_entries, int num_reinserted,
                       const std::string& split) {
             if (split != "star" && split != "basic") {
               throw py::value_error("unknown split '" + split + "': it is 'star' or 'basic'");
             }
             if (num_reinserted < 0) {
               throw py::value_error("num_reinserted is " + std::to_string(num_reinserted) +
                                     ", and must not be negative");
             }
             return NumberedBoxes(
                 IndexConfig(dimension, min_entries, max_entries, num_reinserted,
                             split == "star" ? EntrySplitterType::kStar : EntrySplitterType::kBasic));
           }),
           py::arg("dimension"), py::kw_only(), py::arg("min_entries_per_node") = 64,
           py::arg("max_entries_per_node") = 128, py::arg("num_reinserted") = 0, py::arg("split") = "star")
      .def("__len__", &NumberedBoxes::Size)
      .def("add", &NumberedBoxes::Add, py::arg("lower"), py::arg("upper") = py::none(),
           "Adds boxes by their corners (N, dimension), or points by these alone.")
      .def("nearest", &NumberedBoxes::Nearest, py::arg("points"), py::arg("approximate") = false,
           R"(The nearest boxes.

Args:
    points: (N, dimension).
    approximate: Whether the nearest one of a leaf near the point will do.

Returns:
    Their numbers (N,) and distances (N,), zero inside.)");
}

}  // namespace

void DefineTrees(py::module_& module) {
  DefineBoxes(module);
  py::class_<NumberedTree> tree(module, "Tree",
                                R"(A growing tree of configurations that answers which of them is nearest.

Nodes are known by their numbers, in the order in which they came. See `basic_tree` and `fast_tree`.)");
  tree.def("__len__", &NumberedTree::Size)
      .def_property_readonly("nodes", &NumberedTree::Nodes, "All configurations (N, dimension).")
      .def("add", &NumberedTree::Add, py::arg("configurations"), py::arg("parents"),
           "Adds configurations (N, dimension) with the numbers of their parents (N,); -1 for the first, the "
           "root.")
      .def("closest", &NumberedTree::Closest, py::arg("queries"), py::arg("approximate") = false,
           R"(The nearest nodes.

Args:
    queries: (N, dimension).
    approximate: Whether a near one will do, where a tree knows how to find it faster.

Returns:
    Their numbers (N,) and distances (N,).)")
      .def("backtrace", &NumberedTree::Backtrace, py::arg("node"),
           "The numbers from a node (first) to the root (last).");
  module.def(
      "basic_tree",
      [](int dimension, const MetricChoice& metric) {
        if (dimension < 1) {
          throw py::value_error("the dimension must be positive");
        }
        return std::make_unique<NumberedTree>(planning::CreateBasicTree(static_cast<unsigned long>(dimension),
                                                                        ToMetric(metric, dimension), false));
      },
      py::arg("dimension"), py::arg("metric") = "euclidean",
      "A tree that scans all nodes, under any metric (see `CustomEnvironment`).");
  module.def(
      "fast_tree",
      [](int dimension, int min_entries, int max_entries) {
        return std::make_unique<NumberedTree>(planning::CreateFastTree(
            planning::FastTreeConfig(IndexConfig(dimension, min_entries, max_entries))));
      },
      py::arg("dimension"), py::kw_only(), py::arg("min_entries_per_node") = 64,
      py::arg("max_entries_per_node") = 128,
      "A tree with an R*-tree as its index, under the Euclidean distance.");
  module.def(
      "distance",
      [](const Eigen::VectorXd& a, const Eigen::VectorXd& b, const MetricChoice& metric) {
        if (a.size() != b.size()) {
          throw py::value_error("expected two configurations of one length");
        }
        return ToMetric(metric, a.size())(a, b);
      },
      py::arg("a"), py::arg("b"), py::arg("metric") = "euclidean",
      "Of two configurations, under a metric (see `CustomEnvironment`).");
}

}  // namespace kavo::python
