#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "kavo/math/lane_transforms_internal.h"
#include "kavo/math/sphere.h"
#include "kavo/util/export.h"

namespace kavo {

class WorldView;

}  // namespace kavo

namespace kavo::internal {

class Snapshot;

//! Balls that are rigidly attached to one part of a robot, and where they are in several placements of it at
//! once, one to a lane of wide vectors.
//!
//! Lanes are a filter in single precision: each question is answered with "touches", "is clear" or "too close
//! to tell", and the first two are as certain as the exact functions: what a placement may be off is known,
//! and what rounding may cost here is bounded, with much to spare, by `kMargin` times the lengths that take
//! part. Who asks goes on exactly where it is too close to tell.
class KAVO_EXPORT BallCluster {
 public:
  //! The share of lengths within which rounding may tip a decision. A distance computed from a placed centre
  //! has an error of at most 64 units of 2^-24 of the coordinates that take part.
  static constexpr float kMargin = 0x1p-16f;
  //! Lengths above this are not left to single precision: their squares must not overflow.
  static constexpr float kLargestLength = 1.0e6f;
  //! Lengths below this are not told from zero: their squares must not vanish.
  static constexpr float kLeastLength = 1.0e-15f;

  //! What is found out about the lanes.
  struct Contacts {
    //! Bit i stands for lane i. At first the lanes of interest; those that are found to touch are taken out.
    std::uint32_t wanted = 0;
    //! Whether lanes above one that touches are of no interest either.
    bool only_below_first = false;
    //! The lanes of which it is too close to tell. What it says of lanes that are not wanted means nothing.
    std::uint32_t unsure = 0;

    //! Takes over lanes that touch. False when none is wanted any more.
    bool note(std::uint32_t touching) {
      touching &= wanted;
      if (touching != 0) {
        wanted &= only_below_first ? (touching & (0u - touching)) - 1u : ~touching;
      }
      return wanted != 0;
    }
  };

  //! \param balls In the coordinates of the part that carries them, metres.
  //! \param bounding_ball Encloses all of them, but for rounding.
  //! \param part Where the part is in world coordinates; read whenever the cluster is placed.
  BallCluster(const std::vector<math::Sphere>& balls, const math::Sphere& bounding_ball,
              const math::LaneTransforms& part);

  //! Adds contacts with the balls of another cluster where `FindContacts` has placed both.
  void addContactsWith(BallCluster& other, Contacts& contacts);

  // What the functions for each set of wide vectors work on; not for others.
  struct Data {
    const math::LaneTransforms* part = nullptr;
    std::size_t num_balls = 0;
    std::size_t num_lanes = 0;
    float center[3] = {0.0f, 0.0f, 0.0f};
    float radius = 0.0f;
    // Sum of the lengths that bound every coordinate of a ball in its part.
    float extent = 0.0f;
    // Four numbers for each ball: centre and radius.
    std::vector<float> balls;
    // The placed centre of each ball: x, y, z in all lanes. Filled when `has_balls`.
    struct alignas(32) Center {
      float values[3 * math::kNumLanes];
    };
    std::vector<Center> placed;
    bool has_balls = false;
    // The placed centre of the bounding ball, and the box around all of its lanes.
    alignas(32) float bound[3 * math::kNumLanes] = {};
    float low[3] = {0.0f, 0.0f, 0.0f};
    float high[3] = {0.0f, 0.0f, 0.0f};
    // How far off a distance may be in this placement, and whether single precision may be used at all.
    float margin = 0.0f;
    bool is_plain = false;
  };
  Data& data() { return data_; }

 private:
  Data data_;
};

//! What the view shows at the moment: another one after an update that took over an edit.
KAVO_EXPORT const std::shared_ptr<const Snapshot>& SnapshotOf(const WorldView& view);

//! Places clusters and adds their contacts with what a view shows, cluster by cluster until no lane is wanted
//! any more. Where all lanes are unsure from the start, clusters may be left unplaced.
//! \param num_lanes 4 or `math::kNumLanes`: how many lanes of the parts are placed.
KAVO_EXPORT void FindContacts(const WorldView& view, std::vector<BallCluster>& clusters,
                              std::size_t num_lanes, BallCluster::Contacts& contacts);

}  // namespace kavo::internal
