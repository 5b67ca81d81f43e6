#include "kavo/world/bounds_tree_internal.h"

#include <cmath>
#include <numeric>

#include "kavo/math/constants_internal.h"

// This file is compiled once for each set of wide vectors; the include below repeats it.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kavo/world/bounds_tree.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include "kavo/world/bounds_walk-inl.h"

HWY_BEFORE_NAMESPACE();
namespace kavo::internal::HWY_NAMESPACE {
namespace {

bool FindInTree(const BoundsGroup* groups, const float (&low)[3], const float (&high)[3],
                bool (*is_found)(const void*, std::uint32_t), const void* context) {
  return FindOverlapping(groups, low, high, [&](std::uint32_t place) { return is_found(context, place); });
}

void LeastDistances(const BoundsGroup& group, const double* point, double* distances) {
  namespace hn = hwy::HWY_NAMESPACE;
  const hn::CappedTag<double, BoundsGroup::kSize> d;
  const hn::Rebind<float, decltype(d)> narrow;
  const auto infinity = hn::Set(d, math::kInf);
  for (std::size_t lane = 0; lane < BoundsGroup::kSize; lane += hn::Lanes(d)) {
    auto squared_distance = hn::Zero(d);
    auto size = hn::Zero(d);
    auto is_empty = hn::Lt(size, size);
    for (int axis = 0; axis < 3; ++axis) {
      const auto low = hn::PromoteTo(d, hn::Load(narrow, group.low[axis] + lane));
      const auto high = hn::PromoteTo(d, hn::Load(narrow, group.high[axis] + lane));
      const auto at = hn::Set(d, point[axis]);
      is_empty = hn::Or(is_empty, hn::Gt(low, high));
      const auto gap = hn::Max(hn::Max(hn::Sub(low, at), hn::Sub(at, high)), hn::Zero(d));
      squared_distance = hn::Add(squared_distance, hn::Mul(gap, gap));
      size = hn::Add(size, hn::Add(hn::Abs(at), hn::Abs(hn::IfThenElse(hn::Lt(at, low), low, high))));
    }
    const auto distance = hn::Sub(hn::Sqrt(squared_distance), hn::Mul(hn::Set(d, 0x1p-22), size));
    const auto bound = hn::IfThenElse(hn::Gt(distance, hn::Zero(d)), distance, hn::Neg(infinity));
    hn::StoreU(hn::IfThenElse(is_empty, infinity, bound), d, distances + lane);
  }
}

}  // namespace
}  // namespace kavo::internal::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kavo::internal {

HWY_EXPORT(FindInTree);
HWY_EXPORT(LeastDistances);

namespace {

struct Entry {
  Bounds bounds;
  std::uint32_t item;
};

using Iterator = std::vector<Entry>::iterator;

// Cuts the items into `parts` lists of about equal length, neighbours together, and appends the end of each.
void Split(Iterator begin, Iterator end, std::size_t parts, std::vector<Iterator>* cuts) {
  if (parts == 1) {
    cuts->push_back(end);
    return;
  }
  int widest = 0;
  double largest_spread = -1.0;
  for (int axis = 0; axis < 3; ++axis) {
    const auto less = [axis](const Entry& a, const Entry& b) {
      return a.bounds.middle(axis) < b.bounds.middle(axis);
    };
    const auto [low, high] = std::minmax_element(begin, end, less);
    const double spread = high->bounds.middle(axis) - low->bounds.middle(axis);
    if (spread > largest_spread) {
      largest_spread = spread;
      widest = axis;
    }
  }
  const std::size_t left_parts = parts / 2;
  const auto count = static_cast<std::size_t>(end - begin);
  const auto middle = begin + static_cast<std::ptrdiff_t>(count * left_parts / parts);
  std::nth_element(begin, middle, end, [widest](const Entry& a, const Entry& b) {
    const double middle_a = a.bounds.middle(widest);
    const double middle_b = b.bounds.middle(widest);
    return middle_a != middle_b ? middle_a < middle_b : a.item < b.item;
  });
  Split(begin, middle, left_parts, cuts);
  Split(middle, end, parts - left_parts, cuts);
}

void Fill(BoundsTree& tree, std::size_t group, Iterator begin, Iterator end) {
  const auto count = static_cast<std::size_t>(end - begin);
  if (count <= BoundsGroup::kSize) {
    tree.groups[group].first = static_cast<std::uint32_t>(tree.items.size());
    tree.groups[group].leaf = true;
    for (std::size_t lane = 0; lane < count; ++lane) {
      const Entry& entry = begin[static_cast<std::ptrdiff_t>(lane)];
      tree.groups[group].enclose(lane, entry.bounds);
      tree.items.push_back(entry.item);
    }
    return;
  }
  const std::size_t num_leaves = (count + BoundsGroup::kSize - 1) / BoundsGroup::kSize;
  std::vector<Iterator> cuts = {begin};
  Split(begin, end, std::min(num_leaves, BoundsGroup::kSize), &cuts);
  const std::size_t first = tree.groups.size();
  tree.groups.resize(first + cuts.size() - 1);
  tree.groups[group].first = static_cast<std::uint32_t>(first);
  tree.groups[group].leaf = false;
  for (std::size_t lane = 0; lane + 1 < cuts.size(); ++lane) {
    Fill(tree, first + lane, cuts[lane], cuts[lane + 1]);
    GroupBounds(tree.groups[first + lane]).put(tree.groups[group], lane);
  }
}

}  // namespace

