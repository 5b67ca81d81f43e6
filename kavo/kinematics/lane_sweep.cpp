#include <algorithm>
#include <cstddef>
#include <type_traits>
#include <utility>

#include "kavo/kinematics/lane_sweep_internal.h"
#include "kavo/kinematics/sin_cos_internal.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kavo/kinematics/lane_sweep.cpp"
#include <hwy/foreach_target.h>
// After foreach_target.h, as Highway wants it.
#include <hwy/highway.h>

#ifndef KAVO_KINEMATICS_LANE_SWEEP_ONCE
#define KAVO_KINEMATICS_LANE_SWEEP_ONCE

namespace kavo::kinematics::internal {

// Whether a frame at this offset is where its slot is.
inline bool Coincides(const Kinematics::Offset& offset) {
  const Eigen::Vector3d& t = offset.transform.translation;
  return offset.kind == Kinematics::RotationKind::kIdentity && t[0] == 0.0 && t[1] == 0.0 && t[2] == 0.0;
}

}  // namespace kavo::kinematics::internal

#endif  // KAVO_KINEMATICS_LANE_SWEEP_ONCE

HWY_BEFORE_NAMESPACE();
namespace kavo::kinematics::internal::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

using Terms = LaneProgram::Terms;
using math::kNumLanes;
using math::LaneTransforms;

constexpr std::size_t kRow = LaneTransforms::kRow;

// x * a + y * b + z * c.
template <class D>
HWY_INLINE hn::Vec<D> Combine(D d, hn::Vec<D> x, hn::Vec<D> y, hn::Vec<D> z, double a, double b, double c) {
  return hn::Add(hn::Add(hn::Mul(x, hn::Set(d, a)), hn::Mul(y, hn::Set(d, b))), hn::Mul(z, hn::Set(d, c)));
}

// Which columns make up the translation of base * offset: most lie along one axis, so that only the terms
// that are not zero are added. A copy on the stack, which the results cannot overlap.
template <std::size_t kNumTerms, class D>
struct Translation {
  explicit Translation(const Terms& terms_in) : terms(terms_in) {}

  HWY_INLINE void Apply(D d, const double* base_row, double* out_row) const {
    auto sum = hn::Load(d, base_row + 3 * kNumLanes);
    if constexpr (kNumTerms > 0) {
      auto shift =
          hn::Mul(hn::Load(d, base_row + terms.columns[0] * kNumLanes), hn::Set(d, terms.factors[0]));
      for (std::size_t i = 1; i < kNumTerms; ++i) {
        shift = hn::Add(shift, hn::Mul(hn::Load(d, base_row + terms.columns[i] * kNumLanes),
                                       hn::Set(d, terms.factors[i])));
      }
      sum = hn::Add(shift, sum);
    }
    hn::Store(sum, d, out_row + 3 * kNumLanes);
  }

  const Terms terms;
};

