#pragma once

#include <Eigen/Core>
#include <ostream>
#include <utility>
#include <vector>

#include "kavo/kinematics/interface/configuration_limits.h"
#include "kavo/util/export.h"

namespace kavo::planning {

//! Axis-aligned closed box in configuration space. A point is the box whose corners are equal. A value type.
//!
//! Boxes and points that meet in one operation must have one dimension; this is not checked.
class KAVO_EXPORT BoundingBox {
 public:
  //! All configurations within limits.
  explicit BoundingBox(const kinematics::ConfigurationLimits& limits);
  //! The smallest box that contains all of `boxes`, of which there must be one (fatal error otherwise).
  explicit BoundingBox(const std::vector<BoundingBox>& boxes);

  //! Number of coordinates.
  int Dimension() const { return static_cast<int>(limits_.Dimension()); }
  //! Lower corner.
  const Eigen::VectorXd& Min() const { return limits_.Min(); }
  //! Of the lower corner; the axis is not checked.
  const double& Min(int axis) const { return limits_.Min()[axis]; }
  //! Upper corner.
  const Eigen::VectorXd& Max() const { return limits_.Max(); }
  //! Of the upper corner; the axis is not checked.
  const double& Max(int axis) const { return limits_.Max()[axis]; }
  //! Upper minus lower corner.
  const Eigen::VectorXd& Extent() const { return limits_.Range(); }

  //! The middle.
  Eigen::VectorXd Centroid() const;
  //! Sum of the extents.
  double Margin() const;
  //! Product of the extents; 1 without any axis.
  double Volume() const;

  //! Whether the boxes have a point in common. Touching counts.
  bool Intersects(const BoundingBox& other) const;
  //! Volume of what the boxes have in common.
  double Overlap(const BoundingBox& other) const;
  //! By how much the volume grows if this box is expanded to include the other.
  double VolumeIncreaseToInclude(const BoundingBox& other) const;
  //! Makes this the smallest box that contains both.
  void ExpandToInclude(const BoundingBox& other);
  //! Euclidean distance to a point; zero inside.
  double DistanceTo(const Eigen::VectorXd& point) const;
  //! Euclidean distance between the boxes; zero where they meet.
  double DistanceTo(const BoundingBox& other) const;

  //! Checks nothing: that dimensions agree is the caller's duty. Called first by every operation of two
  //! boxes, so that a build that looks for a mismatch has one place to do so.
  void ValidateDimensions(int) const {}

 private:
  kinematics::ConfigurationLimits limits_;
};

//! "{[0 0], [1 2]}": lower corner, upper corner.
KAVO_EXPORT std::ostream& operator<<(std::ostream& stream, const BoundingBox& box);

//! The corner of a box whose coordinate is compared.
enum class BoundingBoxBound : int { kMin = 0, kMax = 1 };

//! Which of two boxes comes first.
enum class BoundingBoxOrder : int { kAscending = 0, kDescending = 1 };

//! Boxes that a split has not placed yet, and their positions in the node that is split.
struct EnumeratedBoxes {
  //! Those boxes.
  std::vector<BoundingBox> boxes;
  //! Of each its position in the node.
  std::vector<int> indices;
};

//! Indices of `boxes`, sorted by one coordinate of one corner.
//! \param axis The coordinate.
//! \param bound The corner. Boxes that differ by no more than the tolerance are compared by the other corner instead.
//!   Boxes that are equal in this too keep their order (ascending) or stand in reverse order (descending).
//! \param tolerance Largest difference that counts as none.
KAVO_EXPORT std::vector<int> SortBoundingBoxIndices(const std::vector<BoundingBox>& boxes, int axis,
                                                    BoundingBoxBound bound, BoundingBoxOrder order,
                                                    double tolerance);
//! A sorted copy; see `SortBoundingBoxIndices`.
KAVO_EXPORT std::vector<BoundingBox> SortBoundingBoxes(const std::vector<BoundingBox>& boxes, int axis,
                                                       BoundingBoxBound bound, BoundingBoxOrder order,
                                                       double tolerance);
//! Sorts `boxes`; see `SortBoundingBoxIndices`.
KAVO_EXPORT void SortBoundingBoxesInPlace(std::vector<BoundingBox>& boxes, int axis, BoundingBoxBound bound,
                                          BoundingBoxOrder order, double tolerance);

//! Adds a box to that of two groups whose box then grows less in volume, to the second if both grow alike,
//! and expands the group's box.
//! \param index What is appended to the group.
KAVO_EXPORT void DistributeIndexAndUpdateBounds(int index, const BoundingBox& box,
                                                std::pair<std::vector<int>, std::vector<int>>& groups,
                                                std::pair<BoundingBox, BoundingBox>& bounds);

//! Moves all remaining indices to the group if it needs every one of them to reach the minimum.
KAVO_EXPORT void AddAllRemainingIndicesIfNeeded(int min_entries, EnumeratedBoxes& remaining,
                                                std::vector<int>& group);

//! The two boxes that lie farthest apart along an axis: the one with the highest lower coordinate, then the
//! one with the lowest upper coordinate (the first such box; both may be the same). With them the distance
//! between these coordinates as a share of the width of all boxes; undivided if it is no more than 1e-12.
//! Without boxes: (0, 0) and NaN. (The linear seeds of Guttman, 1984.)
KAVO_EXPORT std::pair<std::pair<int, int>, double> GetMaximallySeparatedIndices(
    const std::vector<BoundingBox>& boxes, int axis);

}  // namespace kavo::planning
