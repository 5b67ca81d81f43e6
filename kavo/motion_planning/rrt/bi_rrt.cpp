#include "kavo/motion_planning/rrt/bi_rrt.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <utility>

#include "kavo/kinematics/interface/joint_limits.h"
#include "kavo/math/constants_internal.h"
#include "kavo/motion_planning/environment/robot_environment.h"
#include "kavo/motion_planning/tree/nearest_scan_internal.h"
#include "kavo/motion_planning/tree/periodic_metric.h"
#include "kavo/util/log_message.h"

namespace kavo::planning {

namespace {

constexpr char kFile[] = "motion_planning/rrt/bi_rrt";

using ConfigurationMap = Eigen::Map<const Eigen::VectorXd>;

// Points that cover the unit cube evenly, however many are taken: point k has the coordinates frac(shift_i +
// k / phi ^ (i + 1)), phi the root above one of x ^ (d + 1) = x + 1 (Roberts, "The unreasonable effectiveness
// of quasirandom sequences", 2018). Fractions are held as 64-bit integers, in which sums wrap around exactly.
class EvenSequence {
 public:
  EvenSequence(int dimension, std::uint32_t seed) {
    double phi = 1.5;
    for (double width = 0.25; width > 1e-18; width *= 0.5) {
      double power = phi;
      for (int i = 0; i < dimension; ++i) {
        power *= phi;
      }
      phi += power < phi + 1.0 ? width : -width;
    }
    std::mt19937 shifts(seed);
    double fraction = 1.0;
    for (int i = 0; i < dimension; ++i) {
      fraction /= phi;
      const std::uint64_t high = shifts();
      coordinates_.push_back({high << 32 | shifts(), static_cast<std::uint64_t>(fraction * 0x1p64)});
    }
  }

  // Takes the next point.
  void Advance() {
    for (Coordinate& coordinate : coordinates_) {
      coordinate.fraction += coordinate.step;
    }
  }

  // A coordinate of the point, in [0, 1).
  double operator[](int i) const {
    return static_cast<double>(coordinates_[static_cast<std::size_t>(i)].fraction >> 11) * 0x1p-53;
  }

 private:
  struct Coordinate {
    std::uint64_t fraction;
    std::uint64_t step;
  };
  std::vector<Coordinate> coordinates_;
};

// A tree, or several with a root each, whose nodes are the ends of motions. It keeps its memory.
class MotionTree {
 public:
  static constexpr std::size_t kNoParent = std::numeric_limits<std::size_t>::max();

  struct Nearest {
    std::size_t node;
    double distance;
  };

  MotionTree(const Eigen::VectorXd& weights, const std::vector<Eigen::Index>& periodic_coordinates)
      : dimension_(weights.size()),
        points_(internal::NearestScan::Metric::kWeightedSquaredL2, static_cast<std::size_t>(weights.size()),
                weights.data(), periodic_coordinates) {}

  std::size_t Size() const { return points_.Size(); }

  void Clear() {
    points_.Clear();
    parents_.clear();
  }

  void Add(const Eigen::VectorXd& q, std::size_t parent) {
    points_.MakeRoom();
    parents_.push_back(parent);
    points_.Append(q.data());
  }

  ConfigurationMap Configuration(std::size_t node) const { return {points_.Point(node), dimension_}; }
  std::size_t Parent(std::size_t node) const { return parents_[node]; }

  Nearest FindNearest(const Eigen::VectorXd& q) const {
    const internal::NearestScan::Result nearest = points_.Closest(q.data());
    return {nearest.index, std::sqrt(nearest.sum)};
  }

 private:
  Eigen::Index dimension_;
  internal::NearestScan points_;
  std::vector<std::size_t> parents_;
};

Eigen::VectorXd Scales(const BiRRTConfig& config, Eigen::Index dimension) {
  KAVO_CHECK(config.scales.size() == 0 || config.scales.size() == dimension, kFile, 1)
      << "There are [" << config.scales.size() << "] 'scales' for [" << dimension << "] coordinates.";
  return config.scales.size() > 0 ? config.scales : Eigen::VectorXd::Ones(dimension);
}

class BiRRTImpl final : public BiRRT {
 public:
  BiRRTImpl(const BiRRTConfig& config, const std::shared_ptr<Environment>& environment,
            const Eigen::VectorXd& scales)
      : config_(config),
        environment_(environment),
        dimension_(environment->CSpaceDimension()),
        min_(environment->CSpaceCoordLimits().Min()),
        max_(environment->CSpaceCoordLimits().Max()),
        range_(config.range > 0.0 ? config.range : AutomaticRange(*environment, scales)),
        resolution_(config.resolution > 0.0 ? config.resolution : range_ / 32.0),
        sequence_(dimension_ + 1, config.seed),
        trees_{MotionTree(scales.cwiseAbs2(), environment->PeriodicCoordinates()),
               MotionTree(scales.cwiseAbs2(), environment->PeriodicCoordinates())},
        q_sample_(dimension_),
        q_new_(dimension_),
        q_goal_(dimension_),
        q_next_(dimension_),
        turns_(Eigen::VectorXd::Zero(dimension_)) {
    for (Eigen::Index i = 0; i < dimension_; ++i) {
      const kinematics::JointLimits range = kinematics::JointLimits{min_[i], max_[i]}.samplingRange();
      sides_.push_back({range.min, range.max - range.min, config.domain * range_ / scales[i]});
    }
  }

