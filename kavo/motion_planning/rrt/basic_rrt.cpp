#include "kavo/motion_planning/rrt/basic_rrt.h"

#include <algorithm>

#include "kavo/math/vector_math_internal.h"
#include "kavo/motion_planning/rrt/look_ahead_internal.h"
#include "kavo/motion_planning/rrt/rrt_util.h"
#include "kavo/motion_planning/tree/periodic_metric.h"
#include "kavo/util/log_message.h"

namespace kavo::planning {

BasicRRTConfig::BasicRRTConfig(const Eigen::VectorXd& q_target_tolerance_in, double edge_length_in,
                               unsigned long max_iterations_in, bool use_approx_closest_in)
    : q_target_tolerance(q_target_tolerance_in),
      edge_length(edge_length_in),
      max_iterations(max_iterations_in),
      use_approx_closest(use_approx_closest_in) {
  for (Eigen::Index i = 0; i < q_target_tolerance.size(); ++i) {
    KAVO_CHECK(q_target_tolerance(i) > 0., "motion_planning/rrt/basic_rrt", 34)
        << "Each element of 'q_target_tolerance' [" << q_target_tolerance.transpose()
        << "] must be positive.";
  }
  KAVO_CHECK(edge_length > 0., "motion_planning/rrt/basic_rrt", 39)
      << "'edge_length' [" << edge_length << "] must be positive.";
}

namespace {

class BasicRRT final : public RRT {
 public:
  BasicRRT(const BasicRRTConfig& config, const std::shared_ptr<Environment>& environment,
           std::unique_ptr<Tree>& tree)
      : config_(config),
        environment_(environment),
        tree_(&tree),
        dimension_(static_cast<int>(config.q_target_tolerance.size())),
        look_ahead_(*environment) {
    ValidateWorldDimension();
    ValidateTreeDimension(tree, dimension_);
  }

  int CSpaceDimension() const override { return dimension_; }

  std::optional<std::vector<std::shared_ptr<Node>>> TryToFindPath(const Eigen::VectorXd& q_initial,
                                                                  const Eigen::VectorXd& q_target) override {
    StartSearch();
    KAVO_CHECK(dimension_ >= 3, "motion_planning/rrt/basic_rrt", 60)
        << "BasicRRT plans for a point in 3-D, not in dimension [" << dimension_ << "].";
    KAVO_CHECK(q_initial.size() == dimension_, "motion_planning/rrt/basic_rrt", 62)
        << "'q_initial' [" << q_initial.transpose() << "] must have " << dimension_ << " coordinates.";
    KAVO_CHECK(q_target.size() == 3, "motion_planning/rrt/basic_rrt", 64)
        << "'q_target' [" << q_target.transpose() << "] must have 3 coordinates.";
    if (!ValidateConfiguration(*environment_, q_initial.head<3>(), SearchStatus::kInvalidStart) ||
        !ValidateConfiguration(*environment_, q_target, SearchStatus::kInvalidTarget)) {
      return std::nullopt;
    }
    problem_ = {q_target, std::nullopt};
    GetTree().ClearAndSetRoot(Node(q_initial));
    while (!problem_.target_node) {
      if (!MayExtend(config_.max_iterations)) {
        return std::nullopt;
      }
      const std::optional<Eigen::VectorXd> q_sample = environment_->SampleConfiguration();
      if (!q_sample) {
        status_ = SearchStatus::kSamplingFailed;
        KAVO_LOG(LogLevel::kWarning) << "Unable to successfully sample configurations.";
        return std::nullopt;
      }
      Extend(*q_sample);
      ++num_iterations_;
    }
    status_ = SearchStatus::kFound;
    std::vector<std::shared_ptr<Node>> path = GetTree().Backtrace(*problem_.target_node);
    std::reverse(path.begin(), path.end());
    return path;
  }

