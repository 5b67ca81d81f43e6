// Whole queries, by trees of proven motions and by RRT-Connect, against the general planner that most users
// have today: OMPL's RRT-Connect, once with our validity check (the planners alone), once with FCL's. Same
// robot, spheres, obstacles, start, goal and step, all in one run, problem by problem in turns.
//
//   kavo_peers_benchmark                               the built-in arm at the shelf
//   kavo_peers_benchmark --problems DIR --robot FILE   published problems, laid out as for `kavo bench`
//
// Contact of the robot with itself is looked at by all of them where the robot knows its pairs: with an SRDF
// that disables some. Before anything is timed the two validity checks are compared; the program fails where
// they differ. With pairs it also prints what a check costs with them and without; `--checks-only` stops
// there.

#include <benchmark/benchmark.h>
#include <fcl/broadphase/broadphase_dynamic_AABB_tree.h>
#include <fcl/broadphase/default_broadphase_callbacks.h>
#include <fcl/narrowphase/collision.h>
#include <fcl/narrowphase/collision_object.h>
#include <ompl/base/SpaceInformation.h>
#include <ompl/base/StateValidityChecker.h>
#include <ompl/base/spaces/RealVectorStateSpace.h>
#include <ompl/geometric/PathGeometric.h>
#include <ompl/geometric/PathSimplifier.h>
#include <ompl/geometric/planners/rrt/RRTConnect.h>
#include <ompl/util/Console.h>
#include <ompl/util/RandomNumbers.h>
#include <time.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "examples/shelf.h"
#include "kavo/formats/request.h"
#include "kavo/formats/robot_file.h"
#include "kavo/formats/scene.h"
#include "kavo/math/bounding_sphere.h"
#include "kavo/math/sphere.h"
#include "kavo/motion_planning/environment/robot_environment.h"
#include "kavo/motion_planning/interface/motion_planner_config.h"
#include "kavo/motion_planning/interface/motion_planner_internal.h"
#include "kavo/motion_planning/util/path_check.h"
#include "kavo/motion_planning/util/path_proof.h"
#include "kavo/util/log.h"
#include "kavo/world/world.h"