  int CSpaceDimension() const override { return dimension_; }

  std::optional<std::vector<std::shared_ptr<Node>>> TryToFindPath(const Eigen::VectorXd& q_initial,
                                                                  const Eigen::VectorXd& q_target) override {
    const std::optional<Connection> connection = TryToConnect({q_initial}, {q_target});
    if (!connection) {
      return std::nullopt;
    }
    std::vector<std::shared_ptr<Node>> nodes;
    for (const Eigen::VectorXd& q : connection->path) {
      nodes.push_back(nodes.empty() ? std::make_shared<Node>(q) : std::make_shared<Node>(q, nodes.back()));
    }
    return nodes;
  }

  std::optional<Connection> TryToConnect(const std::vector<Eigen::VectorXd>& starts,
                                         const std::vector<Eigen::VectorXd>& goals) override {
    KAVO_CHECK(!goals.empty(), kFile, 7) << "A query needs a start and a goal.";
    bool is_drawn = false;
    return TryToConnect(starts, [&]() -> std::optional<std::vector<Eigen::VectorXd>> {
      return std::exchange(is_drawn, true) ? std::nullopt : std::optional(goals);
    });
  }

  std::optional<Connection> TryToConnect(const std::vector<Eigen::VectorXd>& starts,
                                         const GoalSource& draw_goals) override {
    KAVO_CHECK(!starts.empty(), kFile, 7) << "A query needs a start and a goal.";
    StartSearch();
    for (std::size_t side : {kStart, kGoal}) {
      trees_[side].Clear();
      roots_[side].clear();
      num_given_[side] = 0;
    }
    PlantRoots(starts, kStart);
    if (!HasRoots(kStart, SearchStatus::kInvalidStart, SearchStatus::kStartTooClose)) {
      return std::nullopt;
    }
    bool is_exhausted = false;
    while (roots_[kGoal].empty() && !is_exhausted && !ShouldStop()) {
      is_exhausted = !DrawGoals(draw_goals);
    }
    if (status_ == SearchStatus::kStopped ||
        !HasRoots(kGoal, SearchStatus::kInvalidTarget, SearchStatus::kTargetTooClose)) {
      return std::nullopt;
    }
    side_ = kGoal;
    bool is_connected = MayExtend(config_.max_iterations) && TryStraightMotions(0);
    std::uint64_t next_draw = kFirstDraw;
    while (!is_connected && MayExtend(config_.max_iterations)) {
      if (!is_exhausted && num_iterations_ >= next_draw) {
        next_draw *= 2;
        const std::size_t num_goals = roots_[kGoal].size();
        is_exhausted = !DrawGoals(draw_goals);
        if (num_goals < roots_[kGoal].size() && TryStraightMotions(num_goals)) {
          is_connected = true;
          break;
        }
      }
      ++num_iterations_;
      // The smaller tree, or the one that was not grown last.
      if (static_cast<double>(Other().Size()) < config_.balance * static_cast<double>(Tree().Size())) {
        side_ = 1 - side_;
      }
      if (!Sample()) {
        return std::nullopt;
      }
      is_connected = Extend() && ConnectOther();
    }
    if (!is_connected) {
      return std::nullopt;
    }
    status_ = SearchStatus::kFound;
    return std::move(connection_);
  }

  std::array<std::uint64_t, 2> NumNodes() const override {
    return {trees_[kStart].Size(), trees_[kGoal].Size()};
  }

  std::array<std::vector<TreeNode>, 2> Trees() const override {
    std::array<std::vector<TreeNode>, 2> trees;
    for (const std::size_t side : {kStart, kGoal}) {
      for (std::size_t node = 0; node < trees_[side].Size(); ++node) {
        const std::size_t parent = trees_[side].Parent(node);
        trees[side].push_back({trees_[side].Configuration(node),
                               parent == MotionTree::kNoParent ? std::nullopt : std::optional(parent)});
      }
    }
    return trees;
  }

