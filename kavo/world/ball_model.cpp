#include "kavo/world/ball_model_internal.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "kavo/math/lane_inline_internal.h"
#include "kavo/math/vector_math_internal.h"
#include "kavo/world/snapshot_internal.h"

// This file is compiled once for each set of wide vectors; the include below repeats it.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kavo/world/ball_model.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include "kavo/world/ball_lanes-inl.h"
#include "kavo/world/ball_model_data_internal.h"
#include "kavo/world/bounds_walk-inl.h"
#include "kavo/world/solid_distance-inl.h"
#include "kavo/world/solid_lanes_internal.h"

HWY_BEFORE_NAMESPACE();
namespace kavo::internal::HWY_NAMESPACE {
namespace {

using Question = BallModel::Question;

// What is asked of configurations: which lanes touch.
class OfConfigurations {
 public:
  explicit OfConfigurations(BallModel::Contacts& contacts) : contacts_(contacts) {}

  std::uint32_t All() const { return contacts_.wanted; }
  // What is left to be asked where something is near in some lanes.
  std::uint32_t Narrow(std::uint32_t, std::uint32_t near) const { return near & contacts_.wanted; }
  // The lanes that this is about.
  std::uint32_t LanesOf(std::uint32_t open) const { return open & contacts_.wanted; }
  // False when there is no more to ask.
  bool Note(const Question&, std::uint32_t touching, std::uint32_t near) {
    contacts_.unsure |= near;
    return contacts_.note(touching);
  }
  void Finish(const Question&, std::uint32_t, std::uint32_t) {}
  bool Refuse() {
    contacts_.unsure |= contacts_.wanted;
    return true;
  }
  bool IsDecided() const { return (contacts_.wanted & ~contacts_.unsure) == 0; }

 private:
  BallModel::Contacts& contacts_;
};

// What is asked of a motion: which intervals between two lanes are open, and whether any lane touches.
template <class Keep>
class OfMotion {
 public:
  OfMotion(std::uint32_t intervals, Question& contact, const Keep& keep)
      : intervals_(intervals), contact_(contact), keep_(keep) {}

  std::uint32_t All() const { return intervals_; }
  std::uint32_t Narrow(std::uint32_t intervals, std::uint32_t near) const {
    return intervals & (near | near >> 1);
  }
  std::uint32_t LanesOf(std::uint32_t open) const { return open | open << 1; }
  bool Note(const Question& question, std::uint32_t touching, std::uint32_t) {
    if (touching != 0) {
      contact_ = question;
      verdict_ = BallModel::Verdict::kContact;
    }
    return touching == 0;
  }
  void Finish(Question question, std::uint32_t intervals, std::uint32_t near) {
    question.intervals = Narrow(intervals, near);
    if (question.intervals != 0) {
      keep_(question);
    }
  }
  bool Refuse() {
    verdict_ = BallModel::Verdict::kUnknown;
    return false;
  }
  bool IsDecided() const { return false; }
  BallModel::Verdict Verdict() const { return verdict_; }