namespace {

namespace fs = std::filesystem;
namespace ob = ompl::base;
namespace og = ompl::geometric;
using kavo::planning::CreateRobotEnvironment;
using kavo::planning::RobotEnvironment;
using kavo::planning::RobotEnvironmentConfig;
using Path = std::vector<Eigen::VectorXd>;

constexpr int kSeed = 1234;

struct Options {
  double step = 0.1;
  std::string problems;
  std::string robot;
  std::string srdf;
  std::string group;
  std::size_t per_family = std::numeric_limits<std::size_t>::max();
  double time_limit = 5.0;
  bool only_checks = false;
};

struct Problem {
  std::string family;
  kavo::World world;
  std::vector<kavo::ObstacleHandle> obstacles;
  Eigen::VectorXd start;
  Eigen::VectorXd goal;
};

RobotEnvironmentConfig Config(const kavo::RobotDescription& robot, const kavo::World& world) {
  const auto dimension = static_cast<Eigen::Index>(robot.numCSpaceCoords());
  return {&robot, world.view(), Eigen::VectorXd::Ones(dimension), 10000, 1, 1};
}

double Length(const Path& path) {
  double length = 0.0;
  for (std::size_t i = 1; i < path.size(); ++i) {
    length += (path[i] - path[i - 1]).norm();
  }
  return length;
}

// The queries of the shelf: the demonstration's, then random valid configurations to random ones and to such
// with the hand in the shelf, in turns.
std::vector<Problem> ShelfProblems(const kavo::RobotDescription& robot) {
  constexpr std::size_t kNumProblems = 50;
  kavo::World world;
  std::vector<kavo::ObstacleHandle> obstacles;
  for (const kavo::examples::Board& board : kavo::examples::ShelfBoards()) {
    obstacles.push_back(world.add(kavo::BoxObstacle{board.size}, kavo::Pose3::FromTranslation(board.center)));
  }
  obstacles.push_back(world.add(kavo::HalfSpaceObstacle{},
                                kavo::Pose3::FromTranslation({0.0, 0.0, kavo::examples::kFloorHeight})));
  const auto environment = CreateRobotEnvironment(Config(robot, world));
  std::mt19937 engine(kSeed);
  const auto near_shelf_goal = [&] {
    Eigen::VectorXd q;
    do {
      q = kavo::examples::ShelfGoal();
      for (double& entry : q) {
        entry += (static_cast<double>(engine()) * 0x1p-32 - 0.5) * 0.4;
      }
    } while (!environment->IsValidConfiguration(q));
    return q;
  };
  std::vector<Problem> problems{
      {"shelf", world, obstacles, kavo::examples::ShelfStart(), kavo::examples::ShelfGoal()}};
  while (problems.size() < kNumProblems) {
    const Eigen::VectorXd start = *environment->SampleConfiguration();
    const bool into_shelf = problems.size() % 2 == 0;
    problems.push_back({into_shelf ? "into shelf" : "anywhere", world, obstacles, start,
                        into_shelf ? near_shelf_goal() : *environment->SampleConfiguration()});
  }
  return problems;
}

std::vector<fs::path> Sorted(const fs::path& directory) {
  std::vector<fs::path> entries(fs::directory_iterator(directory), {});
  std::sort(entries.begin(), entries.end());
  return entries;
}

// The first problems of each family, leaving out those whose start or goal is not valid.
std::vector<Problem> ReadProblems(const Options& options, const kavo::RobotDescription& robot) {
  std::vector<Problem> problems;
  for (const fs::path& folder : Sorted(options.problems)) {
    if (!fs::is_directory(folder)) {
      continue;
    }
    std::size_t count = 0;
    for (const fs::path& file : Sorted(folder)) {
      const std::string stem = file.stem().string();
      if (stem.rfind("scene", 0) != 0 || count == options.per_family) {
        continue;
      }
      ++count;
      const auto request =
          kavo::formats::ReadRequest((folder / ("request" + stem.substr(5) + ".yaml")).string());
      kavo::formats::Scene scene = kavo::formats::ReadScene(file.string());
      scene.base_pose = request.base_pose.value_or(scene.base_pose);
      if (request.goals.empty() || request.goals.front().joints.empty()) {
        throw std::runtime_error(file.string() + ": the request has no goal in joint values");
      }
      Problem problem;
      problem.family = folder.filename().string();
      problem.obstacles = AddToWorld(scene, problem.world);
      const Eigen::VectorXd at_rest = kavo::formats::ConfigurationFromJoints(
          robot, scene.joint_state, robot.defaultCSpaceConfiguration());
      problem.start = kavo::formats::ConfigurationFromJoints(robot, request.start, at_rest);
      problem.goal =
          kavo::formats::ConfigurationFromJoints(robot, request.goals.front().joints, problem.start);
      const auto environment = CreateRobotEnvironment(Config(robot, problem.world));
      if (environment->IsValidConfiguration(problem.start) &&
          environment->IsValidConfiguration(problem.goal)) {
        problems.push_back(std::move(problem));
      } else {
        std::printf("left out, start or goal not valid: %s\n", file.string().c_str());
      }
    }
  }
  return problems;
}

// The robot's spheres and the obstacles as FCL objects.
//
// Where frames must not touch each other, their spheres are compared by the distance of the centres, which is
// exact and which no library beats; the balls around all spheres of a frame come first. This costs less than
// the obstacles and is done before them.
//
// The obstacles are in a dynamic AABB tree, which is set up before anything is timed. For a configuration our
// sweep places the frames; each sphere, those of the last frames first, is moved and asks the tree, and the
// first contact ends it. Contacts are counted, not computed. Half-spaces have no bounding box and are asked
// directly. Limits are looked at first.
class FclCheck {
 public:
  FclCheck(const kavo::RobotDescription& robot, const Problem& problem)
      : config_(Config(robot, problem.world)) {
    std::vector<std::pair<int, std::string>> names;
    for (const std::string& name : config_.FrameNames()) {
      names.emplace_back(config_.Kinematics()->frame(name).index(), name);
    }
    std::sort(names.rbegin(), names.rend());
    std::vector<kavo::Kinematics::FrameHandle> handles;
    std::map<std::string, std::size_t> frames;
    for (const auto& [index, name] : names) {
      Frame frame{balls_.size(), 0, kavo::math::ComputeBoundingSphere(config_.CollisionSpheres(name))};
      for (const kavo::math::Sphere& sphere : config_.CollisionSpheres(name)) {
        balls_.push_back(
            {handles.size(), sphere,
             std::make_unique<fcl::CollisionObjectd>(std::make_shared<fcl::Sphered>(sphere.radius))});
      }
      frame.end = balls_.size();
      frames[name] = handles.size();
      frames_.push_back(frame);
      handles.emplace_back(index);
    }
    for (const auto& [a, b] : config_.CollisionPairs()) {
      pairs_.emplace_back(frames.at(a), frames.at(b));
    }
    centers_.resize(balls_.size());
    sweep_ = config_.Kinematics()->frameSweep(handles);
    for (const kavo::ObstacleHandle handle : problem.obstacles) {
      add(problem.world.shape(handle), problem.world.pose(handle));
    }
    manager_.setup();
  }

