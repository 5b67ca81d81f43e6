#include "kavo/kinematics/pose_lanes_internal.h"

#include <algorithm>
#include <cmath>

#include "kavo/math/constants_internal.h"
#include "kavo/math/lane_inline_internal.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kavo/kinematics/pose_lanes.cpp"
#include <hwy/foreach_target.h>
// After foreach_target.h, as Highway wants it.
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace kavo::kinematics::internal::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

using math::kNumLanes;

using D = hn::CappedTag<float, kNumLanes>;
using V = hn::Vec<D>;
using Program = PoseLanes::Program;
using Rotation = PoseLanes::Rotation;

constexpr std::size_t kRow = math::LaneTransforms::kRow;

// A descent ends when this many steps in a row have not brought the squared error below this share.
constexpr float kPatience = 4.0f;
constexpr float kFall = 0.8f;

constexpr float kDamping = 0.1f;
constexpr float kLeastDamping = 1e-8f;

// Half of the angle between the remaining rotation and a half turn is not taken to be smaller: what divides
// by its sine would be lost in rounding.
constexpr float kLeastReal = 0.05f;

// a * b + c * d and so on; nothing is fused.
KAVO_LANE_INLINE V Sum(V a, V b, V c, V d) { return hn::Add(hn::Mul(a, b), hn::Mul(c, d)); }
KAVO_LANE_INLINE V Sum(V a, V b, V c, V d, V e, V f) { return hn::Add(Sum(a, b, c, d), hn::Mul(e, f)); }
KAVO_LANE_INLINE V Difference(V a, V b, V c, V d) { return hn::Sub(hn::Mul(a, b), hn::Mul(c, d)); }

// The entry of a place in the lanes from `lane` on.
KAVO_LANE_INLINE V Entry(const math::LaneTransforms& place, std::size_t row, std::size_t column,
                         std::size_t lane) {
  return hn::Load(D(), place.entries + row * kRow + column * kNumLanes + lane);
}

// One entry of the tool's column: a row of what carries it times its own.
KAVO_LANE_INLINE V ToolEntry(const Program& program, std::size_t row, std::size_t column, std::size_t lane) {
  const float* const own = program.tool[column];
  const D d;
  return Sum(Entry(*program.part, row, 0, lane), hn::Set(d, own[0]),  //
             Entry(*program.part, row, 1, lane), hn::Set(d, own[1]),  //
             Entry(*program.part, row, 2, lane), hn::Set(d, own[2]));
}

// What remains, as rows of the equations and as squares, and what the derivatives of its rotation need.
struct Rows {
  HWY_ALIGN float error[6][kNumLanes];
  HWY_ALIGN float tool[3][kNumLanes];
  HWY_ALIGN float quaternion[4][kNumLanes];
  // Of the position and of the rotation, if they have room: what is left of them, as a share, of what is
  // along them less that, and where they point.
  HWY_ALIGN float share[2][kNumLanes];
  HWY_ALIGN float share_along[2][kNumLanes];
  HWY_ALIGN float direction[6][kNumLanes];
};

// Takes off the position or the rotation what it may be off; `squared` is its square before, and after.
KAVO_LANE_INLINE V LeaveRoom(const Program& program, std::size_t block, V squared, Rows& rows) {
  if (program.room[block] == 0.0f) {
    return squared;
  }
  const D d;
  const V one = hn::Set(d, 1.0f);
  const V room = hn::Set(d, program.room[block]);
  const V length = hn::Sqrt(squared);
  const auto is_beyond = hn::Gt(length, room);
  const V inverse = hn::IfThenElseZero(is_beyond, hn::Div(one, hn::Max(length, room)));
  const V share = hn::IfThenElseZero(is_beyond, hn::Sub(one, hn::Mul(room, inverse)));
  hn::Store(share, d, rows.share[block]);
  hn::Store(hn::Sub(hn::IfThenElseZero(is_beyond, one), share), d, rows.share_along[block]);
  for (std::size_t row = 3 * block; row < 3 * block + 3; ++row) {
    const V error = hn::Load(d, rows.error[row]);
    hn::Store(hn::Mul(error, inverse), d, rows.direction[row]);
    hn::Store(hn::Mul(error, share), d, rows.error[row]);
  }
  return hn::Mul(squared, hn::Mul(share, share));
}

