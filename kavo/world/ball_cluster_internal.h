#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "kavo/math/lane_transforms_internal.h"
#include "kavo/math/sphere.h"
#include "kavo/util/export.h"

namespace kavo {

class WorldView;

}  // namespace kavo

namespace kavo::internal {

//! Balls that are rigidly attached to one frame, and where they are in several placements of it at once, one
//! to a lane of wide vectors.
//!
//! Lanes are a filter in single precision: each question is answered with "touches", "is clear" or "too close
//! to tell", and the first two are as certain as the exact functions: what rounding may cost is bounded, with
//! much to spare, by `kMargin` times the lengths that take part. Who asks goes on exactly where it is too
//! close to tell.
class KAVO_EXPORT BallCluster {
 public:
  //! The share of lengths within which rounding may tip a decision. A placed centre has an error of at most
  //! 14 units of 2^-24 of its frame's and its own coordinates, a distance computed from it at most 64.
  static constexpr float kMargin = 0x1p-16f;
  //! Lengths above this are not left to single precision: their squares must not overflow.
  static constexpr float kLargestLength = 1.0e6f;

  //! Which of the lanes touch and of which it is too close to tell. The two may overlap. Bits of lanes above
  //! the lowest one that touches are undefined.
  struct Contacts {
    std::uint32_t touching = 0;
    std::uint32_t unsure = 0;
  };

  //! \param balls In the frame's coordinates, metres.
  //! \param bounding_ball Encloses all of them, but for rounding.
  BallCluster(const std::vector<math::Sphere>& balls, const math::Sphere& bounding_ball);

  //! Contacts with the balls of another cluster where `FindContacts` has placed both.
  //! \param wanted The lanes of interest.
  Contacts contactsWith(BallCluster& other, std::uint32_t wanted);

  // What the functions for each set of wide vectors work on; not for others.
  struct Data {
    std::size_t num_balls = 0;
    std::size_t num_lanes = 0;
    const math::LaneTransforms* frame = nullptr;
    double center[3] = {0.0, 0.0, 0.0};
    float radius = 0.0f;
    // Sum of the lengths that bound every coordinate of a ball in its frame.
    float extent = 0.0f;
    // Four numbers for each ball: centre and radius.
    std::vector<float> balls;
    // The placed centres: x, y, z in all lanes, ball by ball. Filled when `has_balls`.
    std::vector<float> placed;
    bool has_balls = false;
    // The placed centre of the bounding ball, and the box around all of its lanes.
    alignas(32) float bound[3 * math::kNumLanes] = {};
    float low[3] = {0.0f, 0.0f, 0.0f};
    float high[3] = {0.0f, 0.0f, 0.0f};
    // What rounding may cost in this placement, and whether single precision may be used at all.
    float margin = 0.0f;
    bool is_plain = false;
  };
  Data& data() { return data_; }

 private:
  Data data_;
};

//! Places clusters and finds their contacts with what a view shows, cluster by cluster until each wanted lane
//! is known to touch or lies above one that does.
//! \param frames Where the clusters are, in world coordinates; must stay while the clusters are asked about
//!     this placement.
//! \param num_lanes 4 or `math::kNumLanes`.
//! \param wanted The lanes of interest. Where the answer is that all of them are unsure, clusters may be left
//!     unplaced.
KAVO_EXPORT BallCluster::Contacts FindContacts(const WorldView& view, std::vector<BallCluster>& clusters,
                                               const math::LaneTransforms* const* frames,
                                               std::size_t num_lanes, std::uint32_t wanted);

}  // namespace kavo::internal
