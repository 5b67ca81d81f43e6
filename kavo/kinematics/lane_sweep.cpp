#include "kavo/kinematics/lane_sweep_internal.h"

#include <algorithm>
#include <cmath>

#include "kavo/math/lane_inline_internal.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kavo/kinematics/lane_sweep.cpp"
#include <hwy/foreach_target.h>
// After foreach_target.h, as Highway wants it.
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace kavo::kinematics::internal::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

using math::kNumLanes;

constexpr std::size_t kRow = math::LaneTransforms::kRow;

// To within 3 units of 2^-24 up to `LaneSweep::kLargestValue`.
template <class D, class V = hn::Vec<D>>
KAVO_LANE_INLINE void SinCos(D d, V x, V& sin, V& cos) {
  const hn::RebindToUnsigned<D> du;
  // Adding 1.5 * 2^23 rounds to an integer, which then stands in the low bits.
  const V rounder = hn::Set(d, 12582912.0f);
  const V shifted = hn::Add(hn::Mul(x, hn::Set(d, 0.636619772f)), rounder);
  const auto quadrant = hn::BitCast(du, shifted);
  const V k = hn::Sub(shifted, rounder);
  // Of pi/2 first so few digits that the product and the difference are exact, then the rest.
  const V y = hn::Sub(hn::Sub(x, hn::Mul(k, hn::Set(d, 1.5703125f))), hn::Mul(k, hn::Set(d, 4.83826794e-4f)));

  // Taylor's series: what is left out is below 2e-9 and 3e-8 up to pi/4.
  const V z = hn::Mul(y, y);
  V s = hn::Add(hn::Mul(z, hn::Set(d, 1.0f / 362880.0f)), hn::Set(d, -1.0f / 5040.0f));
  s = hn::Add(hn::Mul(z, s), hn::Set(d, 1.0f / 120.0f));
  s = hn::Add(hn::Mul(z, s), hn::Set(d, -1.0f / 6.0f));
  s = hn::Add(y, hn::Mul(hn::Mul(y, z), s));
  V c = hn::Add(hn::Mul(z, hn::Set(d, 1.0f / 40320.0f)), hn::Set(d, -1.0f / 720.0f));
  c = hn::Add(hn::Mul(z, c), hn::Set(d, 1.0f / 24.0f));
  c = hn::Add(hn::Mul(z, c), hn::Set(d, -0.5f));
  c = hn::Add(hn::Mul(z, c), hn::Set(d, 1.0f));

  // An odd quadrant swaps the two; bit 1 of the quadrant is the sign of the sine, that of quadrant + 1 the
  // cosine's.
  const auto one = hn::Set(du, 1);
  const auto two = hn::Set(du, 2);
  const auto odd = hn::MaskFromVec(hn::BitCast(d, hn::Sub(hn::Zero(du), hn::And(quadrant, one))));
  const auto sin_sign = hn::ShiftLeft<30>(hn::And(quadrant, two));
  const auto cos_sign = hn::ShiftLeft<30>(hn::And(hn::Add(quadrant, one), two));
  sin = hn::Xor(hn::IfThenElse(odd, c, s), hn::BitCast(d, sin_sign));
  cos = hn::Xor(hn::IfThenElse(odd, s, c), hn::BitCast(d, cos_sign));
}

// x * a + y * b + z * c.
template <class D, class V = hn::Vec<D>>
KAVO_LANE_INLINE V Combine(D d, V x, V y, V z, const float* column) {
  return hn::Add(hn::Add(hn::Mul(x, hn::Set(d, column[0])), hn::Mul(y, hn::Set(d, column[1]))),
                 hn::Mul(z, hn::Set(d, column[2])));
}

// Coordinates that are given lane by lane.
struct Given {
  const double* coordinates;

  template <class D>
  KAVO_LANE_INLINE hn::Vec<D> At(D d, std::size_t coordinate, std::size_t lane) const {
    return hn::LoadU(d, coordinates + coordinate * kNumLanes + lane);
  }
};

