#include "kavo/kinematics/interface/frame_pairs.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <optional>
#include <set>

#include "kavo/kinematics/interface/frame_sweep.h"
#include "kavo/kinematics/interface/robot_description_internal.h"
#include "kavo/kinematics/sin_cos_internal.h"
#include "kavo/math/bounding_sphere.h"
#include "kavo/math/rigid_transform.h"
#include "kavo/util/log_message.h"
#include "kavo/util/random_generator.h"

namespace kavo {

namespace {

constexpr char kFile[] = "kinematics/interface/frame_pairs";

// Far above what rounding costs in placing a sphere, far below what anybody calls a gap.
constexpr double kMargin = 1e-6;

using Model = kinematics::Kinematics;
using math::RigidTransform;
using math::Sphere;

const RobotDescriptionInternal& Internal(const RobotDescription& robot) {
  // Says so if the description is of another kind.
  ExtractJointLimits(&robot);
  return static_cast<const RobotDescriptionInternal&>(robot);
}

// The spheres of one frame.
struct Shape {
  std::string frame;
  int index = 0;
  std::vector<Sphere> spheres;
  Sphere bound;
};

std::vector<Shape> ShapesOf(const RobotDescriptionInternal& robot, const Kinematics& kinematics) {
  std::vector<Shape> shapes;
  for (const std::string& frame : robot.collision().frames) {
    std::vector<Sphere> spheres = robot.collision().spheresOf(frame);
    const Sphere bound = math::ComputeBoundingSphere(spheres);
    shapes.push_back({frame, kinematics.frame(frame).index(), std::move(spheres), bound});
  }
  return shapes;
}

bool Touch(const Sphere& a, const Sphere& b) {
  const double reach = a.radius + b.radius;
  return (a.center - b.center).squaredNorm() <= reach * reach;
}

std::vector<Sphere> Placed(const RigidTransform& pose, const std::vector<Sphere>& spheres) {
  std::vector<Sphere> placed;
  placed.reserve(spheres.size());
  for (const Sphere& sphere : spheres) {
    placed.push_back({pose * sphere.center, sphere.radius});
  }
  return placed;
}

bool Touch(const Shape& a, const RigidTransform& pose_a, const Shape& b, const RigidTransform& pose_b) {
  if (!Touch({pose_a * a.bound.center, a.bound.radius}, {pose_b * b.bound.center, b.bound.radius})) {
    return false;
  }
  const std::vector<Sphere> placed_b = Placed(pose_b, b.spheres);
  for (const Sphere& sphere : Placed(pose_a, a.spheres)) {
    for (const Sphere& other : placed_b) {
      if (Touch(sphere, other)) {
        return true;
      }
    }
  }
  return false;
}

// The moving joints between two frames, and where the frames are as these move.
class Linkage {
 public:
  Linkage(const Model& model, const Shape& a, const Shape& b)
      : a_(a), b_(b), plan_(model.plan({a.index, b.index})) {
    std::vector<int> path_a = Chain(plan_.frames[0].slot);
    std::vector<int> path_b = Chain(plan_.frames[1].slot);
    while (!path_a.empty() && !path_b.empty() && path_a.back() == path_b.back()) {
      path_a.pop_back();
      path_b.pop_back();
    }
    num_a_ = path_a.size();
    order_ = path_a;
    order_.insert(order_.end(), path_b.rbegin(), path_b.rend());
    poses_.resize(plan_.steps.size());
  }

  std::size_t NumJoints() const { return order_.size(); }

  std::set<int> Coordinates() const {
    std::set<int> coordinates;
    for (const int slot : order_) {
      coordinates.insert(StepOf(slot).coordinate);
    }
    return coordinates;
  }

  // Whether every joint between the frames comes back to where it was when an unlimited coordinate has turned
  // once.
  bool IsPeriodicIn(int coordinate) const {
    return std::all_of(order_.begin(), order_.end(), [&](int slot) {
      const Model::Step& step = StepOf(slot);
      const double multiplier = step.ratio ? step.ratio->multiplier : 1.0;
      return step.coordinate != coordinate ||
             (step.motion == Model::Motion::kRevolute && std::floor(multiplier) == multiplier);
    });
  }