template <Rotation kRotation>
KAVO_LANE_INLINE void SetRows(const Program& program, std::size_t lane, Rows& rows, V& position,
                              V& rotation) {
  const D d;
  position = hn::Zero(d);
  rotation = hn::Zero(d);
  for (std::size_t row = 0; row < 3; ++row) {
    const V entry = hn::Add(ToolEntry(program, row, 3, lane), Entry(*program.part, row, 3, lane));
    const V error = hn::Mul(entry, hn::Set(d, program.position_scale[row]));
    position = hn::Add(position, hn::Mul(error, error));
    hn::Store(entry, d, rows.tool[row]);
    hn::Store(error, d, rows.error[row]);
  }
  const V one = hn::Set(d, 1.0f);
  if constexpr (kRotation == Rotation::kAboutTwoOrNone) {
    // The axis from where the free one belongs to where it is, as long as twice the sine of half of the
    // angle.
    const std::size_t a = (program.axis + 1) % 3;
    const std::size_t b = (program.axis + 2) % 3;
    const V cosine = ToolEntry(program, program.axis, program.axis, lane);
    const V half_cosine = hn::Sqrt(
        hn::Max(hn::Mul(hn::Add(one, cosine), hn::Set(d, 0.5f)), hn::Set(d, kLeastReal * kLeastReal)));
    const V error_a =
        hn::Div(hn::Mul(ToolEntry(program, b, program.axis, lane), hn::Set(d, -program.rotation_scale[a])),
                half_cosine);
    const V error_b =
        hn::Div(hn::Mul(ToolEntry(program, a, program.axis, lane), hn::Set(d, program.rotation_scale[b])),
                half_cosine);
    hn::Store(error_a, d, rows.error[3 + a]);
    hn::Store(error_b, d, rows.error[3 + b]);
    hn::Store(hn::Zero(d), d, rows.error[3 + program.axis]);
    // Near a half turn the axis is lost, the angle is not.
    const V squares = Sum(error_a, error_a, error_b, error_b);
    const V about = hn::Mul(hn::Sub(one, cosine), hn::Set(d, 2.0f * program.rotation_scale[a]));
    rotation = hn::IfThenElse(hn::Lt(cosine, hn::Zero(d)), about, squares);
  } else {
    const V trace = hn::Add(hn::Add(ToolEntry(program, 0, 0, lane), ToolEntry(program, 1, 1, lane)),
                            ToolEntry(program, 2, 2, lane));
    const V real = hn::Sqrt(
        hn::Max(hn::Mul(hn::Add(one, trace), hn::Set(d, 0.25f)), hn::Set(d, kLeastReal * kLeastReal)));
    const V factor = hn::Div(hn::Set(d, 0.5f), real);
    for (std::size_t i = 0; i < 3; ++i) {
      const std::size_t a = (i + 1) % 3;
      const std::size_t b = (i + 2) % 3;
      const V twice =
          hn::Mul(hn::Sub(ToolEntry(program, b, a, lane), ToolEntry(program, a, b, lane)), factor);
      if constexpr (kRotation == Rotation::kWhole) {
        hn::Store(twice, d, rows.error[3 + i]);
        rotation = hn::Add(rotation, hn::Mul(twice, twice));
      } else {
        hn::Store(hn::Mul(twice, hn::Set(d, 0.5f)), d, rows.quaternion[i]);
        const V error = hn::Mul(twice, hn::Set(d, program.rotation_scale[i]));
        hn::Store(error, d, rows.error[3 + i]);
        rotation = hn::Add(rotation, hn::Mul(error, error));
      }
    }
    if constexpr (kRotation == Rotation::kWhole) {
      rotation = hn::IfThenElse(hn::Lt(trace, hn::Zero(d)), hn::Sub(hn::Set(d, 3.0f), trace), rotation);
    } else {
      hn::Store(real, d, rows.quaternion[3]);
    }
  }
}

