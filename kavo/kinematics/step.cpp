#include <cstddef>

#include "kavo/kinematics/step_internal.h"

// This file is compiled once for each set of wide vectors; the include below repeats it.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kavo/kinematics/step.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace kavo::kinematics::internal::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

using D = hn::CappedTag<double, 4>;
using V = hn::Vec<D>;

// Calls `work(row)` for the first row of each vector of a column.
template <class Work>
HWY_INLINE void ForEachRow(const Work& work) {
  for (std::size_t row = 0; row < 4; row += hn::Lanes(D())) {
    work(row);
  }
}

// base.axes * (x, y, z).
HWY_INLINE V Combine(const Columns& base, std::size_t row, double x, double y, double z) {
  const D d;
  const V sum = hn::Add(hn::Mul(hn::Load(d, base.axes[0] + row), hn::Set(d, x)),
                        hn::Mul(hn::Load(d, base.axes[1] + row), hn::Set(d, y)));
  return hn::Add(sum, hn::Mul(hn::Load(d, base.axes[2] + row), hn::Set(d, z)));
}

// base * offset.
HWY_INLINE void ApplyOffset(const Columns& base, const Kinematics::Offset& offset, Columns* result) {
  const D d;
  const Eigen::Vector3d& t = offset.transform.translation;
  ForEachRow([&](std::size_t row) {
    for (int column = 0; column < 3; ++column) {
      V axis;
      if (offset.kind == Kinematics::RotationKind::kIdentity) {
        axis = hn::Load(d, base.axes[column] + row);
      } else if (offset.kind == Kinematics::RotationKind::kAxes) {
        axis = hn::Mul(hn::Load(d, base.axes[offset.source[column]] + row), hn::Set(d, offset.sign[column]));
      } else {
        const auto turned = offset.transform.rotation.col(column);
        axis = Combine(base, row, turned[0], turned[1], turned[2]);
      }
      hn::Store(axis, d, result->axes[column] + row);
    }
    const V origin = hn::Add(Combine(base, row, t[0], t[1], t[2]), hn::Load(d, base.origin + row));
    hn::Store(origin, d, result->origin + row);
  });
}

HWY_INLINE void SetColumns(const math::RigidTransform& transform, Columns* columns) {
  for (int row = 0; row < 4; ++row) {
    for (int column = 0; column < 3; ++column) {
      // A step has a slot, even where nothing carries it.
      // NOLINTNEXTLINE(clang-analyzer-core.NullDereference)
      columns->axes[column][row] = row < 3 ? transform.rotation(row, column) : 0.0;
    }
    columns->origin[row] = row < 3 ? transform.translation[row] : 0.0;
  }
}

HWY_INLINE void RunInline(const Kinematics::Step& step, const Columns* parent, double motion, double cosine,
                          Columns* slot) {
  const D d;
  if (parent == nullptr) {
    SetColumns(step.origin.transform, slot);
  } else {
    ApplyOffset(*parent, step.origin, slot);
  }
  if (step.motion == Kinematics::Motion::kRevolute) {
    double* const a = slot->axes[step.axis == 2 ? 0 : step.axis + 1];
    double* const b = slot->axes[step.axis == 0 ? 2 : step.axis - 1];
    const V cos = hn::Set(d, cosine);
    const V sin = hn::Set(d, motion * step.sign);
    ForEachRow([&](std::size_t row) {
      const V old_a = hn::Load(d, a + row);
      const V old_b = hn::Load(d, b + row);
      hn::Store(hn::Add(hn::Mul(old_a, cos), hn::Mul(old_b, sin)), d, a + row);
      hn::Store(hn::Sub(hn::Mul(old_b, cos), hn::Mul(old_a, sin)), d, b + row);
    });
  } else {
    const double x = step.slide[0] * motion;
    const double y = step.slide[1] * motion;
    const double z = step.slide[2] * motion;
    if (parent == nullptr) {
      slot->origin[0] += x;
      slot->origin[1] += y;
      slot->origin[2] += z;
    } else {
      ForEachRow([&](std::size_t row) {
        const V origin = hn::Add(hn::Load(d, slot->origin + row), Combine(*parent, row, x, y, z));
        hn::Store(origin, d, slot->origin + row);
      });
    }
  }
}

HWY_INLINE void PlaceInline(const Kinematics::Attachment& attachment, const Columns* slot,
                            math::RigidTransform* frame) {
  if (slot == nullptr) {
    *frame = attachment.offset.transform;
    return;
  }
  const D d;
  Columns placed;
  ApplyOffset(*slot, attachment.offset, &placed);
  // The fourth place of a column is overwritten by the next one.
  double* const rotation = frame->rotation.data();
  ForEachRow([&](std::size_t row) { hn::StoreU(hn::Load(d, placed.axes[0] + row), d, rotation + row); });
  ForEachRow([&](std::size_t row) { hn::StoreU(hn::Load(d, placed.axes[1] + row), d, rotation + 3 + row); });
  for (int row = 0; row < 3; ++row) {
    rotation[6 + row] = placed.axes[2][row];
    frame->translation[row] = placed.origin[row];
  }
}

void RunOne(const Kinematics::Step& step, const Columns* parent, double motion, double cosine,
            Columns* slot) {
  RunInline(step, parent, motion, cosine, slot);
}

void PlaceOne(const Kinematics::Attachment& attachment, const Columns* slot, math::RigidTransform* frame) {
  PlaceInline(attachment, slot, frame);
}

void RunAll(const Kinematics::Plan& plan, const double* motions, const double* cosines, Columns* slots,
            math::RigidTransform* frames) {
  const auto at = [&](int slot) { return slot < 0 ? nullptr : slots + slot; };
  for (std::size_t i = 0; i < plan.steps.size(); ++i) {
    RunInline(plan.steps[i], at(plan.steps[i].parent), motions[i], cosines[i], slots + i);
  }
  for (std::size_t i = 0; i < plan.frames.size(); ++i) {
    PlaceInline(plan.frames[i], at(plan.frames[i].slot), frames + i);
  }
}

}  // namespace
}  // namespace kavo::kinematics::internal::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace kavo::kinematics::internal {

HWY_EXPORT(RunOne);
HWY_EXPORT(PlaceOne);
HWY_EXPORT(RunAll);

void RunStep(const Kinematics::Step& step, const Columns* parent, double motion, double cos, Columns* slot) {
  HWY_DYNAMIC_DISPATCH(RunOne)(step, parent, motion, cos, slot);
}

void PlaceFrame(const Kinematics::Attachment& attachment, const Columns* slot, math::RigidTransform* frame) {
  HWY_DYNAMIC_DISPATCH(PlaceOne)(attachment, slot, frame);
}

void RunPlan(const Kinematics::Plan& plan, const double* motions, const double* cosines, Columns* slots,
             math::RigidTransform* frames) {
  HWY_DYNAMIC_DISPATCH(RunAll)(plan, motions, cosines, slots, frames);
}

Eigen::Vector3d SlideInBase(const Kinematics::Step& step, const Columns& parent) {
  const Eigen::Vector3d& s = step.slide;
  Eigen::Vector3d slide;
  for (int row = 0; row < 3; ++row) {
    slide[row] = parent.axes[0][row] * s[0] + parent.axes[1][row] * s[1] + parent.axes[2][row] * s[2];
  }
  return slide;
}

}  // namespace kavo::kinematics::internal

#endif  // HWY_ONCE