// Coordinates along a motion.
struct Along {
  const double* start;
  const double* way;
  const double* times;

  template <class D>
  KAVO_LANE_INLINE hn::Vec<D> At(D d, std::size_t coordinate, std::size_t lane) const {
    return hn::Add(hn::Set(d, start[coordinate]),
                   hn::Mul(hn::LoadU(d, times + lane), hn::Set(d, way[coordinate])));
  }
};

// The value of a joint in the lanes from `first` on.
template <class D, class Coordinates>
KAVO_LANE_INLINE hn::Vec<D> Value(D d, const LaneStep& step, const Coordinates& coordinates,
                                  std::size_t first) {
  const hn::CappedTag<double, 4> dd;
  const hn::Rebind<float, decltype(dd)> df;
  const auto value = [&](std::size_t lane) {
    return hn::DemoteTo(
        df, hn::Add(hn::Mul(coordinates.At(dd, step.coordinate, first + lane), hn::Set(dd, step.multiplier)),
                    hn::Set(dd, step.summand)));
  };
#if HWY_TARGET != HWY_SCALAR && !HWY_HAVE_SCALABLE
  if constexpr (hn::MaxLanes(D()) == hn::MaxLanes(decltype(dd)())) {
    return value(0);
  } else if constexpr (hn::MaxLanes(D()) == 2 * hn::MaxLanes(decltype(dd)())) {
    return hn::Combine(d, value(hn::Lanes(dd)), value(0));
  } else
#endif
  {
    HWY_ALIGN float values[kNumLanes];
    for (std::size_t lane = 0; lane < hn::Lanes(d); lane += hn::Lanes(dd)) {
      hn::Store(value(lane), df, values + lane);
    }
    return hn::Load(d, values);
  }
}

// What a joint does where it stands at a value, in the lanes from `lane` on.
template <class D, class V = hn::Vec<D>>
KAVO_LANE_INLINE void StoreMotion(D d, const LaneStep& step, V value, std::size_t lane) {
  if (step.is_revolute) {
    V sin, cos;
    SinCos(d, value, sin, cos);
    hn::Store(hn::Mul(sin, hn::Set(d, step.turn_sign)), d, step.sine + lane);
    hn::Store(cos, d, step.cosine + lane);
  } else {
    hn::Store(value, d, step.sine + lane);
  }
}

// Works out the motions of all joints; see `LaneSweep::compute`. Apart from the steps: one sine takes long,
// but many of them can be under way at a time.
template <std::size_t kLanes, class Coordinates>
KAVO_LANE_INLINE std::uint32_t MoveLanes(const LaneStep* steps, std::size_t count,
                                         const Coordinates& coordinates) {
  const hn::CappedTag<float, kLanes> d;
  using V = hn::Vec<decltype(d)>;
  std::uint32_t too_large = 0;
  for (const LaneStep* step = steps; step != steps + count; ++step) {
    for (std::size_t lane = 0; lane < kLanes; lane += hn::Lanes(d)) {
      const V any_value = Value(d, *step, coordinates, lane);
      const auto in_range = hn::Le(hn::Abs(any_value), hn::Set(d, LaneSweep::kLargestValue));
      const V value = hn::IfThenElseZero(in_range, any_value);
      if (HWY_UNLIKELY(!hn::AllTrue(d, in_range))) {
        std::uint8_t bits[8] = {};
        hn::StoreMaskBits(d, hn::Not(in_range), bits);
        too_large |= static_cast<std::uint32_t>(bits[0]) << lane;
      }
      StoreMotion(d, *step, value, lane);
    }
  }
  return too_large;
}

std::uint32_t Move(const LaneStep* steps, std::size_t count, const double* coordinates,
                   std::size_t num_lanes) {
  return num_lanes == 4 ? MoveLanes<4>(steps, count, Given{coordinates})
                        : MoveLanes<kNumLanes>(steps, count, Given{coordinates});
}

