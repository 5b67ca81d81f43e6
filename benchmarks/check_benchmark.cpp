// What one validity check costs: free, colliding and mixed configurations, one by one and eight at once along
// a segment, by the number of the robot's spheres and of the obstacles; the kinematics alone; and whole
// motions, proven against sampled; and among meshes, clouds and octrees, against FCL where it is there.
//
// The one-by-one way is the default body of `Environment::CountValid`, which stops at the first configuration
// that is not valid. A sampled motion is the default body of `Environment::IsValidMotion`, at 1/32. Answers
// are compared before anything is timed; the program fails where they differ.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "benchmarks/compounds.h"
#include "benchmarks/ratio.h"
#include "kavo/kinematics/interface/kinematics_internal.h"
#include "kavo/kinematics/interface/robot_description_builder.h"
#include "kavo/kinematics/lane_sweep_internal.h"
#include "kavo/motion_planning/environment/robot_environment.h"
#include "kavo/world/world.h"

namespace {

using kavo::Pose3;
using kavo::benchmarks::BestSeconds;
using kavo::planning::CreateRobotEnvironment;
using kavo::planning::RobotEnvironment;
using kavo::planning::RobotEnvironmentConfig;

constexpr int kDimension = 7;
constexpr int kBatch = static_cast<int>(kavo::math::kNumLanes);
constexpr double kLinkLength = 0.2;
constexpr double kLimit = 2.9;
// Segments that obstacles keep clear of, so that there are free configurations at any number of obstacles.
constexpr std::size_t kNumSegments = 8;

// `kBatch` configurations, one to a column.
using Segment = Eigen::MatrixXd;

struct Motion {
  Eigen::VectorXd from;
  Eigen::VectorXd to;
};

class Random {
 public:
  double operator()(double low, double high) {
    return low + (high - low) * static_cast<double>(engine_()) * 0x1p-32;
  }
  Eigen::VectorXd configuration() {
    Eigen::VectorXd q(kDimension);
    for (double& entry : q) {
      entry = (*this)(-2.5, 2.5);
    }
    return q;
  }
  // A motion of 0.5 to 2 rad in a random direction that ends within the limits.
  Motion motion(const Eigen::VectorXd& from) {
    Eigen::VectorXd to;
    do {
      to = from + (configuration() - from).normalized() * (*this)(0.5, 2.0);
    } while (to.cwiseAbs().maxCoeff() > kLimit);
    return {from, to};
  }
  // From a random configuration in a random direction, steps of the given length.
  Segment segment(double step) {
    const Eigen::VectorXd from = configuration();
    const Eigen::VectorXd direction = (configuration() - from).normalized();
    Segment segment(kDimension, kBatch);
    for (int i = 0; i < kBatch; ++i) {
      segment.col(i) = from + direction * (step * i);
    }
    return segment;
  }

 private:
  std::mt19937 engine_{11};
};

// Seven links, joints in turns about z and y, and spheres evenly along the links.
std::unique_ptr<kavo::RobotDescription> Arm(int num_spheres) {
  kavo::RobotDescriptionBuilder builder("base");
  std::string parent = "base";
  for (int i = 0; i < kDimension; ++i) {
    kavo::Joint joint;
    joint.name = "joint" + std::to_string(i);
    joint.type = kavo::JointType::kRevolute;
    joint.parent_frame = parent;
    joint.child_frame = parent = "link" + std::to_string(i);
    joint.origin = Pose3::FromTranslation({0.0, 0.0, i == 0 ? 0.1 : kLinkLength});
    joint.axis = i % 2 == 0 ? Eigen::Vector3d::UnitZ() : Eigen::Vector3d::UnitY();
    joint.limits = kavo::kinematics::JointLimits{-kLimit, kLimit};
    builder.addJoint(joint);
  }
  for (int i = 0; i < num_spheres; ++i) {
    const double place = kDimension * (i + 0.5) / num_spheres;
    const int link = static_cast<int>(place);
    builder.addCollisionSphere("link" + std::to_string(link), {0.0, 0.0, kLinkLength * (place - link)}, 0.05);
  }
  return builder.build();
}

struct Case {
  std::string name;
  std::unique_ptr<kavo::RobotDescription> robot;
  kavo::World world;
  std::vector<Segment> free;

