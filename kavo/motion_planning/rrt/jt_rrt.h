#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "kavo/motion_planning/environment/robot_environment.h"
#include "kavo/motion_planning/rrt/rrt.h"
#include "kavo/motion_planning/tree/tree.h"
#include "kavo/util/export.h"
#include "kavo/util/random_generator.h"

namespace kavo::planning {

namespace internal {
class LookAhead;
}  // namespace internal

//! Settings of `JtRRT`. A plain record; it is checked when a search starts.
struct KAVO_EXPORT JtRRTConfig {
  //! Parameters in the order of the fields.
  JtRRTConfig(double edge_length_in, const Eigen::Vector3d& x_target_zone_tolerance_in,
              double x_target_final_tolerance_in, double task_space_exploitation_fraction_in,
              double task_space_exploration_fraction_in, std::size_t max_iterations_in,
              bool use_approx_closest_in, int seed_in);

  //! Length of one extension step in c-space.
  double edge_length;
  //! Half-widths (metres) of the box around the target in which the search ends and the refinement starts.
  Eigen::Vector3d x_target_zone_tolerance;
  //! Distance to the target (metres) at which the refinement ends.
  double x_target_final_tolerance;
  //! Share of the iterations that pull nodes towards the target.
  double task_space_exploitation_fraction;
  //! Share of the iterations that grow towards random task-space positions. The rest grows towards random
  //! configurations.
  double task_space_exploration_fraction;
  //! Extensions allowed for one query.
  std::size_t max_iterations;
  //! Whether the trees may answer with a near node instead of the nearest.
  bool use_approx_closest;
  //! Seed of the choice between the kinds of extension and of the nodes to pull.
  int seed;
  //! Nodes that the trees may hold together, not counting the refinement; the query ends with a warning where
  //! more would be needed.
  std::uint64_t max_nodes = kDefaultMaxNodes;
};

//! A fatal error unless all tolerances and the edge length are positive and both fractions and their sum lie
//! in [0, 1].
KAVO_EXPORT void ValidateJtRRTConfig(const JtRRTConfig& config);

//! A planner from a configuration to a position of the robot's task-space frame.
//!
//! It grows a tree of configurations and, in step with it, a tree of the frame's positions; twin nodes carry
//! the same id. Towards a position it steps in c-space along the transpose of the position Jacobian (after
//! Vande Weghe, Ferguson and Srinivasa, "Randomized path planning for redundant manipulators without inverse
//! kinematics", 2007), towards a configuration straight. Once a node's position lies in the zone around the
//! target, a local Jacobian-transpose search takes it to the final tolerance. That last stretch is not
//! checked for collisions; where it does not get there, the path ends where it got, with a report at level 1.
//!
//! @code
//! kavo::World world;
//! world.add(kavo::SphereObstacle{0.3}, kavo::Pose3::FromTranslation({1.7, 0.6, 0.0}), "ball");
//! auto robot = kavo::planning::BuildThreeLinkRobotEnvironmentConfig(world.view(), {1.0, 1.0, 1.0}, 100, 1);
//! robot.SetTaskSpaceLimits({Eigen::Vector3d(-2.0, -2.0, 0.0), Eigen::Vector3d(2.0, 2.0, 0.0)});
//! const auto environment = kavo::planning::CreateRobotEnvironment(robot);
//!
//! auto c_space_tree = kavo::planning::CreateBasicTree(3, environment->CSpaceDistanceMetric(), true);
//! auto task_space_tree = kavo::planning::CreateBasicTree(3, kavo::planning::L2Norm, true);
//! const kavo::planning::JtRRTConfig config(
//!     /*edge_length=*/0.1, /*x_target_zone_tolerance=*/{0.03, 0.03, 0.03},
//!     /*x_target_final_tolerance=*/1e-5,
//!     /*task_space_exploitation_fraction=*/0.4, /*task_space_exploration_fraction=*/0.1,
//!     /*max_iterations=*/10000, /*use_approx_closest=*/false, /*seed=*/1);
//! const auto planner = kavo::planning::CreateJtRRT(config, environment, c_space_tree, task_space_tree);
//! const Eigen::Vector3d target(1.0, 1.2, 0.0);
//! const auto nodes = planner->TryToFindPath(Eigen::Vector3d(-0.4, 0.1, 0.2), target);
//! assert(nodes && (environment->TaskSpacePosition(nodes->back()->Configuration()) - target).norm() < 1e-5);
//! @endcode
class KAVO_EXPORT JtRRT final : public RRT {
 public:
  //! Where an extension heads: for the target position, a random position, a random configuration.
  enum class ExtensionMode {
    TASK_SPACE_EXPLOITATION = 0,
    TASK_SPACE_EXPLORATION = 1,
    C_SPACE_EXPLORATION = 2
  };