 private:
  std::uint32_t intervals_;
  Question& contact_;
  const Keep& keep_;
  BallModel::Verdict verdict_ = BallModel::Verdict::kOpen;
};

// The contacts of the balls of one bundle with one solid. False when there is no more to ask.
template <LaneSolid::Kind kKind, class D, class Asked>
KAVO_LANE_INLINE bool AskBundle(D d, Data& data, Data::Bundle& bundle, const LaneSolid& solid, float margin,
                                const Question& question, std::uint32_t open, Asked& asked) {
  const Distance<kKind, D> distance(d, solid);
  PlaceBundle(d, data, bundle);
  FindReach(d, data, bundle, margin);
  open = asked.Narrow(open, distance.Near(bundle.centers.values, bundle.reach + margin, asked.LanesOf(open)));
  if (open == 0) {
    return true;
  }
  std::uint32_t all_near = 0;
  for (std::uint32_t t = bundle.first_twig; t < bundle.end_twig; ++t) {
    Data::Twig& twig = data.twigs[t];
    if (!bundle.hasOneTwig()) {
      const float reach = Reach(data, twig.radius + bundle.padding, bundle.measured, 1.0f);
      if (distance.NearIfAny(PlaceTwig(d, data, bundle, twig), reach + margin, asked.LanesOf(open)) == 0) {
        continue;
      }
    }
    PlaceBalls(d, data, bundle, twig);
    FindReaches(data, bundle, twig);
    for (std::uint32_t i = twig.first_ball; i < twig.end_ball; ++i) {
      const float* const centers = data.placed[i].values;
      const std::uint32_t near = distance.NearIfAny(centers, data.reaches[i] + margin, asked.LanesOf(open));
      if (HWY_LIKELY(near == 0)) {
        continue;
      }
      all_near |= near;
      const float radius = data.balls[i].radius + bundle.padding;
      if (!asked.Note(question, distance.Touching(centers, radius, margin, near), near)) {
        return false;
      }
    }
  }
  asked.Finish(question, open, all_near);
  return true;
}

template <LaneSolid::Kind kKind, class D, class Asked>
HWY_NOINLINE bool AskPart(D d, Data& data, Data::Part& part, const LaneSolid& solid, Question question,
                          Asked& asked) {
  const Distance<kKind, D> distance(d, solid);
  const float margin = part.margin + solid.margin;
  const std::uint32_t open = asked.Narrow(
      asked.All(), distance.Near(part.centers.values, part.reach + margin, asked.LanesOf(asked.All())));
  if (open == 0) {
    return true;
  }
  for (std::uint32_t i = part.first_bundle; i < part.end_bundle; ++i) {
    const ObstacleSet* const except = data.bundles[i].except;
    if (HWY_UNLIKELY(except != nullptr) &&
        (kKind == LaneSolid::Kind::kHalfSpace ? except->hasHalfSpace(question.object)
                                              : except->hasSolid(question.object))) {
      continue;
    }
    question.subject = i;
    if (!AskBundle<kKind>(d, data, data.bundles[i], solid, margin, question, open, asked)) {
      return false;
    }
  }
  return true;
}

// The box around a placed part in all lanes.
struct Box {
  template <class D>
  KAVO_LANE_INLINE Box(D d, const Data::Centers& centers) {
    for (std::size_t axis = 0; axis < 3; ++axis) {
      auto lowest = hn::Load(d, centers.values + axis * kNumLanes);
      auto highest = lowest;
      for (std::size_t lane = hn::Lanes(d); lane < D::kCount; lane += hn::Lanes(d)) {
        const auto center = hn::Load(d, centers.values + axis * kNumLanes + lane);
        lowest = hn::Min(lowest, center);
        highest = hn::Max(highest, center);
      }
      low[axis] = hn::GetLane(hn::MinOfLanes(d, lowest));
      high[axis] = hn::GetLane(hn::MaxOfLanes(d, highest));
    }
  }

  // Whether a half-space comes near.
  KAVO_LANE_INLINE bool IsNear(const LaneSolid& half_space, float reach) const {
    float distance = 0.0f;
    for (int axis = 0; axis < 3; ++axis) {
      const float normal = half_space.rotation[2][axis];
      const float nearest = normal > 0.0f ? low[axis] : high[axis];
      distance += normal * (nearest - half_space.center[axis]);
    }
    return distance <= reach + half_space.rounding + half_space.margin;
  }