// Adds the derivatives of a joint to those of its coordinate.
template <Rotation kRotation>
KAVO_LANE_INLINE void SetDerivatives(const Program& program, const PoseLanes::Joint& joint, std::size_t lane,
                                     const Rows& rows) {
  const D d;
  float* const derivatives = program.derivatives + 6 * joint.coordinate * kNumLanes + lane;
  const auto put = [&](std::size_t row, V value) {
    float* const at = derivatives + row * kNumLanes;
    hn::Store(joint.adds ? hn::Add(hn::Load(d, at), value) : value, d, at);
  };
  const math::LaneTransforms& place = *joint.place;
  const auto position_scale = [&](std::size_t row) { return hn::Set(d, program.position_scale[row]); };
  if (!joint.is_revolute) {
    const V x = hn::Set(d, joint.slide[0]);
    const V y = hn::Set(d, joint.slide[1]);
    const V z = hn::Set(d, joint.slide[2]);
    for (std::size_t row = 0; row < 3; ++row) {
      const V shift =
          Sum(Entry(place, row, 0, lane), x, Entry(place, row, 1, lane), y, Entry(place, row, 2, lane), z);
      put(row, hn::Mul(shift, position_scale(row)));
      put(3 + row, hn::Zero(d));
    }
    return;
  }
  const V scale = hn::Set(d, joint.scale);
  const V x = hn::Mul(Entry(place, 0, joint.column, lane), scale);
  const V y = hn::Mul(Entry(place, 1, joint.column, lane), scale);
  const V z = hn::Mul(Entry(place, 2, joint.column, lane), scale);
  const V arm_x = hn::Sub(hn::Load(d, rows.tool[0]), Entry(place, 0, 3, lane));
  const V arm_y = hn::Sub(hn::Load(d, rows.tool[1]), Entry(place, 1, 3, lane));
  const V arm_z = hn::Sub(hn::Load(d, rows.tool[2]), Entry(place, 2, 3, lane));
  put(0, hn::Mul(Difference(y, arm_z, z, arm_y), position_scale(0)));
  put(1, hn::Mul(Difference(z, arm_x, x, arm_z), position_scale(1)));
  put(2, hn::Mul(Difference(x, arm_y, y, arm_x), position_scale(2)));
  if constexpr (kRotation == Rotation::kWhole) {
    put(3, x);
    put(4, y);
    put(5, z);
  } else if constexpr (kRotation == Rotation::kAboutTwoOrNone) {
    put(3, hn::Mul(x, hn::Set(d, program.rotation_scale[0])));
    put(4, hn::Mul(y, hn::Set(d, program.rotation_scale[1])));
    put(5, hn::Mul(z, hn::Set(d, program.rotation_scale[2])));
  } else {
    const auto q = [&](std::size_t i) { return hn::Load(d, rows.quaternion[i]); };
    put(3, hn::Mul(hn::Add(hn::Mul(q(3), x), Difference(y, q(2), z, q(1))),
                   hn::Set(d, program.rotation_scale[0])));
    put(4, hn::Mul(hn::Add(hn::Mul(q(3), y), Difference(z, q(0), x, q(2))),
                   hn::Set(d, program.rotation_scale[1])));
    put(5, hn::Mul(hn::Add(hn::Mul(q(3), z), Difference(x, q(1), y, q(0))),
                   hn::Set(d, program.rotation_scale[2])));
  }
}

// What `LeaveRoom` makes of the derivatives of a coordinate.
KAVO_LANE_INLINE void ScaleDerivatives(const Program& program, std::size_t block, std::size_t coordinate,
                                       std::size_t lane, const Rows& rows) {
  if (program.room[block] == 0.0f) {
    return;
  }
  const D d;
  float* const at = program.derivatives + (6 * coordinate + 3 * block) * kNumLanes + lane;
  const auto direction = [&](std::size_t i) { return hn::Load(d, rows.direction[3 * block + i]); };
  const auto entry = [&](std::size_t i) { return hn::Load(d, at + i * kNumLanes); };
  const V along = Sum(entry(0), direction(0), entry(1), direction(1), entry(2), direction(2));
  const V share_along = hn::Mul(along, hn::Load(d, rows.share_along[block]));
  const V share = hn::Load(d, rows.share[block]);
  for (std::size_t i = 0; i < 3; ++i) {
    hn::Store(Sum(entry(i), share, direction(i), share_along), d, at + i * kNumLanes);
  }
}