// out = base * offset, turned about the step's axis.
template <std::size_t kNumTerms, class D>
HWY_INLINE void ApplyTurningStep(D d, const LaneTransforms& base, const Kinematics::Step& step,
                                 const Terms& terms, const double* sines, const double* cosines,
                                 std::size_t num_lanes, LaneTransforms& out) {
  using V = hn::Vec<D>;
  const Translation<kNumTerms, D> translation(terms);
  const std::size_t w = static_cast<std::size_t>(step.axis);
  const std::size_t u = w == 2 ? 0 : w + 1;
  const std::size_t v = w == 0 ? 2 : w - 1;
  const std::size_t out_u = u * kNumLanes;
  const std::size_t out_v = v * kNumLanes;
  const std::size_t out_w = w * kNumLanes;
  const double* const base_rows = base.entries;
  double* const out_rows = out.entries;

  if (step.origin.kind == Kinematics::RotationKind::kGeneral) {
    const Eigen::Matrix3d m = step.origin.transform.rotation;
    const int iu = static_cast<int>(u);
    const int iv = static_cast<int>(v);
    const int iw = static_cast<int>(w);
    for (std::size_t lane = 0; lane < num_lanes; lane += hn::Lanes(d)) {
      const V sin = hn::Mul(hn::LoadU(d, sines + lane), hn::Set(d, step.sign));
      const V cos = hn::LoadU(d, cosines + lane);
      for (std::size_t at = lane; at < lane + 3 * kRow; at += kRow) {
        const V x = hn::Load(d, base_rows + at);
        const V y = hn::Load(d, base_rows + at + kNumLanes);
        const V z = hn::Load(d, base_rows + at + 2 * kNumLanes);
        const V a = Combine(d, x, y, z, m(0, iu), m(1, iu), m(2, iu));
        const V b = Combine(d, x, y, z, m(0, iv), m(1, iv), m(2, iv));
        hn::Store(hn::Add(hn::Mul(a, cos), hn::Mul(b, sin)), d, out_rows + at + out_u);
        hn::Store(hn::Sub(hn::Mul(b, cos), hn::Mul(a, sin)), d, out_rows + at + out_v);
        hn::Store(Combine(d, x, y, z, m(0, iw), m(1, iw), m(2, iw)), d, out_rows + at + out_w);
        translation.Apply(d, base_rows + at, out_rows + at);
      }
    }
    return;
  }

  const std::size_t in_u = static_cast<std::size_t>(step.origin.source[u]) * kNumLanes;
  const std::size_t in_v = static_cast<std::size_t>(step.origin.source[v]) * kNumLanes;
  const std::size_t in_w = static_cast<std::size_t>(step.origin.source[w]) * kNumLanes;
  // A sign changes no digit, so it may be given to the sine and the cosine instead of the axes.
  const V sign_u = hn::Set(d, step.origin.sign[u]);
  const V sign_v = hn::Set(d, step.origin.sign[v]);
  const V sign_w = hn::Set(d, step.origin.sign[w]);
  const V sign = hn::Set(d, step.sign);
  for (std::size_t lane = 0; lane < num_lanes; lane += hn::Lanes(d)) {
    const V sin = hn::Mul(hn::LoadU(d, sines + lane), sign);
    const V cos = hn::LoadU(d, cosines + lane);
    const V cos_u = hn::Mul(cos, sign_u);
    const V sin_u = hn::Mul(sin, sign_u);
    const V cos_v = hn::Mul(cos, sign_v);
    const V sin_v = hn::Mul(sin, sign_v);
    for (std::size_t at = lane; at < lane + 3 * kRow; at += kRow) {
      const V a = hn::Load(d, base_rows + at + in_u);
      const V b = hn::Load(d, base_rows + at + in_v);
      const V c = hn::Load(d, base_rows + at + in_w);
      hn::Store(hn::Add(hn::Mul(a, cos_u), hn::Mul(b, sin_v)), d, out_rows + at + out_u);
      hn::Store(hn::Sub(hn::Mul(b, cos_v), hn::Mul(a, sin_u)), d, out_rows + at + out_v);
      hn::Store(hn::Mul(c, sign_w), d, out_rows + at + out_w);
      translation.Apply(d, base_rows + at, out_rows + at);
    }
  }
}

// out = base * offset.
template <std::size_t kNumTerms, class D>
HWY_INLINE void ApplyOffset(D d, const LaneTransforms& base, const Kinematics::Offset& offset,
                            const Terms& terms, std::size_t num_lanes, LaneTransforms& out) {
  using V = hn::Vec<D>;
  const Translation<kNumTerms, D> translation(terms);
  const double* const base_rows = base.entries;
  double* const out_rows = out.entries;

  if (offset.kind == Kinematics::RotationKind::kGeneral) {
    const Eigen::Matrix3d m = offset.transform.rotation;
    for (std::size_t lane = 0; lane < num_lanes; lane += hn::Lanes(d)) {
      for (std::size_t at = lane; at < lane + 3 * kRow; at += kRow) {
        const V x = hn::Load(d, base_rows + at);
        const V y = hn::Load(d, base_rows + at + kNumLanes);
        const V z = hn::Load(d, base_rows + at + 2 * kNumLanes);
        hn::Store(Combine(d, x, y, z, m(0, 0), m(1, 0), m(2, 0)), d, out_rows + at);
        hn::Store(Combine(d, x, y, z, m(0, 1), m(1, 1), m(2, 1)), d, out_rows + at + kNumLanes);
        hn::Store(Combine(d, x, y, z, m(0, 2), m(1, 2), m(2, 2)), d, out_rows + at + 2 * kNumLanes);
        translation.Apply(d, base_rows + at, out_rows + at);
      }
    }
    return;
  }

  const std::size_t in_x = static_cast<std::size_t>(offset.source[0]) * kNumLanes;
  const std::size_t in_y = static_cast<std::size_t>(offset.source[1]) * kNumLanes;
  const std::size_t in_z = static_cast<std::size_t>(offset.source[2]) * kNumLanes;
  const V sign_x = hn::Set(d, offset.sign[0]);
  const V sign_y = hn::Set(d, offset.sign[1]);
  const V sign_z = hn::Set(d, offset.sign[2]);
  for (std::size_t lane = 0; lane < num_lanes; lane += hn::Lanes(d)) {
    for (std::size_t at = lane; at < lane + 3 * kRow; at += kRow) {
      hn::Store(hn::Mul(hn::Load(d, base_rows + at + in_x), sign_x), d, out_rows + at);
      hn::Store(hn::Mul(hn::Load(d, base_rows + at + in_y), sign_y), d, out_rows + at + kNumLanes);
      hn::Store(hn::Mul(hn::Load(d, base_rows + at + in_z), sign_z), d, out_rows + at + 2 * kNumLanes);
      translation.Apply(d, base_rows + at, out_rows + at);
    }
  }
}