  float low[3];
  float high[3];
};

// The contacts of one placed part with the world. False when there is no more to ask.
template <class D, class Asked>
KAVO_LANE_INLINE bool AskPartInWorld(D d, Data& data, Data::Part& part, const SolidLanes& lanes,
                                     const BoundsGroup* groups, Asked& asked) {
  if (data.is_motion && part.motion.isDue(data.motion)) {
    part.bound = math::MotionBound();
    AddMotion(data, part.reaches, part.bound);
  }
  part.reach = Reach(
      data, part.radius + part.padding,
      data.is_motion ? Measured(d, data, part.bound, 0.0f, 0.0f, part.margin, part.centers) : part.bound,
      1.0f);
  // The margin is far above the rounding of the bounds.
  const float reach = part.reach + part.margin;
  if (!(reach <= BallModel::kLargestLength)) {
    return asked.Refuse();
  }
  const Box box(d, part.centers);
  for (std::size_t i = 0; i < lanes.half_spaces.size(); ++i) {
    const Question question{Question::Kind::kHalfSpace, 0, static_cast<std::uint32_t>(i), 0};
    if (box.IsNear(lanes.half_spaces[i], reach) &&
        !AskPart<LaneSolid::Kind::kHalfSpace>(d, data, part, lanes.half_spaces[i], question, asked)) {
      return false;
    }
  }
  if (groups == nullptr) {
    return true;
  }
  const float low[3] = {box.low[0] - reach, box.low[1] - reach, box.low[2] - reach};
  const float high[3] = {box.high[0] + reach, box.high[1] + reach, box.high[2] + reach};
  return !FindOverlapping(groups, low, high, [&](std::uint32_t index) {
    const LaneSolid& solid = lanes.solids[index];
    const Question question{Question::Kind::kSolid, 0, index, 0};
    return !ForKind(solid.kind, [&](auto kind) {
      return AskPart<decltype(kind)::value>(d, data, part, solid, question, asked);
    });
  });
}

KAVO_LANE_INLINE math::MotionBound BoundOf(const Data& data, const math::JointReaches (&reaches)[2]) {
  math::MotionBound bound;
  AddMotion(data, reaches[0], bound);
  AddMotion(data, reaches[1], bound);
  return bound;
}

// What is left to be asked of two balls around others within a bound of their motion.
template <class D, class Asked>
KAVO_LANE_INLINE std::uint32_t NarrowWithin(D d, const Data& data, const math::MotionBound& bound,
                                            float radii, float margin, const Data::Centers& a,
                                            const Data::Centers& b, std::uint32_t open, const Asked& asked) {
  const float reach = Reach(data, radii, bound, 2.0f) + margin;
  return asked.Narrow(open, FindNear(d, reach, [&](std::size_t lane) {
                        return Squared(d, a.values + lane, b.values + lane);
                      }));
}

// What is left to be asked of them at all.
// \param coarse Bounds their motion too: much is far enough for it, and it takes less to find out.
template <class D, class Asked>
KAVO_LANE_INLINE std::uint32_t NarrowToNear(D d, const Data& data, Data::Pair& pair,
                                            const math::MotionBound& coarse, float radii, float margin,
                                            const Data::Centers& a, const Data::Centers& b,
                                            std::uint32_t open, const Asked& asked) {
  const std::uint32_t near = NarrowWithin(d, data, coarse, radii, margin, a, b, open, asked);
  if (near == 0 || !data.is_motion) {
    return near;
  }
  if (pair.motion.isDue(data.motion)) {
    pair.bound = BoundOf(data, pair.reaches);
  }
  return NarrowWithin(d, data, pair.bound, radii, margin, a, b, open, asked);
}

// Looks at those twigs of two placed bundles that come near each other, with their balls placed, until one
// look is enough.
// \param added What is added to the radii.
// \param look `bool(const Data::Twig& of_a, const Data::Twig& of_b, const float* centers_of_b)`.
// \return Whether it was enough.
template <class D, class Look>
KAVO_LANE_INLINE bool ForNearTwigs(D d, Data& data, const Data::Bundle& a, const Data::Bundle& b, float added,
                                   const Look& look) {
  for (std::uint32_t t = a.first_twig; t < a.end_twig; ++t) {
    Data::Twig& twig_a = data.twigs[t];
    const float* const centers_a = PlaceTwig(d, data, a, twig_a);
    if (!a.hasOneTwig() && !IsAnyNear(d, twig_a.radius + b.radius + added, [&](std::size_t lane) {
          return Squared(d, centers_a + lane, b.centers.values + lane);
        })) {
      continue;
    }
    PlaceBalls(d, data, a, twig_a);
    for (std::uint32_t u = b.first_twig; u < b.end_twig; ++u) {
      Data::Twig& twig_b = data.twigs[u];
      const float* const centers_b = PlaceTwig(d, data, b, twig_b);
      if (!b.hasOneTwig() && !IsAnyNear(d, twig_a.radius + twig_b.radius + added, [&](std::size_t lane) {
            return Squared(d, centers_a + lane, centers_b + lane);
          })) {
        continue;
      }
      PlaceBalls(d, data, b, twig_b);
      if (look(twig_a, twig_b, centers_b)) {
        return true;
      }
    }
  }
  return false;
}

// The contacts of the balls of two bundles with each other. False when there is no more to ask.
template <class D, class Asked>
KAVO_LANE_INLINE bool AskBundles(D d, Data& data, Data::Pair& pair, const math::MotionBound& coarse,
                                 float margin, const Question& question, std::uint32_t open, Asked& asked) {
  Data::Bundle& a = data.bundles[pair.a];
  Data::Bundle& b = data.bundles[pair.b];
  PlaceBundle(d, data, a);
  PlaceBundle(d, data, b);
  open = NarrowToNear(d, data, pair, coarse, a.radius + b.radius, margin, a.centers, b.centers, open, asked);
  if (open == 0) {
    return true;
  }
  // Smaller balls are enlarged by more.
  const float least_radii = a.least_radius + b.least_radius;
  const float added = Reach(data, least_radii, pair.bound, 2.0f) - least_radii + margin;
  std::uint32_t all_near = 0;
  const bool is_done = ForNearTwigs(
      d, data, a, b, added, [&](const Data::Twig& twig_a, const Data::Twig& twig_b, const float* centers_b) {
        for (std::uint32_t i = twig_a.first_ball; i < twig_a.end_ball; ++i) {
          const float* const ball = data.placed[i].values;
          const float radius = data.balls[i].radius;
          if (!IsAnyNear(d, radius + twig_b.radius + added,
                         [&](std::size_t lane) { return Squared(d, ball + lane, centers_b + lane); })) {
            continue;
          }
          for (std::uint32_t k = twig_b.first_ball; k < twig_b.end_ball; ++k) {
            const auto squared = [&](std::size_t lane) {
              return Squared(d, ball + lane, data.placed[k].values + lane);
            };
            const float both = radius + data.balls[k].radius;
            if (HWY_LIKELY(!IsAnyNear(d, both + added, squared))) {
              continue;
            }
            const std::uint32_t near = FindNear(d, both + added, squared);
            all_near |= near;
            if (!asked.Note(question, FindTouching(d, both, margin, squared), near)) {
              return true;
            }
          }
        }
        return false;
      });
  if (!is_done) {
    asked.Finish(question, open, all_near);
  }
  return !is_done;
}

template <class D, class Asked>
KAVO_LANE_INLINE bool AskParts(D d, Data& data, std::uint32_t index, Asked& asked) {
  Data::Pair& pair = data.part_pairs[index];
  Data::Part& a = data.parts[pair.a];
  Data::Part& b = data.parts[pair.b];
  const float margin = a.margin + b.margin;
  // As seen from the world.
  const math::MotionBound of_both{a.bound.speed + b.bound.speed, a.bound.acceleration + b.bound.acceleration};
  const std::uint32_t of_parts = NarrowToNear(d, data, pair, of_both, a.radius + b.radius, margin, a.centers,
                                              b.centers, asked.All(), asked);
  if (of_parts == 0) {
    return true;
  }
  if (data.is_motion && pair.all_motion.isDue(data.motion)) {
    pair.all_bound = BoundOf(data, pair.all_reaches);
  }
  for (std::uint32_t r = pair.first; r < pair.end; ++r) {
    Data::Pair& row = data.rows[r];
    Data::Bundle& bundle = data.bundles[row.a];
    PlaceBundle(d, data, bundle);
    const std::uint32_t open = NarrowToNear(d, data, row, pair.all_bound, bundle.radius + b.radius, margin,
                                            bundle.centers, b.centers, of_parts, asked);
    if (open == 0) {
      continue;
    }
    for (std::uint32_t i = row.first; i < row.end; ++i) {
      const Question question{Question::Kind::kPair, index, i, 0};
      if (!AskBundles(d, data, data.bundle_pairs[i], pair.all_bound, margin, question, open, asked)) {
        return false;
      }
    }
  }
  return true;
}

template <class D, class Asked>
KAVO_LANE_INLINE void AskAllInLanes(D d, Data& data, const SolidLanes& lanes, const BoundsGroup* groups,
                                    Asked& asked) {
  for (Data::Part& part : data.parts) {
    PlacePart(d, data, part);
    if (part.is_fixed) {
      continue;
    }
    if (!part.is_plain ? !asked.Refuse() : !AskPartInWorld(d, data, part, lanes, groups, asked)) {
      return;
    }
  }
  for (std::uint32_t i = 0; i < data.part_pairs.size(); ++i) {
    // What is unsure already is decided exactly anyway.
    if (asked.IsDecided()) {
      return;
    }
    const Data::Pair& pair = data.part_pairs[i];
    const bool is_plain = data.parts[pair.a].is_plain && data.parts[pair.b].is_plain;
    if (!is_plain ? !asked.Refuse() : !AskParts(d, data, i, asked)) {
      return;
    }
  }
}

void FindContacts(Data& data, const SolidLanes& lanes, const BoundsGroup* groups,
                  BallModel::Contacts& contacts) {
  OfConfigurations asked(contacts);
  if (data.num_lanes == 4) {
    AskAllInLanes(Lanes<4>(), data, lanes, groups, asked);
  } else {
    AskAllInLanes(Lanes<kNumLanes>(), data, lanes, groups, asked);
  }
}

BallModel::Verdict AskAll(Data& data, const SolidLanes& lanes, const BoundsGroup* groups,
                          std::vector<Question>& questions, Question& contact) {
  const auto keep = [&](const Question& question) { questions.push_back(question); };
  OfMotion asked(BallModel::kAllIntervals, contact, keep);
  AskAllInLanes(Lanes<kNumLanes>(), data, lanes, groups, asked);
  return asked.Verdict();
}

KAVO_LANE_INLINE float MarginOf(Data& data, const Data::Bundle& bundle) {
  Data::Part& part = data.parts[bundle.part];
  FindMargin(data, part);
  return part.margin;
}

KAVO_LANE_INLINE const LaneSolid& SolidOf(const SolidLanes& lanes, const Question& question) {
  return question.kind == Question::Kind::kSolid ? lanes.solids[question.object]
                                                 : lanes.half_spaces[question.object];
}

BallModel::Verdict AskOne(Data& data, const SolidLanes& lanes, Question& question, Question& contact) {
  const Lanes<kNumLanes> d;
  const Question now = question;
  question.intervals = 0;
  const auto keep = [&](const Question& open) { question.intervals = open.intervals; };
  OfMotion asked(BallModel::kAllIntervals, contact, keep);
  if (now.kind == Question::Kind::kPair) {
    Data::Pair& pair = data.bundle_pairs[now.object];
    Data::Part& a = data.parts[data.bundles[pair.a].part];
    Data::Part& b = data.parts[data.bundles[pair.b].part];
    FindMargin(data, a);
    FindMargin(data, b);
    if (!a.is_plain || !b.is_plain) {
      return BallModel::Verdict::kUnknown;
    }
    const math::MotionBound& coarse = data.part_pairs[now.subject].all_bound;
    AskBundles(d, data, pair, coarse, a.margin + b.margin, now, asked.All(), asked);
  } else {
    Data::Bundle& bundle = data.bundles[now.subject];
    Data::Part& part = data.parts[bundle.part];
    FindMargin(data, part);
    if (!part.is_plain) {
      return BallModel::Verdict::kUnknown;
    }
    const LaneSolid& solid =
        now.kind == Question::Kind::kSolid ? lanes.solids[now.object] : lanes.half_spaces[now.object];
    ForKind(solid.kind, [&](auto kind) {
      return AskBundle<decltype(kind)::value>(d, data, bundle, solid, part.margin + solid.margin, now,
                                              asked.All(), asked);
    });
  }
  return asked.Verdict();
}

// Whether the true balls of a question touch in any lane.
bool Touches(Data& data, const SolidLanes& lanes, const Question& question) {
  constexpr std::uint32_t kAllLanes = (1u << kNumLanes) - 1u;
  const Lanes<kNumLanes> d;
  if (question.kind == Question::Kind::kPair) {
    const Data::Pair& pair = data.bundle_pairs[question.object];
    Data::Bundle& a = data.bundles[pair.a];
    Data::Bundle& b = data.bundles[pair.b];
    const float margin = MarginOf(data, a) + MarginOf(data, b);
    PlaceBundle(d, data, a);
    PlaceBundle(d, data, b);
    if (!IsAnyNear(d, a.radius + b.radius + margin, [&](std::size_t lane) {
          return Squared(d, a.centers.values + lane, b.centers.values + lane);
        })) {
      return false;
    }
    const auto touch = [&](const Data::Twig& twig_a, const Data::Twig& twig_b, const float*) {
      for (std::uint32_t i = twig_a.first_ball; i < twig_a.end_ball; ++i) {
        for (std::uint32_t k = twig_b.first_ball; k < twig_b.end_ball; ++k) {
          if (FindTouching(d, data.balls[i].radius + data.balls[k].radius, margin, [&](std::size_t lane) {
                return Squared(d, data.placed[i].values + lane, data.placed[k].values + lane);
              }) != 0) {
            return true;
          }
        }
      }
      return false;
    };
    return ForNearTwigs(d, data, a, b, margin, touch);
  }
  Data::Bundle& bundle = data.bundles[question.subject];
  const LaneSolid& solid = SolidOf(lanes, question);
  PlaceBundle(d, data, bundle);
  return ForKind(solid.kind, [&](auto kind) {
    const Distance<decltype(kind)::value, Lanes<kNumLanes>> distance(d, solid);
    const float margin = MarginOf(data, bundle) + solid.margin;
    const auto is_near = [&](float radius, const float* centers) {
      return distance.NearIfAny(centers, radius + bundle.padding + margin, kAllLanes) != 0;
    };
    if (!is_near(bundle.radius, bundle.centers.values)) {
      return false;
    }
    for (std::uint32_t t = bundle.first_twig; t < bundle.end_twig; ++t) {
      Data::Twig& twig = data.twigs[t];
      if (!bundle.hasOneTwig() && !is_near(twig.radius, PlaceTwig(d, data, bundle, twig))) {
        continue;
      }
      PlaceBalls(d, data, bundle, twig);
      for (std::uint32_t i = twig.first_ball; i < twig.end_ball; ++i) {
        const float radius = data.balls[i].radius + bundle.padding;
        if (distance.Touching(data.placed[i].values, radius, margin, kAllLanes) != 0) {
          return true;
        }
      }
    }
    return false;
  });
}

}  // namespace
}  // namespace kavo::internal::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace kavo::internal {

