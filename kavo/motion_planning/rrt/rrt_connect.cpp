#include "kavo/motion_planning/rrt/rrt_connect.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>

#include "kavo/math/vector_math_internal.h"
#include "kavo/motion_planning/rrt/look_ahead_internal.h"
#include "kavo/motion_planning/rrt/rrt_util.h"
#include "kavo/motion_planning/tree/periodic_metric.h"
#include "kavo/util/clip_warning.h"
#include "kavo/util/log_message.h"

namespace kavo::planning {

RRTConnectConfig::RRTConnectConfig(double edge_length_in, unsigned long max_iterations_in,
                                   double exploration_fraction_in)
    : edge_length(edge_length_in),
      max_iterations(max_iterations_in),
      exploration_fraction(exploration_fraction_in) {
  KAVO_CHECK(edge_length > 0., "motion_planning/rrt/rrt_connect", 31)
      << "'edge_length' [" << edge_length << "] must be positive.";
  if (!(exploration_fraction >= 0.0 && exploration_fraction <= 1.0)) {
    // NaN passes through std::clamp.
    exploration_fraction = std::clamp(exploration_fraction_in, 0.0, 1.0);
    util::LogClippedWarning(exploration_fraction_in, exploration_fraction, 0.0, 1.0,
                            "Invalid exploration factor for RRT-Connect");
  }
}

namespace {

// How far a walk still is from a tree that does not change meanwhile: no nearer than it was, less the way
// since. While that is more than a reach, the nearest node need not be searched.
class Separation {
 public:
  Separation(const Tree& tree, double reach)
      : tree_(tree), geometry_(tree.DistanceGeometry()), reach_(Length(reach)) {}

  // Whether the tree may be within reach of `q`, the next configuration of the walk.
  // \param previous The one before, where the walk came from.
  bool MayHaveClosed(const Eigen::VectorXd& previous, const Eigen::VectorXd& q) {
    if (geometry_ == Tree::Geometry::kUnknown || !is_known_) {
      return true;
    }
    distance_ -= Length(tree_.Distance(previous, q)) + slack_;
    // So that NaN is no reason to skip the search.
    return !(distance_ > reach_);
  }

  // The distance of the tree from the last configuration.
  void Set(double distance) {
    is_known_ = true;
    distance_ = Length(distance);
    // Far above what rounding may cost in one step.
    slack_ = 1e-12 * distance_;
  }

 private:
  double Length(double distance) const {
    return geometry_ == Tree::Geometry::kSquaredMetric ? std::sqrt(distance) : distance;
  }

  const Tree& tree_;
  Tree::Geometry geometry_;
  double reach_;
  bool is_known_ = false;
  double distance_ = 0.0;
  double slack_ = 0.0;
};

class RRTConnect final : public RRT {
 public:
  RRTConnect(const RRTConnectConfig& config, const std::shared_ptr<Environment>& environment,
             std::unique_ptr<Tree>& tree_a, std::unique_ptr<Tree>& tree_b)
      : config_(config),
        environment_(environment),
        tree_a_(&tree_a),
        tree_b_(&tree_b),
        dimension_(environment->CSpaceDimension()),
        look_ahead_(*environment) {
    ValidateTreeDimension(tree_a, dimension_);
    ValidateTreeDimension(tree_b, dimension_);
  }

  int CSpaceDimension() const override { return dimension_; }