  std::vector<Eigen::VectorXd> GetAllValidatedConfigurations() const override {
    std::vector<Eigen::VectorXd> configurations;
    for (const MotionTree& tree : trees_) {
      for (std::size_t node = 0; node < tree.Size(); ++node) {
        configurations.emplace_back(tree.Configuration(node));
      }
    }
    return configurations;
  }

  std::vector<std::pair<Eigen::VectorXd, Eigen::VectorXd>> GetAllValidatedEdges() const override {
    std::vector<std::pair<Eigen::VectorXd, Eigen::VectorXd>> edges;
    for (const MotionTree& tree : trees_) {
      for (std::size_t node = 0; node < tree.Size(); ++node) {
        if (const std::size_t parent = tree.Parent(node); parent != MotionTree::kNoParent) {
          edges.emplace_back(tree.Configuration(parent), tree.Configuration(node));
        }
      }
    }
    return edges;
  }

 private:
  // The samples after which goals are drawn again.
  static constexpr std::uint64_t kFirstDraw = 16;

  static constexpr std::size_t kStart = 0;
  static constexpr std::size_t kGoal = 1;

  // The tree that grows, and the one that is to meet it.
  MotionTree& Tree() { return trees_[side_]; }
  MotionTree& Other() { return trees_[1 - side_]; }

  // Makes what is usable of some configurations roots of a tree.
  void PlantRoots(const std::vector<Eigen::VectorXd>& configurations, std::size_t side) {
    for (const Eigen::VectorXd& q : configurations) {
      KAVO_CHECK(q.size() == dimension_, kFile, 8)
          << "A configuration of [" << q.size() << "] coordinates does not fit the [" << dimension_
          << "] of the configuration space.";
      const std::size_t number = num_given_[side]++;
      if (environment_->IsValidMotion(q, q, resolution_)) {
        roots_[side].push_back({trees_[side].Size(), number});
        trees_[side].Add(q, MotionTree::kNoParent);
      } else if (ValidateConfiguration(*environment_, q, SearchStatus::kNone)) {
        is_any_too_close_ = true;
        KAVO_LOG(LogLevel::kWarning) << "Configuration [" << q.transpose()
                                     << "] is valid, but too close to a contact to prove a motion from it.";
      }
    }
  }

  // False, with a status, if nothing was usable.
  bool HasRoots(std::size_t side, SearchStatus if_invalid, SearchStatus if_too_close) {
    const bool is_any_too_close = std::exchange(is_any_too_close_, false);
    if (roots_[side].empty()) {
      status_ = is_any_too_close ? if_too_close : if_invalid;
    }
    return !roots_[side].empty();
  }

  // False once there are no more.
  bool DrawGoals(const GoalSource& draw_goals) {
    const std::optional<std::vector<Eigen::VectorXd>> goals = draw_goals();
    if (goals) {
      PlantRoots(*goals, kGoal);
    }
    return goals.has_value();
  }

  // To the goals from one on, each from the node of the start tree that is nearest to it.
  bool TryStraightMotions(std::size_t first_goal) {
    ++num_iterations_;
    for (std::size_t i = first_goal; i < roots_[kGoal].size(); ++i) {
      const std::size_t goal = roots_[kGoal][i].node;
      q_new_ = trees_[kGoal].Configuration(goal);
      if (Join(trees_[kStart].FindNearest(q_new_).node, goal)) {
        return true;
      }
    }
    return false;
  }

  // Which of the starts or goals a root is.
  std::size_t NumberOf(std::size_t side, std::size_t node) const {
    const std::vector<Root>& roots = roots_[side];
    return std::find_if(roots.begin(), roots.end(), [&](const Root& root) { return root.node == node; })
        ->number;
  }

  bool Sample() {
    if (config_.samples == BiRRTConfig::Samples::kLowDiscrepancy) {
      sequence_.Advance();
      if (config_.domain > 0.0) {
        SampleDomain();
      } else {
        for (int i = 0; i < dimension_; ++i) {
          const Side& side = sides_[static_cast<std::size_t>(i)];
          q_sample_[i] = side.min + sequence_[i] * side.width;
        }
      }
      return true;
    }
    const std::optional<Eigen::VectorXd> q_sample = environment_->SampleConfiguration();
    if (!q_sample) {
      status_ = SearchStatus::kSamplingFailed;
      KAVO_LOG(LogLevel::kWarning) << "Unable to successfully sample configurations.";
      return false;
    }
    q_sample_ = *q_sample;
    return true;
  }