BoundsGroup::BoundsGroup() {
  constexpr float kInfinity = std::numeric_limits<float>::infinity();
  for (int axis = 0; axis < 3; ++axis) {
    std::fill(low[axis], low[axis] + kSize, kInfinity);
    std::fill(high[axis], high[axis] + kSize, -kInfinity);
  }
}

void BoundsGroup::enclose(std::size_t lane, const Bounds& bounds) {
  for (int axis = 0; axis < 3; ++axis) {
    low[axis][lane] = Rounded(bounds.low[axis]);
    high[axis][lane] = Rounded(bounds.high[axis]);
  }
}

BoundsTree::BoundsTree(const std::vector<Bounds>& items_in) {
  std::vector<Entry> entries(items_in.size());
  for (std::size_t i = 0; i < entries.size(); ++i) {
    entries[i] = {items_in[i], static_cast<std::uint32_t>(i)};
  }
  items.reserve(entries.size());
  groups.resize(1);
  Fill(*this, 0, entries.begin(), entries.end());
}

CurveOrder::CurveOrder(const Bounds& bounds) {
  // One scale for all axes: cells are cubes.
  double size = 0.0;
  for (int axis = 0; axis < 3; ++axis) {
    size = std::max(size, bounds.high[axis] - bounds.low[axis]);
  }
  // Places that are no farther apart than the least numbers are count as one.
  const double scale = ((1u << kNumBits) - 1u) / size;
  for (int axis = 0; axis < 3; ++axis) {
    low_[axis] = bounds.low[axis];
    scale_[axis] = std::isfinite(scale) ? scale : 0.0;
  }
}

// By Skilling, "Programming the Hilbert curve" (2004).
std::uint64_t CurveOrder::keyOf(const Bounds& bounds) const {
  std::uint32_t x[3];
  for (int axis = 0; axis < 3; ++axis) {
    x[axis] = static_cast<std::uint32_t>((bounds.middle(axis) - low_[axis]) * scale_[axis]);
  }
  // Without branches: nobody could foretell them.
  for (std::uint32_t bit = kNumBits - 1; bit > 0; --bit) {
    const std::uint32_t lower = (1u << bit) - 1u;
    for (std::uint32_t& coordinate : x) {
      const std::uint32_t is_set = 0u - (coordinate >> bit & 1u);
      const std::uint32_t exchanged = (x[0] ^ coordinate) & lower & ~is_set;
      x[0] ^= exchanged | (lower & is_set);
      coordinate ^= exchanged;
    }
  }
  x[1] ^= x[0];
  x[2] ^= x[1];
  std::uint32_t flips = 0;
  for (std::uint32_t bit = kNumBits - 1; bit > 0; --bit) {
    flips ^= (0u - (x[2] >> bit & 1u)) & ((1u << bit) - 1u);
  }
  std::uint64_t key = 0;
  for (const std::uint32_t coordinate : x) {
    // Every third bit.
    std::uint32_t spread = coordinate ^ flips;
    spread = (spread | spread << 16) & 0x030000ffu;
    spread = (spread | spread << 8) & 0x0300f00fu;
    spread = (spread | spread << 4) & 0x030c30c3u;
    spread = (spread | spread << 2) & 0x09249249u;
    key = key << 1 | spread;
  }
  return key;
}