// Leaves out coordinates that stand at a limit while the error falls beyond it.
KAVO_LANE_INLINE void SetSlope(const Program& program, std::size_t coordinate, std::size_t lane,
                               const Rows& rows) {
  const D d;
  float* const derivatives = program.derivatives + 6 * coordinate * kNumLanes + lane;
  V slope = hn::Mul(hn::Load(d, derivatives), hn::Load(d, rows.error[0]));
  for (std::size_t row = 1; row < 6; ++row) {
    slope = hn::Add(slope, hn::Mul(hn::Load(d, derivatives + row * kNumLanes), hn::Load(d, rows.error[row])));
  }
  const V at_limit = hn::Load(d, program.at_limit + coordinate * kNumLanes + lane);
  const auto blocked = hn::Lt(hn::Mul(at_limit, slope), hn::Zero(d));
  hn::Store(hn::IfThenZeroElse(blocked, slope), d, program.slopes + coordinate * kNumLanes + lane);
  if (HWY_UNLIKELY(!hn::AllFalse(d, blocked))) {
    for (std::size_t row = 0; row < 6; ++row) {
      float* const at = derivatives + row * kNumLanes;
      hn::Store(hn::IfThenZeroElse(blocked, hn::Load(d, at)), d, at);
    }
  }
}

// Six rows; entry (i, k) at [i * row + k * column].
struct Matrix {
  const float* entries;
  std::size_t row, column;
  std::size_t num_columns;

  KAVO_LANE_INLINE V At(std::size_t i, std::size_t k) const {
    return hn::Load(D(), entries + i * row + k * column);
  }
};

// Products of rows i to i + 2 with one another, summed up.
KAVO_LANE_INLINE void AddSquares(const Matrix& m, std::size_t i, V& s00, V& s10, V& s11, V& s20, V& s21,
                                 V& s22) {
  for (std::size_t k = 0; k < m.num_columns; ++k) {
    const V a = m.At(i, k);
    const V b = m.At(i + 1, k);
    const V c = m.At(i + 2, k);
    s00 = hn::Add(s00, hn::Mul(a, a));
    s10 = hn::Add(s10, hn::Mul(b, a));
    s11 = hn::Add(s11, hn::Mul(b, b));
    s20 = hn::Add(s20, hn::Mul(c, a));
    s21 = hn::Add(s21, hn::Mul(c, b));
    s22 = hn::Add(s22, hn::Mul(c, c));
  }
}

// Of row i with rows 0 to 2.
KAVO_LANE_INLINE void AddProducts(const Matrix& m, std::size_t i, V& s0, V& s1, V& s2) {
  for (std::size_t k = 0; k < m.num_columns; ++k) {
    const V a = m.At(i, k);
    s0 = hn::Add(s0, hn::Mul(a, m.At(0, k)));
    s1 = hn::Add(s1, hn::Mul(a, m.At(1, k)));
    s2 = hn::Add(s2, hn::Mul(a, m.At(2, k)));
  }
}

// A symmetric 3 x 3 matrix as L D L^T: l10, l20 and l21 in place, and the reciprocals of the pivots.
KAVO_LANE_INLINE void Factor(V least, V a00, V& l10, V a11, V& l20, V& l21, V a22, V& r0, V& r1, V& r2) {
  const V one = hn::Set(D(), 1.0f);
  const V a10 = l10;
  const V a20 = l20;
  r0 = hn::Div(one, hn::Max(a00, least));
  l10 = hn::Mul(a10, r0);
  l20 = hn::Mul(a20, r0);
  const V a21 = hn::Sub(l21, hn::Mul(l20, a10));
  r1 = hn::Div(one, hn::Max(hn::Sub(a11, hn::Mul(l10, a10)), least));
  l21 = hn::Mul(a21, r1);
  r2 = hn::Div(one, hn::Max(hn::Sub(hn::Sub(a22, hn::Mul(l20, a20)), hn::Mul(l21, a21)), least));
}