  bool operator()(const Eigen::VectorXd& q) {
    const auto& limits = config_.JointLimits();
    for (std::size_t i = 0; i < limits.size(); ++i) {
      const double value = q[static_cast<Eigen::Index>(i)];
      if (!(limits[i].min <= value && value <= limits[i].max)) {
        return false;
      }
    }
    const std::vector<kavo::math::RigidTransform>& poses = sweep_->compute(q);
    for (std::size_t i = 0; i < balls_.size(); ++i) {
      centers_[i] = poses[balls_[i].frame] * balls_[i].sphere.center;
    }
    if (touchesItself(poses)) {
      return false;
    }
    for (std::size_t i = 0; i < balls_.size(); ++i) {
      const Ball& ball = balls_[i];
      ball.object->setTranslation(centers_[i]);
      ball.object->computeAABB();
      if (touches(*ball.object)) {
        return false;
      }
    }
    return true;
  }

 private:
  struct Ball {
    std::size_t frame;
    kavo::math::Sphere sphere;
    std::unique_ptr<fcl::CollisionObjectd> object;
  };
  // The balls from `begin` to `end`, and one around them all.
  struct Frame {
    std::size_t begin;
    std::size_t end;
    kavo::math::Sphere bound;
  };

  static std::shared_ptr<fcl::CollisionGeometryd> Geometry(const kavo::ObstacleShape& shape) {
    if (const auto* sphere = std::get_if<kavo::SphereObstacle>(&shape)) {
      return std::make_shared<fcl::Sphered>(sphere->radius);
    }
    if (const auto* box = std::get_if<kavo::BoxObstacle>(&shape)) {
      return std::make_shared<fcl::Boxd>(box->size);
    }
    if (const auto* cylinder = std::get_if<kavo::CylinderObstacle>(&shape)) {
      return std::make_shared<fcl::Cylinderd>(cylinder->radius, cylinder->height);
    }
    if (const auto* capsule = std::get_if<kavo::CapsuleObstacle>(&shape)) {
      return std::make_shared<fcl::Capsuled>(capsule->radius, capsule->height);
    }
    return std::make_shared<fcl::Halfspaced>(Eigen::Vector3d::UnitZ(), 0.0);
  }

  void add(const kavo::ObstacleShape& shape, const kavo::Pose3& pose) {
    fcl::Transform3d transform = fcl::Transform3d::Identity();
    transform.linear() = pose.matrix();
    transform.translation() = pose.translation();
    obstacles_.push_back(std::make_unique<fcl::CollisionObjectd>(Geometry(shape), transform));
    if (std::holds_alternative<kavo::HalfSpaceObstacle>(shape)) {
      half_spaces_.push_back(obstacles_.back().get());
    } else {
      manager_.registerObject(obstacles_.back().get());
    }
  }

  static bool Touch(const Eigen::Vector3d& center_a, double radius_a, const Eigen::Vector3d& center_b,
                    double radius_b) {
    const double reach = radius_a + radius_b;
    return (center_a - center_b).squaredNorm() <= reach * reach;
  }