  // Places everything, relative to what carries both frames, for the values of the coordinates.
  void Place(const Eigen::VectorXd& q) {
    for (std::size_t i = 0; i < order_.size(); ++i) {
      // From what carries both frames outwards: the first part of the order leads there.
      const std::size_t position = i < num_a_ ? num_a_ - 1 - i : i;
      const bool is_first = position + 1 == num_a_ || position == num_a_;
      const int slot = order_[position];
      const Model::Step& step = StepOf(slot);
      const RigidTransform parent =
          is_first ? RigidTransform() : poses_[static_cast<std::size_t>(step.parent)];
      const double value = step.value(q[step.coordinate]);
      RigidTransform pose = step.origin.transform;
      if (step.motion == Model::Motion::kPrismatic) {
        pose.translation += value * step.slide;
      } else {
        double sin = 0.0;
        double cos = 0.0;
        kinematics::internal::SinCos(value * step.sign, &sin, &cos);
        const Eigen::Index u = (step.axis + 1) % 3;
        const Eigen::Index v = (step.axis + 2) % 3;
        Eigen::Matrix3d turn = Eigen::Matrix3d::Identity();
        turn(u, u) = cos;
        turn(u, v) = -sin;
        turn(v, u) = sin;
        turn(v, v) = cos;
        pose.rotation = Eigen::Matrix3d(pose.rotation * turn);
      }
      poses_[static_cast<std::size_t>(slot)] = parent * pose;
    }
    spheres_a_ = Placed(FramePose(0, num_a_ > 0), a_.spheres);
    spheres_b_ = Placed(FramePose(1, num_a_ < order_.size()), b_.spheres);
  }

  // The smallest gap between the two frames where they were placed last.
  double Gap() const {
    double gap = HUGE_VAL;
    for (const Sphere& a : spheres_a_) {
      for (const Sphere& b : spheres_b_) {
        gap = std::min(gap, (a.center - b.center).norm() - a.radius - b.radius);
      }
    }
    return gap;
  }

  // A lower bound on the gap while each coordinate is within a width of where it was placed.
  // \param share How far each coordinate contributes to what the bound is below the gap.
  double LeastGap(const Eigen::VectorXd& half_widths, Eigen::VectorXd& share) const {
    share.setZero(half_widths.size());
    double least = HUGE_VAL;
    Eigen::VectorXd moved(half_widths.size());
    for (const Sphere& b : spheres_b_) {
      moved.setZero();
      double travel = 0.0;
      // Moved one after the other from the first frame on, each joint finds the sphere where the joints
      // beyond left it, in the middle of the box: at the distance from its axis that it has there.
      for (const int slot : order_) {
        const Model::Step& step = StepOf(slot);
        const double multiplier = step.ratio ? std::fabs(step.ratio->multiplier) : 1.0;
        const double half_width = multiplier * half_widths[step.coordinate];
        // A chord is no longer than its arc, nor than the diameter.
        const double motion = step.motion == Model::Motion::kPrismatic
                                  ? half_width * step.slide.norm()
                                  : std::min(half_width, 2.0) * DistanceToAxis(slot, b.center);
        moved[step.coordinate] += motion;
        travel += motion;
      }
      for (const Sphere& a : spheres_a_) {
        const double gap = (a.center - b.center).norm() - a.radius - b.radius - travel;
        if (gap < least) {
          least = gap;
          share = moved;
        }
      }
    }
    return least;
  }

 private:
  const Model::Step& StepOf(int slot) const { return plan_.steps[static_cast<std::size_t>(slot)]; }

  // The slots that carry a slot, itself first.
  std::vector<int> Chain(int slot) const {
    std::vector<int> chain;
    for (; slot >= 0; slot = StepOf(slot).parent) {
      chain.push_back(slot);
    }
    return chain;
  }

  RigidTransform FramePose(std::size_t frame, bool moves) const {
    const Model::Attachment& attachment = plan_.frames[frame];
    return moves ? poses_[static_cast<std::size_t>(attachment.slot)] * attachment.offset.transform
                 : attachment.offset.transform;
  }

  double DistanceToAxis(int slot, const Eigen::Vector3d& point) const {
    const RigidTransform& pose = poses_[static_cast<std::size_t>(slot)];
    return (point - pose.translation).cross(pose.rotation.col(StepOf(slot).axis)).norm();
  }