HWY_EXPORT(FindContacts);
HWY_EXPORT(AskAll);
HWY_EXPORT(AskOne);
HWY_EXPORT(Touches);

namespace {

void Round(const Eigen::Vector3d& center, float* rounded) {
  for (int axis = 0; axis < 3; ++axis) {
    rounded[axis] = Rounded(center[axis]);
  }
}

// Bounds every coordinate of the points of a ball.
double Extent(const math::Sphere& ball) {
  double extent = std::fabs(ball.radius);
  for (int axis = 0; axis < 3; ++axis) {
    extent += std::fabs(ball.center[axis]);
  }
  return extent;
}

}  // namespace

BallModel::BallModel(const std::vector<Part>& parts, const std::vector<PartPair>& pairs)
    : data_(std::make_unique<Data>()) {
  for (const Part& part : parts) {
    Data::Part& in_data = data_->parts.emplace_back();
    in_data.transform = part.transform;
    Round(part.bound.center, in_data.center);
    in_data.radius = Rounded(part.bound.radius);
    in_data.is_fixed = part.is_fixed;
    in_data.reaches = part.reaches;
    double extent = Extent(part.bound);
    in_data.first_bundle = static_cast<std::uint32_t>(data_->bundles.size());
    for (const Bundle& bundle : part.bundles) {
      Data::Bundle& bundle_data = data_->bundles.emplace_back();
      bundle_data.part = static_cast<std::uint32_t>(data_->parts.size() - 1);
      Round(bundle.bound.center, bundle_data.center);
      bundle_data.radius = Rounded(bundle.bound.radius);
      bundle_data.least_radius = bundle_data.radius;
      bundle_data.padding = Rounded(bundle.padding);
      in_data.padding = std::max(in_data.padding, bundle_data.padding);
      bundle_data.reaches = bundle.reaches;
      extent = std::max(extent, Extent(bundle.bound) + bundle.padding);
      bundle_data.first_twig = static_cast<std::uint32_t>(data_->twigs.size());
      for (const Twig& twig : bundle.twigs) {
        Data::Twig& twig_data = data_->twigs.emplace_back();
        Round(twig.bound.center, twig_data.center);
        twig_data.radius = Rounded(twig.bound.radius);
        extent = std::max(extent, Extent(twig.bound) + bundle.padding);
        twig_data.first_ball = static_cast<std::uint32_t>(data_->balls.size());
        for (const math::Sphere& ball : twig.balls) {
          Data::Ball& ball_data = data_->balls.emplace_back();
          Round(ball.center, ball_data.center);
          ball_data.radius = Rounded(ball.radius);
          bundle_data.least_radius = std::min(bundle_data.least_radius, ball_data.radius);
          extent = std::max(extent, Extent(ball) + bundle.padding);
          bundle_data.extent = std::max(
              bundle_data.extent, Rounded(math::Distance(ball.center, bundle.bound.center) * (1.0 + 1e-6)));
        }
        twig_data.end_ball = static_cast<std::uint32_t>(data_->balls.size());
      }
      bundle_data.end_twig = static_cast<std::uint32_t>(data_->twigs.size());
    }
    in_data.end_bundle = static_cast<std::uint32_t>(data_->bundles.size());
    in_data.extent = Rounded(extent);
  }
  data_->placed.resize(data_->balls.size());
  data_->reaches.resize(data_->balls.size());
  const auto add = [](std::vector<Data::Pair>& list, std::size_t a, std::size_t b,
                      const math::JointReaches& reaches_a, const math::JointReaches& reaches_b) {
    Data::Pair& pair = list.emplace_back();
    pair.a = static_cast<std::uint32_t>(a);
    pair.b = static_cast<std::uint32_t>(b);
    pair.reaches[0] = reaches_a;
    pair.reaches[1] = reaches_b;
  };
  for (const PartPair& pair : pairs) {
    add(data_->part_pairs, pair.a, pair.b, pair.reaches_a, pair.reaches_b);
    data_->part_pairs.back().all_reaches[0] = pair.all_reaches_a;
    data_->part_pairs.back().all_reaches[1] = pair.all_reaches_b;
    data_->part_pairs.back().first = static_cast<std::uint32_t>(data_->rows.size());
    for (const Row& row : pair.rows) {
      add(data_->rows, row.bundle, pair.b, row.reaches_a, row.reaches_b);
      data_->rows.back().first = static_cast<std::uint32_t>(data_->bundle_pairs.size());
      for (const BundlePair& bundles : row.pairs) {
        add(data_->bundle_pairs, bundles.a, bundles.b, bundles.reaches_a, bundles.reaches_b);
      }
      data_->rows.back().end = static_cast<std::uint32_t>(data_->bundle_pairs.size());
    }
    data_->part_pairs.back().end = static_cast<std::uint32_t>(data_->rows.size());
  }
}