// (x0, x1, x2) = L^-1 (x0, x1, x2).
KAVO_LANE_INLINE void Forward(V l10, V l20, V l21, V x0, V& x1, V& x2) {
  x1 = hn::Sub(x1, hn::Mul(l10, x0));
  x2 = hn::Sub(hn::Sub(x2, hn::Mul(l20, x0)), hn::Mul(l21, x1));
}

// (x0, x1, x2) = L^-T (x0, x1, x2).
KAVO_LANE_INLINE void Backward(V l10, V l20, V l21, V& x0, V& x1, V x2) {
  x1 = hn::Sub(x1, hn::Mul(l21, x2));
  x0 = hn::Sub(hn::Sub(x0, hn::Mul(l20, x2)), hn::Mul(l10, x1));
}

// Solves (m m^T + damping) x = b by L D L^T in blocks of three. Entry i of b and x at [i * kNumLanes].
void SolveDamped(const Matrix& m, const float* damping_lanes, const float* right, float* x) {
  const D d;
  const V damping = hn::Load(d, damping_lanes);
  const V least = hn::Mul(damping, hn::Set(d, 0.5f));
  const V zero = hn::Zero(d);
  V p00 = damping, l10 = zero, p11 = damping, l20 = zero, l21 = zero, p22 = damping;
  AddSquares(m, 0, p00, l10, p11, l20, l21, p22);
  V r0, r1, r2;
  Factor(least, p00, l10, p11, l20, l21, p22, r0, r1, r2);

  // The lower left block times L^-T, and that divided by the pivots.
  V w30 = zero, w31 = zero, w32 = zero, w40 = zero, w41 = zero, w42 = zero, w50 = zero, w51 = zero,
    w52 = zero;
  AddProducts(m, 3, w30, w31, w32);
  AddProducts(m, 4, w40, w41, w42);
  AddProducts(m, 5, w50, w51, w52);
  Forward(l10, l20, l21, w30, w31, w32);
  Forward(l10, l20, l21, w40, w41, w42);
  Forward(l10, l20, l21, w50, w51, w52);
  const V l30 = hn::Mul(w30, r0), l31 = hn::Mul(w31, r1), l32 = hn::Mul(w32, r2);
  const V l40 = hn::Mul(w40, r0), l41 = hn::Mul(w41, r1), l42 = hn::Mul(w42, r2);
  const V l50 = hn::Mul(w50, r0), l51 = hn::Mul(w51, r1), l52 = hn::Mul(w52, r2);
  V p33 = damping, l43 = zero, p44 = damping, l53 = zero, l54 = zero, p55 = damping;
  AddSquares(m, 3, p33, l43, p44, l53, l54, p55);
  p33 = hn::Sub(p33, Sum(w30, l30, w31, l31, w32, l32));
  l43 = hn::Sub(l43, Sum(w40, l30, w41, l31, w42, l32));
  p44 = hn::Sub(p44, Sum(w40, l40, w41, l41, w42, l42));
  l53 = hn::Sub(l53, Sum(w50, l30, w51, l31, w52, l32));
  l54 = hn::Sub(l54, Sum(w50, l40, w51, l41, w52, l42));
  p55 = hn::Sub(p55, Sum(w50, l50, w51, l51, w52, l52));
  V r3, r4, r5;
  Factor(least, p33, l43, p44, l53, l54, p55, r3, r4, r5);

  V x0 = hn::Load(d, right + 0 * kNumLanes), x1 = hn::Load(d, right + 1 * kNumLanes),
    x2 = hn::Load(d, right + 2 * kNumLanes);
  Forward(l10, l20, l21, x0, x1, x2);
  V x3 = hn::Sub(hn::Load(d, right + 3 * kNumLanes), Sum(l30, x0, l31, x1, l32, x2));
  V x4 = hn::Sub(hn::Load(d, right + 4 * kNumLanes), Sum(l40, x0, l41, x1, l42, x2));
  V x5 = hn::Sub(hn::Load(d, right + 5 * kNumLanes), Sum(l50, x0, l51, x1, l52, x2));
  Forward(l43, l53, l54, x3, x4, x5);
  x3 = hn::Mul(x3, r3);
  x4 = hn::Mul(x4, r4);
  x5 = hn::Mul(x5, r5);
  Backward(l43, l53, l54, x3, x4, x5);
  x0 = hn::Sub(hn::Mul(x0, r0), Sum(l30, x3, l40, x4, l50, x5));
  x1 = hn::Sub(hn::Mul(x1, r1), Sum(l31, x3, l41, x4, l51, x5));
  x2 = hn::Sub(hn::Mul(x2, r2), Sum(l32, x3, l42, x4, l52, x5));
  Backward(l10, l20, l21, x0, x1, x2);
  hn::Store(x0, d, x);
  hn::Store(x1, d, x + kNumLanes);
  hn::Store(x2, d, x + 2 * kNumLanes);
  hn::Store(x3, d, x + 3 * kNumLanes);
  hn::Store(x4, d, x + 4 * kNumLanes);
  hn::Store(x5, d, x + 5 * kNumLanes);
}