  std::optional<std::vector<std::shared_ptr<Node>>> TryToFindPath(const Eigen::VectorXd& q_initial,
                                                                  const Eigen::VectorXd& q_target) override {
    StartSearch();
    if (!ValidateConfiguration(*environment_, q_initial, SearchStatus::kInvalidStart) ||
        !ValidateConfiguration(*environment_, q_target, SearchStatus::kInvalidTarget)) {
      return std::nullopt;
    }
    problem_ = ProblemState{};
    problem_.last_configuration_a = q_initial;
    problem_.last_configuration_b = q_target;
    // From the copies: the arguments may refer to nodes that go with a tree's old contents.
    TreeA().ClearAndSetRoot(Node(problem_.last_configuration_a));
    TreeB().ClearAndSetRoot(Node(problem_.last_configuration_b));

    while (!IsConnected()) {
      if (!MayExtend(config_.max_iterations)) {
        return std::nullopt;
      }
      const bool explore = problem_.num_steps * config_.exploration_fraction > problem_.num_exploration_steps;
      ++problem_.num_steps;
      if (explore) {
        ++problem_.num_exploration_steps;
        const std::optional<Eigen::VectorXd> q_sample = environment_->SampleConfiguration();
        if (!q_sample) {
          status_ = SearchStatus::kSamplingFailed;
          KAVO_LOG(LogLevel::kWarning) << "Unable to successfully sample configurations.";
          return std::nullopt;
        }
        q_goal_ = *q_sample;
      } else {
        if (problem_.start_tree_turn != IsStartTreeA()) {
          SwapTrees();
        }
        problem_.start_tree_turn = !problem_.start_tree_turn;
        // A copy: the goal is where the other tree ends now.
        q_goal_ = problem_.last_configuration_b;
      }
      ExtendTreeA();
      SwapTrees();
      ++num_iterations_;
    }
    status_ = SearchStatus::kFound;

    if (!IsStartTreeA()) {
      SwapTrees();
    }
    std::vector<std::shared_ptr<Node>> path = TreeA().Backtrace(*problem_.connection_a);
    std::reverse(path.begin(), path.end());
    const std::vector<std::shared_ptr<Node>> rest =
        problem_.turned_branch.empty() ? TreeB().Backtrace(*problem_.connection_b) : problem_.turned_branch;
    path.insert(path.end(), rest.begin(), rest.end());
    return path;
  }

  std::vector<Eigen::VectorXd> GetAllValidatedConfigurations() const override {
    std::vector<Eigen::VectorXd> configurations;
    ExtractConfigurations(TreeA().Nodes(), configurations);
    ExtractConfigurations(TreeB().Nodes(), configurations);
    return configurations;
  }

  std::vector<std::pair<Eigen::VectorXd, Eigen::VectorXd>> GetAllValidatedEdges() const override {
    std::vector<std::pair<Eigen::VectorXd, Eigen::VectorXd>> edges;
    ExtractEdges(TreeA().Nodes(), edges);
    ExtractEdges(TreeB().Nodes(), edges);
    return edges;
  }

 private:
  // Trees A and B are what the first and the second owner hold at the moment.
  struct ProblemState {
    // Exchanges of the trees so far: the start tree is tree A while this is even.
    std::uint64_t num_swaps = 0;
    std::optional<std::shared_ptr<Node>> connection_a;
    std::optional<std::shared_ptr<Node>> connection_b;
    // The goal tree's branch, connection first, where it has to be turned to go on from the start tree's.
    std::vector<std::shared_ptr<Node>> turned_branch;
    Eigen::VectorXd last_configuration_a;
    Eigen::VectorXd last_configuration_b;
    std::int32_t num_steps = 0;
    std::int32_t num_exploration_steps = 0;
    // Whether the next extension towards the other tree must grow the start tree.
    bool start_tree_turn = true;
  };

  Tree& TreeA() const { return **tree_a_; }
  Tree& TreeB() const { return **tree_b_; }
  bool IsStartTreeA() const { return problem_.num_swaps % 2 == 0; }
  bool IsConnected() const { return problem_.connection_a && problem_.connection_b; }

  void SwapTrees() {
    std::swap(*tree_a_, *tree_b_);
    std::swap(problem_.last_configuration_a, problem_.last_configuration_b);
    if (IsConnected()) {
      std::swap(problem_.connection_a, problem_.connection_b);
    }
    ++problem_.num_swaps;
  }

