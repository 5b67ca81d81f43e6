#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "kavo/motion_planning/tree/node.h"
#include "kavo/util/export.h"

namespace kavo::planning {

//! The stored node nearest to a query, and its distance to the query under the tree's metric.
struct ClosestNode {
  std::shared_ptr<Node> node;  //!< Never null.
  double distance;             //!< Under the tree's metric.
};

//! A growing tree of configurations of one dimension that answers nearest-node queries.
//!
//! Trees store copies of the nodes that they are handed. A tree belongs to one planner and one thread at a
//! time.
//!
//! When memory runs out (`std::bad_alloc`) the trees of this library stay as they were before the call, and
//! may go on being used; `ClearAndSetRoot` may leave them empty.
class KAVO_EXPORT Tree {
 public:
  virtual ~Tree();

  //! Dimension of the configurations that the tree holds.
  virtual int CSpaceDimension() const = 0;

  //! Number of stored nodes.
  virtual std::uint64_t NumNodes() const = 0;

  //! All nodes, in the order of their insertion.
  virtual const std::vector<std::shared_ptr<Node>>& Nodes() const = 0;

  //! Drops all nodes and stores a copy of `node`, which must not have a parent (fatal error otherwise).
  //! Returns the stored root.
  virtual std::shared_ptr<Node> ClearAndSetRoot(const Node& node) = 0;

  //! Stores a copy of `node`, whose parent the caller has set, and returns it.
  virtual std::shared_ptr<Node> Insert(const Node& node) = 0;

  //! The chain from `node` (first) to its root (last); a fatal error without a node.
  virtual std::vector<std::shared_ptr<Node>> Backtrace(const std::shared_ptr<Node>& node) = 0;

  //! Distance under the tree's metric.
  virtual double Distance(const Eigen::VectorXd& q0, const Eigen::VectorXd& q1) const = 0;

  //! The stored node nearest to `q`. An empty tree is a fatal error for the trees of this library.
  virtual ClosestNode GetClosest(const Eigen::VectorXd& q) const = 0;

  //! A stored node near to `q`, found faster than the nearest one where a tree knows how. Default:
  //! `GetClosest`.
  virtual ClosestNode GetApproxClosest(const Eigen::VectorXd& q) const;

  //! The node with the given id; empty, with a warning, if there is none. The default is a tree that keeps no
  //! ids.
  virtual std::optional<std::shared_ptr<Node>> TryGetNode(unsigned int id) const;

  //! Whether the tree looks nodes up by id. Default: no.
  virtual bool SupportsNodeId() const;

  //! `Insert` of a node that is not needed any more. Default: `Insert`.
  virtual std::shared_ptr<Node> Adopt(Node&& node);

  //! What is known of the tree's distances, to those who can do without some queries for it.
  enum class Geometry {
    kUnknown,
    //! No distance is longer than a detour.
    kMetric,
    //! The same of the square roots of the distances.
    kSquaredMetric,
  };
  //! Default: unknown.
  virtual Geometry DistanceGeometry() const;

 protected:
  Tree() = default;
  Tree(const Tree&) = default;             //!< For derived classes.
  Tree& operator=(const Tree&) = default;  //!< For derived classes.
};

}  // namespace kavo::planning