// Moves a coordinate.
KAVO_LANE_INLINE void Move(const Program& program, std::size_t index, std::size_t lane, V by) {
  const D d;
  const PoseLanes::Coordinate& coordinate = program.coordinates[index];
  float* const at = program.values + index * kNumLanes + lane;
  V value = hn::Sub(hn::Load(d, at), hn::Mul(by, hn::Set(d, coordinate.unit)));
  if (coordinate.turns) {
    const V turns = hn::Floor(hn::Add(hn::Mul(value, hn::Set(d, 0.159154943f)), hn::Set(d, 0.5f)));
    value = hn::Sub(value, hn::Mul(turns, hn::Set(d, 6.28318531f)));
  } else {
    const V min = hn::Set(d, coordinate.min);
    const V max = hn::Set(d, coordinate.max);
    const V one = hn::Set(d, 1.0f);
    value = hn::Min(hn::Max(value, min), max);
    hn::Store(
        hn::Sub(hn::IfThenElseZero(hn::Ge(value, max), one), hn::IfThenElseZero(hn::Le(value, min), one)), d,
        program.at_limit + index * kNumLanes + lane);
  }
  hn::Store(value, d, at);
}

// Whether a lane is near its target or goes on in vain, and how long it has.
KAVO_LANE_INLINE std::uint32_t Judge(const Program& program, std::size_t lane, V position, V rotation,
                                     V squared) {
  const D d;
  const V one = hn::Set(d, 1.0f);
  const V bound = hn::Load(d, program.bound + lane);
  const auto falls = hn::Lt(squared, bound);
  V patience =
      hn::IfThenElse(falls, hn::Set(d, kPatience), hn::Sub(hn::Load(d, program.patience + lane), one));
  hn::Store(hn::IfThenElse(falls, hn::Mul(squared, hn::Set(d, kFall)), bound), d, program.bound + lane);
  const auto near = hn::And(hn::Lt(position, hn::Set(d, program.near_position)),
                            hn::Lt(rotation, hn::Set(d, program.near_rotation)));
  patience = hn::IfThenElse(near, hn::Neg(one), patience);
  hn::Store(patience, d, program.patience + lane);
  hn::Store(squared, d, program.squared + lane);
  std::uint8_t bits[8] = {};
  hn::StoreMaskBits(d, hn::Le(patience, hn::Zero(d)), bits);
  return static_cast<std::uint32_t>(bits[0]) << lane;
}