  // Whether the branches that end in two near nodes make a path. Where the trees stand whole turns apart, the
  // goal tree's branch is turned; its configurations are other numbers then, and have to be valid themselves.
  bool MakePath(const std::shared_ptr<Node>& node_a, const std::shared_ptr<Node>& node_b) {
    problem_.turned_branch.clear();
    const Eigen::VectorXd& q_start = (IsStartTreeA() ? node_a : node_b)->Configuration();
    const std::shared_ptr<Node>& goal_node = IsStartTreeA() ? node_b : node_a;
    Eigen::VectorXd turns = Eigen::VectorXd::Zero(dimension_);
    for (const Eigen::Index i : environment_->PeriodicCoordinates()) {
      turns[i] = WholeTurns(goal_node->Configuration()[i], q_start[i]);
    }
    if (turns.isZero(0.0)) {
      return true;
    }
    std::vector<std::shared_ptr<Node>> branch = ChainToRoot(goal_node);
    for (auto node = branch.rbegin(); node != branch.rend(); ++node) {
      Eigen::VectorXd q = (*node)->Configuration() + turns;
      if (!AreTurnsApart((*node)->Configuration(), q, environment_->PeriodicCoordinates()) ||
          !environment_->IsValidConfiguration(q)) {
        return false;
      }
      *node = node == branch.rbegin() ? std::make_shared<Node>(q) : std::make_shared<Node>(q, *(node - 1));
    }
    problem_.turned_branch = std::move(branch);
    return true;
  }

  // Towards `q_goal_`, the short way round.
  void ExtendTreeA() {
    std::shared_ptr<Node> parent = TreeA().GetClosest(q_goal_).node;
    MoveNear(parent->Configuration(), environment_->PeriodicCoordinates(), q_goal_);
    step_ = q_goal_ - parent->Configuration();
    math::SetLength(config_.edge_length, step_);
    q_new_ = parent->Configuration() + step_;
    // A sample or a step beyond the finite numbers leads nowhere, whatever the environment says.
    if (!math::IsFinite(q_new_)) {
      return;
    }
    // Whether the trees connect is not asked ahead: it costs more than the few configurations beyond.
    const Tree& tree = TreeA();
    const auto advance = [&](Eigen::VectorXd& q) {
      return !(tree.Distance(q, q_goal_) < config_.edge_length) && math::Advance(step_, q);
    };
    look_ahead_.Start();
    Separation separation(TreeB(), config_.edge_length);
    bool goes_on = true;
    bool is_extended = false;
    while (goes_on && !ShouldStop() && look_ahead_.IsValid(q_new_, advance) &&
           MayGrow(TreeA().NumNodes() + TreeB().NumNodes(), config_.max_nodes)) {
      std::shared_ptr<Node> node = TreeA().Adopt(Node(q_new_, parent));
      if (separation.MayHaveClosed(parent->Configuration(), q_new_)) {
        const ClosestNode closest = TreeB().GetClosest(q_new_);
        separation.Set(closest.distance);
        if (closest.distance <= config_.edge_length && MakePath(node, closest.node)) {
          problem_.connection_a = node;
          problem_.connection_b = closest.node;
        }
      }
      parent = std::move(node);
      is_extended = true;
      goes_on = !IsConnected() && look_ahead_.Next(q_new_, advance);
    }
    if (is_extended) {
      problem_.last_configuration_a = parent->Configuration();
    }
  }

  RRTConnectConfig config_;
  std::shared_ptr<Environment> environment_;
  std::unique_ptr<Tree>* tree_a_;
  std::unique_ptr<Tree>* tree_b_;
  int dimension_;
  internal::LookAhead look_ahead_;
  ProblemState problem_;
  // Of an extension; kept for their memory.
  Eigen::VectorXd q_goal_;
  Eigen::VectorXd step_;
  Eigen::VectorXd q_new_;
};

}  // namespace

std::shared_ptr<RRT> CreateRRTConnect(const RRTConnectConfig& config,
                                      const std::shared_ptr<Environment>& environment,
                                      std::unique_ptr<Tree>& tree_a, std::unique_ptr<Tree>& tree_b) {
  return std::make_shared<RRTConnect>(config, environment, tree_a, tree_b);
}

}  // namespace kavo::planning