  bool touchesItself(const std::vector<kavo::math::RigidTransform>& poses) const {
    for (const auto& [index_a, index_b] : pairs_) {
      const Frame& a = frames_[index_a];
      const Frame& b = frames_[index_b];
      if (!Touch(poses[index_a] * a.bound.center, a.bound.radius, poses[index_b] * b.bound.center,
                 b.bound.radius)) {
        continue;
      }
      for (std::size_t i = a.begin; i < a.end; ++i) {
        for (std::size_t j = b.begin; j < b.end; ++j) {
          if (Touch(centers_[i], balls_[i].sphere.radius, centers_[j], balls_[j].sphere.radius)) {
            return true;
          }
        }
      }
    }
    return false;
  }

  bool touches(fcl::CollisionObjectd& ball) const {
    for (const fcl::CollisionObjectd* half_space : half_spaces_) {
      fcl::CollisionResultd result;
      if (fcl::collide(&ball, half_space, fcl::CollisionRequestd(), result) > 0) {
        return true;
      }
    }
    fcl::DefaultCollisionData<double> data;
    manager_.collide(&ball, &data, fcl::DefaultCollisionFunction<double>);
    return data.result.isCollision();
  }

  RobotEnvironmentConfig config_;
  std::unique_ptr<kavo::FrameSweep> sweep_;
  std::vector<Ball> balls_;
  std::vector<Frame> frames_;
  // Those that must not touch each other.
  std::vector<std::pair<std::size_t, std::size_t>> pairs_;
  // Of all balls, as they are placed.
  std::vector<Eigen::Vector3d> centers_;
  std::vector<std::unique_ptr<fcl::CollisionObjectd>> obstacles_;
  std::vector<fcl::CollisionObjectd*> half_spaces_;
  fcl::DynamicAABBTreeCollisionManagerd manager_;
};

// Any of the checks for OMPL. Configurations go to a vector that lives on, so that nothing is allocated.
template <typename Check>
class Checker : public ob::StateValidityChecker {
 public:
  Checker(const ob::SpaceInformationPtr& space, Check check, Eigen::Index dimension)
      : ob::StateValidityChecker(space), check_(std::move(check)), q_(dimension) {}

  bool isValid(const ob::State* state) const override {
    const double* values = state->as<ob::RealVectorStateSpace::StateType>()->values;
    q_ = Eigen::Map<const Eigen::VectorXd>(values, q_.size());
    return check_(q_);
  }

 private:
  mutable Check check_;
  mutable Eigen::VectorXd q_;
};

struct Run {
  bool is_found = false;
  double plan_seconds = 0.0;
  double simplify_seconds = 0.0;
  double length = 0.0;
  bool is_proven = false;