BallModel::BallModel(BallModel&& other) noexcept = default;

BallModel::~BallModel() = default;

void BallModel::findContacts(const WorldView& view, std::size_t num_lanes, Contacts& contacts) {
  const Snapshot& snapshot = *SnapshotOf(view);
  if (!snapshot.hasPlainLanes()) {
    contacts.unsure |= contacts.wanted;
    return;
  }
  data_->is_motion = false;
  startPlacement(num_lanes);
  HWY_DYNAMIC_DISPATCH(FindContacts)(*data_, snapshot.lanes(), snapshot.groups(), contacts);
}

void BallModel::setExcept(std::size_t bundle, const ObstacleSet* except) {
  data_->bundles[bundle].except = except;
}

void BallModel::startMotion(const float* rates, const float* bends, float clearance) {
  ++data_->motion;
  data_->rates = rates;
  data_->bends = bends;
  data_->clearance = clearance;
}

void BallModel::startBlock(float spacing) {
  data_->is_motion = true;
  data_->spacing = spacing;
  startPlacement(math::kNumLanes);
}

BallModel::Verdict BallModel::askAll(const WorldView& view, std::vector<Question>& questions) {
  const Snapshot& snapshot = *SnapshotOf(view);
  return snapshot.hasPlainLanes()
             ? HWY_DYNAMIC_DISPATCH(AskAll)(*data_, snapshot.lanes(), snapshot.groups(), questions, contact_)
             : Verdict::kUnknown;
}