  // In a box around a node of the tree that grows. What of it is beyond the limits comes to lie on them,
  // unless in a coordinate that is nearly all of it: then samples come from anywhere between them.
  void SampleDomain() {
    const auto node = static_cast<std::size_t>(sequence_[dimension_] * static_cast<double>(Tree().Size()));
    const ConfigurationMap q_node = Tree().Configuration(node);
    for (int i = 0; i < dimension_; ++i) {
      const Side& side = sides_[static_cast<std::size_t>(i)];
      q_sample_[i] = side.domain < 2.0 * side.width
                         ? Clamped(i, q_node[i] + (2.0 * sequence_[i] - 1.0) * side.domain)
                         : side.min + sequence_[i] * side.width;
    }
  }

  // Whether the tree has got a new node, `q_new_`, from its node nearest to the sample towards that.
  bool Extend() {
    const MotionTree::Nearest nearest = Tree().FindNearest(q_sample_);
    // A sample leads nowhere that is not finite or is there already.
    if (!(nearest.distance > 0.0 && nearest.distance < math::kInf)) {
      return false;
    }
    const ConfigurationMap q_near = Tree().Configuration(nearest.node);
    MoveToward(q_near, q_sample_);
    PlaceBetween(q_near, q_sample_, std::min(1.0, range_ / nearest.distance), q_new_);
    return IsValidEdge(side_, q_near, q_new_) && Grow(Tree(), q_new_, nearest.node);
  }

  // Whether the other tree arrives at the last node of this one.
  bool ConnectOther() {
    const MotionTree::Nearest nearest = Other().FindNearest(q_new_);
    const ConfigurationMap q_near = Other().Configuration(nearest.node);
    q_goal_ = q_new_;
    MoveToward(q_near, q_goal_);
    const double num_parts = std::ceil(nearest.distance / range_);
    std::size_t node = nearest.node;
    for (double part = 1.0; part < num_parts; ++part) {
      PlaceBetween(q_near, q_goal_, part / num_parts, q_next_);
      if (!IsValidEdge(1 - side_, Other().Configuration(node), q_next_) || !Grow(Other(), q_next_, node)) {
        return false;
      }
      node = Other().Size() - 1;
    }
    const std::size_t reached = Tree().Size() - 1;
    return side_ == kStart ? Join(reached, node) : Join(node, reached);
  }

  // Turns periodic coordinates of a goal such that it is the short way from where a motion starts.
  void MoveToward(const ConfigurationMap& q_from, Eigen::VectorXd& q_goal) const {
    for (const Eigen::Index i : environment_->PeriodicCoordinates()) {
      q_goal[i] += WholeTurns(q_goal[i], q_from[i]);
    }
  }

  // Rounding must not lead beyond the limits: what is proven is what is stored.
  void PlaceBetween(const ConfigurationMap& q_from, const Eigen::VectorXd& q_to, double fraction,
                    Eigen::VectorXd& q) const {
    if (fraction == 1.0) {
      q = q_to;
      return;
    }
    for (Eigen::Index i = 0; i < q.size(); ++i) {
      q[i] = Clamped(i, q_from[i] + fraction * (q_to[i] - q_from[i]));
    }
  }

  double Clamped(Eigen::Index i, double value) const { return std::max(min_[i], std::min(value, max_[i])); }

  // In the direction in which a path would go along an edge from parent to child.
  bool IsValidEdge(std::size_t side, const ConfigurationMap& q_parent, const Eigen::VectorXd& q_child) {
    return side == kStart ? IsValid(q_parent, q_child) : IsValid(q_child, q_parent);
  }

  bool IsValid(const Eigen::Ref<const Eigen::VectorXd>& q_from,
               const Eigen::Ref<const Eigen::VectorXd>& q_to) {
    return !ShouldStop() && environment_->IsValidMotion(q_from, q_to, resolution_);
  }

  bool Grow(MotionTree& tree, const Eigen::VectorXd& q, std::size_t parent) {
    if (!MayGrow(trees_[kStart].Size() + trees_[kGoal].Size(), config_.max_nodes)) {
      return false;
    }
    tree.Add(q, parent);
    return true;
  }