// Goes the step that the derivatives and what remains ask for.
void MoveAll(const Program& program, std::size_t lane, const Rows& rows) {
  const D d;
  const std::size_t count = program.coordinates.size();
  for (std::size_t c = 0; c < count; ++c) {
    ScaleDerivatives(program, 0, c, lane, rows);
    ScaleDerivatives(program, 1, c, lane, rows);
    SetSlope(program, c, lane, rows);
  }
  HWY_ALIGN float damping[kNumLanes];
  hn::Store(
      hn::Add(hn::Mul(hn::Load(d, program.squared + lane), hn::Set(d, kDamping)), hn::Set(d, kLeastDamping)),
      d, damping);
  HWY_ALIGN float x[6 * kNumLanes];
  const float* const derivatives = program.derivatives + lane;
  if (count >= 6) {
    SolveDamped({derivatives, kNumLanes, 6 * kNumLanes, count}, damping, rows.error[0], x);
    for (std::size_t c = 0; c < count; ++c) {
      const auto product = [&](std::size_t row) {
        return hn::Mul(hn::Load(d, derivatives + (6 * c + row) * kNumLanes),
                       hn::Load(d, x + row * kNumLanes));
      };
      Move(program, c, lane,
           hn::Add(hn::Add(hn::Add(product(0), product(1)), product(2)),
                   hn::Add(hn::Add(product(3), product(4)), product(5))));
    }
  } else {
    SolveDamped({derivatives, 6 * kNumLanes, kNumLanes, 6}, damping, program.slopes + lane, x);
    for (std::size_t c = 0; c < count; ++c) {
      Move(program, c, lane, hn::Load(d, x + c * kNumLanes));
    }
  }
}

template <Rotation kRotation>
std::uint32_t Step(const Program& program) {
  const D d;
  std::uint32_t ended = 0;
  for (std::size_t lane = 0; lane < kNumLanes; lane += hn::Lanes(d)) {
    Rows rows;
    V position, rotation;
    SetRows<kRotation>(program, lane, rows, position, rotation);
    const V squared = hn::Add(LeaveRoom(program, 0, position, rows), LeaveRoom(program, 1, rotation, rows));
    ended |= Judge(program, lane, position, rotation, squared);
    for (const PoseLanes::Joint& joint : program.joints) {
      SetDerivatives<kRotation>(program, joint, lane, rows);
    }
    MoveAll(program, lane, rows);
  }
  return ended;
}

std::uint32_t StepWhole(const Program& program) { return Step<Rotation::kWhole>(program); }
std::uint32_t StepAboutTwoOrNone(const Program& program) { return Step<Rotation::kAboutTwoOrNone>(program); }
std::uint32_t StepAboutOne(const Program& program) { return Step<Rotation::kAboutOne>(program); }

}  // namespace
}  // namespace kavo::kinematics::internal::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace kavo::kinematics::internal {

HWY_EXPORT(StepWhole);
HWY_EXPORT(StepAboutTwoOrNone);
HWY_EXPORT(StepAboutOne);

namespace {

// From here on double precision goes on: metres, and radians.
constexpr double kNearPosition = 2e-3;
constexpr double kNearRotation = 4e-3;

float* Floats(std::vector<Lanes>& lanes) { return reinterpret_cast<float*>(lanes.data()); }

float ToFloat(double value) { return static_cast<float>(std::fmin(std::fmax(value, -1e30), 1e30)); }

}  // namespace

PoseLanes::PoseLanes(const PoseModel& model)
    : model_(model),
      sweep_(model.plan),
      coordinates_(std::max<std::size_t>(model.coordinates.size(), 1)),
      at_limit_(coordinates_.size()),
      slopes_(std::max<std::size_t>(model.coordinates.size(), 6)),
      derivatives_(6 * slopes_.size()) {
  std::vector<char> has_joint(coordinates_.size(), 0);
  for (std::size_t i = 0; i < model.plan.steps.size(); ++i) {
    const Kinematics::Step& step = model.plan.steps[i];
    Joint joint;
    joint.is_revolute = step.motion == Kinematics::Motion::kRevolute;
    joint.place = &sweep_.place(joint.is_revolute ? static_cast<int>(i) : step.parent);
    joint.coordinate = static_cast<std::size_t>(step.coordinate);
    joint.adds = has_joint[joint.coordinate] != 0;
    has_joint[joint.coordinate] = 1;
    joint.column = static_cast<std::size_t>(step.axis);
    const double scale =
        (step.ratio ? step.ratio->multiplier : 1.0) * model.coordinates[joint.coordinate].unit;
    joint.scale = ToFloat(scale * step.sign);
    for (int k = 0; k < 3; ++k) {
      joint.slide[k] = ToFloat(scale * step.slide[k]);
    }
    program_.joints.push_back(joint);
  }
  program_.part = &sweep_.place(model.plan.frames.front().slot);
  program_.values = Floats(coordinates_);
  program_.at_limit = Floats(at_limit_);
  program_.slopes = Floats(slopes_);
  program_.derivatives = Floats(derivatives_);
  program_.squared = squared_.values;
  program_.bound = bound_.values;
  program_.patience = patience_.values;
}

