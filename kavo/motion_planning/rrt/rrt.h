#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "kavo/motion_planning/environment/environment.h"
#include "kavo/motion_planning/rrt/search_status.h"
#include "kavo/motion_planning/tree/node.h"
#include "kavo/motion_planning/util/stop_condition.h"
#include "kavo/util/export.h"

namespace kavo::planning {

//! Nodes that the trees of one query may hold together unless a configuration says otherwise. Far above what
//! a query needs: they take more than half a gigabyte. It ends walks over limits so wide that no memory would
//! hold them.
inline constexpr std::uint64_t kDefaultMaxNodes = 2000000;

//! A planner that grows rapidly-exploring random trees (LaValle, 1998).
//!
//! Planners share their environment and refer to trees that the caller owns: the `std::unique_ptr<Tree>`
//! handed to a factory must stay where it is, and keep a tree, for as long as the planner lives. One thread
//! at a time. A query that ends in an exception other than a fatal error, such as `std::bad_alloc`, leaves a
//! planner that may be asked again.
class KAVO_EXPORT RRT {
 public:
  virtual ~RRT();

  //! Number of coordinates of the configurations that it plans for.
  virtual int CSpaceDimension() const = 0;

  //! A path from `q_initial` (first) to `q_target` (last) as a chain of tree nodes, or empty when none was
  //! found. Each call starts over with new trees. Where the environment has periodic coordinates the path
  //! ends at the target but for whole turns, and nodes that are the goal tree's but for such turns stand for
  //! them; trees should measure distances the short way round (see `PeriodicMetric`).
  virtual std::optional<std::vector<std::shared_ptr<Node>>> TryToFindPath(
      const Eigen::VectorXd& q_initial, const Eigen::VectorXd& q_target) = 0;

  //! The configuration of every node that the last query left in the trees.
  virtual std::vector<Eigen::VectorXd> GetAllValidatedConfigurations() const = 0;

  //! For every such node but the roots: the configurations of its parent and of itself.
  virtual std::vector<std::pair<Eigen::VectorXd, Eigen::VectorXd>> GetAllValidatedEdges() const = 0;

  //! Ends a search once the condition holds: it is asked before every extension and every step of one, and
  //! the query then gives no path. The next query starts over. A condition that never holds changes no
  //! answer. It must not call the planner; an exception that it throws leaves the query.
  void SetStopCondition(StopCondition stop_condition) { stop_condition_ = std::move(stop_condition); }

  //! How the last query ended.
  SearchStatus LastStatus() const { return status_; }
  //! Extensions that the last query made.
  std::uint64_t LastNumIterations() const { return num_iterations_; }

 protected:
  //! To be called first in every search: no status, no iterations yet.
  void StartSearch();

  //! False, with the status `if_invalid` and a warning, for a configuration that the environment refuses or
  //! that is not finite: an environment may accept such a one, but no walk from or to it would end.
  bool ValidateConfiguration(const Environment& environment, const Eigen::VectorXd& q,
                             SearchStatus if_invalid);

  //! Whether the search may make another extension; sets the status if not.
  bool MayExtend(std::uint64_t max_iterations);

  //! Whether the search has ended, also because the stop condition holds now; sets the status then.
  bool ShouldStop();

  //! Whether another node may join the `num_nodes` of all trees; sets the status, with a warning, if not.
  bool MayGrow(std::uint64_t num_nodes, std::uint64_t max_nodes);

  //! How the search has ended; none as long as it has not.
  SearchStatus status_ = SearchStatus::kNone;
  //! Extensions of the search so far; counted up by the planner that makes them.
  std::uint64_t num_iterations_ = 0;

  RRT() = default;
  RRT(const RRT&) = default;             //!< For derived classes.
  RRT& operator=(const RRT&) = default;  //!< For derived classes.

 private:
  StopCondition stop_condition_;
};

}  // namespace kavo::planning