std::uint32_t MoveAlong(const LaneStep* steps, std::size_t count, const double* start, const double* way,
                        const double* times) {
  return MoveLanes<kNumLanes>(steps, count, Along{start, way, times});
}

void MoveRoughly(const LaneStep* steps, std::size_t count, const float* coordinates) {
  const hn::CappedTag<float, kNumLanes> d;
  for (const LaneStep* step = steps; step != steps + count; ++step) {
    const auto multiplier = hn::Set(d, static_cast<float>(step->multiplier));
    const auto summand = hn::Set(d, static_cast<float>(step->summand));
    for (std::size_t lane = 0; lane < kNumLanes; lane += hn::Lanes(d)) {
      const auto coordinate = hn::Load(d, coordinates + step->coordinate * kNumLanes + lane);
      StoreMotion(d, *step, hn::Add(hn::Mul(coordinate, multiplier), summand), lane);
    }
  }
}

// The last column of one row of base * offset: only the terms that are not zero are added.
template <std::size_t kNumTerms, class D>
KAVO_LANE_INLINE hn::Vec<D> Origin(D d, const LaneStep& step, const float* base) {
  auto origin = hn::Load(d, base + 3 * kNumLanes);
  for (std::size_t i = 0; i < kNumTerms; ++i) {
    origin = hn::Add(origin, hn::Mul(hn::Load(d, base + step.term_from[i]), hn::Set(d, step.term[i])));
  }
  return origin;
}

template <std::size_t kNumTerms, bool kIsGeneral, bool kIsRevolute, std::size_t kLanes>
void RunStep(const LaneStep& step) {
  const hn::CappedTag<float, kLanes> d;
  using V = hn::Vec<decltype(d)>;
  const float* const base_entries = step.base->entries;
  float* const out_entries = step.out->entries;
  const std::size_t to_u = step.to[0];
  const std::size_t to_v = step.to[1];
  const std::size_t to_w = step.to[2];
  // A sign may be given to the sine and the cosine instead of the axes.
  const V sign_u = hn::Set(d, step.sign[0]);
  const V sign_v = hn::Set(d, step.sign[1]);
  const V sign_w = hn::Set(d, step.sign[2]);
  for (std::size_t lane = 0; lane < kLanes; lane += hn::Lanes(d)) {
    const V motion = hn::Load(d, step.sine + lane);
    V cos_u = sign_u;
    V cos_v = sign_v;
    V sin_u = sign_u;
    V sin_v = sign_v;
    V slide_x = motion;
    V slide_y = motion;
    V slide_z = motion;
    if constexpr (kIsRevolute) {
      const V cos = hn::Load(d, step.cosine + lane);
      cos_u = hn::Mul(cos, sign_u);
      sin_u = hn::Mul(motion, sign_u);
      cos_v = hn::Mul(cos, sign_v);
      sin_v = hn::Mul(motion, sign_v);
    } else {
      slide_x = hn::Mul(motion, hn::Set(d, step.slide[0]));
      slide_y = hn::Mul(motion, hn::Set(d, step.slide[1]));
      slide_z = hn::Mul(motion, hn::Set(d, step.slide[2]));
    }
    const float* base = base_entries + lane;
    float* out = out_entries + lane;
    for (int row = 0; row < 3; ++row, base += kRow, out += kRow) {
      V u, v, w;
      if constexpr (kIsGeneral) {
        const V x = hn::Load(d, base);
        const V y = hn::Load(d, base + kNumLanes);
        const V z = hn::Load(d, base + 2 * kNumLanes);
        u = Combine(d, x, y, z, step.rotation[0]);
        v = Combine(d, x, y, z, step.rotation[1]);
        w = Combine(d, x, y, z, step.rotation[2]);
      } else {
        u = hn::Load(d, base + step.from[0]);
        v = hn::Load(d, base + step.from[1]);
        w = hn::Mul(hn::Load(d, base + step.from[2]), sign_w);
      }
      V origin = Origin<kNumTerms>(d, step, base);
      if constexpr (kIsRevolute) {
        hn::Store(hn::Add(hn::Mul(u, cos_u), hn::Mul(v, sin_v)), d, out + to_u);
        hn::Store(hn::Sub(hn::Mul(v, cos_v), hn::Mul(u, sin_u)), d, out + to_v);
      } else {
        hn::Store(hn::Mul(u, sign_u), d, out + to_u);
        hn::Store(hn::Mul(v, sign_v), d, out + to_v);
        origin = hn::Add(origin, hn::Mul(hn::Load(d, base), slide_x));
        origin = hn::Add(origin, hn::Mul(hn::Load(d, base + kNumLanes), slide_y));
        origin = hn::Add(origin, hn::Mul(hn::Load(d, base + 2 * kNumLanes), slide_z));
      }
      hn::Store(w, d, out + to_w);
      hn::Store(origin, d, out + 3 * kNumLanes);
    }
  }
}