  //! \param environment Must sample task space (fatal error otherwise; one sample is drawn to see).
  //! \param c_space_tree, task_space_tree Owners of the trees to grow; see `RRT`. Their dimensions must be
  //!     the environment's and 3, and both must look nodes up by id (fatal errors otherwise).
  JtRRT(const JtRRTConfig& config, const std::shared_ptr<RobotEnvironment>& environment,
        std::unique_ptr<Tree>& c_space_tree, std::unique_ptr<Tree>& task_space_tree);
  ~JtRRT() override;

  int CSpaceDimension() const override { return q_dimension_; }

  //! A path from `q_initial` (first) to a configuration (last) whose task-space position is as close to
  //! `x_target` as the refinement got. Random choices go on from one call to the next.
  //! \param x_target Position relative to the robot base, metres; 3 entries (fatal error otherwise). One
  //!     that is not finite is warned about and gives no path.
  std::optional<std::vector<std::shared_ptr<Node>>> TryToFindPath(const Eigen::VectorXd& q_initial,
                                                                  const Eigen::VectorXd& x_target) override;

  //! Of the tree of configurations.
  std::vector<Eigen::VectorXd> GetAllValidatedConfigurations() const override;
  std::vector<std::pair<Eigen::VectorXd, Eigen::VectorXd>> GetAllValidatedEdges() const override;

 private:
  // A node of the tree of configurations and its twin in the tree of positions.
  struct Twins {
    std::shared_ptr<Node> c_node;
    std::shared_ptr<Node> x_node;
  };

  // What a walk does at a configuration.
  struct Course {
    Eigen::VectorXd x;
    bool is_in_target_zone = false;
    // The step to the next configuration, where there is one.
    bool goes_on = false;
    Eigen::VectorXd dq;
  };

  Tree& CSpaceTree() const { return **c_space_tree_; }
  Tree& TaskSpaceTree() const { return **task_space_tree_; }
  bool IsInTargetZone(const Eigen::VectorXd& x) const;
  void ValidateGoalDimension(ExtensionMode mode, const Eigen::VectorXd& goal) const;
  std::optional<Twins> SelectExtensionNodes(ExtensionMode mode, const Eigen::VectorXd& goal);
  Eigen::VectorXd CalculateQExtension(ExtensionMode mode, const Eigen::VectorXd& goal,
                                      const Eigen::VectorXd& q, const Eigen::VectorXd& x) const;
  // The course of a walk from `q` on, which the step `previous_dq` has led to.
  Course CourseFrom(ExtensionMode mode, const Eigen::VectorXd& goal, const Eigen::VectorXd& q,
                    const Eigen::VectorXd& previous_dq) const;
  Eigen::VectorXd JacobianTransposeStep(const Eigen::VectorXd& q, const Eigen::VectorXd& x,
                                        const Eigen::VectorXd& goal) const;
  unsigned int DualInsert(const Eigen::VectorXd& q, const Eigen::VectorXd& x, Twins& parents);
  void Extend(Eigen::VectorXd goal, ExtensionMode mode);
  void ExtendToTarget();
  Eigen::VectorXd GetCSpaceTarget(const Eigen::VectorXd& q0) const;

  JtRRTConfig config_;
  double total_task_space_fraction_;
  std::shared_ptr<RobotEnvironment> environment_;
  std::unique_ptr<Tree>* c_space_tree_;
  std::unique_ptr<Tree>* task_space_tree_;
  int q_dimension_;
  util::RandomGenerator<double> mode_sampler_;
  util::RandomGenerator<int> candidate_sampler_;
  // Ids of nodes that exploration added and that were not pulled towards the target yet, in ascending order.
  std::vector<unsigned int> candidates_;
  Eigen::VectorXd x_target_;
  // Scratch, sized once.
  mutable Eigen::MatrixXd jacobian_;
  std::unique_ptr<internal::LookAhead> look_ahead_;
  std::optional<std::shared_ptr<Node>> q_target_node_;
};

//! Creates a `JtRRT`; parameters as for its constructor.
KAVO_EXPORT std::shared_ptr<JtRRT> CreateJtRRT(const JtRRTConfig& config,
                                               const std::shared_ptr<RobotEnvironment>& environment,
                                               std::unique_ptr<Tree>& c_space_tree,
                                               std::unique_ptr<Tree>& task_space_tree);

}  // namespace kavo::planning