  RobotEnvironmentConfig config() const {
    return {robot.get(), world.view(), Eigen::VectorXd::Ones(kDimension), 100, 1, 1};
  }
};

// Where the spheres of the robot are at the configurations, one to a column.
std::vector<kavo::math::Sphere> Occupied(const Case& subject, const std::vector<Eigen::MatrixXd>& free) {
  const RobotEnvironmentConfig config = subject.config();
  std::vector<kavo::math::Sphere> occupied;
  for (const Eigen::MatrixXd& configurations : free) {
    for (const std::string& frame : config.FrameNames()) {
      const auto spheres = config.CollisionSpheres(frame);
      for (const auto& q : configurations.colwise()) {
        const Pose3 pose = config.Kinematics()->pose(q, config.Kinematics()->frame(frame));
        for (const kavo::math::Sphere& sphere : spheres) {
          occupied.push_back({pose * sphere.center, sphere.radius});
        }
      }
    }
  }
  return occupied;
}

kavo::ObstacleShape ShapeOfSize(int kind, double size) {
  switch (kind) {
    case 0:
      return kavo::BoxObstacle{{size, 0.7 * size, 0.4 * size}};
    case 1:
      return kavo::SphereObstacle{0.5 * size};
    default:
      return kavo::CylinderObstacle{0.3 * size, size};
  }
}

// Whether an obstacle touches none of the spheres.
bool IsClear(const kavo::ObstacleShape& shape, const Pose3& pose, double size,
             const std::vector<kavo::math::Sphere>& spheres) {
  // No point of any shape is farther from its centre than the outer one, all within the inner one are solid.
  const double outer = size * 0.65;
  const double inner = size * 0.2;
  kavo::World alone;
  alone.add(shape, pose);
  const kavo::WorldView view = alone.view();
  return std::none_of(spheres.begin(), spheres.end(), [&](const kavo::math::Sphere& sphere) {
    const double distance = (sphere.center - pose.translation()).norm();
    return distance <= sphere.radius + inner ||
           (distance <= sphere.radius + outer && view.inCollision(sphere.center, sphere.radius));
  });
}

// Boxes, balls and cylinders in turns, turned at random, in a volume that the arm reaches all of, clear of
// some configurations. The more obstacles, the smaller they are.
void AddObstacles(int num_obstacles, const std::vector<Eigen::MatrixXd>& free, Random& random,
                  Case& subject) {
  const std::map<int, double> sizes = {{1, 0.4}, {10, 0.3}, {100, 0.15}, {1000, 0.08}, {10000, 0.05}};
  const std::vector<kavo::math::Sphere> occupied = Occupied(subject, free);
  for (int i = 0; i < num_obstacles;) {
    const double size = sizes.at(num_obstacles) * random(0.6, 1.0);
    const Eigen::Vector3d center(random(-1.3, 1.3), random(-1.3, 1.3), random(-1.2, 1.4));
    const double angle = random(-3.1, 3.1);
    const Pose3 pose(Eigen::Quaterniond(std::cos(0.5 * angle), std::sin(0.5 * angle), 0.0, 0.0), center);
    const kavo::ObstacleShape shape = ShapeOfSize(i % 3, size);
    if (IsClear(shape, pose, size, occupied)) {
      subject.world.add(shape, pose);
      ++i;
    }
  }
}

Case EmptyCase(int num_spheres, int num_obstacles) {
  Case subject;
  subject.name = std::to_string(num_spheres) + " spheres, " + std::to_string(num_obstacles) + " obstacles";
  subject.robot = Arm(num_spheres);
  return subject;
}

Case MakeCase(int num_spheres, int num_obstacles) {
  Random random;
  Case subject = EmptyCase(num_spheres, num_obstacles);
  for (std::size_t i = 0; i < kNumSegments; ++i) {
    subject.free.push_back(random.segment(0.1));
  }
  AddObstacles(num_obstacles, subject.free, random, subject);
  return subject;
}

// Random segments of which the first configuration, or some later one, is the first that is not valid.
std::vector<Segment> SegmentsInContact(const RobotEnvironment& environment, bool starts_free) {
  Random random;
  std::vector<Segment> segments;
  while (segments.size() < kNumSegments) {
    Segment segment = random.segment(starts_free ? 0.1 : 0.01);
    bool any_valid = false;
    bool all_valid = true;
    for (int i = 0; i < kBatch; ++i) {
      const bool is_valid = environment.IsValidConfiguration(segment.col(i));
      any_valid |= is_valid;
      all_valid &= is_valid;
    }
    const bool first_valid = environment.IsValidConfiguration(segment.col(0));
    if (starts_free ? first_valid && !all_valid : !any_valid) {
      segments.push_back(std::move(segment));
    }
  }
  return segments;
}

struct Figures {
  // Of one configuration, asked alone, on average over all of the segments.
  double single_seconds = 0.0;
  // Of a segment, one by one up to the first that is not valid.
  double one_by_one_seconds = 0.0;
  // Of a segment at once.
  double batch_seconds = 0.0;
};

bool Agree(const RobotEnvironment& environment, const std::vector<Segment>& segments) {
  return std::all_of(segments.begin(), segments.end(), [&](const Segment& segment) {
    return environment.CountValid(segment) == environment.Environment::CountValid(segment);
  });
}

Figures Measure(const RobotEnvironment& environment, const std::vector<Segment>& segments) {
  const auto num_segments = static_cast<double>(segments.size());
  std::vector<Eigen::VectorXd> configurations;
  for (const Segment& segment : segments) {
    for (int i = 0; i < kBatch; ++i) {
      configurations.emplace_back(segment.col(i));
    }
  }
  Figures figures;
  figures.single_seconds = BestSeconds([&] {
                             for (const Eigen::VectorXd& q : configurations) {
                               benchmark::DoNotOptimize(environment.IsValidConfiguration(q));
                             }
                           }) /
                           (num_segments * kBatch);
  figures.one_by_one_seconds = BestSeconds([&] {
                                 for (const Segment& segment : segments) {
                                   benchmark::DoNotOptimize(environment.Environment::CountValid(segment));
                                 }
                               }) /
                               num_segments;
  figures.batch_seconds = BestSeconds([&] {
                            for (const Segment& segment : segments) {
                              benchmark::DoNotOptimize(environment.CountValid(segment));
                            }
                          }) /
                          num_segments;
  return figures;
}

bool CompareKinematics(const Case& subject) {
  const RobotEnvironmentConfig config = subject.config();
  const auto& model = dynamic_cast<const kavo::KinematicsInternal&>(*config.Kinematics()).model();
  std::vector<int> indices;
  std::vector<kavo::Kinematics::FrameHandle> handles;
  for (const std::string& name : config.FrameNames()) {
    handles.push_back(config.Kinematics()->frame(name));
    indices.push_back(handles.back().index());
  }
  const auto sweep = config.Kinematics()->frameSweep(handles);
  kavo::kinematics::internal::LaneSweep lane_sweep(model.plan(indices));
  const Segment& segment = subject.free.front();
  std::array<double, static_cast<std::size_t>(kDimension * kBatch)> coordinates{};
  std::vector<Eigen::VectorXd> configurations;
  for (int i = 0; i < kBatch; ++i) {
    configurations.emplace_back(segment.col(i));
    for (int c = 0; c < kDimension; ++c) {
      coordinates[static_cast<std::size_t>(c * kBatch + i)] = segment(c, i);
    }
  }
  lane_sweep.compute(coordinates.data(), kBatch);
  for (std::size_t i = 0; i < configurations.size(); ++i) {
    const auto& frames = sweep->compute(configurations[i]);
    for (std::size_t f = 0; f < frames.size(); ++f) {
      const auto& [part, offset] = lane_sweep.frames()[f];
      for (std::size_t row = 0; row < 3; ++row) {
        double placed = static_cast<double>(part->at(row, 3)[i]);
        for (std::size_t column = 0; column < 3; ++column) {
          placed += static_cast<double>(part->at(row, column)[i]) *
                    offset.translation[static_cast<Eigen::Index>(column)];
        }
        const double error = std::fabs(placed - frames[f].translation[static_cast<Eigen::Index>(row)]);
        if (!(error <= static_cast<double>(part->shift_error) +
                           static_cast<double>(part->turn_error) * offset.translation.norm() * 2)) {
          std::fprintf(stderr, "kinematics: lanes and single sweep differ\n");
          return false;
        }
      }
    }
  }
  const double at_once =
      BestSeconds([&] { benchmark::DoNotOptimize(lane_sweep.compute(coordinates.data(), kBatch)); });
  const double single = BestSeconds([&] {
    for (const Eigen::VectorXd& q : configurations) {
      benchmark::DoNotOptimize(sweep->compute(q));
    }
  });
  kavo::benchmarks::PrintRatio("kinematics, " + std::to_string(indices.size()) + " frames, 8 lanes", at_once,
                               single, kBatch);
  return true;
}

struct Row {
  Figures free;
  Figures colliding;
  Figures mixed;
};

bool MeasureCase(const Case& subject, Row& row) {
  const auto environment = CreateRobotEnvironment(subject.config());
  const std::vector<Segment> colliding = SegmentsInContact(*environment, false);
  const std::vector<Segment> mixed = SegmentsInContact(*environment, true);
  for (const std::vector<Segment>* segments : {&subject.free, &colliding, &mixed}) {
    if (!Agree(*environment, *segments)) {
      std::fprintf(stderr, "%s: batch and one by one differ\n", subject.name.c_str());
      return false;
    }
  }
  if (environment->CountValid(subject.free.front()) != kBatch) {
    std::fprintf(stderr, "%s: a segment that should be free is not\n", subject.name.c_str());
    return false;
  }
  row = {Measure(*environment, subject.free), Measure(*environment, colliding), Measure(*environment, mixed)};
  return true;
}

void Print(const char* kind, const Figures& figures) {
  std::printf(
      "ratio %8.2f    %-10s single %8.1f ns; of 8: one by one %9.1f ns, at once %9.1f ns, each %7.1f ns\n",
      figures.one_by_one_seconds / figures.batch_seconds, kind, figures.single_seconds * 1e9,
      figures.one_by_one_seconds * 1e9, figures.batch_seconds * 1e9, figures.batch_seconds / kBatch * 1e9);
}

constexpr double kResolution = 1.0 / 32.0;

bool IsProven(const RobotEnvironment& environment, const Motion& motion) {
  return environment.IsValidMotion(motion.from, motion.to, kResolution);
}

bool IsValidWhereSampled(const RobotEnvironment& environment, const Motion& motion) {
  return environment.Environment::IsValidMotion(motion.from, motion.to, kResolution);
}

// Valid motions, of which obstacles keep clear so that there are some, and invalid ones that begin on one of
// these, as those of a planner do. Prints what a proof takes of the time of sampling. False where sampling
// finds a contact on a motion that was proven.
bool MeasureMotions(int num_spheres, int num_obstacles) {
  constexpr std::size_t kNumMotions = 16;
  // Many, so that what touched first is not known from the round before.
  constexpr std::size_t kNumInvalid = 128;
  Random random;
  Case subject = EmptyCase(num_spheres, num_obstacles);
  std::vector<Motion> clear;
  std::vector<Eigen::MatrixXd> samples;
  for (std::size_t i = 0; i < kNumMotions; ++i) {
    const Motion motion = random.motion(random.configuration());
    clear.push_back(motion);
    const auto num_samples = static_cast<Eigen::Index>(std::ceil((motion.to - motion.from).norm() * 64.0));
    Eigen::MatrixXd along(kDimension, num_samples + 1);
    for (Eigen::Index k = 0; k <= num_samples; ++k) {
      const double part = static_cast<double>(k) / static_cast<double>(num_samples);
      along.col(k) = motion.from + part * (motion.to - motion.from);
    }
    samples.push_back(std::move(along));
  }
  AddObstacles(num_obstacles, samples, random, subject);
  const auto environment = CreateRobotEnvironment(subject.config());
  std::vector<Motion> valid;
  for (const Motion& motion : clear) {
    if (IsProven(*environment, motion)) {
      valid.push_back(motion);
      if (!IsValidWhereSampled(*environment, motion)) {
        std::fprintf(stderr, "%s: a motion that was proven is not valid\n", subject.name.c_str());
        return false;
      }
    }
  }
  std::vector<Motion> invalid;
  while (invalid.size() < kNumInvalid) {
    const Eigen::MatrixXd& along = samples[invalid.size() % kNumMotions];
    const auto column = static_cast<Eigen::Index>(random(0.0, static_cast<double>(along.cols())));
    const Motion motion = random.motion(along.col(column));
    if (!IsValidWhereSampled(*environment, motion)) {
      if (IsProven(*environment, motion)) {
        std::fprintf(stderr, "%s: a motion that was proven is not valid\n", subject.name.c_str());
        return false;
      }
      invalid.push_back(motion);
    }
  }
  for (const auto& [kind, motions] : {std::pair("valid", &valid), std::pair("invalid", &invalid)}) {
    const auto seconds = [&, of_kind = motions](auto check) {
      return BestSeconds([&] {
               for (const Motion& motion : *of_kind) {
                 benchmark::DoNotOptimize(check(*environment, motion));
               }
             }) /
             static_cast<double>(of_kind->size());
    };
    double proven = seconds(IsProven);
    double sampled = seconds(IsValidWhereSampled);
    for (int turn = 0; turn < 2; ++turn) {
      proven = std::min(proven, seconds(IsProven));
      sampled = std::min(sampled, seconds(IsValidWhereSampled));
    }
    std::printf("%-28s %3zu %-7s motions: proven %9.1f ns, sampled %9.1f ns, proven / sampled %5.2f\n",
                subject.name.c_str(), motions->size(), kind, proven * 1e9, sampled * 1e9, proven / sampled);
  }
  return true;
}

#ifdef KAVO_BENCHMARK_FCL
// Prints what FCL takes for a configuration of the same segments; false where it answers otherwise.
bool CompareWithFcl(const Case& subject, const kavo::ObstacleShape& shape,
                    const std::vector<Segment>& segments, const char* kind, const Figures& ours,
                    bool is_same_shape) {
  const RobotEnvironmentConfig config = subject.config();
  const auto environment = CreateRobotEnvironment(subject.config());
  std::vector<kavo::Kinematics::FrameHandle> handles;
  std::vector<std::vector<kavo::math::Sphere>> spheres;
  for (const std::string& name : config.FrameNames()) {
    handles.push_back(config.Kinematics()->frame(name));
    spheres.push_back(config.CollisionSpheres(name));
  }
  const auto sweep = config.Kinematics()->frameSweep(handles);
  kavo::benchmarks::FclCompound fcl(shape);
  const auto is_free = [&](const Eigen::VectorXd& q) {
    const auto& frames = sweep->compute(q);
    // From the hand on, as ours does.
    for (std::size_t i = frames.size(); i-- > 0;) {
      for (const kavo::math::Sphere& sphere : spheres[i]) {
        if (fcl.touches(frames[i] * sphere.center, sphere.radius)) {
          return false;
        }
      }
    }
    return true;
  };
  std::vector<Eigen::VectorXd> configurations;
  std::size_t num_different = 0;
  for (const Segment& segment : segments) {
    for (int i = 0; i < kBatch; ++i) {
      configurations.emplace_back(segment.col(i));
      num_different += is_free(segment.col(i)) == environment->IsValidConfiguration(segment.col(i)) ? 0 : 1;
    }
  }
  const double seconds = BestSeconds([&] {
                           for (const Eigen::VectorXd& q : configurations) {
                             benchmark::DoNotOptimize(is_free(q));
                           }
                         }) /
                         static_cast<double>(configurations.size());
  std::printf("ratio %8.2f    %-10s FCL %10.1f ns; %.1f to a single check; %zu of %zu answers differ\n",
              seconds / (ours.batch_seconds / kBatch), kind, seconds * 1e9, seconds / ours.single_seconds,
              num_different, configurations.size());
  return !is_same_shape || num_different == 0;
}
#endif

// The arm among as many things as 100 obstacles, made of very many parts. False where answers differ.
bool MeasureCompounds() {
  constexpr std::size_t kNumBalls = 60;
  Random random;
  Case empty = EmptyCase(60, 0);
  for (std::size_t i = 0; i < kNumSegments; ++i) {
    empty.free.push_back(random.segment(0.1));
  }
  const auto balls = kavo::benchmarks::BumpyBalls(kNumBalls, Occupied(empty, empty.free), random);
  const auto seconds_of = [](const auto& call) {
    const auto begin = std::chrono::steady_clock::now();
    call();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  };
  struct Shape {
    std::string name;
    kavo::ObstacleShape shape;
    bool is_same_in_fcl;
  };
  std::vector<Shape> shapes;
  for (const std::size_t count : {1000U, 100000U}) {
    const kavo::MeshObstacle mesh = kavo::benchmarks::MeshOf(balls, count);
    // FCL knows the surface only.
    shapes.push_back(
        {"mesh of " + std::to_string(mesh.mesh->triangles().size()) + " triangles", mesh, false});
  }
  for (const std::size_t count : {10000U, 100000U, 1000000U}) {
    std::vector<Eigen::Vector3d> points = kavo::benchmarks::PointsOn(balls, count, random);
    shapes.push_back(
        {"cloud of " + std::to_string(count) + " points",
         kavo::PointCloudObstacle{std::make_shared<const kavo::PointCloud>(std::move(points), 0.005)},
         false});
  }
  for (const double size : {0.01, 0.004}) {
    const kavo::OctreeObstacle octree =
        kavo::benchmarks::OctreeOf(kavo::benchmarks::PointsOn(balls, 3000000, random), size);
    shapes.push_back(
        {"octree of " + std::to_string(octree.octree->cells().size()) + " leaves", octree, true});
  }
  for (const auto& [name, shape, is_same_in_fcl] : shapes) {
    Case subject = EmptyCase(60, 0);
    subject.name = "60 spheres, " + name;
    subject.free = empty.free;
    subject.world.add(shape, Pose3());
    const double view_seconds = seconds_of([&] { subject.world.view(); });
    Row row;
    if (!MeasureCase(subject, row)) {
      return false;
    }
    std::printf("%s (snapshot in %.1f us)\n", subject.name.c_str(), view_seconds * 1e6);
    Print("free", row.free);
    Print("colliding", row.colliding);
    Print("mixed", row.mixed);
#ifdef KAVO_BENCHMARK_FCL
    const auto environment = CreateRobotEnvironment(subject.config());
    if (!CompareWithFcl(subject, shape, subject.free, "free", row.free, is_same_in_fcl) ||
        !CompareWithFcl(subject, shape, SegmentsInContact(*environment, false), "colliding", row.colliding,
                        is_same_in_fcl)) {
      std::fprintf(stderr, "%s: FCL answers otherwise\n", subject.name.c_str());
      return false;
    }
#endif
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 1;
  }
  if (!CompareKinematics(MakeCase(60, 1)) || !MeasureCompounds()) {
    return 1;
  }
  for (const int num_spheres : {20, 60, 200}) {
    std::map<int, Row> rows;
    for (const int num_obstacles : {1, 10, 100, 1000, 10000}) {
      const Case subject = MakeCase(num_spheres, num_obstacles);
      Row& row = rows[num_obstacles];
      if (!MeasureCase(subject, row)) {
        return 1;
      }
      std::printf("%s\n", subject.name.c_str());
      Print("free", row.free);
      Print("colliding", row.colliding);
      Print("mixed", row.mixed);
    }
    std::printf("%d spheres, 10000 obstacles to 100, free: single %.2f times the time, at once %.2f times\n",
                num_spheres, rows[10000].free.single_seconds / rows[100].free.single_seconds,
                rows[10000].free.batch_seconds / rows[100].free.batch_seconds);
  }
  for (const int num_spheres : {20, 60, 200}) {
    for (const int num_obstacles : {10, 100, 1000, 10000}) {
      if (!MeasureMotions(num_spheres, num_obstacles)) {
        return 1;
      }
    }
  }
  return 0;
}
