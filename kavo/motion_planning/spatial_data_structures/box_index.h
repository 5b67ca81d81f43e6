#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <memory>

#include "kavo/motion_planning/spatial_data_structures/r_star_tree_config.h"
#include "kavo/util/export.h"

namespace kavo::planning {

//! An R*-tree (Beckmann, Kriegel, Schneider, Seeger, 1990) of boxes that are known by their numbers, in the
//! order of adding. It only grows. `FastTree` has the same index of the nodes of a search.
//!
//! Boxes and points must be finite, and of the configured dimension; neither is checked. Queries may come
//! from several threads.
class KAVO_EXPORT BoxIndex {
 public:
  //! Without boxes.
  explicit BoxIndex(const RStarTreeConfig& config);
  ~BoxIndex();
  //! Leaves the other one good for destruction and for being assigned to.
  BoxIndex(BoxIndex&&) noexcept;
  //! As above.
  BoxIndex& operator=(BoxIndex&&) noexcept;

  //! Number of boxes.
  std::size_t Size() const;

  //! Adds a box by its corners; equal ones make a point.
  void Add(const Eigen::VectorXd& lower, const Eigen::VectorXd& upper);

  //! The number of the box that is nearest to a point. There must be one.
  std::size_t Nearest(const Eigen::VectorXd& point) const;
  //! The same among those of one node near the point, which is faster.
  std::size_t ApproxNearest(const Eigen::VectorXd& point) const;

  //! Euclidean distance of a point from a box; zero inside.
  //! \param box Its number, less than `Size()`.
  double Distance(std::size_t box, const Eigen::VectorXd& point) const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace kavo::planning
