#include <algorithm>
#include <cstddef>

#include "kavo/kinematics/lane_sweep_internal.h"
#include "kavo/kinematics/sin_cos_internal.h"

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

// x * a + y * b + z * c.
template <class D>
HWY_INLINE hn::Vec<D> Combine(D d, hn::Vec<D> x, hn::Vec<D> y, hn::Vec<D> z, const double* column) {
  return hn::Add(hn::Add(hn::Mul(x, hn::Set(d, column[0])), hn::Mul(y, hn::Set(d, column[1]))),
                 hn::Mul(z, hn::Set(d, column[2])));
}

// The last column of one row of base * offset: only the terms that are not zero are added.
template <std::size_t kNumTerms, class D>
HWY_INLINE void Translate(D d, const LaneOperation& operation, const double* base, double* out) {
  auto origin = hn::Load(d, base + 3 * kNumLanes);
  if constexpr (kNumTerms > 0) {
    auto shift = hn::Mul(hn::Load(d, base + operation.term_from[0]), hn::Set(d, operation.term[0]));
    for (std::size_t i = 1; i < kNumTerms; ++i) {
      shift =
          hn::Add(shift, hn::Mul(hn::Load(d, base + operation.term_from[i]), hn::Set(d, operation.term[i])));
    }
    origin = hn::Add(shift, origin);
  }
  hn::Store(origin, d, out + 3 * kNumLanes);
}

// Columns are picked.
template <std::size_t kNumTerms, bool kTurns, class D>
HWY_INLINE void RunPicking(D d, const LaneOperation& operation_in, std::size_t num_lanes) {
  using V = hn::Vec<D>;
  // A copy, which the results cannot overlap.
  const LaneOperation operation = operation_in;
  // A sign changes no digit, so it may be given to the sine and the cosine instead of the axes.
  const V sign_u = hn::Set(d, operation.sign[0]);
  const V sign_v = hn::Set(d, operation.sign[1]);
  const V sign_w = hn::Set(d, operation.sign[2]);
  for (std::size_t lane = 0; lane < num_lanes; lane += hn::Lanes(d)) {
    V cos_u = sign_u;
    V cos_v = sign_v;
    V sin_u = sign_u;
    V sin_v = sign_v;
    if constexpr (kTurns) {
      const V sin = hn::Mul(hn::LoadU(d, operation.sine + lane), hn::Set(d, operation.turn_sign));
      const V cos = hn::LoadU(d, operation.cosine + lane);
      cos_u = hn::Mul(cos, sign_u);
      sin_u = hn::Mul(sin, sign_u);
      cos_v = hn::Mul(cos, sign_v);
      sin_v = hn::Mul(sin, sign_v);
    }
    const double* base = operation.base->entries + lane;
    double* out = operation.out->entries + lane;
    for (int row = 0; row < 3; ++row, base += kRow, out += kRow) {
      const V u = hn::Load(d, base + operation.from[0]);
      const V v = hn::Load(d, base + operation.from[1]);
      const V w = hn::Load(d, base + operation.from[2]);
      if constexpr (kTurns) {
        hn::Store(hn::Add(hn::Mul(u, cos_u), hn::Mul(v, sin_v)), d, out + operation.to[0]);
        hn::Store(hn::Sub(hn::Mul(v, cos_v), hn::Mul(u, sin_u)), d, out + operation.to[1]);
      } else {
        hn::Store(hn::Mul(u, sign_u), d, out + operation.to[0]);
        hn::Store(hn::Mul(v, sign_v), d, out + operation.to[1]);
      }
      hn::Store(hn::Mul(w, sign_w), d, out + operation.to[2]);
      Translate<kNumTerms>(d, operation, base, out);
    }
  }
}

// Any rotation.
template <bool kTurns, class D>
HWY_INLINE void RunGeneral(D d, const LaneOperation& operation_in, std::size_t num_lanes) {
  using V = hn::Vec<D>;
  const LaneOperation operation = operation_in;
  for (std::size_t lane = 0; lane < num_lanes; lane += hn::Lanes(d)) {
    V sin = hn::Zero(d);
    V cos = hn::Zero(d);
    if constexpr (kTurns) {
      sin = hn::Mul(hn::LoadU(d, operation.sine + lane), hn::Set(d, operation.turn_sign));
      cos = hn::LoadU(d, operation.cosine + lane);
    }
    const double* base = operation.base->entries + lane;
    double* out = operation.out->entries + lane;
    for (int row = 0; row < 3; ++row, base += kRow, out += kRow) {
      const V x = hn::Load(d, base);
      const V y = hn::Load(d, base + kNumLanes);
      const V z = hn::Load(d, base + 2 * kNumLanes);
      const V u = Combine(d, x, y, z, operation.rotation[0]);
      const V v = Combine(d, x, y, z, operation.rotation[1]);
      if constexpr (kTurns) {
        hn::Store(hn::Add(hn::Mul(u, cos), hn::Mul(v, sin)), d, out + operation.to[0]);
        hn::Store(hn::Sub(hn::Mul(v, cos), hn::Mul(u, sin)), d, out + operation.to[1]);
      } else {
        hn::Store(u, d, out + operation.to[0]);
        hn::Store(v, d, out + operation.to[1]);
      }
      hn::Store(Combine(d, x, y, z, operation.rotation[2]), d, out + operation.to[2]);
      Translate<3>(d, operation, base, out);
    }
  }
}