  double Seconds() const { return plan_seconds + simplify_seconds; }
};

void Finish(const kavo::RobotDescription& robot, const Problem& problem, const Path& path, Run& run) {
  run.is_found = !path.empty();
  if (run.is_found) {
    run.length = Length(path);
    run.is_proven = kavo::planning::ProvePath(robot, problem.world.view(), path).IsFree();
  }
}

// Processor time of this thread, seconds. Queries of milliseconds lose more of a shared machine to others
// than those of microseconds: by the clock on the wall the ratios would be too good.
double ProcessorSeconds() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// The facade. Its report tells how the time divides between search and shortening.
Run RunOurs(const std::shared_ptr<kavo::RobotDescription>& robot, const Problem& problem,
            kavo::planning::CSpacePlanner planner_kind, double step) {
  kavo::planning::MotionPlannerConfig config(robot);
  config.planner = planner_kind;
  config.step_size = step;
  config.seed = kSeed;
  kavo::planning::MotionPlannerInternal planner(config, robot, problem.world.view());
  if (planner_kind == kavo::planning::CSpacePlanner::kBiRrt) {
    // Its environment is made with the first query. This one draws nothing.
    planner.planToCSpaceTarget(problem.start, problem.start, false);
  }
  const double begin = ProcessorSeconds();
  const auto results = planner.planToCSpaceTarget(problem.start, problem.goal, false);
  const double seconds = ProcessorSeconds() - begin;
  const kavo::QueryReport report = planner.queryReport();
  Run run;
  run.plan_seconds = seconds * report.search_seconds / (report.search_seconds + report.shortening_seconds);
  run.simplify_seconds = seconds - run.plan_seconds;
  Finish(*robot, problem, results.path, run);
  return run;
}

// Setting up is not timed, neither here nor above. The range of the planner is OMPL's own choice, a fifth of
// the extent of the space. Paths are shortened by dropping vertices and then by random short cuts, with
// OMPL's own limits. Its usual `simplifyMax` also rounds corners by splines, which ours does not and which
// would take OMPL longer.
template <typename Check>
Run RunOmpl(const kavo::RobotDescription& robot, const Problem& problem, const Options& options,
            Check check) {
  const auto limits = kavo::ExtractJointLimits(&robot);
  const auto dimension = static_cast<unsigned int>(limits.size());
  const auto space = std::make_shared<ob::RealVectorStateSpace>(dimension);
  ob::RealVectorBounds bounds(dimension);
  for (unsigned int i = 0; i < dimension; ++i) {
    const auto [low, high] = limits[i].samplingRange();
    bounds.setLow(i, low);
    bounds.setHigh(i, high);
  }
  space->setBounds(bounds);
  const auto information = std::make_shared<ob::SpaceInformation>(space);
  information->setStateValidityChecker(
      std::make_shared<Checker<Check>>(information, std::move(check), static_cast<Eigen::Index>(dimension)));
  information->setStateValidityCheckingResolution(options.step / space->getMaximumExtent());
  information->setup();

  const auto definition = std::make_shared<ob::ProblemDefinition>(information);
  ob::ScopedState<> start(space);
  ob::ScopedState<> goal(space);
  for (unsigned int i = 0; i < dimension; ++i) {
    start[i] = problem.start[i];
    goal[i] = problem.goal[i];
  }
  definition->setStartAndGoalStates(start, goal);
  og::RRTConnect planner(information);
  planner.setProblemDefinition(definition);
  planner.setup();
  og::PathSimplifier simplifier(information);

  Run run;
  double begin = ProcessorSeconds();
  const ob::PlannerStatus status = planner.solve(ob::timedPlannerTerminationCondition(options.time_limit));
  run.plan_seconds = ProcessorSeconds() - begin;
  Path path;
  if (status == ob::PlannerStatus::EXACT_SOLUTION) {
    auto& solution = *definition->getSolutionPath()->as<og::PathGeometric>();
    begin = ProcessorSeconds();
    simplifier.reduceVertices(solution);
    simplifier.shortcutPath(solution);
    run.simplify_seconds = ProcessorSeconds() - begin;
    for (const ob::State* state : solution.getStates()) {
      path.emplace_back(Eigen::Map<const Eigen::VectorXd>(
          state->as<ob::RealVectorStateSpace::StateType>()->values, problem.start.size()));
    }
  }
  Finish(robot, problem, path, run);
  return run;
}

// Of one check alone, seconds, summed up over the problems.
struct CheckTimes {
  double ours = 0.0;
  double fcl = 0.0;
};

template <typename Check>
double SecondsOfCheck(const std::vector<Eigen::VectorXd>& configurations, const Check& check) {
  const double begin = ProcessorSeconds();
  for (const Eigen::VectorXd& q : configurations) {
    benchmark::DoNotOptimize(check(q));
  }
  return (ProcessorSeconds() - begin) / static_cast<double>(configurations.size());
}

// Both checks on random configurations, half of them near the start. What is closer to touching than a tenth
// of a millimetre is left to rounding.
bool CompareChecks(const kavo::RobotDescription& robot, const Problem& problem, CheckTimes& times) {
  constexpr int kNumConfigurations = 200;
  constexpr double kRounding = 1e-4;
  constexpr double kFar = std::numeric_limits<double>::infinity();
  const auto ours = CreateRobotEnvironment(Config(robot, problem.world));
  FclCheck fcl_check(robot, problem);
  const auto limits = kavo::ExtractJointLimits(&robot);
  std::mt19937 engine(kSeed);
  std::vector<Eigen::VectorXd> configurations;
  for (int i = 0; i < kNumConfigurations; ++i) {
    Eigen::VectorXd q = problem.start;
    for (Eigen::Index joint = 0; joint < q.size(); ++joint) {
      const auto limit = limits[static_cast<std::size_t>(joint)].samplingRange();
      const double random = static_cast<double>(engine()) * 0x1p-32;
      q[joint] = i % 2 == 0 ? limit.min + (limit.max - limit.min) * random : q[joint] + random - 0.5;
    }
    configurations.push_back(q);
    if (ours->IsValidConfiguration(q) != fcl_check(q)) {
      const auto check = kavo::planning::CheckPath(robot, problem.world.view(), {q}, 1.0);
      const double clearance = std::min(check.clearance ? check.clearance->distance : kFar,
                                        check.self_clearance ? check.self_clearance->distance : kFar);
      if (std::fabs(clearance) > kRounding) {
        std::fprintf(stderr, "%s: the checks differ\n", problem.family.c_str());
        return false;
      }
    }
  }
  times.ours +=
      SecondsOfCheck(configurations, [&](const Eigen::VectorXd& q) { return ours->IsValidConfiguration(q); });
  times.fcl += SecondsOfCheck(configurations, [&](const Eigen::VectorXd& q) { return fcl_check(q); });
  return true;
}

// What a check costs, nanoseconds a configuration: those of an environment that looks at contact of the robot
// with itself, and of one that does not.
struct CheckCosts {
  double free = 0.0;
  double colliding = 0.0;
  double alone = 0.0;
};

// Blocks of eight configurations that are all free, along segments, and such at random of which the first
// touches an obstacle.
struct Blocks {
  std::vector<Eigen::MatrixXd> free;
  std::vector<Eigen::MatrixXd> colliding;
};

constexpr Eigen::Index kBlock = 8;

// Up to twenty of each; fewer where there is hardly a free segment.
Blocks RandomBlocks(const std::vector<kavo::kinematics::JointLimits>& limits,
                    const RobotEnvironment& with_pairs, const RobotEnvironment& without_pairs) {
  constexpr std::size_t kNumBlocks = 20;
  constexpr int kNumTries = 20000;
  constexpr double kSpacing = 1.0 / 32.0;
  const auto dimension = static_cast<Eigen::Index>(limits.size());
  std::mt19937 engine(kSeed);
  const auto random = [&engine] { return static_cast<double>(engine()) * 0x1p-32; };
  const auto random_configuration = [&] {
    Eigen::VectorXd q(dimension);
    for (Eigen::Index i = 0; i < dimension; ++i) {
      const auto [low, high] = limits[static_cast<std::size_t>(i)].samplingRange();
      q[i] = low + (high - low) * random();
    }
    return q;
  };
  Blocks blocks;
  for (int i = 0; i < kNumTries && blocks.free.size() < kNumBlocks; ++i) {
    Eigen::MatrixXd block(dimension, kBlock);
    block.col(0) = random_configuration();
    const Eigen::VectorXd step = kSpacing * (random_configuration() - block.col(0)).normalized();
    for (Eigen::Index k = 1; k < kBlock; ++k) {
      block.col(k) = block.col(0) + static_cast<double>(k) * step;
    }
    if (with_pairs.CountValid(block) == kBlock) {
      blocks.free.push_back(std::move(block));
    }
  }
  for (int i = 0; i < kNumTries && blocks.colliding.size() < kNumBlocks; ++i) {
    Eigen::MatrixXd block(dimension, kBlock);
    for (Eigen::Index k = 0; k < kBlock; ++k) {
      block.col(k) = random_configuration();
    }
    if (without_pairs.CountValid(block) == 0) {
      blocks.colliding.push_back(std::move(block));
    }
  }
  return blocks;
}

// Nanoseconds of processor time that `call` takes, the least of several rounds.
template <typename Call>
double LeastNanoseconds(const Call& call) {
  constexpr int kNumRounds = 15;
  double least = std::numeric_limits<double>::infinity();
  for (int round = 0; round < kNumRounds; ++round) {
    const double begin = ProcessorSeconds();
    call();
    least = std::min(least, ProcessorSeconds() - begin);
  }
  return least * 1e9;
}

// Nanoseconds for all blocks.
CheckCosts CostsOf(const RobotEnvironment& environment, const Blocks& blocks) {
  const auto count = [&environment](const std::vector<Eigen::MatrixXd>& of_kind) {
    return LeastNanoseconds([&] {
      for (const Eigen::MatrixXd& block : of_kind) {
        benchmark::DoNotOptimize(environment.CountValid(block));
      }
    });
  };
  std::vector<Eigen::VectorXd> free;
  for (const Eigen::MatrixXd& block : blocks.free) {
    free.insert(free.end(), block.colwise().begin(), block.colwise().end());
  }
  return {count(blocks.free), count(blocks.colliding), LeastNanoseconds([&] {
            for (const Eigen::VectorXd& q : free) {
              benchmark::DoNotOptimize(environment.IsValidConfiguration(q));
            }
          })};
}

// The same blocks for a robot with its pairs and for one that knows none.
void PrintCheckCosts(const kavo::RobotDescription& with_pairs, const kavo::RobotDescription& without_pairs,
                     const std::vector<Problem>& problems) {
  CheckCosts sums[2];
  std::size_t num_free = 0;
  std::size_t num_colliding = 0;
  for (const Problem& problem : problems) {
    const std::shared_ptr<RobotEnvironment> environments[] = {
        CreateRobotEnvironment(Config(with_pairs, problem.world)),
        CreateRobotEnvironment(Config(without_pairs, problem.world))};
    const Blocks blocks =
        RandomBlocks(kavo::ExtractJointLimits(&with_pairs), *environments[0], *environments[1]);
    num_free += blocks.free.size() * kBlock;
    num_colliding += blocks.colliding.size() * kBlock;
    for (int k = 0; k < 2; ++k) {
      const CheckCosts costs = CostsOf(*environments[k], blocks);
      sums[k].free += costs.free;
      sums[k].colliding += costs.colliding;
      sums[k].alone += costs.alone;
    }
  }
  std::printf(
      "one check, ns a configuration; %zu in free segments of eight, %zu in blocks of eight at random of "
      "which "
      "the first touches an obstacle\n",
      num_free, num_colliding);
  std::printf("  %-24s %10s %10s %10s\n", "", "free of 8", "coll. of 8", "free alone");
  constexpr const char* kNames[] = {"with self-collision", "without"};
  for (int k = 0; k < 2; ++k) {
    std::printf("  %-24s %10.0f %10.0f %10.0f\n", kNames[k], sums[k].free / static_cast<double>(num_free),
                sums[k].colliding / static_cast<double>(num_colliding),
                sums[k].alone / static_cast<double>(num_free));
  }
}

double Quantile(std::vector<double> values, double q) {
  if (values.empty()) {
    return std::nan("");
  }
  std::sort(values.begin(), values.end());
  return values[static_cast<std::size_t>(q * static_cast<double>(values.size() - 1))];
}

constexpr std::size_t kNumPlanners = 4;
using Runs = std::array<Run, kNumPlanners>;

// Quantiles are over the problems that a planner solved, ratios over those that all did.
void Print(const std::string& title, const std::vector<Runs>& all) {
  constexpr const char* kNames[kNumPlanners] = {"bi_rrt", "rrt_connect", "OMPL, our check", "OMPL, FCL"};
  std::printf("\n%s, %zu problems\n", title.c_str(), all.size());
  std::printf("  %-16s %6s %10s %10s %10s %10s %10s %10s %8s %8s\n", "", "solved", "plan 50%", "95%",
              "simplify50", "95%", "both 50%", "95%", "length", "unproven");
  std::vector<double> common[kNumPlanners];
  for (std::size_t k = 0; k < kNumPlanners; ++k) {
    std::vector<double> plan;
    std::vector<double> simplify;
    std::vector<double> both;
    std::vector<double> length;
    std::size_t num_unproven = 0;
    for (const Runs& runs : all) {
      const Run& run = runs[k];
      if (run.is_found) {
        plan.push_back(run.plan_seconds * 1e6);
        simplify.push_back(run.simplify_seconds * 1e6);
        both.push_back(run.Seconds() * 1e6);
        length.push_back(run.length);
        num_unproven += run.is_proven ? 0 : 1;
      }
      if (std::all_of(runs.begin(), runs.end(), [](const Run& other) { return other.is_found; })) {
        common[k].push_back(run.Seconds());
      }
    }
    std::printf("  %-16s %6zu %10.0f %10.0f %10.0f %10.0f %10.0f %10.0f %8.2f %8zu\n", kNames[k], plan.size(),
                Quantile(plan, 0.5), Quantile(plan, 0.95), Quantile(simplify, 0.5), Quantile(simplify, 0.95),
                Quantile(both, 0.5), Quantile(both, 0.95), Quantile(length, 0.5), num_unproven);
  }
  for (std::size_t k = 1; k < kNumPlanners; ++k) {
    std::printf(
        "  %s takes %.1f times as long as %s by medians, %.1f by 95th percentiles (%zu problems that all "
        "solve)\n",
        kNames[k], Quantile(common[k], 0.5) / Quantile(common[0], 0.5), kNames[0],
        Quantile(common[k], 0.95) / Quantile(common[0], 0.95), common[k].size());
  }
}

int Main(const Options& options) {
  std::shared_ptr<kavo::RobotDescription> robot;
  std::shared_ptr<kavo::RobotDescription> robot_without_pairs;
  if (options.problems.empty()) {
    robot = kavo::LoadFrankaRobotDescription();
  } else {
    kavo::formats::RobotFileOptions file_options;
    file_options.srdf_file = options.srdf;
    file_options.group = options.group;
    robot_without_pairs = kavo::formats::LoadRobot(options.robot, file_options).description;
    file_options.self_collision_if_listed = true;
    robot = kavo::formats::LoadRobot(options.robot, file_options).description;
  }
  const std::vector<Problem> problems =
      options.problems.empty() ? ShelfProblems(*robot) : ReadProblems(options, *robot);
  CheckTimes times;
  if (!std::all_of(problems.begin(), problems.end(),
                   [&](const Problem& problem) { return CompareChecks(*robot, problem, times); })) {
    return 1;
  }
  const double to_nanoseconds = 1e9 / static_cast<double>(problems.size());
  std::printf("one check of random configurations: ours %.0f ns, FCL %.0f ns, ratio %.1f\n",
              times.ours * to_nanoseconds, times.fcl * to_nanoseconds, times.fcl / times.ours);
  if (robot_without_pairs) {
    PrintCheckCosts(*robot, *robot_without_pairs, problems);
  }
  if (options.only_checks) {
    return 0;
  }
  std::map<std::string, std::vector<Runs>> families;
  std::vector<Runs> all;
  for (const Problem& problem : problems) {
    const auto environment = CreateRobotEnvironment(Config(*robot, problem.world));
    const Runs runs = {
        RunOurs(robot, problem, kavo::planning::CSpacePlanner::kBiRrt, options.step),
        RunOurs(robot, problem, kavo::planning::CSpacePlanner::kRrtConnect, options.step),
        RunOmpl(*robot, problem, options,
                [&environment](const Eigen::VectorXd& q) { return environment->IsValidConfiguration(q); }),
        RunOmpl(*robot, problem, options,
                [check = std::make_shared<FclCheck>(*robot, problem)](const Eigen::VectorXd& q) {
                  return (*check)(q);
                })};
    families[problem.family].push_back(runs);
    all.push_back(runs);
  }
  std::printf(
      "step %g, microseconds of processor time, OMPL's limit %g s, \"unproven\": paths that are not free "
      "everywhere\n",
      options.step, options.time_limit);
  for (const auto& [family, runs] : families) {
    Print(family, runs);
  }
  Print("all", all);
  return 0;
}

}  // namespace

// NOLINTNEXTLINE(bugprone-exception-escape): what goes wrong ends a benchmark.
int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  Options options;
  CLI::App app("Whole queries of ours and of OMPL");
  auto* const robot = app.add_option("--robot", options.robot, "URDF file");
  app.add_option("--problems", options.problems, "Folder of families of problems")->needs(robot);
  app.add_option("--srdf", options.srdf, "SRDF file");
  app.add_option("--group", options.group, "SRDF group to plan for");
  app.add_option("--per-family", options.per_family, "Only the first problems of each family");
  app.add_option("--step", options.step, "Step in c-space")->check(CLI::PositiveNumber);
  app.add_option("--time-limit", options.time_limit, "For one query of OMPL, seconds");
  app.add_flag("--checks-only", options.only_checks, "Print what a check costs and plan nothing");
  CLI11_PARSE(app, argc, argv);
  ompl::msg::setLogLevel(ompl::msg::LOG_NONE);
  ompl::RNG::setSeed(kSeed);
  kavo::util::log_level_threshold = -1;
  try {
    return Main(options);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}