// Adds the slide along the step's direction, which is given in the slot that carries it.
template <class D>
HWY_INLINE void Slide(D d, const LaneTransforms& base, const Kinematics::Step& step, const double* values,
                      std::size_t num_lanes, LaneTransforms& out) {
  using V = hn::Vec<D>;
  const Eigen::Vector3d slide = step.slide;
  for (std::size_t lane = 0; lane < num_lanes; lane += hn::Lanes(d)) {
    const V value = hn::LoadU(d, values + lane);
    const V x = hn::Mul(hn::Set(d, slide[0]), value);
    const V y = hn::Mul(hn::Set(d, slide[1]), value);
    const V z = hn::Mul(hn::Set(d, slide[2]), value);
    for (std::size_t at = lane; at < lane + 3 * kRow; at += kRow) {
      const double* const row = base.entries + at;
      double* const origin = out.entries + at + 3 * kNumLanes;
      const V shift = hn::Add(hn::Add(hn::Mul(hn::Load(d, row), x), hn::Mul(hn::Load(d, row + kNumLanes), y)),
                              hn::Mul(hn::Load(d, row + 2 * kNumLanes), z));
      hn::Store(hn::Add(hn::Load(d, origin), shift), d, origin);
    }
  }
}

// Calls `run` with the number of terms as a constant.
template <typename Function>
HWY_INLINE void WithNumTerms(std::size_t num_terms, const Function& run) {
  switch (num_terms) {
    case 0:
      return run(std::integral_constant<std::size_t, 0>());
    case 1:
      return run(std::integral_constant<std::size_t, 1>());
    case 2:
      return run(std::integral_constant<std::size_t, 2>());
    default:
      return run(std::integral_constant<std::size_t, 3>());
  }
}

template <class D>
HWY_INLINE void RunLanes(D d, const LaneProgram& program, const double* sines, const double* cosines,
                         std::size_t num_lanes, LaneTransforms* slots, LaneTransforms* attached) {
  const Kinematics::Plan& plan = program.plan;
  for (std::size_t i = 0; i < plan.steps.size(); ++i) {
    const Kinematics::Step& step = plan.steps[i];
    const Terms& terms = program.step_terms[i];
    const LaneTransforms& base = step.parent < 0 ? program.base : slots[step.parent];
    const bool turns = step.motion == Kinematics::Motion::kRevolute;
    WithNumTerms(terms.count, [&](auto count) {
      if (turns) {
        ApplyTurningStep<decltype(count)::value>(d, base, step, terms, sines + i * kNumLanes,
                                                 cosines + i * kNumLanes, num_lanes, slots[i]);
      } else {
        ApplyOffset<decltype(count)::value>(d, base, step.origin, terms, num_lanes, slots[i]);
      }
    });
    if (!turns) {
      Slide(d, base, step, sines + i * kNumLanes, num_lanes, slots[i]);
    }
  }
  for (std::size_t i = 0; i < plan.frames.size(); ++i) {
    const Kinematics::Attachment& frame = plan.frames[i];
    // What does not move was placed once and for all.
    if (frame.slot >= 0 && !Coincides(frame.offset)) {
      const Terms& terms = program.frame_terms[i];
      WithNumTerms(terms.count, [&](auto count) {
        ApplyOffset<decltype(count)::value>(d, slots[frame.slot], frame.offset, terms, num_lanes,
                                            attached[i]);
      });
    }
  }
}