// Adds the slide of a joint.
template <class D>
HWY_INLINE void Slide(D d, const LaneOperation& operation, std::size_t num_lanes) {
  using V = hn::Vec<D>;
  for (std::size_t lane = 0; lane < num_lanes; lane += hn::Lanes(d)) {
    const V value = hn::LoadU(d, operation.sine + lane);
    const V x = hn::Mul(hn::Set(d, operation.slide[0]), value);
    const V y = hn::Mul(hn::Set(d, operation.slide[1]), value);
    const V z = hn::Mul(hn::Set(d, operation.slide[2]), value);
    const double* base = operation.base->entries + lane;
    double* out = operation.out->entries + lane + 3 * kNumLanes;
    for (int row = 0; row < 3; ++row, base += kRow, out += kRow) {
      const V shift =
          hn::Add(hn::Add(hn::Mul(hn::Load(d, base), x), hn::Mul(hn::Load(d, base + kNumLanes), y)),
                  hn::Mul(hn::Load(d, base + 2 * kNumLanes), z));
      hn::Store(hn::Add(hn::Load(d, out), shift), d, out);
    }
  }
}

template <bool kTurns, class D>
HWY_INLINE void RunOne(D d, const LaneOperation& operation, std::size_t num_lanes) {
  if (operation.is_general) {
    return RunGeneral<kTurns>(d, operation, num_lanes);
  }
  switch (operation.num_terms) {
    case 0:
      return RunPicking<0, kTurns>(d, operation, num_lanes);
    case 1:
      return RunPicking<1, kTurns>(d, operation, num_lanes);
    case 2:
      return RunPicking<2, kTurns>(d, operation, num_lanes);
    default:
      return RunPicking<3, kTurns>(d, operation, num_lanes);
  }
}

template <class D>
HWY_INLINE void RunAll(D d, const LaneOperation* operations, std::size_t count, std::size_t num_lanes) {
  for (std::size_t i = 0; i < count; ++i) {
    if (operations[i].motion == LaneOperation::Motion::kTurn) {
      RunOne<true>(d, operations[i], num_lanes);
    } else {
      RunOne<false>(d, operations[i], num_lanes);
      if (operations[i].motion == LaneOperation::Motion::kSlide) {
        Slide(d, operations[i], num_lanes);
      }
    }
  }
}

void Run(const LaneOperation* operations, std::size_t count, std::size_t num_lanes) {
  if (num_lanes == 4) {
    RunAll(hn::CappedTag<double, 4>(), operations, count, 4);
  } else {
    RunAll(hn::CappedTag<double, kNumLanes>(), operations, count, kNumLanes);
  }
}

}  // namespace
}  // namespace kavo::kinematics::internal::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace kavo::kinematics::internal {

HWY_EXPORT(Run);

