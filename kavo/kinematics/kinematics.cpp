#include "kavo/kinematics/kinematics.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "kavo/kinematics/sin_cos_internal.h"
#include "kavo/kinematics/step_internal.h"
#include "kavo/util/log_message.h"

namespace kavo::kinematics {

namespace {

using math::RigidTransform;

constexpr double kSnap = 1e-15;

double SnapEntry(double value) {
  for (const double exact : {0.0, 1.0, -1.0}) {
    if (std::fabs(value - exact) <= kSnap) {
      return exact;
    }
  }
  return value;
}

bool IsRotationToRounding(const Eigen::Matrix3d& m) {
  for (int a = 0; a < 3; ++a) {
    for (int b = a; b < 3; ++b) {
      const double product = m(0, a) * m(0, b) + m(1, a) * m(1, b) + m(2, a) * m(2, b);
      if (std::fabs(product - (a == b ? 1.0 : 0.0)) > kSnap) {
        return false;
      }
    }
  }
  return true;
}

// A quarter turn that went through a quaternion comes back with entries like 2e-16; made exact, it keeps what
// lies on an axis on the axis.
Eigen::Matrix3d Snap(const Eigen::Matrix3d& rotation) {
  const Eigen::Matrix3d snapped = rotation.unaryExpr(&SnapEntry);
  return IsRotationToRounding(snapped) ? snapped : rotation;
}

Kinematics::Offset MakeOffset(const RigidTransform& transform) {
  Kinematics::Offset offset;
  offset.transform = {Snap(transform.rotation), transform.translation};
  bool axes = true;
  bool identity = true;
  for (int column = 0; column < 3; ++column) {
    for (int row = 0; row < 3; ++row) {
      const double entry = offset.transform.rotation(row, column);
      axes = axes && (entry == 0.0 || std::fabs(entry) == 1.0);
      identity = identity && entry == (row == column ? 1.0 : 0.0);
      if (std::fabs(entry) == 1.0) {
        offset.source[column] = static_cast<std::int8_t>(row);
        offset.sign[column] = entry;
      }
    }
  }
  offset.kind = identity ? Kinematics::RotationKind::kIdentity
                         : (axes ? Kinematics::RotationKind::kAxes : Kinematics::RotationKind::kGeneral);
  return offset;
}

// A pose in a frame as it is in the slot that the frame is attached to.
RigidTransform InSlot(const Kinematics::Attachment& frame, const Pose3& pose) {
  return frame.offset.transform * RigidTransform(Snap(RigidTransform(pose).rotation), pose.translation());
}

Eigen::Vector3d Normalize(const Eigen::Vector3d& v) {
  // By the largest coordinate first, so that no square overflows or vanishes.
  const double scale = std::fmax(std::fabs(v[0]), std::fmax(std::fabs(v[1]), std::fabs(v[2])));
  const double x = v[0] / scale;
  const double y = v[1] / scale;
  const double z = v[2] / scale;
  const double length = std::sqrt(x * x + y * y + z * z);
  Eigen::Vector3d unit(x / length, y / length, z / length);
  // Next to a coordinate axis counts as on it. One entry near 1 is not enough: the others may still be 1e-8.
  for (int i = 0; i < 3; ++i) {
    if (std::fabs(unit[(i + 1) % 3]) <= kSnap && std::fabs(unit[(i + 2) % 3]) <= kSnap) {
      unit = std::copysign(1.0, unit[i]) * Eigen::Vector3d::Unit(i);
    }
  }
  return unit;
}

Eigen::Vector3d Cross(const Eigen::Vector3d& a, const Eigen::Vector3d& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

// A rotation that takes z to the unit vector `direction`.
Eigen::Matrix3d TurnFromZ(const Eigen::Vector3d& direction) {
  int smallest = 0;
  for (int i = 1; i < 3; ++i) {
    if (std::fabs(direction[i]) < std::fabs(direction[smallest])) {
      smallest = i;
    }
  }
  const Eigen::Vector3d x = Normalize(Cross(Eigen::Vector3d::Unit(smallest), direction));
  Eigen::Matrix3d turn;
  turn.col(0) = x;
  turn.col(1) = Cross(direction, x);
  turn.col(2) = direction;
  return turn;
}

}  // namespace

Kinematics::Kinematics(std::vector<Frame> frames) : frames_(std::move(frames)) {
  chain_begin_.push_back(0);
  for (const Frame& frame : frames_) {
    // The frame while its coordinate is zero, in the slot that its parent frame is attached to.
    int slot = -1;
    RigidTransform origin;
    if (frame.parent >= 0) {
      const auto parent = static_cast<std::size_t>(frame.parent);
      slot = program_.frames[parent].slot;
      origin = InSlot(program_.frames[parent], frame.origin);
      for (std::size_t i = chain_begin_[parent]; i < chain_begin_[parent + 1]; ++i) {
        chain_slots_.push_back(chain_slots_[i]);
      }
    }
    if (frame.motion == Motion::kFixed) {
      program_.frames.push_back({slot, MakeOffset(origin)});
    } else {
      Step step;
      step.parent = slot;
      step.coordinate = frame.coordinate;
      step.ratio = frame.ratio;
      step.motion = frame.motion;
      const Eigen::Vector3d axis = Normalize(frame.axis);
      RigidTransform frame_in_slot;
      if (frame.motion == Motion::kPrismatic) {
        step.slide = math::Rotate(origin.rotation, axis);
      } else {
        bool on_coordinate_axis = false;
        for (int i = 0; i < 3; ++i) {
          if (axis[(i + 1) % 3] == 0.0 && axis[(i + 2) % 3] == 0.0) {
            on_coordinate_axis = true;
            step.axis = i;
            step.sign = axis[i];
          }
        }
        if (!on_coordinate_axis) {
          const RigidTransform turn(TurnFromZ(axis), Eigen::Vector3d::Zero());
          origin = origin * turn;
          frame_in_slot.rotation = turn.rotation.transpose();
        }
      }
      step.origin = MakeOffset(origin);
      const int own_slot = static_cast<int>(program_.steps.size());
      program_.steps.push_back(step);
      program_.frames.push_back({own_slot, MakeOffset(frame_in_slot)});
      chain_slots_.push_back(own_slot);
      num_coords_ = std::max(num_coords_, static_cast<std::size_t>(frame.coordinate) + 1);
    }
    chain_begin_.push_back(chain_slots_.size());
    frame_indices_.emplace(frame.name, static_cast<int>(frame_names_.size()));
    frame_names_.push_back(frame.name);
  }
}

Kinematics Kinematics::withFrame(const std::string& name, int parent, const Pose3& pose) const {
  Kinematics result = *this;
  const auto p = static_cast<std::size_t>(parent);
  const Attachment& carrier = program_.frames[p];
  result.program_.frames.push_back({carrier.slot, MakeOffset(InSlot(carrier, pose))});
  for (std::size_t i = chain_begin_[p]; i < chain_begin_[p + 1]; ++i) {
    result.chain_slots_.push_back(chain_slots_[i]);
  }
  result.chain_begin_.push_back(result.chain_slots_.size());
  result.frame_indices_.emplace(name, static_cast<int>(frame_names_.size()));
  result.frame_names_.push_back(name);
  Frame& added = result.frames_.emplace_back();
  added.name = name;
  added.parent = parent;
  added.origin = pose;
  return result;
}

Kinematics Kinematics::withoutFrame(int frame) const {
  Kinematics result = *this;
  const auto f = static_cast<std::size_t>(frame);
  const auto at = [frame](auto& list) { return list.begin() + frame; };
  result.frame_indices_.erase(frame_names_[f]);
  for (auto& [unused, index] : result.frame_indices_) {
    index -= index > frame ? 1 : 0;
  }
  result.frame_names_.erase(at(result.frame_names_));
  for (Frame& other : result.frames_) {
    if (other.parent == frame) {
      other.parent = frames_[f].parent;
      other.origin = frames_[f].origin * other.origin;
    }
    other.parent -= other.parent > frame ? 1 : 0;
  }
  result.frames_.erase(at(result.frames_));
  result.program_.frames.erase(at(result.program_.frames));
  const std::size_t length = chain_begin_[f + 1] - chain_begin_[f];
  const auto chain = result.chain_slots_.begin() + static_cast<std::ptrdiff_t>(chain_begin_[f]);
  result.chain_slots_.erase(chain, chain + static_cast<std::ptrdiff_t>(length));
  result.chain_begin_.erase(at(result.chain_begin_));
  for (std::size_t i = f; i < result.chain_begin_.size(); ++i) {
    result.chain_begin_[i] -= length;
  }
  return result;
}

int Kinematics::frame(const std::string& frame_name) const {
  const auto found = frame_indices_.find(frame_name);
  if (found == frame_indices_.end()) {
    util::TextStream names;
    for (const std::string& name : frame_names_) {
      names << (names.tellp() > 0 ? ", " : "") << '"' << name << '"';
    }
    KAVO_CHECK(found != frame_indices_.end(), "kinematics/kinematics", 160)
        << "There is no frame \"" << frame_name << "\". The frames are: " << names.str() << ".";
  }
  return found->second;
}

namespace {

void RunStepAt(const Kinematics::Step& step, const internal::Columns* parent, const Eigen::VectorXd& q,
               internal::Columns* slot) {
  double motion = step.value(q[step.coordinate]);
  double cos = 0.0;
  if (step.motion == Kinematics::Motion::kRevolute) {
    internal::SinCos(motion, &motion, &cos);
  }
  internal::RunStep(step, parent, motion, cos, slot);
}

}  // namespace

RigidTransform Kinematics::transform(const Eigen::VectorXd& q, int frame) const {
  const auto f = static_cast<std::size_t>(frame);
  // The one that carries, and the one that is carried, in turns.
  internal::Columns slots[2];
  const internal::Columns* parent = nullptr;
  for (std::size_t i = chain_begin_[f]; i < chain_begin_[f + 1]; ++i) {
    internal::Columns* const slot = parent == &slots[0] ? &slots[1] : &slots[0];
    RunStepAt(program_.steps[static_cast<std::size_t>(chain_slots_[i])], parent, q, slot);
    parent = slot;
  }
  RigidTransform result;
  internal::PlaceFrame(program_.frames[f], parent, &result);
  return result;
}

Eigen::Vector3d Kinematics::position(const Eigen::VectorXd& q, int frame) const {
  return transform(q, frame).translation;
}

Eigen::MatrixXd Kinematics::positionJacobian(const Eigen::VectorXd& q, int frame) const {
  const auto f = static_cast<std::size_t>(frame);
  const std::size_t begin = chain_begin_[f];
  const std::size_t length = chain_begin_[f + 1] - begin;
  std::vector<internal::Columns> slots(length);
  const internal::Columns* last = nullptr;
  for (std::size_t i = 0; i < length; ++i) {
    RunStepAt(program_.steps[static_cast<std::size_t>(chain_slots_[begin + i])], last, q, &slots[i]);
    last = &slots[i];
  }
  RigidTransform placed;
  internal::PlaceFrame(program_.frames[f], last, &placed);

  Eigen::MatrixXd jacobian = Eigen::MatrixXd::Zero(3, static_cast<Eigen::Index>(num_coords_));
  for (std::size_t i = 0; i < length; ++i) {
    const Step& step = program_.steps[static_cast<std::size_t>(chain_slots_[begin + i])];
    Eigen::Vector3d derivative;
    if (step.motion == Motion::kRevolute) {
      const Eigen::Vector3d axis = slots[i].axis(step.axis) * step.sign;
      derivative = Cross(axis, placed.translation - slots[i].position());
    } else if (i == 0) {
      derivative = step.slide;
    } else {
      derivative = internal::SlideInBase(step, slots[i - 1]);
    }
    // Joints that follow one another add up.
    jacobian.col(step.coordinate) += step.ratio ? derivative * step.ratio->multiplier : derivative;
  }
  return jacobian;
}

Kinematics::Plan Kinematics::plan(const std::vector<int>& frames) const {
  std::vector<char> needed(program_.steps.size(), 0);
  for (const int frame : frames) {
    const auto f = static_cast<std::size_t>(frame);
    for (std::size_t i = chain_begin_[f]; i < chain_begin_[f + 1]; ++i) {
      needed[static_cast<std::size_t>(chain_slots_[i])] = 1;
    }
  }
  Plan result;
  std::vector<int> new_slots(program_.steps.size(), -1);
  for (std::size_t slot = 0; slot < program_.steps.size(); ++slot) {
    if (needed[slot] != 0) {
      new_slots[slot] = static_cast<int>(result.steps.size());
      Step step = program_.steps[slot];
      step.parent = step.parent < 0 ? -1 : new_slots[static_cast<std::size_t>(step.parent)];
      result.steps.push_back(step);
    }
  }
  for (const int frame : frames) {
    Attachment attachment = program_.frames[static_cast<std::size_t>(frame)];
    attachment.slot = attachment.slot < 0 ? -1 : new_slots[static_cast<std::size_t>(attachment.slot)];
    result.frames.push_back(attachment);
  }
  return result;
}

}  // namespace kavo::kinematics
