#include "kavo/motion_planning/spatial_data_structures/box_index.h"

#include <cmath>
#include <utility>
#include <vector>

#include "kavo/motion_planning/spatial_data_structures/r_star_tree.h"

namespace kavo::planning {

struct BoxIndex::Impl {
  RStarTree<std::size_t> tree;
  // Lower and upper.
  std::vector<std::pair<Eigen::VectorXd, Eigen::VectorXd>> corners;
};

BoxIndex::BoxIndex(const RStarTreeConfig& config) : impl_(new Impl{RStarTree<std::size_t>(config), {}}) {}
BoxIndex::~BoxIndex() = default;
BoxIndex::BoxIndex(BoxIndex&&) noexcept = default;
BoxIndex& BoxIndex::operator=(BoxIndex&&) noexcept = default;

std::size_t BoxIndex::Size() const { return impl_->corners.size(); }

void BoxIndex::Add(const Eigen::VectorXd& lower, const Eigen::VectorXd& upper) {
  impl_->tree.Insert({lower.data(), upper.data()}, Size());
  impl_->corners.emplace_back(lower, upper);
}

std::size_t BoxIndex::Nearest(const Eigen::VectorXd& point) const {
  return impl_->tree.NearestNeighbor(point.data());
}

std::size_t BoxIndex::ApproxNearest(const Eigen::VectorXd& point) const {
  return impl_->tree.ApproxNearestNeighbor(point.data());
}

double BoxIndex::Distance(std::size_t box, const Eigen::VectorXd& point) const {
  const auto& [lower, upper] = impl_->corners[box];
  double sum = 0.0;
  for (Eigen::Index i = 0; i < point.size(); ++i) {
    const double gap = std::fmax(std::fmax(lower[i] - point[i], point[i] - upper[i]), 0.0);
    sum += gap * gap;
  }
  return std::sqrt(sum);
}

}  // namespace kavo::planning
