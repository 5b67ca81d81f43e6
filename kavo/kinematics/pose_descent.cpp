#include "kavo/kinematics/pose_descent_internal.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "kavo/kinematics/angle_internal.h"
#include "kavo/kinematics/sin_cos_internal.h"
#include "kavo/math/constants_internal.h"

namespace kavo::kinematics::internal {

namespace {

// Of the squared error, and at least; coordinates and errors are in units of about one.
constexpr double kDamping = 0.1;
constexpr double kLeastDamping = 1e-14;

// Keeps what rounding costs in placing a frame another way out of the tolerance.
constexpr double kWithin = 1.0 - 1e-6;

// A descent ends when so many steps in a row have not brought the squared error below a share.
constexpr int kStepsToFall = 4;

// Of a descent that takes no step uphill: what the damping is multiplied by where one is taken and divided by
// where not, and the share of the squared error that is no gain.
constexpr double kEase = 0.3;
constexpr double kSettled = 1e-9;

// The room that a tolerance leaves, and from which on.
constexpr double kRoom = 0.9;
constexpr double kLeastToleranceWithRoom = 1e-3;

double Length(const double* v, const std::array<bool, 3>& counts) {
  double sum = 0.0;
  for (std::size_t i = 0; i < 3; ++i) {
    sum += counts[i] ? v[i] * v[i] : 0.0;
  }
  return std::sqrt(sum);
}

// Vector part, then the real one, which is not negative.
void ToQuaternion(const Eigen::Matrix3d& r, double* quaternion) {
  // By the largest of the four, of which the others are quotients.
  const double squares[4] = {1.0 + r(0, 0) - r(1, 1) - r(2, 2), 1.0 - r(0, 0) + r(1, 1) - r(2, 2),
                             1.0 - r(0, 0) - r(1, 1) + r(2, 2), 1.0 + r(0, 0) + r(1, 1) + r(2, 2)};
  const int largest = static_cast<int>(std::max_element(squares, squares + 4) - squares);
  const double four_times = 2.0 * std::sqrt(squares[largest]);
  const double sums[3] = {r(2, 1) + r(1, 2), r(0, 2) + r(2, 0), r(1, 0) + r(0, 1)};
  const double differences[3] = {r(2, 1) - r(1, 2), r(0, 2) - r(2, 0), r(1, 0) - r(0, 1)};
  for (int i = 0; i < 4; ++i) {
    if (i == largest) {
      quaternion[i] = 0.25 * four_times;
    } else if (i == 3 || largest == 3) {
      quaternion[i] = differences[std::min(i, largest)] / four_times;
    } else {
      quaternion[i] = sums[3 - i - largest] / four_times;
    }
  }
  if (quaternion[3] < 0.0) {
    for (int i = 0; i < 4; ++i) {
      quaternion[i] = -quaternion[i];
    }
  }
}

// Solves (A A^T + damping) x = b for `size` rows of A, at most 6, by the factors L D L^T. Entry (i, k) of A
// is a[i * row_stride + k * column_stride].
void SolveDamped(const double* a, std::size_t size, std::size_t length, std::size_t row_stride,
                 std::size_t column_stride, double damping, const double* b, double* x) {
  double lower[6][6];
  double pivots[6];
  for (std::size_t i = 0; i < size; ++i) {
    for (std::size_t j = 0; j <= i; ++j) {
      double sum = i == j ? damping : 0.0;
      for (std::size_t k = 0; k < length; ++k) {
        sum += a[i * row_stride + k * column_stride] * a[j * row_stride + k * column_stride];
      }
      lower[i][j] = sum;
    }
  }
  for (std::size_t j = 0; j < size; ++j) {
    for (std::size_t i = j; i < size; ++i) {
      for (std::size_t k = 0; k < j; ++k) {
        lower[i][j] -= lower[i][k] * pivots[k] * lower[j][k];
      }
    }
    // No less than without rounding.
    pivots[j] = std::fmax(lower[j][j], 0.5 * damping);
    for (std::size_t i = j + 1; i < size; ++i) {
      lower[i][j] /= pivots[j];
    }
    x[j] = b[j];
    for (std::size_t k = 0; k < j; ++k) {
      x[j] -= lower[j][k] * x[k];
    }
  }
  for (std::size_t j = size; j-- > 0;) {
    x[j] /= pivots[j];
    for (std::size_t i = j + 1; i < size; ++i) {
      x[j] -= lower[i][j] * x[i];
    }
  }
}

}  // namespace

JointLimits PoseModel::Coordinate::range() const {
  return turns ? JointLimits{turn_begin, turn_begin + math::kTwoPi} : limits.samplingRange();
}

double PoseModel::Coordinate::brought(double q, bool may_turn) const {
  if (turns && may_turn) {
    q -= math::kTwoPi * std::floor((q - turn_begin) / math::kTwoPi);
  }
  return std::fmin(std::fmax(q, limits.min), limits.max);
}

PoseModel::PoseModel(const Kinematics& model, int frame, const std::vector<JointLimits>& limits)
    : plan(model.plan({frame})) {
  std::vector<int> local(limits.size(), -1);
  for (const Kinematics::Step& step : plan.steps) {
    local[static_cast<std::size_t>(step.coordinate)] = 0;
  }
  for (std::size_t c = 0; c < limits.size(); ++c) {
    if (local[c] == 0) {
      local[c] = static_cast<int>(coordinates.size());
      Coordinate coordinate;
      coordinate.index = static_cast<Eigen::Index>(c);
      coordinate.limits = limits[c];
      coordinate.turns = limits[c].isUnlimited() || limits[c].max - limits[c].min >= math::kTwoPi;
      coordinates.push_back(coordinate);
    }
  }
  double reach = 0.0;
  const auto add_length = [&reach](const Eigen::Vector3d& v) {
    reach += std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
  };
  for (Kinematics::Step& step : plan.steps) {
    step.coordinate = local[static_cast<std::size_t>(step.coordinate)];
    Coordinate& coordinate = coordinates[static_cast<std::size_t>(step.coordinate)];
    const double multiplier = step.ratio ? step.ratio->multiplier : 1.0;
    coordinate.turns = coordinate.turns && step.motion == Kinematics::Motion::kRevolute &&
                       std::floor(multiplier) == multiplier;
    add_length(step.origin.transform.translation);
  }
  add_length(plan.frames.front().offset.transform.translation);
  unit_length = reach > 0.0 ? 0.25 * reach : 1.0;
  for (auto step = plan.steps.rbegin(); step != plan.steps.rend(); ++step) {
    coordinates[static_cast<std::size_t>(step->coordinate)].unit =
        step->motion == Kinematics::Motion::kPrismatic ? unit_length : 1.0;
  }
}

void PoseModel::setAnchor(const Eigen::VectorXd& anchor) {
  for (Coordinate& coordinate : coordinates) {
    if (coordinate.turns) {
      const double begin = anchor[coordinate.index] - math::kPi;
      coordinate.turn_begin =
          std::fmin(std::fmax(begin, coordinate.limits.min), coordinate.limits.max - math::kTwoPi);
    }
  }
}

PoseRoom::PoseRoom(const PoseTarget& target, double unit_length) {
  if (target.position_tolerance > kLeastToleranceWithRoom) {
    position = kRoom * target.position_tolerance / unit_length;
  }
  if (target.orientation_tolerance > kLeastToleranceWithRoom) {
    double sine = 0.0;
    double cosine = 0.0;
    SinCos(0.5 * std::fmin(kRoom * target.orientation_tolerance, math::kPi), &sine, &cosine);
    rotation = 2.0 * sine;
  }
}

PoseDescent::PoseDescent(const PoseModel& model)
    : model_(model),
      plan_(model.plan),
      slots_(model.plan.steps.size()),
      values_(model.plan.steps.size()),
      sines_(model.plan.steps.size()),
      cosines_(model.plan.steps.size()),
      columns_(6 * model.coordinates.size()),
      blocked_(model.coordinates.size()) {}

void PoseDescent::setTarget(const PoseTarget& target) {
  target_ = target;
  double cosine = 0.0;
  SinCos(0.5 * std::fmin(target.orientation_tolerance, math::kPi), &half_tolerance_sine_, &cosine);
  room_ = PoseRoom(target, model_.unit_length);
  const math::RigidTransform from_base(target.pose.inverse());
  for (std::size_t i = 0; i < plan_.steps.size(); ++i) {
    if (plan_.steps[i].parent < 0) {
      // What sits on the base is placed by the transform alone, whatever its kind.
      plan_.steps[i].origin.transform = from_base * model_.plan.steps[i].origin.transform;
      plan_.steps[i].slide = math::Rotate(from_base.rotation, model_.plan.steps[i].slide);
    }
  }
  Kinematics::Attachment& tool = plan_.frames.front();
  tool.offset.transform = model_.plan.frames.front().offset.transform * math::RigidTransform(target.tool);
  tool.offset.kind = Kinematics::RotationKind::kGeneral;
  if (tool.slot < 0) {
    tool.offset.transform = from_base * tool.offset.transform;
  }
}

const PoseError& PoseDescent::place(const Eigen::VectorXd& q) {
  for (std::size_t i = 0; i < plan_.steps.size(); ++i) {
    values_[i] = plan_.steps[i].value(q[plan_.steps[i].coordinate]);
  }
  SinCos(values_.data(), sines_.data(), cosines_.data(), values_.size());
  for (std::size_t i = 0; i < plan_.steps.size(); ++i) {
    if (plan_.steps[i].motion == Kinematics::Motion::kPrismatic) {
      sines_[i] = values_[i];
    }
  }
  RunPlan(plan_, sines_.data(), cosines_.data(), slots_.data(), &placed_);
  ToQuaternion(placed_.rotation, rotation_);
  error_.position = Length(placed_.translation.data(), target_.position_counts);
  error_.half_angle_sine = Length(rotation_, target_.rotation_counts);
  const double distance = std::fmax(error_.position / model_.unit_length - room_.position, 0.0);
  const double turn = std::fmax(2.0 * error_.half_angle_sine - room_.rotation, 0.0);
  error_.squared = distance * distance + turn * turn;
  return error_;
}

bool PoseDescent::isReached() const {
  return error_.position <= kWithin * target_.position_tolerance &&
         error_.half_angle_sine <= kWithin * half_tolerance_sine_;
}

double PoseDescent::angle() const {
  const double sine = std::fmin(error_.half_angle_sine, 1.0);
  return 2.0 * Angle(sine, std::sqrt(1.0 - sine * sine));
}

double PoseDescent::damping() const { return kDamping * error_.squared + kLeastDamping; }

void PoseDescent::step(Eigen::VectorXd& q, double damping, bool may_turn) {
  setColumns(q);
  const std::size_t rows = static_cast<std::size_t>(num_rows_);
  const std::size_t count = model_.coordinates.size();
  double y[6];
  double change[6];
  const bool by_rows = rows <= count;
  if (by_rows) {
    SolveDamped(columns_.data(), rows, count, 1, 6, damping, rows_, y);
  } else {
    for (std::size_t c = 0; c < count; ++c) {
      y[c] = 0.0;
      for (std::size_t r = 0; r < rows; ++r) {
        y[c] += columns_[6 * c + r] * rows_[r];
      }
    }
    SolveDamped(columns_.data(), count, rows, 6, 1, damping, y, change);
  }
  for (std::size_t c = 0; c < count; ++c) {
    double by = 0.0;
    if (by_rows) {
      for (std::size_t r = 0; r < rows; ++r) {
        by += columns_[6 * c + r] * y[r];
      }
    } else {
      by = change[c];
    }
    // A target may be so far away that squares overflow.
    if (!std::isfinite(by)) {
      continue;
    }
    const PoseModel::Coordinate& coordinate = model_.coordinates[c];
    double& value = q[static_cast<Eigen::Index>(c)];
    value = coordinate.brought(value - by * coordinate.unit, may_turn);
  }
}

bool PoseDescent::descend(Eigen::VectorXd& q, int max_steps, double fall, bool may_turn) {
  double last = place(q).squared;
  for (int i = 0; !isReached(); ++i) {
    if (i % kStepsToFall == kStepsToFall - 1) {
      if (!(error_.squared < fall * last)) {
        return false;
      }
      last = error_.squared;
    }
    if (i == max_steps) {
      return false;
    }
    step(q, damping(), may_turn);
    place(q);
  }
  return true;
}

bool PoseDescent::settle(Eigen::VectorXd& q, int max_steps, bool may_turn) {
  double squared = place(q).squared;
  double damping = this->damping();
  Eigen::VectorXd next = q;
  for (int i = 0; i < max_steps && !isReached(); ++i) {
    next = q;
    step(next, damping, may_turn);
    const double next_squared = place(next).squared;
    if (next_squared < squared) {
      const bool is_settled = squared - next_squared < kSettled * squared;
      q = next;
      squared = next_squared;
      damping *= kEase;
      if (is_settled) {
        break;
      }
    } else {
      damping /= kEase;
      place(q);
    }
  }
  return isReached();
}

// What remains of the rotation, and its derivative by small turns about the axes of the target. All three
// axes: the axis times twice the sine of half of the angle, which follows a turn about it as the turn goes.
// Two of them: the same of the least rotation that brings the free axis where it belongs. One: twice that
// part of the quaternion.
void PoseDescent::setErrorRows() {
  num_rows_ = 0;
  for (int i = 0; i < 3; ++i) {
    if (target_.position_counts[static_cast<std::size_t>(i)]) {
      rows_[num_rows_++] = placed_.translation[i] / model_.unit_length;
    }
  }
  const int num_positions = num_rows_;
  const auto& counts = target_.rotation_counts;
  const int num_counts = counts[0] + counts[1] + counts[2];
  const double w = rotation_[3];
  if (num_counts == 3) {
    for (int i = 0; i < 3; ++i) {
      rows_[num_rows_++] = 2.0 * rotation_[i];
    }
  } else if (num_counts == 2) {
    const int free = counts[0] ? (counts[1] ? 2 : 1) : 0;
    const double z = rotation_[free];
    const double length = std::sqrt(w * w + z * z);
    for (int i = 0; i < 3; ++i) {
      if (i != free) {
        // Of the other two axes, x comes before y.
        const bool is_x = i == (free + 1) % 3;
        const double other = rotation_[3 - free - i];
        const double part = w * rotation_[i] + (is_x ? -z : z) * other;
        rows_[num_rows_++] = 2.0 * (length > 0.0 ? part / length : rotation_[i]);
      }
    }
  } else if (num_counts == 1) {
    rows_[num_rows_++] = 2.0 * rotation_[counts[0] ? 0 : (counts[1] ? 1 : 2)];
  }
  blocks_[0] = {0, num_positions, room_.position};
  blocks_[1] = {num_positions, num_rows_, room_.rotation};
  for (Block& block : blocks_) {
    leaveRoom(block);
  }
}

// Takes off the vector of a block what it may be long.
void PoseDescent::leaveRoom(Block& block) {
  if (block.room == 0.0) {
    return;
  }
  double squared = 0.0;
  for (int r = block.begin; r < block.end; ++r) {
    squared += rows_[r] * rows_[r];
  }
  const double length = std::sqrt(squared);
  const bool is_within = length <= block.room;
  block.share = is_within ? 0.0 : 1.0 - block.room / length;
  block.share_along = is_within ? 0.0 : 1.0;
  for (int r = block.begin; r < block.end; ++r) {
    block.direction[r - block.begin] = is_within ? 0.0 : rows_[r] / length;
    rows_[r] *= block.share;
  }
}

// The derivative of that, from the one of the whole vector.
void PoseDescent::leaveRoom(const Block& block, double* column) const {
  if (block.room == 0.0) {
    return;
  }
  double along = 0.0;
  for (int r = block.begin; r < block.end; ++r) {
    along += column[r] * block.direction[r - block.begin];
  }
  for (int r = block.begin; r < block.end; ++r) {
    column[r] = block.share * column[r] +
                (block.share_along - block.share) * along * block.direction[r - block.begin];
  }
}

void PoseDescent::setColumns(const Eigen::VectorXd& q) {
  setErrorRows();
  std::fill(columns_.begin(), columns_.end(), 0.0);
  const auto& counts = target_.rotation_counts;
  const int num_counts = counts[0] + counts[1] + counts[2];
  for (std::size_t i = 0; i < plan_.steps.size(); ++i) {
    const Kinematics::Step& step = plan_.steps[i];
    const PoseModel::Coordinate& coordinate = model_.coordinates[static_cast<std::size_t>(step.coordinate)];
    const double scale = (step.ratio ? step.ratio->multiplier : 1.0) * coordinate.unit;
    double* column = columns_.data() + std::ptrdiff_t{6} * step.coordinate;
    Eigen::Vector3d axis = Eigen::Vector3d::Zero();
    Eigen::Vector3d shift;
    if (step.motion == Kinematics::Motion::kRevolute) {
      axis = slots_[i].axis(step.axis) * (step.sign * scale);
      const Eigen::Vector3d arm = placed_.translation - slots_[i].position();
      shift = {axis[1] * arm[2] - axis[2] * arm[1], axis[2] * arm[0] - axis[0] * arm[2],
               axis[0] * arm[1] - axis[1] * arm[0]};
    } else {
      const Eigen::Vector3d slide =
          step.parent < 0 ? step.slide : SlideInBase(step, slots_[static_cast<std::size_t>(step.parent)]);
      shift = slide * scale;
    }
    for (int r = 0; r < 3; ++r) {
      if (target_.position_counts[static_cast<std::size_t>(r)]) {
        *column++ += shift[r] / model_.unit_length;
      }
    }
    for (int r = 0; r < 3; ++r) {
      if (!counts[static_cast<std::size_t>(r)]) {
        continue;
      }
      if (num_counts == 1) {
        const int a = (r + 1) % 3;
        const int b = (r + 2) % 3;
        *column++ += rotation_[3] * axis[r] + axis[a] * rotation_[b] - axis[b] * rotation_[a];
      } else {
        *column++ += axis[r];
      }
    }
  }
  for (std::size_t c = 0; c < model_.coordinates.size(); ++c) {
    const PoseModel::Coordinate& coordinate = model_.coordinates[c];
    const double value = q[static_cast<Eigen::Index>(c)];
    for (const Block& block : blocks_) {
      leaveRoom(block, columns_.data() + 6 * c);
    }
    double uphill = 0.0;
    for (int r = 0; r < num_rows_; ++r) {
      uphill += columns_[6 * c + static_cast<std::size_t>(r)] * rows_[r];
    }
    blocked_[c] =
        (value <= coordinate.limits.min && uphill > 0.0) || (value >= coordinate.limits.max && uphill < 0.0);
    if (blocked_[c] != 0) {
      std::fill_n(columns_.begin() + static_cast<std::ptrdiff_t>(6 * c), 6, 0.0);
    }
  }
}

}  // namespace kavo::kinematics::internal