BallModel::Verdict BallModel::ask(const WorldView& view, Question& question) {
  return HWY_DYNAMIC_DISPATCH(AskOne)(*data_, SnapshotOf(view)->lanes(), question, contact_);
}

bool BallModel::touches(const WorldView& view, const Question& question) {
  return HWY_DYNAMIC_DISPATCH(Touches)(*data_, SnapshotOf(view)->lanes(), question);
}

float BallModel::enlargement(const Question& question, float spacing) const {
  const auto [a, b] = bundlesOf(question);
  const bool is_pair = question.kind == Question::Kind::kPair;
  const math::MotionBound& bound =
      is_pair ? data_->bundle_pairs[question.object].bound : data_->bundles[a].bound;
  const float radius = data_->bundles[a].least_radius + (is_pair ? data_->bundles[b].least_radius : 0.0f);
  return static_cast<float>(bound.enlarged(static_cast<double>(radius), static_cast<double>(spacing)) -
                            static_cast<double>(radius));
}

std::pair<std::size_t, std::size_t> BallModel::bundlesOf(const Question& question) const {
  if (question.kind == Question::Kind::kPair) {
    const Data::Pair& pair = data_->bundle_pairs[question.object];
    return {pair.a, pair.b};
  }
  return {question.subject, question.subject};
}

void BallModel::startPlacement(std::size_t num_lanes) {
  ++data_->placement;
  data_->num_lanes = num_lanes;
}

}  // namespace kavo::internal

#endif  // HWY_ONCE