template <bool kIsRevolute, std::size_t kLanes>
LaneStep::Run RunOf(const LaneStep& step) {
  if (step.is_general) {
    return &RunStep<3, true, kIsRevolute, kLanes>;
  }
  switch (step.num_terms) {
    case 0:
      return &RunStep<0, false, kIsRevolute, kLanes>;
    case 1:
      return &RunStep<1, false, kIsRevolute, kLanes>;
    case 2:
      return &RunStep<2, false, kIsRevolute, kLanes>;
    default:
      return &RunStep<3, false, kIsRevolute, kLanes>;
  }
}

void ChooseRun(LaneStep& step) {
  step.run_four = step.is_revolute ? RunOf<true, 4>(step) : RunOf<false, 4>(step);
  step.run_all = step.is_revolute ? RunOf<true, kNumLanes>(step) : RunOf<false, kNumLanes>(step);
}

}  // namespace
}  // namespace kavo::kinematics::internal::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace kavo::kinematics::internal {

HWY_EXPORT(ChooseRun);
HWY_EXPORT(Move);
HWY_EXPORT(MoveAlong);
HWY_EXPORT(MoveRoughly);

namespace {

// One unit in the last place of a number below 1.
constexpr double kUnit = 0x1p-24;

// What a step may add to the error of a row of a rotation (its Euclidean length), in units: 8 for the
// joint's value, which is rounded to single precision, and 5 for its sine and cosine; 4 for the turn by them;
// 2 for the entries of the offset and 6 for the products with them. And some to spare.
constexpr double kUnitsInStep = 32.0;
// What else it costs to place a point: the products with its coordinates, and their sum.
constexpr double kUnitsInPoint = 16.0;

// Numbers beyond single precision become infinite, which a sum does not lose.
float ToFloat(double value) { return static_cast<float>(std::min(std::max(value, -1e38), 1e38)); }

double SumOfSizes(const Eigen::Vector3d& v) { return std::fabs(v[0]) + std::fabs(v[1]) + std::fabs(v[2]); }

LaneStep MakeStep(const Kinematics::Step& step) {
  const Kinematics::Offset& offset = step.origin;
  LaneStep result;
  result.is_revolute = step.motion == Kinematics::Motion::kRevolute;
  result.is_general = offset.kind == Kinematics::RotationKind::kGeneral;
  result.coordinate = static_cast<std::size_t>(step.coordinate);
  if (step.ratio) {
    result.multiplier = step.ratio->multiplier;
    result.summand = step.ratio->offset;
  }
  result.turn_sign = static_cast<float>(step.sign);
  const auto w = static_cast<std::size_t>(result.is_revolute ? step.axis : 2);
  const std::size_t columns[3] = {w == 2 ? 0 : w + 1, w == 0 ? 2 : w - 1, w};
  for (std::size_t i = 0; i < 3; ++i) {
    const std::size_t column = columns[i];
    result.to[i] = column * math::kNumLanes;
    result.from[i] = static_cast<std::size_t>(offset.source[column]) * math::kNumLanes;
    if (!result.is_general) {
      result.sign[i] = static_cast<float>(offset.sign[column]);
    }
    for (std::size_t row = 0; row < 3; ++row) {
      result.rotation[i][row] = static_cast<float>(
          offset.transform.rotation(static_cast<Eigen::Index>(row), static_cast<Eigen::Index>(column)));
    }
    const auto axis = static_cast<Eigen::Index>(i);
    if (result.is_general || offset.transform.translation[axis] != 0.0) {
      result.term_from[result.num_terms] = i * math::kNumLanes;
      result.term[result.num_terms] = ToFloat(offset.transform.translation[axis]);
      ++result.num_terms;
    }
    result.slide[i] = ToFloat(step.slide[axis]);
  }
  return result;
}

}  // namespace