  std::vector<Eigen::VectorXd> GetAllValidatedConfigurations() const override {
    std::vector<Eigen::VectorXd> configurations;
    ExtractConfigurations(GetTree().Nodes(), configurations);
    return configurations;
  }

  std::vector<std::pair<Eigen::VectorXd, Eigen::VectorXd>> GetAllValidatedEdges() const override {
    std::vector<std::pair<Eigen::VectorXd, Eigen::VectorXd>> edges;
    ExtractEdges(GetTree().Nodes(), edges);
    return edges;
  }

 private:
  struct ProblemState {
    Eigen::VectorXd q_target;
    // Set once the target is in the tree.
    std::optional<std::shared_ptr<Node>> target_node;
  };

  Tree& GetTree() const { return **tree_; }

  void ValidateWorldDimension() const {
    KAVO_CHECK(environment_->CSpaceDimension() == dimension_, "motion_planning/rrt/basic_rrt", 108)
        << "World dimension [" << environment_->CSpaceDimension() << "] does not match BasicRRT dimension ["
        << dimension_ << "]";
  }

  void Extend(Eigen::VectorXd q_sample) {
    Tree& tree = GetTree();
    std::shared_ptr<Node> parent =
        (config_.use_approx_closest ? tree.GetApproxClosest(q_sample) : tree.GetClosest(q_sample)).node;
    MoveNear(parent->Configuration(), environment_->PeriodicCoordinates(), q_sample);
    const Eigen::VectorXd step = math::StepToward(parent->Configuration(), q_sample, config_.edge_length);
    Eigen::VectorXd q_new = parent->Configuration() + step;
    // A sample or a step beyond the finite numbers leads nowhere, whatever the environment says.
    if (!math::IsFinite(q_new)) {
      return;
    }
    const auto advance = [&](Eigen::VectorXd& q) {
      return !TargetAt(q) && !(tree.Distance(q, q_sample) < config_.edge_length) && math::Advance(step, q);
    };
    look_ahead_.Start();
    while (!ShouldStop() && look_ahead_.IsValid(q_new, advance) &&
           MayGrow(tree.NumNodes(), config_.max_nodes)) {
      parent = tree.Adopt(Node(q_new, parent));
      if (const auto target = TargetAt(q_new)) {
        problem_.target_node = tree.Adopt(Node(*target, parent));
        return;
      }
      if (!look_ahead_.Next(q_new, advance)) {
        return;
      }
    }
  }

  // The target as it is beside `q`, when that has reached it.
  std::optional<Eigen::VectorXd> TargetAt(const Eigen::VectorXd& q) const {
    Eigen::VectorXd target = problem_.q_target;
    MoveNear(q, environment_->PeriodicCoordinates(), target);
    const Eigen::VectorXd& tolerance = config_.q_target_tolerance;
    const Eigen::VectorXd position = q.head<3>();
    for (Eigen::Index i = 0; i < target.size(); ++i) {
      if (!(target[i] - tolerance[i] <= position[i] && position[i] <= tolerance[i] + target[i])) {
        return std::nullopt;
      }
    }
    if (!(GetTree().Distance(target, position) <= config_.edge_length)) {
      return std::nullopt;
    }
    // Turned, it is another number, which has to be valid itself.
    if (target != problem_.q_target &&
        (!AreTurnsApart(problem_.q_target, target, environment_->PeriodicCoordinates()) ||
         !environment_->IsValidConfiguration(target))) {
      return std::nullopt;
    }
    return target;
  }

  BasicRRTConfig config_;
  std::shared_ptr<Environment> environment_;
  std::unique_ptr<Tree>* tree_;
  int dimension_;
  internal::LookAhead look_ahead_;
  ProblemState problem_;
};

}  // namespace

std::shared_ptr<RRT> CreateBasicRRT(const BasicRRTConfig& config,
                                    const std::shared_ptr<Environment>& environment,
                                    std::unique_ptr<Tree>& tree) {
  return std::make_shared<BasicRRT>(config, environment, tree);
}

}  // namespace kavo::planning