namespace {

void SetAllLanes(const math::RigidTransform& transform, math::LaneTransforms* lanes) {
  for (std::size_t r = 0; r < 3; ++r) {
    const auto row = static_cast<Eigen::Index>(r);
    for (std::size_t c = 0; c < 3; ++c) {
      std::fill_n(lanes->at(r, c), math::kNumLanes, transform.rotation(row, static_cast<Eigen::Index>(c)));
    }
    std::fill_n(lanes->at(r, 3), math::kNumLanes, transform.translation[row]);
  }
}

// \param columns Which columns of the offset's rotation are u, v and w.
LaneOperation MakeOperation(const Kinematics::Offset& offset, const std::size_t (&columns)[3],
                            const math::LaneTransforms* base, math::LaneTransforms* out) {
  LaneOperation operation;
  operation.is_general = offset.kind == Kinematics::RotationKind::kGeneral;
  operation.base = base;
  operation.out = out;
  for (std::size_t i = 0; i < 3; ++i) {
    const std::size_t column = columns[i];
    operation.to[i] = column * math::kNumLanes;
    operation.from[i] = static_cast<std::size_t>(offset.source[column]) * math::kNumLanes;
    operation.sign[i] = offset.sign[column];
    const auto axis = static_cast<Eigen::Index>(i);
    for (std::size_t row = 0; row < 3; ++row) {
      operation.rotation[i][row] =
          offset.transform.rotation(static_cast<Eigen::Index>(row), static_cast<Eigen::Index>(column));
    }
    if (operation.is_general || offset.transform.translation[axis] != 0.0) {
      operation.term_from[operation.num_terms] = i * math::kNumLanes;
      operation.term[operation.num_terms] = offset.transform.translation[axis];
      ++operation.num_terms;
    }
  }
  return operation;
}

// Whether a frame at this offset is where its slot is.
bool Coincides(const Kinematics::Offset& offset) {
  const Eigen::Vector3d& t = offset.transform.translation;
  return offset.kind == Kinematics::RotationKind::kIdentity && t[0] == 0.0 && t[1] == 0.0 && t[2] == 0.0;
}

}  // namespace

LaneSweep::LaneSweep(const Kinematics::Plan& plan)
    : values_(plan.steps.size() * math::kNumLanes),
      sines_(values_.size()),
      cosines_(values_.size()),
      slots_(plan.steps.size()),
      attached_(plan.frames.size()) {
  hwy::GetChosenTarget().Update(hwy::SupportedTargets());
  run_ = &HWY_DYNAMIC_DISPATCH(Run);

  SetAllLanes(math::RigidTransform(), &base_);
  for (std::size_t i = 0; i < plan.steps.size(); ++i) {
    const Kinematics::Step& step = plan.steps[i];
    const bool is_revolute = step.motion == Kinematics::Motion::kRevolute;
    inputs_.push_back({static_cast<std::size_t>(step.coordinate), is_revolute, step.ratio});
    const auto w = static_cast<std::size_t>(is_revolute ? step.axis : 2);
    LaneOperation operation =
        MakeOperation(step.origin, {w == 2 ? 0 : w + 1, w == 0 ? 2 : w - 1, w},
                      step.parent < 0 ? &base_ : &slots_[static_cast<std::size_t>(step.parent)], &slots_[i]);
    operation.motion = is_revolute ? LaneOperation::Motion::kTurn : LaneOperation::Motion::kSlide;
    operation.sine = sines_.data() + i * math::kNumLanes;
    operation.cosine = cosines_.data() + i * math::kNumLanes;
    operation.turn_sign = step.sign;
    std::copy_n(step.slide.data(), 3, operation.slide);
    operations_.push_back(operation);
  }
  for (std::size_t i = 0; i < plan.frames.size(); ++i) {
    const auto& [slot, offset] = plan.frames[i];
    const math::LaneTransforms* place = &attached_[i];
    if (slot < 0) {
      // What does not move is placed once and for all.
      SetAllLanes(offset.transform, &attached_[i]);
    } else if (Coincides(offset)) {
      place = &slots_[static_cast<std::size_t>(slot)];
    } else {
      operations_.push_back(
          MakeOperation(offset, {0, 1, 2}, &slots_[static_cast<std::size_t>(slot)], &attached_[i]));
    }
    frames_.push_back(place);
  }
}

const std::vector<const math::LaneTransforms*>& LaneSweep::compute(const double* coordinates,
                                                                   std::size_t num_lanes) {
  double* values = values_.data();
  for (const Input& input : inputs_) {
    const double* const q = coordinates + input.coordinate * math::kNumLanes;
    std::copy_n(q, math::kNumLanes, values);
    if (input.ratio) {
      for (std::size_t lane = 0; lane < num_lanes; ++lane) {
        values[lane] = input.ratio->multiplier * q[lane] + input.ratio->offset;
      }
    }
    values += math::kNumLanes;
  }
  if (num_lanes == math::kNumLanes) {
    SinCos(values_.data(), sines_.data(), cosines_.data(), values_.size());
  } else {
    for (std::size_t i = 0; i < values_.size(); i += math::kNumLanes) {
      SinCos(values_.data() + i, sines_.data() + i, cosines_.data() + i, num_lanes);
    }
  }
  for (std::size_t i = 0; i < inputs_.size(); ++i) {
    if (!inputs_[i].is_revolute) {
      std::copy_n(values_.data() + i * math::kNumLanes, num_lanes, sines_.data() + i * math::kNumLanes);
    }
  }
  run_(operations_.data(), operations_.size(), num_lanes);
  return frames_;
}

}  // namespace kavo::kinematics::internal

#endif  // HWY_ONCE