void Run(const LaneProgram& program, const double* sines, const double* cosines, std::size_t num_lanes,
         LaneTransforms* slots, LaneTransforms* attached) {
  if (num_lanes <= 4) {
    RunLanes(hn::CappedTag<double, 4>(), program, sines, cosines, 4, slots, attached);
  } else {
    RunLanes(hn::CappedTag<double, kNumLanes>(), program, sines, cosines, kNumLanes, slots, attached);
  }
}

}  // namespace
}  // namespace kavo::kinematics::internal::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace kavo::kinematics::internal {

HWY_EXPORT(Run);

namespace {

LaneProgram::Terms TermsOf(const Kinematics::Offset& offset) {
  LaneProgram::Terms terms;
  for (int column = 0; column < 3; ++column) {
    if (offset.transform.translation[column] != 0.0) {
      terms.columns[terms.count] = static_cast<std::size_t>(column);
      terms.factors[terms.count] = offset.transform.translation[column];
      ++terms.count;
    }
  }
  return terms;
}

void SetAllLanes(const math::RigidTransform& transform, math::LaneTransforms* lanes) {
  for (std::size_t r = 0; r < 3; ++r) {
    const auto row = static_cast<Eigen::Index>(r);
    for (std::size_t c = 0; c < 3; ++c) {
      std::fill_n(lanes->at(r, c), math::kNumLanes, transform.rotation(row, static_cast<Eigen::Index>(c)));
    }
    std::fill_n(lanes->at(r, 3), math::kNumLanes, transform.translation[row]);
  }
}

}  // namespace

LaneSweep::LaneSweep(Kinematics::Plan plan) : program_{std::move(plan), {}, {}, {}} {
  const std::vector<Kinematics::Step>& steps = program_.plan.steps;
  const std::vector<Kinematics::Attachment>& frames = program_.plan.frames;
  values_.resize(steps.size() * math::kNumLanes);
  sines_.resize(values_.size());
  cosines_.resize(values_.size());
  slots_.resize(steps.size());
  attached_.resize(frames.size());
  hwy::GetChosenTarget().Update(hwy::SupportedTargets());
  run_ = &HWY_DYNAMIC_DISPATCH(Run);

  SetAllLanes(math::RigidTransform(), &program_.base);
  for (const Kinematics::Step& step : steps) {
    program_.step_terms.push_back(TermsOf(step.origin));
  }
  for (std::size_t i = 0; i < frames.size(); ++i) {
    program_.frame_terms.push_back(TermsOf(frames[i].offset));
    const bool is_slot = frames[i].slot >= 0 && Coincides(frames[i].offset);
    frames_.push_back(is_slot ? &slots_[static_cast<std::size_t>(frames[i].slot)] : &attached_[i]);
    if (frames[i].slot < 0) {
      SetAllLanes(frames[i].offset.transform, &attached_[i]);
    }
  }
}

const std::vector<const math::LaneTransforms*>& LaneSweep::compute(const double* configurations,
                                                                   std::ptrdiff_t stride, std::size_t count) {
  const std::size_t num_lanes = count <= 4 ? 4 : math::kNumLanes;
  for (std::size_t i = 0; i < program_.plan.steps.size(); ++i) {
    const Kinematics::Step& step = program_.plan.steps[i];
    const double* q = configurations + step.coordinate;
    double* const values = values_.data() + i * math::kNumLanes;
    for (std::size_t lane = 0; lane < count; ++lane) {
      values[lane] = q[static_cast<std::ptrdiff_t>(lane) * stride];
    }
    if (step.ratio) {
      for (std::size_t lane = 0; lane < count; ++lane) {
        values[lane] = step.value(values[lane]);
      }
    }
    std::fill(values + count, values + num_lanes, values[count - 1]);
  }
  if (num_lanes == math::kNumLanes) {
    SinCos(values_.data(), sines_.data(), cosines_.data(), values_.size());
  } else {
    for (std::size_t i = 0; i < values_.size(); i += math::kNumLanes) {
      SinCos(values_.data() + i, sines_.data() + i, cosines_.data() + i, num_lanes);
    }
  }
  for (std::size_t i = 0; i < program_.plan.steps.size(); ++i) {
    if (program_.plan.steps[i].motion == Kinematics::Motion::kPrismatic) {
      std::copy_n(values_.data() + i * math::kNumLanes, num_lanes, sines_.data() + i * math::kNumLanes);
    }
  }
  run_(program_, sines_.data(), cosines_.data(), num_lanes, slots_.data(), attached_.data());
  return frames_;
}

}  // namespace kavo::kinematics::internal

#endif  // HWY_ONCE
