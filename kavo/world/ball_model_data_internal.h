#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "kavo/math/lane_transforms_internal.h"
#include "kavo/math/motion_bound_internal.h"
#include "kavo/world/ball_model_internal.h"
#include "kavo/world/obstacle_set_internal.h"

namespace kavo::internal {

//! A ball model as the functions for each set of wide vectors work on it.
struct BallModel::Data {
  //! Placed centres: x, y, z, each in all lanes.
  struct alignas(64) Centers {
    // And one lane that is read beyond the last.
    float values[3 * math::kNumLanes + math::kNumLanes] = {};
  };

  //! What is worked out for a motion or a placement only when it is needed, and for which it was last.
  struct Stamp {
    std::uint64_t number = 0;

    //! Whether it has to be worked out for that one; it counts as done then.
    bool isDue(std::uint64_t current) {
      const bool is_due = number != current;
      number = current;
      return is_due;
    }
  };

  struct Part {
    const math::LaneTransforms* transform = nullptr;
    float center[3] = {0.0f, 0.0f, 0.0f};
    float radius = 0.0f;
    // Sum of the lengths that bound every coordinate of a ball in the part.
    float extent = 0.0f;
    std::uint32_t first_bundle = 0;
    std::uint32_t end_bundle = 0;
    bool is_fixed = false;
    // The largest of its bundles.
    float padding = 0.0f;
    math::JointReaches reaches;
    Stamp motion;
    math::MotionBound bound;
    Stamp margin_placement;
    // How far off a distance may be in this placement, and whether single precision may be used at all.
    float margin = 0.0f;
    bool is_plain = false;
    // Radius of the ball around the part, padded and enlarged as the motion asks; so `reach` below.
    float reach = 0.0f;
    Centers centers;
  };

  struct Bundle {
    std::uint32_t part = 0;
    std::uint32_t first_twig = 0;
    std::uint32_t end_twig = 0;
    float center[3] = {0.0f, 0.0f, 0.0f};
    float radius = 0.0f;
    float least_radius = 0.0f;
    float padding = 0.0f;
    const ObstacleSet* except = nullptr;
    // Largest distance of a ball's centre from that of the bundle.
    float extent = 0.0f;
    math::JointReaches reaches;
    Stamp motion;
    math::MotionBound bound;
    // How far all joints on the way to it turn together.
    float turned = 0.0f;
    Stamp placement;
    Centers centers;
    Stamp reach_placement;
    float reach = 0.0f;
    // As measured in this placement: of all its balls.
    math::MotionBound measured;

    // The only twig is as large as the bundle, and nothing is placed for it.
    bool hasOneTwig() const { return end_twig - first_twig == 1; }
  };

  struct Twig {
    std::uint32_t first_ball = 0;
    std::uint32_t end_ball = 0;
    float center[3] = {0.0f, 0.0f, 0.0f};
    float radius = 0.0f;
    Stamp placement;
    Centers centers;
    Stamp balls_placement;
    // Of the balls' reaches.
    Stamp reaches_placement;
  };

  struct Ball {
    float center[3];
    float radius;
  };

  // Of two things that may come near each other.
  struct Pair {
    // Parts, a bundle and a part, or bundles.
    std::uint32_t a = 0;
    std::uint32_t b = 0;
    math::JointReaches reaches[2];
    Stamp motion;
    math::MotionBound bound;
    // Of a pair of parts: of all that is in them.
    math::JointReaches all_reaches[2];
    Stamp all_motion;
    math::MotionBound all_bound;
    // The pairs of what is in `a` and `b`: rows of a pair of parts, pairs of bundles of a row.
    std::uint32_t first = 0;
    std::uint32_t end = 0;
  };

  std::vector<Part> parts;
  std::vector<Bundle> bundles;
  std::vector<Twig> twigs;
  std::vector<Ball> balls;
  // In this placement, by ball.
  std::vector<Centers> placed;
  std::vector<float> reaches;
  std::vector<Pair> part_pairs;
  std::vector<Pair> rows;
  std::vector<Pair> bundle_pairs;

  std::size_t num_lanes = math::kNumLanes;
  std::uint64_t placement = 0;
  std::uint64_t motion = 0;
  // Whether the lanes are placements along a motion.
  bool is_motion = false;
  const float* rates = nullptr;
  const float* bends = nullptr;
  float clearance = 0.0f;
  float spacing = 0.0f;
};

}  // namespace kavo::internal
