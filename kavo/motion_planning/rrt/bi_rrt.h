#pragma once

#include <Eigen/Core>
#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "kavo/motion_planning/environment/environment.h"
#include "kavo/motion_planning/rrt/rrt.h"
#include "kavo/util/export.h"

namespace kavo::planning {

//! Settings of `CreateBiRRT`. As they are they suit an arm of any number of joints.
struct KAVO_EXPORT BiRRTConfig {
  //! Where random configurations come from.
  enum class Samples {
    //! A sequence that covers the domain evenly, from an offset that the seed gives. Asks the environment
    //! nothing.
    kLowDiscrepancy,
    //! `Environment::SampleConfiguration`: anywhere.
    kEnvironment,
  };

  //! What a unit of each coordinate counts in distances, positive, one for each coordinate; all ones if
  //! empty. Range and domain are distances in this sense: Euclidean, after scaling.
  Eigen::VectorXd scales;
  //! The longest motion that a tree grows by; 0 chooses it by the limits (see `AutomaticRange`).
  double range = 0.0;
  //! A tree goes on growing while the other one has at least this many times its nodes, otherwise it is the
  //! other's turn; at least 1. Infinity: they take turns.
  double balance = 2.0;
  //! Samples come from a box around a node of the tree that grows, which reaches this many ranges to either
  //! side of it in each coordinate, or from anywhere within the limits of a coordinate where that is twice
  //! their width; 0: from anywhere within all limits.
  double domain = 3.0;
  //! Where samples come from.
  Samples samples = Samples::kLowDiscrepancy;
  //! Of the samples.
  std::uint32_t seed = 1;
  //! Samples that one query may draw, those included that lead nowhere.
  std::uint64_t max_iterations = 10000;
  //! Nodes that the trees may hold together; the query ends with a warning where more would be needed.
  std::uint64_t max_nodes = kDefaultMaxNodes;
  //! See `Environment::IsValidMotion`; 0 stands for a 32nd of the range.
  double resolution = 0.0;

  //! A fatal error where a setting is out of its range.
  void Validate() const;
};

//! "low_discrepancy" or "environment".
KAVO_EXPORT const char* ToString(BiRRTConfig::Samples samples);

//! A planner with two trees whose edges are whole motions (after Kuffner and LaValle, "RRT-Connect", 2000).
//!
//! The nearest node of one tree is taken by at most a range towards a sample. Where that motion is valid, the
//! other tree sets out from its node nearest to the new one by motions of at most a range, as long as they
//! are valid; once it arrives, a path is found. Every edge of a tree and of the path was found valid by
//! `Environment::IsValidMotion` in the direction in which the path goes, from and to exactly the numbers that
//! the path has. The straight motion is tried first.
//!
//! The smaller tree is the one to grow: in a narrow place most motions fail, and they should fail where it is
//! narrow. Far samples drive a tree into whatever bounds it, which is why its domain is adapted to it
//! (Yershova, Jaillet, Simeon and LaValle, "Dynamic-domain RRTs", 2005). Here samples come from around its
//! nodes to begin with, as in expansive-space trees (Hsu, Latombe and Motwani, 1997), and are not rejected: a
//! node is drawn, and the one nearest to the sample grows. They follow an additive recurrence with the
//! generalised golden ratio (Roberts, 2018), shifted by the seed.
//!
//! Random choices go on from query to query. In periodic coordinates the path ends at the target but for
//! whole turns.
class KAVO_EXPORT BiRRT : public RRT {
 public:
  //! A path found.
  struct Connection {
    //! From the start (first) to the goal (last).
    std::vector<Eigen::VectorXd> path;
    //! Index of the start that it joins, as that of the goal in the order in which they were given or drawn.
    std::size_t start = 0;
    //! Index of the goal.
    std::size_t goal = 0;
  };

  //! A path from any of the starts to any of the goals; empty when none was found. Those that are not valid,
  //! or nearer to a contact than the environment can prove a motion, are warned about and left out; the query
  //! ends at once where that leaves no start or no goal. None to begin with, and lengths other than
  //! `CSpaceDimension()`, are a fatal error.
  virtual std::optional<Connection> TryToConnect(const std::vector<Eigen::VectorXd>& starts,
                                                 const std::vector<Eigen::VectorXd>& goals) = 0;

  //! Nodes that the last query left in the tree of the starts and in that of the goals.
  virtual std::array<std::uint64_t, 2> NumNodes() const = 0;

  //! Finds further goals, perhaps none this time; empty once there will never be another.
  using GoalSource = std::function<std::optional<std::vector<Eigen::VectorXd>>()>;

  //! The same for goals that are found while the search goes on, such as configurations in which a frame has
  //! a pose: some before the search, as often as it takes until one is usable, and further ones whenever the
  //! number of samples has doubled since, from 16 on. The query ends at once where no goal is usable.
  //! \param draw_goals Must not call the planner.
  virtual std::optional<Connection> TryToConnect(const std::vector<Eigen::VectorXd>& starts,
                                                 const GoalSource& draw_goals) = 0;

  //! A node of a tree.
  struct TreeNode {
    //! Of the environment's dimension.
    Eigen::VectorXd configuration;
    //! Index of the node that it grew from, which comes before it; none for a root.
    std::optional<std::size_t> parent;
  };

  //! What the last query left in the tree of the starts and in that of the goals.
  virtual std::array<std::vector<TreeNode>, 2> Trees() const = 0;
};

//! The range that a planner chooses: a twelfth of the diagonal of the scaled limits, in which a coordinate
//! without limits counts as a whole turn, and for a robot none as more.
KAVO_EXPORT double AutomaticRange(const Environment& environment, const Eigen::VectorXd& scales);

//! \param config What is out of its range is a fatal error.
//! \param environment Fatal without one.
//!
//! @code
//! kavo::World world;
//! world.add(kavo::BoxObstacle{{0.1, 1.5, 1.0}}, kavo::Pose3::FromTranslation({1.0, -0.25, 0.5}), "wall");
//! const kavo::kinematics::ConfigurationLimits room(Eigen::Vector3d(0.0, -1.0, 0.0),
//!                                                  Eigen::Vector3d(2.0, 1.0, 1.0));
//! const auto environment = kavo::planning::CreateBasic3dEnvironment({world.view(), room, 100, 1});
//!
//! const auto planner = kavo::planning::CreateBiRRT({}, environment);
//! const auto found =
//!     planner->TryToConnect({Eigen::Vector3d(0.5, 0.0, 0.5)},
//!                           {Eigen::Vector3d(0.9, 0.9, 2.0), Eigen::Vector3d(1.5, 0.0, 0.5)});
//! assert(found && found->goal == 1);  // The first one is outside the room.
//! @endcode
KAVO_EXPORT std::shared_ptr<BiRRT> CreateBiRRT(const BiRRTConfig& config,
                                               const std::shared_ptr<Environment>& environment);

}  // namespace kavo::planning
