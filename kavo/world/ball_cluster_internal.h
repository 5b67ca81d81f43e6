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
  static constexpr double kMargin = 0x1p-16;
  //! Lengths above this are not left to single precision: their squares must not overflow.
  static constexpr double kLargestLength = 1.0e6;

  //! Which of the lanes touch and of which it is too close to tell. The two may overlap. Bits of lanes above
  //! the lowest one that touches are undefined.
  struct Contacts {
    std::uint32_t touching = 0;
    std::uint32_t unsure = 0;
  };

  //! \param balls In the frame's coordinates, metres.
  //! \param bounding_ball Encloses all of them, but for rounding.
  BallCluster(const std::vector<math::Sphere>& balls, const math::Sphere& bounding_ball);

  //! Places the bounding ball. The balls themselves follow when something comes near.
  //! \param frame Must stay until the last question about this placement.
  //! \param num_lanes 4 or `math::kNumLanes`; lanes beyond are not looked at.
  void place(const math::LaneTransforms& frame, std::size_t num_lanes);

  //! Whether the last placement can be left to single precision.
  bool isPlain() const { return data_.is_plain; }

  //! Contacts with the balls of another cluster that was placed in as many lanes.
  //! \param wanted The lanes of interest.
  Contacts contactsWith(BallCluster& other, std::uint32_t wanted);

  // What the functions for each set of wide vectors work on; not for others.
  struct Data {
    std::size_t num_balls = 0;
    std::size_t num_lanes = 0;
    const math::LaneTransforms* frame = nullptr;
    double center[3] = {0.0, 0.0, 0.0};
    double radius = 0.0;
    // Sum of the lengths that bound every coordinate of a ball in its frame.
    double extent = 0.0;
    // Four numbers for each ball: centre and radius.
    std::vector<float> balls;
    // The placed centres: x, y, z in all lanes, ball by ball. Filled when `has_balls`.
    std::vector<float> placed;
    bool has_balls = false;
    // The placed centre of the bounding ball, and the box around all of its lanes.
    alignas(32) float bound[3 * math::kNumLanes] = {};
    double low[3] = {0.0, 0.0, 0.0};
    double high[3] = {0.0, 0.0, 0.0};
    // What rounding may cost in this placement, and whether single precision may be used at all.
    double margin = 0.0;
    bool is_plain = false;
  };
  Data& data() { return data_; }

 private:
  Data data_;
};

//! Contacts of what a view shows with a placed cluster.
//! \param wanted The lanes of interest.
KAVO_EXPORT BallCluster::Contacts FindContacts(const WorldView& view, BallCluster& cluster,
                                               std::uint32_t wanted);

}  // namespace kavo::internal