void CurveOrder::Sort(std::vector<std::uint64_t>& keys) {
  std::vector<std::uint64_t> sorted(keys.size());
  for (std::uint32_t shift = 32; shift < 32 + 3 * kNumBits; shift += kNumBits) {
    constexpr std::uint64_t kMask = (1u << kNumBits) - 1u;
    std::vector<std::size_t> places(kMask + 2, 0);
    for (const std::uint64_t key : keys) {
      ++places[(key >> shift & kMask) + 1];
    }
    std::partial_sum(places.begin(), places.end(), places.begin());
    for (const std::uint64_t key : keys) {
      sorted[places[key >> shift & kMask]++] = key;
    }
    keys.swap(sorted);
  }
}

// How many groups there are in each level, the leaves first.
static std::vector<std::size_t> LevelSizes(std::size_t count) {
  std::vector<std::size_t> sizes;
  do {
    count = (count + BoundsGroup::kSize - 1) / BoundsGroup::kSize;
    sizes.push_back(count);
  } while (count > 1);
  return sizes;
}

void BoundsTree::startLevels() {
  const std::vector<std::size_t> sizes = LevelSizes(items.size());
  groups.resize(std::accumulate(sizes.begin(), sizes.end(), std::size_t{0}));
  std::size_t group = 0;
  for (std::size_t level = sizes.size(); level-- > 0;) {
    const std::size_t below = level == 0 ? 0 : group + sizes[level];
    for (std::size_t i = 0; i < sizes[level]; ++i, ++group) {
      groups[group].leaf = level == 0;
      groups[group].first = static_cast<std::uint32_t>(below + i * BoundsGroup::kSize);
    }
  }
}

void BoundsTree::finishLevels() {
  std::size_t end = groups.size();
  for (const std::size_t size : LevelSizes(items.size())) {
    const std::size_t begin = end - size;
    const std::size_t above = begin - (size + BoundsGroup::kSize - 1) / BoundsGroup::kSize;
    for (std::size_t i = 0; begin > 0 && i < size; ++i) {
      GroupBounds(groups[begin + i]).put(groups[above + i / BoundsGroup::kSize], i % BoundsGroup::kSize);
    }
    end = begin;
  }
}

bool BoundsTree::findOverlapping(const Bounds& bounds, bool (*is_found)(const void*, std::uint32_t),
                                 const void* context) const {
  float low[3];
  float high[3];
  for (int axis = 0; axis < 3; ++axis) {
    low[axis] = Rounded(bounds.low[axis]);
    high[axis] = Rounded(bounds.high[axis]);
  }
  return HWY_DYNAMIC_DISPATCH(FindInTree)(groups.data(), low, high, is_found, context);
}

GroupBounds::GroupBounds(const BoundsGroup& group) {
  for (int axis = 0; axis < 3; ++axis) {
    low[axis] = *std::min_element(group.low[axis], group.low[axis] + BoundsGroup::kSize);
    high[axis] = *std::max_element(group.high[axis], group.high[axis] + BoundsGroup::kSize);
  }
}

double GroupBounds::extent() const {
  double sum = 0.0;
  for (int axis = 0; axis < 3; ++axis) {
    sum += static_cast<double>(high[axis]) - static_cast<double>(low[axis]);
  }
  return sum;
}

void GroupBounds::put(BoundsGroup& parent, std::size_t lane) const {
  for (int axis = 0; axis < 3; ++axis) {
    parent.low[axis][lane] = low[axis];
    parent.high[axis][lane] = high[axis];
  }
}

void FindLeastDistances(const BoundsGroup& group, const double* point,
                        double (&distances)[BoundsGroup::kSize]) {
  HWY_DYNAMIC_DISPATCH(LeastDistances)(group, point, distances);
}

}  // namespace kavo::internal
#endif  // HWY_ONCE