LaneSweep::LaneSweep(const Kinematics::Plan& plan)
    : motions_(plan.steps.size()), places_(plan.steps.size() + 1) {
  // Asking the processor takes long.
  if (!hwy::GetChosenTarget().IsInitialized()) {
    hwy::GetChosenTarget().Update(hwy::SupportedTargets());
  }
  move_ = &HWY_DYNAMIC_DISPATCH(Move);
  move_along_ = &HWY_DYNAMIC_DISPATCH(MoveAlong);
  move_roughly_ = &HWY_DYNAMIC_DISPATCH(MoveRoughly);
  for (std::size_t i = 0; i < plan.steps.size(); ++i) {
    steps_.push_back(MakeStep(plan.steps[i]));
    steps_.back().base = &places_[static_cast<std::size_t>(plan.steps[i].parent + 1)];
    steps_.back().out = &places_[i + 1];
    steps_.back().sine = motions_[i].sine;
    steps_.back().cosine = motions_[i].cosine;
    HWY_DYNAMIC_DISPATCH(ChooseRun)(steps_.back());
  }
  for (const Kinematics::Attachment& frame : plan.frames) {
    frames_.push_back({&places_[static_cast<std::size_t>(frame.slot + 1)], frame.offset.transform});
  }
  setBase(math::RigidTransform());
}

void LaneSweep::setBase(const math::RigidTransform& base) {
  math::LaneTransforms& place = places_.front();
  for (std::size_t r = 0; r < 3; ++r) {
    const auto row = static_cast<Eigen::Index>(r);
    for (std::size_t c = 0; c < 3; ++c) {
      std::fill_n(place.at(r, c), math::kNumLanes,
                  static_cast<float>(base.rotation(row, static_cast<Eigen::Index>(c))));
    }
    std::fill_n(place.at(r, 3), math::kNumLanes, ToFloat(base.translation[row]));
  }

  // For each place the number of steps that lead to it, the base counted as one, and the sum of all lengths
  // on the way: no point of the way is farther from the world's origin, and an error of a step's rotation
  // moves what comes behind it by that share of its length at most.
  struct Way {
    double num_steps = 1.0;
    double length = 0.0;
  };
  std::vector<Way> ways(places_.size());
  ways[0].length = SumOfSizes(base.translation);
  for (std::size_t i = 0; i <= steps_.size(); ++i) {
    Way& way = ways[i];
    if (i > 0) {
      const LaneStep& step = steps_[i - 1];
      way = ways[static_cast<std::size_t>(step.base - places_.data())];
      way.num_steps += 1.0;
      for (std::size_t k = 0; k < 3; ++k) {
        way.length += std::fabs(static_cast<double>(step.term[k]));
        if (!step.is_revolute) {
          way.length += static_cast<double>(kLargestValue) * std::fabs(static_cast<double>(step.slide[k]));
        }
      }
    }
    const double error = (kUnitsInStep * way.num_steps + kUnitsInPoint) * kUnit;
    // To spare, so that rounding takes nothing away.
    places_[i].reach = ToFloat(2.0 * way.length);
    places_[i].turn_error = ToFloat(error);
    places_[i].shift_error = ToFloat(error * way.length);
  }
}

}  // namespace kavo::kinematics::internal

#endif  // HWY_ONCE