  const Shape& a_;
  const Shape& b_;
  Model::Plan plan_;
  // The joints on the way from the first frame to the second one: up to what carries both, then down.
  std::vector<int> order_;
  std::size_t num_a_ = 0;
  std::vector<RigidTransform> poses_;
  std::vector<Sphere> spheres_a_;
  std::vector<Sphere> spheres_b_;
};

// Whether the frames can touch: no, yes, or not known.
std::optional<bool> CanTouch(Linkage& linkage, const std::vector<kinematics::JointLimits>& limits,
                             int max_boxes) {
  struct Box {
    Eigen::VectorXd center;
    Eigen::VectorXd half_widths;
  };
  const auto num_coordinates = static_cast<Eigen::Index>(limits.size());
  Box whole{Eigen::VectorXd::Zero(num_coordinates), Eigen::VectorXd::Zero(num_coordinates)};
  for (const int coordinate : linkage.Coordinates()) {
    const kinematics::JointLimits& given = limits[static_cast<std::size_t>(coordinate)];
    if (given.isUnlimited() && !linkage.IsPeriodicIn(coordinate)) {
      return std::nullopt;
    }
    const kinematics::JointLimits range = given.samplingRange();
    whole.center[coordinate] = range.min + 0.5 * (range.max - range.min);
    whole.half_widths[coordinate] = 0.5 * (range.max - range.min);
  }
  std::vector<Box> boxes = {whole};
  Eigen::VectorXd share;
  for (int count = 0; !boxes.empty(); ++count) {
    if (count == max_boxes) {
      return std::nullopt;
    }
    Box box = std::move(boxes.back());
    boxes.pop_back();
    linkage.Place(box.center);
    if (linkage.Gap() <= 0.0) {
      return true;
    }
    if (linkage.LeastGap(box.half_widths, share) > kMargin) {
      continue;
    }
    Eigen::Index widest = 0;
    share.maxCoeff(&widest);
    const double half = 0.5 * box.half_widths[widest];
    Box other = box;
    box.half_widths[widest] = half;
    other.half_widths[widest] = half;
    box.center[widest] -= half;
    other.center[widest] += half;
    boxes.push_back(std::move(other));
    boxes.push_back(std::move(box));
  }
  return false;
}

// Counts, for each pair, the random configurations in which it touches.
void Sample(const RobotDescriptionInternal& robot, const std::vector<Shape>& shapes,
            const FramePairOptions& options, std::vector<FramePair>& pairs) {
  const std::unique_ptr<Kinematics> kinematics = robot.kinematics();
  std::vector<Kinematics::FrameHandle> handles;
  handles.reserve(shapes.size());
  for (const Shape& shape : shapes) {
    handles.push_back(kinematics->frame(shape.frame));
  }
  const std::unique_ptr<FrameSweep> sweep = kinematics->frameSweep(handles);
  std::vector<util::RandomGenerator<double>> generators;
  for (const kinematics::JointLimits& limits : robot.jointLimits()) {
    const kinematics::JointLimits range = limits.samplingRange();
    generators.emplace_back(options.seed + static_cast<std::uint32_t>(generators.size()));
    generators.back().SetRange(range.min, range.max);
  }
  Eigen::VectorXd q(static_cast<Eigen::Index>(generators.size()));
  for (int i = 0; i < options.num_samples; ++i) {
    for (std::size_t k = 0; k < generators.size(); ++k) {
      q[static_cast<Eigen::Index>(k)] = generators[k].Sample();
    }
    const std::vector<RigidTransform>& poses = sweep->compute(q);
    std::size_t pair = 0;
    for (std::size_t a = 0; a < shapes.size(); ++a) {
      for (std::size_t b = a + 1; b < shapes.size(); ++b) {
        pairs[pair].num_samples += 1;
        pairs[pair++].num_touching += Touch(shapes[a], poses[a], shapes[b], poses[b]) ? 1 : 0;
      }
    }
  }
}

FramePair::Kind KindOf(const FramePair& pair, Linkage& linkage,
                       const std::vector<kinematics::JointLimits>& limits, int max_boxes) {
  using Kind = FramePair::Kind;
  if (linkage.NumJoints() < 2) {
    return linkage.NumJoints() == 0 ? Kind::kRigid : Kind::kAdjacent;
  }
  if (pair.num_touching > 0) {
    return pair.num_touching == pair.num_samples ? Kind::kAlways : Kind::kSometimes;
  }
  const std::optional<bool> can_touch = CanTouch(linkage, limits, max_boxes);
  return !can_touch ? Kind::kNotSeen : *can_touch ? Kind::kSometimes : Kind::kNever;
}

}  // namespace

std::vector<FramePair> ClassifyFramePairs(const RobotDescription& robot, const FramePairOptions& options) {
  KAVO_CHECK(options.num_samples > 0, kFile, 1)
      << "The number of samples [" << options.num_samples << "] must be positive.";
  const RobotDescriptionInternal& description = Internal(robot);
  const Model& model = description.model();
  const std::vector<Shape> shapes = ShapesOf(description, *robot.kinematics());
  std::vector<FramePair> pairs;
  for (std::size_t a = 0; a < shapes.size(); ++a) {
    for (std::size_t b = a + 1; b < shapes.size(); ++b) {
      pairs.push_back({{shapes[a].frame, shapes[b].frame}});
    }
  }
  Sample(description, shapes, options, pairs);
  std::size_t pair = 0;
  for (std::size_t a = 0; a < shapes.size(); ++a) {
    for (std::size_t b = a + 1; b < shapes.size(); ++b, ++pair) {
      Linkage linkage(model, shapes[a], shapes[b]);
      pairs[pair].kind = KindOf(pairs[pair], linkage, description.jointLimits(), options.max_boxes);
    }
  }
  return pairs;
}

}  // namespace kavo