  // Whether two nodes can be joined by a motion; then there is a connection. Where they stand whole turns
  // apart, the goal tree's branch is turned. Its configurations are other numbers then, and all its motions
  // have to be valid themselves.
  bool Join(std::size_t start_node, std::size_t goal_node) {
    const MotionTree& start_tree = trees_[kStart];
    const MotionTree& goal_tree = trees_[kGoal];
    const ConfigurationMap q_start = start_tree.Configuration(start_node);
    const ConfigurationMap q_goal = goal_tree.Configuration(goal_node);
    for (const Eigen::Index i : environment_->PeriodicCoordinates()) {
      turns_[i] = WholeTurns(q_goal[i], q_start[i]);
    }
    const bool is_turned = !turns_.isZero(0.0);
    if (!is_turned && !IsValid(q_start, q_goal)) {
      return false;
    }
    connection_.path.clear();
    std::size_t root = start_node;
    for (std::size_t node = start_node; node != MotionTree::kNoParent; node = start_tree.Parent(node)) {
      connection_.path.emplace_back(start_tree.Configuration(node));
      root = node;
    }
    connection_.start = NumberOf(kStart, root);
    std::reverse(connection_.path.begin(), connection_.path.end());
    for (std::size_t node = goal_node; node != MotionTree::kNoParent; node = goal_tree.Parent(node)) {
      Eigen::VectorXd q = goal_tree.Configuration(node);
      if (is_turned) {
        q += turns_;
        if (!AreTurnsApart(goal_tree.Configuration(node), q, environment_->PeriodicCoordinates()) ||
            !IsValid(connection_.path.back(), q)) {
          return false;
        }
      }
      connection_.path.push_back(std::move(q));
      root = node;
    }
    connection_.goal = NumberOf(kGoal, root);
    return true;
  }

  // Where the values of a coordinate come from: anywhere, and how far they are from a node.
  struct Side {
    double min;
    double width;
    double domain;
  };

  BiRRTConfig config_;
  std::shared_ptr<Environment> environment_;
  int dimension_;
  Eigen::VectorXd min_;
  Eigen::VectorXd max_;
  double range_;
  double resolution_;
  std::vector<Side> sides_;
  EvenSequence sequence_;
  std::array<MotionTree, 2> trees_;
  // A node that is a root, and which start or goal it is.
  struct Root {
    std::size_t node;
    std::size_t number;
  };
  std::array<std::vector<Root>, 2> roots_;
  // Starts and goals that there have been.
  std::array<std::size_t, 2> num_given_ = {0, 0};
  bool is_any_too_close_ = false;
  std::size_t side_ = kStart;
  Connection connection_;
  // Of an extension; kept for their memory.
  Eigen::VectorXd q_sample_;
  Eigen::VectorXd q_new_;
  Eigen::VectorXd q_goal_;
  Eigen::VectorXd q_next_;
  Eigen::VectorXd turns_;
};

}  // namespace

void BiRRTConfig::Validate() const {
  KAVO_CHECK((scales.array() > 0.0).all() && scales.allFinite(), kFile, 2)
      << "Each of the 'scales' must be positive and finite.";
  KAVO_CHECK(range >= 0.0, kFile, 3) << "'range' [" << range << "] must not be negative.";
  KAVO_CHECK(balance >= 1.0, kFile, 4) << "'balance' [" << balance << "] must be at least 1.";
  KAVO_CHECK(domain >= 0.0, kFile, 5) << "'domain' [" << domain << "] must not be negative.";
  KAVO_CHECK(resolution >= 0.0, kFile, 6) << "'resolution' [" << resolution << "] must not be negative.";
}

const char* ToString(BiRRTConfig::Samples samples) {
  return samples == BiRRTConfig::Samples::kEnvironment ? "environment" : "low_discrepancy";
}

double AutomaticRange(const Environment& environment, const Eigen::VectorXd& scales) {
  const bool is_robot = dynamic_cast<const RobotEnvironment*>(&environment) != nullptr;
  double sum = 0.0;
  for (Eigen::Index i = 0; i < scales.size(); ++i) {
    const double width = environment.CSpaceCoordLimits().Range()[i];
    const double side =
        scales[i] * (is_robot || !std::isfinite(width) ? std::min(width, math::kTwoPi) : width);
    sum += side * side;
  }
  const double range = std::sqrt(sum) / 12.0;
  return range > 0.0 && std::isfinite(range) ? range : 1.0;
}

std::shared_ptr<BiRRT> CreateBiRRT(const BiRRTConfig& config,
                                   const std::shared_ptr<Environment>& environment) {
  KAVO_CHECK(environment != nullptr, kFile, 9) << "A planner needs an environment.";
  config.Validate();
  return std::make_shared<BiRRTImpl>(config, environment, Scales(config, environment->CSpaceDimension()));
}

}  // namespace kavo::planning