void PoseLanes::setTarget(const PoseTarget& target) {
  sweep_.setBase(math::RigidTransform(target.pose.inverse()));
  const math::RigidTransform tool =
      model_.plan.frames.front().offset.transform * math::RigidTransform(target.tool);
  for (int column = 0; column < 4; ++column) {
    for (int row = 0; row < 3; ++row) {
      program_.tool[column][row] = ToFloat(column < 3 ? tool.rotation(row, column) : tool.translation[row]);
    }
  }
  std::size_t num_counts = 0;
  for (std::size_t i = 0; i < 3; ++i) {
    program_.position_scale[i] = target.position_counts[i] ? ToFloat(1.0 / model_.unit_length) : 0.0f;
    program_.rotation_scale[i] = target.rotation_counts[i] ? 1.0f : 0.0f;
    num_counts += target.rotation_counts[i] ? 1 : 0;
  }
  program_.axis = 0;
  while (num_counts % 3 != 0 && target.rotation_counts[program_.axis] != (num_counts == 1)) {
    ++program_.axis;
  }
  if (num_counts == 3) {
    program_.rotation = Rotation::kWhole;
    step_ = &HWY_DYNAMIC_DISPATCH(StepWhole);
  } else if (num_counts == 1) {
    program_.rotation = Rotation::kAboutOne;
    step_ = &HWY_DYNAMIC_DISPATCH(StepAboutOne);
  } else {
    program_.rotation = Rotation::kAboutTwoOrNone;
    step_ = &HWY_DYNAMIC_DISPATCH(StepAboutTwoOrNone);
  }
  const PoseRoom room(target, model_.unit_length);
  program_.room[0] = ToFloat(room.position);
  program_.room[1] = ToFloat(room.rotation);
  const auto square = [](double value) { return ToFloat(value * value); };
  program_.near_position = square(std::fmax(kNearPosition, target.position_tolerance) / model_.unit_length);
  program_.near_rotation = square(std::fmax(kNearRotation, target.orientation_tolerance));
  program_.coordinates.clear();
  for (const PoseModel::Coordinate& coordinate : model_.coordinates) {
    program_.coordinates.push_back({coordinate.turns, ToFloat(coordinate.limits.min),
                                    ToFloat(coordinate.limits.max), ToFloat(coordinate.unit)});
  }
}

void PoseLanes::begin(std::size_t lane, const Eigen::VectorXd& q) {
  for (std::size_t c = 0; c < model_.coordinates.size(); ++c) {
    double value = q[static_cast<Eigen::Index>(c)];
    if (model_.coordinates[c].turns) {
      value -= math::kTwoPi * std::floor(value / math::kTwoPi + 0.5);
    }
    coordinates_[c].values[lane] = ToFloat(value);
    at_limit_[c].values[lane] = 0.0f;
  }
  bound_.values[lane] = 1e30f;
  patience_.values[lane] = 1.0f;
}

void PoseLanes::get(std::size_t lane, Eigen::VectorXd& q) const {
  for (std::size_t c = 0; c < model_.coordinates.size(); ++c) {
    q[static_cast<Eigen::Index>(c)] =
        model_.coordinates[c].brought(static_cast<double>(coordinates_[c].values[lane]), true);
  }
}

}  // namespace kavo::kinematics::internal

#endif  // HWY_ONCE
